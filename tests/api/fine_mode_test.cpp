// The fine mode through the public functions.
#include <array>
#include <numeric>
#include <tuple>

#include "instance.h"

namespace test {
namespace {

void fine(zelvan_Tessaline4* handle) {
  EXPECT_EQ(zelvan_Tessaline4_setFineMode(handle, 1), kOk);
}

void fineAndHighest(zelvan_Tessaline4* handle) {
  fine(handle);
  highestSettings(handle);
}

// Mean squared difference of the luma of a 640 x 480 result to the clean scene as frame shows it.
double lumaError(const std::vector<uint8_t>& luma, int32_t frame) {
  double sum = 0;
  for (int32_t y = 0; y < 480; y += 2) {
    for (int32_t x = 0; x < 640; x += 3) {
      const double clean = std::clamp(sceneLuma(x + 1.3 * frame, y - 0.8 * frame), 0.0, 255.0);
      const double d = luma[static_cast<size_t>(y * 640 + x)] - clean;
      sum += d * d;
    }
  }
  return sum / (240 * 214);
}

TEST(FineMode, IsSetBeforeTheStart) {
  Instance instance(640, 480, 2);
  zelvan_Tessaline4* handle = instance.handle();
  int32_t mode = -1;
  EXPECT_EQ(zelvan_Tessaline4_getFineMode(handle, &mode), kOk);
  EXPECT_EQ(mode, 0);
  EXPECT_EQ(zelvan_Tessaline4_setFineMode(handle, 2), kParam);
  EXPECT_EQ(zelvan_Tessaline4_setFineMode(handle, -1), kParam);
  EXPECT_EQ(zelvan_Tessaline4_setFineMode(nullptr, 1), kParam);
  EXPECT_EQ(zelvan_Tessaline4_getFineMode(handle, nullptr), kParam);
  fine(handle);
  zelvan_FineInfo info;
  EXPECT_EQ(zelvan_Tessaline4_getFineInfo(handle, &info), kState);
  Frame output = makeFrame(kVu, 640, 480);
  EXPECT_EQ(zelvan_Tessaline4_start(handle, &output.data, 2), kOk);
  EXPECT_EQ(zelvan_Tessaline4_setFineMode(handle, 0), kState);
  EXPECT_EQ(zelvan_Tessaline4_getFineMode(handle, &mode), kOk);
  EXPECT_EQ(mode, 1);
}

TEST(FineMode, MergesToTheHundredthAndTellsIt) {
  constexpr int32_t kFrames = 6;
  const std::vector<Frame> burst = makeBurst(kVu, 640, 480, kFrames, 8.0);
  Instance instance(640, 480, kFrames);
  Frame output;
  ASSERT_EQ(run(&instance, burst, kVu, fine, &output), kOk);
  zelvan_Tessaline4* handle = instance.handle();
  zelvan_FrameInfo frames[kFrames];
  int32_t base = -1;
  for (int32_t i = 0; i < kFrames; ++i) {
    ASSERT_EQ(zelvan_Tessaline4_getFrameInfo(handle, i, &frames[i]), kOk);
    EXPECT_EQ(frames[i].mergeStatus, 0) << i;
    if (frames[i].order == 0) base = i;
  }
  ASSERT_GE(base, 0);
  // Less than an average of all frames would leave: the transform takes the rest.
  EXPECT_LT(lumaError(output.bytes, base), 64.0 / kFrames);
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
    const std::vector<Frame> burst = makeBurst(kUv, width, height, 3);
    const auto with = [&, settings = settings](int32_t workers, uint8_t fill) {
      const Settings all = [&](zelvan_Tessaline4* handle) {
        settings(handle);
        EXPECT_EQ(zelvan_Tessaline4_setCoreSetting(handle, workers, 0), kOk);
      };
      return mergeOnce(burst, kUv, all, fill);
    };
    const std::vector<uint8_t> expected = with(1, 0x00);
    for (const auto& [workers, fill] : {std::pair(2, 0xFF), {3, 0x5A}, {17, 0}, {0, 0}}) {
      EXPECT_EQ(with(workers, static_cast<uint8_t>(fill)), expected) << width << ", " << workers << " workers";
    }
  }
}

// The second half reads the frames; a reset begins anew, and the halves make what the whole makes.
TEST(FineMode, HalvesAndResets) {
  const std::vector<Frame> burst = makeBurst(kVu, 640, 480, 3);
  const std::vector<uint8_t> expected = mergeOnce(burst, kVu, fine);
  Instance instance(640, 480, 3);
  zelvan_Tessaline4* handle = instance.handle();
  ASSERT_EQ(zelvan_Tessaline4_setImageFormat(handle, kVu), kOk);
  fine(handle);
  Frame output = makeFrame(kVu, 640, 480);
  ASSERT_EQ(zelvan_Tessaline4_start(handle, &output.data, 3), kOk);
  for (int32_t round = 0; round < 2; ++round) {
    std::vector<Frame> frames = copyBurst(burst);
    for (Frame& frame : frames) ASSERT_EQ(zelvan_Tessaline4_addImage(handle, &frame.data), kOk);
    ASSERT_EQ(zelvan_Tessaline4_merge(handle), kOk);
    ASSERT_EQ(zelvan_Tessaline4_enhance(handle), kOk);
    EXPECT_EQ(output.bytes, expected) << round;
    for (size_t i = 0; i < 3; ++i) EXPECT_EQ(frames[i].bytes, burst[i].bytes) << "frames are only read";
    ASSERT_EQ(zelvan_Tessaline4_reset(handle), kOk);
  }
  ASSERT_EQ(addAndMerge(handle, burst), kOk);
  EXPECT_EQ(output.bytes, expected);
}

TEST(FineMode, TheStatedBufferSuffices) {
  for (const std::string format : {"YVU420_SEMIPLANAR", "YUV422_YUYV"}) {
    for (const auto& [width, height] : {std::pair(640, 480), {481, 641}, {1279, 959}}) {
      const std::vector<Frame> two = makeBurst(format, width, height, 2, 0.0);
      for (const size_t count : {size_t{1}, size_t{10}}) {
        SCOPED_TRACE(testing::Message() << format << ' ' << width << 'x' << height << ", " << count << " frames");
        std::vector<Frame> burst;
        while (burst.size() < count) burst.push_back(two[burst.size() % 2]);
        const Settings settings = [](zelvan_Tessaline4* handle) {
          fineAndHighest(handle);
          EXPECT_EQ(zelvan_Tessaline4_setCoreSetting(handle, 17, 0), kOk);  // scratch is a worker's own
        };
        mergeOnce(copyBurst(burst), format, settings);
      }
    }
  }
}

TEST(FineMode, RefusesWhatIsNotThere) {
  Instance instance(640, 480, 2);
  zelvan_Tessaline4* handle = instance.handle();
  fine(handle);
  Frame output = makeFrame(kVu, 640, 480);
  ASSERT_EQ(zelvan_Tessaline4_start(handle, &output.data, 2), kOk);
  Frame small = makeFrame(kVu, 640, 478);
  EXPECT_EQ(zelvan_Tessaline4_addImage(handle, &small.data), kParam);
  EXPECT_NE(zelvan_Tessaline4_getResult(handle), kOk) << "no frame was taken";
}

}  // namespace
}  // namespace test
