#include "instance.h"

namespace test {
namespace {

constexpr int32_t kFrames = 4;

// Of the frames of a burst, in the order of their capture.
std::vector<zelvan_FrameInfo> reportOf(Instance& handle, const std::vector<Frame>& burst, const Settings& settings) {
  EXPECT_EQ(handle.run(burst, settings), kOk);
  std::vector<zelvan_FrameInfo> report(kFrames);
  for (int32_t i = 0; i < kFrames; ++i) {
    EXPECT_EQ(zelvan_Tessaline4_getFrameInfo(handle, i, &report[static_cast<size_t>(i)]), kOk);
    // The older question gives the same answer; it is open up to the number to merge.
    int32_t status = -1, merged = 0;
    EXPECT_EQ(zelvan_Tessaline4_getNumberOfMergeImages(handle, &merged), kOk);
    EXPECT_EQ(zelvan_Tessaline4_getMergeStatus(handle, &status, i), i <= merged ? kOk : kParam);
    EXPECT_EQ(status, i <= merged ? report[static_cast<size_t>(i)].mergeStatus : -1);
  }
  return report;
}

TEST(FrameInfo, TellsOrderScoresAndMotionsOfTheMerge) {
  const std::vector<Frame> burst = makeBurst(kVu, 640, 480, kFrames);
  for (const auto& [sorting, toMerge] : {std::pair(1, kFrames), {0, kFrames}, {1, 2}}) {
    SCOPED_TRACE(testing::Message() << "sorting " << sorting << ", to merge " << toMerge);
    Instance handle(640, 480, kFrames);
    zelvan_FrameInfo unread;
    EXPECT_EQ(zelvan_Tessaline4_getFrameInfo(handle, kFrames, &unread), kState) << "before start";
    const auto report = reportOf(handle, burst, [s = sorting, n = toMerge](zelvan_Tessaline4* h) {
      EXPECT_EQ(zelvan_Tessaline4_setAutoSorting(h, s), kOk);
      EXPECT_EQ(zelvan_Tessaline4_setNumberOfMergeImages(h, n), kOk);
    });
    std::vector<const zelvan_FrameInfo*> ranked(kFrames, nullptr);
    for (const zelvan_FrameInfo& info : report) {
      ASSERT_TRUE(info.order >= 0 && info.order < kFrames);
      ASSERT_EQ(ranked[static_cast<size_t>(info.order)], nullptr) << "two frames in one place";
      ranked[static_cast<size_t>(info.order)] = &info;
    }
    const auto base = static_cast<double>(ranked[0] - report.data());
    for (size_t i = 0; i < report.size(); ++i) {
      const zelvan_FrameInfo& info = report[i];
      EXPECT_EQ(info.mergeStatus, info.order < toMerge ? ZELVAN_TESSALINE4_MERGED : ZELVAN_TESSALINE4_NOT_USED);
      EXPECT_EQ(info.trackFailure, 0u);
      EXPECT_EQ(info.score > 0, sorting == 1);
      EXPECT_GE(ranked[i == 0 ? 0 : i - 1]->score, ranked[i]->score);
      EXPECT_TRUE(sorting == 1 || info.order == static_cast<int32_t>(i)) << "frames keep their order";
      // Frame i shows the scene shifted by i times (1.3, -0.8); in the middle of the picture the motion is known best.
      const double steps = base - static_cast<double>(i);
      const double* m = info.motion;
      const double w = m[6] * 320 + m[7] * 240 + m[8];
      EXPECT_NEAR((m[0] * 320 + m[1] * 240 + m[2]) / w, 320 + 1.3 * steps, 0.3);
      EXPECT_NEAR((m[3] * 320 + m[4] * 240 + m[5]) / w, 240 - 0.8 * steps, 0.3);
      EXPECT_EQ(m[8], 1.0);
    }
    EXPECT_EQ(ranked[0]->motion[2], 0.0);
    for (int32_t index : {-1, kFrames}) {
      EXPECT_EQ(zelvan_Tessaline4_getFrameInfo(handle, index, &unread), kParam);
    }
    EXPECT_EQ(zelvan_Tessaline4_getFrameInfo(handle, 0, nullptr), kParam);
    EXPECT_EQ(zelvan_Tessaline4_reset(handle), kOk);
    EXPECT_EQ(zelvan_Tessaline4_getFrameInfo(handle, 0, &unread), kState) << "a new burst is open";
    EXPECT_EQ(zelvan_Tessaline4_getFrameInfo(handle, kFrames, &unread), kParam) << "arguments come first";
  }
}

TEST(FrameInfo, TellsWhyAFrameIsLeftOut) {
  std::vector<Frame> burst = makeBurst(kVu, 640, 480, kFrames);
  fillFrame(&burst[1], kVu, 120.0, 60.0, 6.0, 9);                         // far from the others
  std::fill(burst[2].bytes.begin(), burst[2].bytes.end(), uint8_t{128});  // nothing to see
  Instance handle(640, 480, kFrames);
  const auto report = reportOf(handle, burst, {});
  EXPECT_EQ(report[0].mergeStatus, ZELVAN_TESSALINE4_MERGED);
  EXPECT_EQ(report[1].mergeStatus, ZELVAN_TESSALINE4_BAD_MOTION);
  EXPECT_EQ(report[2].mergeStatus, ZELVAN_TESSALINE4_BLURRED);
  EXPECT_EQ(report[2].order, kFrames - 1);
  EXPECT_NE(report[2].trackFailure, 0u);
  EXPECT_EQ(report[2].motion[0], 1.0) << "identity";
  EXPECT_EQ(report[2].motion[2], 0.0);
}

}  // namespace
}  // namespace test
