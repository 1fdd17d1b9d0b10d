// The report on frames after a merge.
#include <algorithm>

#include "instance.h"

namespace test {
namespace {

constexpr char kFormat[] = "YVU420_SEMIPLANAR";
constexpr int32_t kFrames = 4;

struct Report {
  std::vector<zelvan_FrameInfo> frames;
  size_t base = 0;
};

Report reportOf(Instance* instance, const std::vector<Frame>& burst, const Settings& settings) {
  mergeWith(instance, burst, kFormat, settings);
  Report report;
  for (int32_t i = 0; i < static_cast<int32_t>(burst.size()); ++i) {
    zelvan_FrameInfo info;
    EXPECT_EQ(zelvan_Tessaline4_getFrameInfo(instance->handle(), i, &info), kOk);
    if (info.order == 0) report.base = static_cast<size_t>(i);
    report.frames.push_back(info);
  }
  return report;
}

TEST(FrameInfo, OpenOnlyAfterTheMergeAndForFramesOfTheBurst) {
  Instance instance(640, 480, kFrames, kFormat);
  zelvan_Tessaline4* handle = instance.handle();
  zelvan_FrameInfo info;
  EXPECT_EQ(zelvan_Tessaline4_getFrameInfo(handle, 0, &info), kState) << "before start";
  mergeWith(&instance, makeBurst(kFormat, 640, 480, kFrames), kFormat, nullptr);

  zelvan_Tessaline4 none = {nullptr};
  EXPECT_EQ(zelvan_Tessaline4_getFrameInfo(nullptr, 0, &info), kParam);
  EXPECT_EQ(zelvan_Tessaline4_getFrameInfo(&none, 0, &info), kParam);
  EXPECT_EQ(zelvan_Tessaline4_getFrameInfo(handle, 0, nullptr), kParam);
  EXPECT_EQ(zelvan_Tessaline4_getFrameInfo(handle, -1, &info), kParam);
  EXPECT_EQ(zelvan_Tessaline4_getFrameInfo(handle, kFrames, &info), kParam);
  EXPECT_EQ(zelvan_Tessaline4_getFrameInfo(handle, kFrames - 1, &info), kOk);

  EXPECT_EQ(zelvan_Tessaline4_reset(handle), kOk);
  EXPECT_EQ(zelvan_Tessaline4_getFrameInfo(handle, 0, &info), kState) << "a new burst is open";
  EXPECT_EQ(zelvan_Tessaline4_getFrameInfo(handle, kFrames, &info), kParam) << "arguments are tested first";
}

TEST(FrameInfo, TellsOrderScoresAndMotionsOfTheMerge) {
  const std::vector<Frame> burst = makeBurst(kFormat, 640, 480, kFrames);
  struct Case {
    const char* name;
    int32_t sorting;
    int32_t toMerge;
  };
  for (const Case& c : {Case{"sorted", 1, kFrames}, Case{"capture order", 0, kFrames}, Case{"the best two", 1, 2}}) {
    SCOPED_TRACE(c.name);
    Instance instance(640, 480, kFrames, kFormat);
    const Report report = reportOf(&instance, burst, [&](zelvan_Tessaline4* handle) {
      EXPECT_EQ(zelvan_Tessaline4_setAutoSorting(handle, c.sorting), kOk);
      EXPECT_EQ(zelvan_Tessaline4_setNumberOfMergeImages(handle, c.toMerge), kOk);
    });
    std::vector<const zelvan_FrameInfo*> ranked(kFrames, nullptr);
    for (size_t i = 0; i < report.frames.size(); ++i) {
      const zelvan_FrameInfo& info = report.frames[i];
      ASSERT_TRUE(info.order >= 0 && info.order < kFrames);
      ASSERT_EQ(ranked[static_cast<size_t>(info.order)], nullptr) << "two frames in one place";
      ranked[static_cast<size_t>(info.order)] = &info;
      EXPECT_EQ(info.mergeStatus, info.order < c.toMerge ? ZELVAN_TESSALINE4_MERGED : ZELVAN_TESSALINE4_NOT_USED);
      EXPECT_EQ(info.trackFailure, 0u);
      if (c.sorting == 0) {
        EXPECT_EQ(info.order, static_cast<int32_t>(i));
      }
      EXPECT_EQ(info.score > 0, c.sorting == 1);
      // Frame i shows the scene shifted by i times (1.3, -0.8); in the middle of the picture the motion is known best.
      const double steps = static_cast<double>(report.base) - static_cast<double>(i);
      const double* m = info.motion;
      const double w = m[6] * 320 + m[7] * 240 + m[8];
      EXPECT_NEAR((m[0] * 320 + m[1] * 240 + m[2]) / w, 320 + 1.3 * steps, 0.3);
      EXPECT_NEAR((m[3] * 320 + m[4] * 240 + m[5]) / w, 240 - 0.8 * steps, 0.3);
      EXPECT_EQ(info.motion[8], 1.0);
    }
    for (size_t k = 1; k < ranked.size(); ++k) EXPECT_GE(ranked[k - 1]->score, ranked[k]->score);
    EXPECT_EQ(report.frames[report.base].motion[2], 0.0);
  }
}

TEST(FrameInfo, TellsWhyAFrameIsLeftOut) {
  std::vector<Frame> burst = makeBurst(kFormat, 640, 480, kFrames);
  fillFrame(&burst[1], kFormat, 120.0, 60.0, 6.0, 9);                     // far from the others
  std::fill(burst[2].bytes.begin(), burst[2].bytes.end(), uint8_t{128});  // nothing to see
  Instance instance(640, 480, kFrames, kFormat);
  const Report report = reportOf(&instance, burst, nullptr);
  EXPECT_EQ(report.frames[0].mergeStatus, ZELVAN_TESSALINE4_MERGED);
  EXPECT_EQ(report.frames[1].mergeStatus, ZELVAN_TESSALINE4_BAD_MOTION);
  EXPECT_EQ(report.frames[2].mergeStatus, ZELVAN_TESSALINE4_BLURRED);
  EXPECT_EQ(report.frames[2].order, kFrames - 1);
  EXPECT_NE(report.frames[2].trackFailure, 0u);
  EXPECT_EQ(report.frames[2].motion[0], 1.0) << "identity";
  EXPECT_EQ(report.frames[2].motion[2], 0.0);
}

}  // namespace
}  // namespace test
