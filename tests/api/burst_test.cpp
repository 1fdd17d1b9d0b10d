// Whole bursts through the public functions.
#include <thread>
#include <tuple>

#include "instance.h"

namespace test {
namespace {

void noSharpening(zelvan_Tessaline4* handle) {
  EXPECT_EQ(zelvan_Tessaline4_setSharpnessEnhanceLevel(handle, 0), kOk);
}

// Mean squared difference of a luma plane of 640 x 480 to the clean scene, without a border.
double lumaError(const std::vector<uint8_t>& luma, int32_t frame) {
  double sum = 0;
  for (int32_t y = 24; y < 456; y += 3) {
    for (int32_t x = 24; x < 616; x += 3) {
      const double d = luma[static_cast<size_t>(y * 640 + x)] - sceneLuma(x + 1.3 * frame, y - 0.8 * frame);
      sum += d * d;
    }
  }
  return sum / (144 * 198);
}

// To the nearest of the frames, one of which is the base.
double leastError(const std::vector<uint8_t>& luma, int32_t count) {
  double least = 1e9;
  for (int32_t frame = 0; frame < count; ++frame) least = std::min(least, lumaError(luma, frame));
  return least;
}

TEST(Burst, MergingRemovesNoise) {
  const std::vector<Frame> burst = makeBurst(kVu, 640, 480, 6, 8.0);
  EXPECT_LT(leastError(mergeOnce(burst, kVu, noSharpening), 6), lumaError(burst[0].bytes, 0) / 3.5)
      << "6 frames should leave little more than a sixth of the noise power";
}

TEST(Burst, SameBytesForAnyWorkersAndMemory) {
  const std::vector<Frame> burst = makeBurst(kUv, 640, 480, 3);
  const auto with = [&](int32_t workers, uint32_t mask, uint8_t fill) {
    const Settings settings = [=](zelvan_Tessaline4* handle) {
      highestSettings(handle);
      EXPECT_EQ(zelvan_Tessaline4_setCoreSetting(handle, workers, mask), kOk);
    };
    return mergeOnce(burst, kUv, settings, fill);
  };
  const std::vector<uint8_t> expected = with(1, 0, 0x00);
  // A mask of processors that are not there must neither stop nor change the work.
  for (const auto& [workers, mask, fill] : {std::tuple(2, 0u, 0xFF),
                                            {3, 0u, 0x5A},
                                            {17, 0u, 0},
                                            {-1, 0u, 0},
                                            {0, 0u, 0},
                                            {2, 0xC0000000u, 0},
                                            {40, 0u, 0}}) {
    EXPECT_EQ(with(workers, mask, static_cast<uint8_t>(fill)), expected) << workers << " workers, mask " << mask;
  }
}

TEST(Burst, InstancesSideBySide) {
  const std::vector<Frame> burst = makeBurst(kVu, 640, 480, 3);
  const std::vector<uint8_t> expected = mergeOnce(burst);
  std::vector<uint8_t> results[2];
  std::thread threads[2];
  for (size_t i = 0; i < 2; ++i) threads[i] = std::thread([&, i] { results[i] = mergeOnce(burst); });
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(results[0], expected);
  EXPECT_EQ(results[1], expected);
}

TEST(Burst, ResetGivesTheSamePictureAgain) {
  const std::vector<Frame> burst = makeBurst(kVu, 640, 480, 3);
  const Settings settings = [](zelvan_Tessaline4* handle) {
    EXPECT_EQ(zelvan_Tessaline4_setLumaNoiseReductionLevel(handle, 4), kOk);
    EXPECT_EQ(zelvan_Tessaline4_setChromaNoiseReductionLevel(handle, 4), kOk);
  };
  const std::vector<uint8_t> first = mergeOnce(burst, kVu, settings);
  Instance instance(640, 480, 3);
  Frame output;
  EXPECT_EQ(run(&instance, burst, kVu, settings, &output), kOk);
  for (int32_t round = 0; round < 3; ++round) {
    EXPECT_EQ(output.bytes, first) << round;
    std::fill(output.bytes.begin(), output.bytes.end(), uint8_t{0});
    EXPECT_EQ(zelvan_Tessaline4_reset(instance.handle()), kOk);
    EXPECT_EQ(addAndMerge(instance.handle(), burst), kOk);
  }
}

TEST(Burst, TwoHalvesAreTheWholeButTheWeakChromaPass) {
  const std::vector<Frame> burst = makeBurst(kVu, 640, 480, 3);
  const std::vector<uint8_t> whole = mergeOnce(burst);
  Instance instance(640, 480, 3);
  zelvan_Tessaline4* handle = instance.handle();
  Frame output = makeFrame(kVu, 640, 480);
  std::vector<Frame> frames = copyBurst(burst);
  ASSERT_EQ(zelvan_Tessaline4_start(handle, &output.data, 3), kOk);
  for (Frame& frame : frames) ASSERT_EQ(zelvan_Tessaline4_addImage(handle, &frame.data), kOk);
  ASSERT_EQ(zelvan_Tessaline4_merge(handle), kOk);
  ASSERT_EQ(zelvan_Tessaline4_enhance(handle), kOk);
  EXPECT_TRUE(std::equal(whole.begin(), whole.begin() + 640 * 480, output.bytes.begin()));
  EXPECT_NE(output.bytes, whole);
}

TEST(Burst, PitchesAndPackedRecordsAgree) {
  const std::vector<Frame> burst = makeBurst(kUv, 642, 482, 3);
  constexpr int32_t kPitch = 700;
  const auto spread = [&](const std::vector<uint8_t>& bytes) {
    std::vector<uint8_t> rows(static_cast<size_t>(kPitch) * 723, 0x77);
    for (size_t y = 0; y < 723; ++y) std::memcpy(&rows[y * kPitch], &bytes[y * 642], 642);
    return rows;
  };
  std::vector<std::vector<uint8_t>> wide;
  for (const Frame& frame : burst) wide.push_back(spread(frame.bytes));
  wide.push_back(std::vector<uint8_t>(static_cast<size_t>(kPitch) * 723, 0x77));  // the output
  std::vector<zelvan_ImageDataEx> records;
  for (std::vector<uint8_t>& rows : wide) {
    records.push_back({642, 482, rows.data(), rows.data() + size_t{kPitch} * 482, nullptr, kPitch, kPitch, 0});
  }
  Instance instance(642, 482, 3);
  zelvan_Tessaline4* handle = instance.handle();
  ASSERT_EQ(zelvan_Tessaline4_setImageFormat(handle, kUv), kOk);
  ASSERT_EQ(zelvan_Tessaline4_startEx(handle, &records[3], 3), kOk);
  for (size_t i = 0; i < 3; ++i) ASSERT_EQ(zelvan_Tessaline4_addImageEx(handle, &records[i]), kOk);
  ASSERT_EQ(zelvan_Tessaline4_getResult(handle), kOk);
  EXPECT_EQ(wide[3], spread(mergeOnce(burst, kUv)));
}

// The planar and the packed road meet the semi-planar one: same luma, and the same chroma in another order.
TEST(Burst, WrappedFormatsComeBackInTheirOwnLayout) {
  constexpr size_t kLuma = 640 * 480;
  const std::vector<uint8_t> semi = mergeOnce(makeBurst(kUv, 640, 480, 3), kUv);
  const std::vector<uint8_t> planar = mergeOnce(makeBurst("YUV420_PLANAR", 640, 480, 3), "YUV420_PLANAR");
  EXPECT_TRUE(std::equal(semi.begin(), semi.begin() + kLuma, planar.begin()));
  for (size_t i = 0; i < kLuma / 4; ++i) {
    ASSERT_EQ(planar[kLuma + i], semi[kLuma + 2 * i]);
    ASSERT_EQ(planar[kLuma * 5 / 4 + i], semi[kLuma + 2 * i + 1]);
  }
  const std::vector<uint8_t> packed = mergeOnce(makeBurst("YUV422_YUYV", 640, 480, 3), "YUV422_YUYV", noSharpening);
  std::vector<uint8_t> luma(kLuma);
  for (size_t i = 0; i < kLuma; ++i) luma[i] = packed[2 * i];
  EXPECT_LT(leastError(luma, 3), 20.0);
}

}  // namespace
}  // namespace test
