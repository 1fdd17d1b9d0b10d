#include <array>
#include <numeric>

#include "instance.h"

namespace test {
namespace {

TEST(FineMode, MergesToTheHundredthAndTellsIt) {
  constexpr int32_t kFrames = 6;
  const std::vector<Frame> burst = makeBurst(kVu, 640, 480, kFrames, 8.0);
  Instance handle(640, 480, kFrames);
  ASSERT_EQ(handle.run(burst, fine), kOk);
  zelvan_FrameInfo frames[kFrames];
  int32_t base = -1;
  for (int32_t i = 0; i < kFrames; ++i) {
    ASSERT_EQ(zelvan_Tessaline4_getFrameInfo(handle, i, &frames[i]), kOk);
    EXPECT_EQ(frames[i].mergeStatus, 0) << i;
    if (frames[i].order == 0) base = i;
  }
  ASSERT_GE(base, 0);
  // Less than an average of all frames would leave: the transform takes the rest.
  EXPECT_LT(lumaError(handle.output.bytes, base), 64.0 / kFrames);
  for (int32_t i = 0; i < kFrames; ++i) {
    for (const auto& [x, y] : {std::array{0, 0}, {639, 0}, {0, 479}, {639, 479}}) {
      const double* h = frames[i].motion;
      const double w = h[6] * x + h[7] * y + h[8];
      EXPECT_NEAR((h[0] * x + h[1] * y + h[2]) / w - x, -1.3 * (i - base), 0.25) << i;
      EXPECT_NEAR((h[3] * x + h[4] * y + h[5]) / w - y, 0.8 * (i - base), 0.25) << i;
    }
  }
  zelvan_FineInfo info;
  ASSERT_EQ(zelvan_Tessaline4_getFineInfo(handle, &info), kOk);
  EXPECT_NEAR(info.noise[0], 8.0, 1.0);
  EXPECT_NEAR(info.noise[1], 8.0, 1.0);
  EXPECT_EQ(info.mapWidth, 160);
  EXPECT_EQ(info.mapHeight, 120);
  std::vector<uint8_t> map(160 * 120);
  ASSERT_EQ(zelvan_Tessaline4_getFineMap(handle, -1, map.data()), kOk);
  EXPECT_GT(std::accumulate(map.begin(), map.end(), 0.0) / (160 * 120 * 16), 0.9 * kFrames);
  zelvan_FineFrameInfo told;
  ASSERT_EQ(zelvan_Tessaline4_getFineFrameInfo(handle, (base + 1) % kFrames, &told), kOk);
  EXPECT_GT(told.share, 0.9);
  EXPECT_LT(told.residual, 0.3);
  EXPECT_EQ(zelvan_Tessaline4_getFineFrameInfo(handle, kFrames, &told), kParam);
  EXPECT_EQ(zelvan_Tessaline4_getFineMap(handle, kFrames, map.data()), kParam);
}

TEST(FineMode, SameBytesForAnyWorkersAndMemory) {
  for (const auto& [width, height, settings] :
       {std::tuple(640, 480, &fineAndHighest), {641, 483, &fine}, {643, 481, &fineAndHighest}}) {
    expectSameForAnyWorkers(makeBurst(kUv, width, height, 3), kUv, settings);
  }
}

TEST(FineMode, RefusesWhatIsNotThere) {
  Instance handle(640, 480, 2);
  zelvan_FineInfo info;
  EXPECT_EQ(zelvan_Tessaline4_getFineInfo(handle, &info), kState);
  Frame small = makeFrame(kVu, 640, 478);
  ASSERT_EQ(handle.start(fine), kOk);
  int32_t mode = 0;
  EXPECT_EQ(zelvan_Tessaline4_getFineMode(handle, &mode), kOk);
  EXPECT_EQ(mode, 1);
  EXPECT_EQ(zelvan_Tessaline4_addImage(handle, &small.data), kParam);
  EXPECT_NE(zelvan_Tessaline4_getResult(handle), kOk) << "no frame was taken";
}

}  // namespace
}  // namespace test
