// Whole bursts through the public functions.
#include <thread>

#include "instance.h"

namespace test {
namespace {

// Mean squared difference to the clean scene over luma, without a border.
double lumaError(const std::vector<uint8_t>& bytes, int32_t width, int32_t height, double shiftX, double shiftY) {
  const size_t pitch = static_cast<size_t>(width + 1) / 2 * 2;
  double sum = 0;
  int64_t n = 0;
  for (int32_t y = 24; y < height - 24; y += 3) {
    for (int32_t x = 24; x < width - 24; x += 3) {
      const double d =
          bytes[static_cast<size_t>(y) * pitch + static_cast<size_t>(x)] - sceneLuma(x + shiftX, y + shiftY);
      sum += d * d;
      ++n;
    }
  }
  return sum / static_cast<double>(n);
}

void noSharpening(zelvan_Tessaline4* handle) {
  EXPECT_EQ(zelvan_Tessaline4_setSharpnessEnhanceLevel(handle, 0), kOk);
}

TEST(Burst, MergingRemovesNoise) {
  const std::string format = "YVU420_SEMIPLANAR";
  const std::vector<Frame> burst = makeBurst(format, 640, 480, 6, 8.0);
  std::vector<int32_t> statuses;
  const std::vector<uint8_t> merged = mergeOnce(burst, format, noSharpening, 0xA5, &statuses);
  EXPECT_EQ(statuses, std::vector<int32_t>(6, 0));
  double best = 1e9;
  for (int32_t base = 0; base < 6; ++base) best = std::min(best, lumaError(merged, 640, 480, 1.3 * base, -0.8 * base));
  const double single = lumaError(burst[0].bytes, 640, 480, 0, 0);
  EXPECT_LT(best, single / 3.5) << "6 frames should leave little more than a sixth of the noise power";
}

TEST(Burst, SameBytesForAnyWorkersAndMemory) {
  const std::string format = "YUV420_SEMIPLANAR";
  const std::vector<Frame> burst = makeBurst(format, 640, 480, 3);
  const auto with = [&](int32_t workers, uint32_t mask, uint8_t fill) {
    return mergeOnce(
        burst, format,
        [=](zelvan_Tessaline4* handle) {
          highestSettings(handle);
          EXPECT_EQ(zelvan_Tessaline4_setCoreSetting(handle, workers, mask), kOk);
        },
        fill);
  };
  const std::vector<uint8_t> expected = with(1, 0, 0x00);
  struct Row {
    int32_t workers;
    uint32_t mask;
    uint8_t fill;
  };
  // A mask of processors that are not there must neither stop nor change the work.
  for (const Row& row : {Row{2, 0, 0xFF}, Row{3, 0, 0x5A}, Row{8, 0, 0}, Row{17, 0, 0}, Row{-1, 0, 0}, Row{0, 0, 0},
                         Row{2, 0xC0000000u, 0}, Row{40, 0, 0}}) {
    EXPECT_EQ(with(row.workers, row.mask, row.fill), expected) << row.workers << " workers, mask " << row.mask;
  }
}

TEST(Burst, InstancesSideBySide) {
  const std::string format = "YVU420_SEMIPLANAR";
  const std::vector<Frame> burst = makeBurst(format, 640, 480, 3);
  const std::vector<uint8_t> expected = mergeOnce(burst, format, {});
  std::vector<uint8_t> results[2];
  std::thread threads[2];
  for (size_t i = 0; i < 2; ++i) threads[i] = std::thread([&, i] { results[i] = mergeOnce(burst, format, {}); });
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(results[0], expected);
  EXPECT_EQ(results[1], expected);
}

TEST(Burst, ResetGivesTheSamePictureAgain) {
  const std::string format = "YVU420_SEMIPLANAR";
  const std::vector<Frame> burst = makeBurst(format, 640, 480, 3);
  const Settings settings = [](zelvan_Tessaline4* handle) {
    zelvan_Tessaline4_setLumaNoiseReductionLevel(handle, 4);
    zelvan_Tessaline4_setChromaNoiseReductionLevel(handle, 4);
  };
  Instance instance(640, 480, 3);
  zelvan_Tessaline4* handle = instance.handle();
  settings(handle);
  Frame output = makeFrame(format, 640, 480);
  ASSERT_EQ(zelvan_Tessaline4_start(handle, &output.data, 3), kOk);
  std::vector<uint8_t> first;
  for (int32_t round = 0; round < 2; ++round) {
    std::vector<Frame> frames = copyBurst(burst);
    for (Frame& frame : frames) ASSERT_EQ(zelvan_Tessaline4_addImage(handle, &frame.data), kOk);
    ASSERT_EQ(zelvan_Tessaline4_getResult(handle), kOk);
    if (round == 0) first = output.bytes;
    std::fill(output.bytes.begin(), output.bytes.end(), uint8_t{0});
    ASSERT_EQ(zelvan_Tessaline4_reset(handle), kOk);
    if (round == 1) break;
  }
  std::vector<Frame> frames = copyBurst(burst);
  for (Frame& frame : frames) ASSERT_EQ(zelvan_Tessaline4_addImage(handle, &frame.data), kOk);
  ASSERT_EQ(zelvan_Tessaline4_getResult(handle), kOk);
  EXPECT_EQ(output.bytes, first);
  EXPECT_EQ(mergeOnce(burst, format, settings), first);
}

TEST(Burst, TwoHalvesAreTheWholeButTheWeakChromaPass) {
  const std::string format = "YVU420_SEMIPLANAR";
  const std::vector<Frame> burst = makeBurst(format, 640, 480, 3);
  const std::vector<uint8_t> whole = mergeOnce(burst, format, {});
  Instance instance(640, 480, 3);
  zelvan_Tessaline4* handle = instance.handle();
  Frame output = makeFrame(format, 640, 480);
  std::vector<Frame> frames = copyBurst(burst);
  ASSERT_EQ(zelvan_Tessaline4_start(handle, &output.data, 3), kOk);
  for (Frame& frame : frames) ASSERT_EQ(zelvan_Tessaline4_addImage(handle, &frame.data), kOk);
  ASSERT_EQ(zelvan_Tessaline4_merge(handle), kOk);
  ASSERT_EQ(zelvan_Tessaline4_enhance(handle), kOk);
  const auto luma = [](const std::vector<uint8_t>& bytes) {
    return std::vector<uint8_t>(bytes.begin(), bytes.begin() + 640 * 480);
  };
  EXPECT_EQ(luma(output.bytes), luma(whole));
  EXPECT_NE(output.bytes, whole);
}

TEST(Burst, PitchesAndPackedRecordsAgree) {
  const std::string format = "YUV420_SEMIPLANAR";
  const std::vector<Frame> burst = makeBurst(format, 642, 482, 3);
  const std::vector<uint8_t> expected = mergeOnce(burst, format, {});
  constexpr int32_t kPitch = 700;
  const auto spread = [&](const uint8_t* bytes) {
    std::vector<uint8_t> rows(static_cast<size_t>(kPitch) * 723, 0x77);
    for (size_t y = 0; y < 723; ++y) std::memcpy(&rows[y * kPitch], bytes + y * 642, 642);
    return rows;
  };
  std::vector<std::vector<uint8_t>> wide;
  for (const Frame& frame : burst) wide.push_back(spread(frame.bytes.data()));
  wide.push_back(std::vector<uint8_t>(static_cast<size_t>(kPitch) * 723, 0x77));
  const auto record = [&](size_t i) {
    return zelvan_ImageDataEx{642,     482,    wide[i].data(), wide[i].data() + size_t{kPitch} * 482,
                              nullptr, kPitch, kPitch,         0};
  };
  Instance instance(642, 482, 3);
  zelvan_Tessaline4* handle = instance.handle();
  ASSERT_EQ(zelvan_Tessaline4_setImageFormat(handle, format.c_str()), kOk);
  zelvan_ImageDataEx output = record(3);
  ASSERT_EQ(zelvan_Tessaline4_startEx(handle, &output, 3), kOk);
  for (size_t i = 0; i < 3; ++i) {
    zelvan_ImageDataEx frame = record(i);
    ASSERT_EQ(zelvan_Tessaline4_addImageEx(handle, &frame), kOk);
  }
  ASSERT_EQ(zelvan_Tessaline4_getResult(handle), kOk);
  EXPECT_EQ(wide[3], spread(expected.data()));
}

// The planar and the packed road meet the semi-planar one: same luma, and the same chroma in another order.
TEST(Burst, WrappedFormatsComeBackInTheirOwnLayout) {
  constexpr int32_t kWidth = 640;
  constexpr int32_t kHeight = 480;
  constexpr size_t kLuma = size_t{kWidth} * kHeight;
  const std::vector<uint8_t> semi =
      mergeOnce(makeBurst("YUV420_SEMIPLANAR", kWidth, kHeight, 3), "YUV420_SEMIPLANAR", {});
  const std::vector<uint8_t> planar = mergeOnce(makeBurst("YUV420_PLANAR", kWidth, kHeight, 3), "YUV420_PLANAR", {});
  for (size_t i = 0; i < kLuma / 4; ++i) {
    ASSERT_EQ(planar[kLuma + i], semi[kLuma + 2 * i]);
    ASSERT_EQ(planar[kLuma * 5 / 4 + i], semi[kLuma + 2 * i + 1]);
  }
  EXPECT_TRUE(std::equal(semi.begin(), semi.begin() + kLuma, planar.begin()));

  const std::vector<Frame> burst = makeBurst("YUV422_YUYV", kWidth, kHeight, 3);
  const std::vector<uint8_t> packed = mergeOnce(burst, "YUV422_YUYV", noSharpening);
  std::vector<uint8_t> luma(kLuma);
  for (size_t i = 0; i < kLuma; ++i) luma[i] = packed[2 * i];
  double best = 1e9;
  for (int32_t base = 0; base < 3; ++base)
    best = std::min(best, lumaError(luma, kWidth, kHeight, 1.3 * base, -0.8 * base));
  EXPECT_LT(best, 20.0);
}

TEST(Burst, FewerFramesToMergeLeaveTheRestOut) {
  const std::string format = "YVU420_SEMIPLANAR";
  const std::vector<Frame> burst = makeBurst(format, 640, 480, 3);
  std::vector<int32_t> statuses;
  const std::vector<uint8_t> two = mergeOnce(
      burst, format, [](zelvan_Tessaline4* handle) { zelvan_Tessaline4_setNumberOfMergeImages(handle, 2); }, 0,
      &statuses);
  EXPECT_EQ(std::count(statuses.begin(), statuses.end(), 0), 2);
  EXPECT_EQ(std::count(statuses.begin(), statuses.end(), 4), 1);
  EXPECT_NE(two, mergeOnce(burst, format, {}));
}

}  // namespace
}  // namespace test
