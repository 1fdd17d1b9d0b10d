// Whole bursts through the public functions.
#include <thread>

#include "instance.h"

namespace test {
namespace {

void noSharpening(zelvan_Tessaline4* handle) {
  EXPECT_EQ(zelvan_Tessaline4_setSharpnessEnhanceLevel(handle, 0), kOk);
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
  expectSameForAnyWorkers(makeBurst(kUv, 640, 480, 3), kUv, highestSettings);
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

// The fine mode has no weak chroma pass, and only reads its frames.
TEST(Burst, TwoHalvesAreTheWholeButTheWeakChromaPass) {
  const std::vector<Frame> burst = makeBurst(kVu, 640, 480, 3);
  for (const bool isFine : {false, true}) {
    const std::vector<uint8_t> whole = mergeOnce(burst, kVu, isFine ? Settings(fine) : Settings());
    Instance instance(640, 480, 3);
    zelvan_Tessaline4* handle = instance.handle();
    if (isFine) fine(handle);
    Frame output = makeFrame(kVu, 640, 480);
    std::vector<Frame> frames = copyBurst(burst);
    ASSERT_EQ(zelvan_Tessaline4_start(handle, &output.data, 3), kOk);
    for (Frame& frame : frames) ASSERT_EQ(zelvan_Tessaline4_addImage(handle, &frame.data), kOk);
    ASSERT_EQ(zelvan_Tessaline4_merge(handle), kOk);
    ASSERT_EQ(zelvan_Tessaline4_enhance(handle), kOk);
    EXPECT_TRUE(std::equal(whole.begin(), whole.begin() + 640 * 480, output.bytes.begin()));
    EXPECT_EQ(output.bytes == whole, isFine);
    for (size_t i = 0; isFine && i < 3; ++i) EXPECT_TRUE(frames[i].bytes == burst[i].bytes) << i;
  }
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
  const std::vector<uint8_t> planar = mergeOnce(makeBurst(kPlanar, 640, 480, 3), kPlanar);
  EXPECT_TRUE(std::equal(semi.begin(), semi.begin() + kLuma, planar.begin()));
  for (size_t i = 0; i < kLuma / 4; ++i) {
    ASSERT_EQ(planar[kLuma + i], semi[kLuma + 2 * i]);
    ASSERT_EQ(planar[kLuma * 5 / 4 + i], semi[kLuma + 2 * i + 1]);
  }
  const std::vector<uint8_t> packed = mergeOnce(makeBurst(kPacked, 640, 480, 3), kPacked, noSharpening);
  std::vector<uint8_t> luma(kLuma);
  for (size_t i = 0; i < kLuma; ++i) luma[i] = packed[2 * i];
  EXPECT_LT(leastError(luma, 3), 20.0);
}

// Odd sizes: the picture follows the pictures of the frames alone, up to its last column and row.

// Which bytes of a frame show something: the luma that pads an odd size does not.
std::vector<bool> pictureBytes(const std::string& format, size_t w, size_t h) {
  const size_t pitch = (w + 1) / 2 * 2, luma = pitch * ((h + 1) / 2 * 2);
  std::vector<bool> shown(makeFrame(format, static_cast<int32_t>(w), static_cast<int32_t>(h)).bytes.size());
  for (size_t i = 0; i < shown.size(); ++i) {
    if (format == kPacked) {
      shown[i] = i < 2 * pitch * h && (i % 2 == 1 || i % (2 * pitch) / 2 < w);
    } else {
      shown[i] = i >= luma || (i % pitch < w && i / pitch < h);
    }
  }
  return shown;
}

// What the working memory, the output and the padding of the frames hold beforehand.
struct Litter {
  int32_t byte;  // -1: noise

  std::vector<uint8_t> bytes(size_t size) const {
    std::vector<uint8_t> out(size, static_cast<uint8_t>(byte));
    std::mt19937 random(9);
    for (uint8_t& b : out) b = byte < 0 ? static_cast<uint8_t>(random() >> 8) : b;
    return out;
  }
};

// The bytes of the result that show something, the others as 0.
std::vector<uint8_t> mergeOver(const Litter& litter, const std::vector<Frame>& burst, const std::string& format,
                               int32_t scaling) {
  const int32_t width = burst[0].data.width, height = burst[0].data.height;
  const std::vector<bool> shown = pictureBytes(format, static_cast<size_t>(width), static_cast<size_t>(height));
  std::vector<Frame> frames = copyBurst(burst);
  const std::vector<uint8_t> noise = litter.bytes(shown.size());
  for (Frame& frame : frames) {
    for (size_t i = 0; i < shown.size(); ++i) frame.bytes[i] = shown[i] ? frame.bytes[i] : noise[i];
  }
  Frame output = makeFrame(format, width, height);
  std::copy(noise.begin(), noise.end(), output.bytes.begin());

  const auto count = static_cast<int32_t>(frames.size());
  std::vector<uint8_t> memory =
      litter.bytes(static_cast<size_t>(zelvan_Tessaline4_getBufferSize(width, height, count, format.c_str())));
  zelvan_Tessaline4 handle;
  uint32_t status =
      zelvan_Tessaline4_initialize(&handle, memory.data(), static_cast<int32_t>(memory.size()), width, height);
  status |= zelvan_Tessaline4_setImageFormat(&handle, format.c_str());
  status |= zelvan_Tessaline4_setAutoScaling(&handle, scaling);
  status |= zelvan_Tessaline4_setChromaNoiseReductionLevel(&handle, 7);
  status |= zelvan_Tessaline4_setLumaNoiseReductionLevel(&handle, 3);
  status |= zelvan_Tessaline4_setRemoveSpikeNoiseLevel_internal(&handle, 20);
  status |= zelvan_Tessaline4_start(&handle, &output.data, count);
  for (Frame& frame : frames) status |= zelvan_Tessaline4_addImage(&handle, &frame.data);
  status |= zelvan_Tessaline4_getResult(&handle);
  EXPECT_EQ(status | zelvan_Tessaline4_finalize(&handle), kOk);
  for (size_t i = 0; i < shown.size(); ++i) output.bytes[i] = shown[i] ? output.bytes[i] : 0;
  return output.bytes;
}

// Greatest distance of a chroma byte in the last column or row to the scene. U of the first byte of the plane or group.
double edgeError(const std::vector<uint8_t>& bytes, const std::string& format, int32_t w, int32_t h) {
  const int32_t pitch = (w + 1) / 2 * 2, luma = pitch * ((h + 1) / 2 * 2);
  double most = 0;
  for (int32_t y = 0; y < h; y += 2) {
    for (int32_t x = 0; x < w; x += 2) {
      if (x + 2 < w && y + 2 < h) continue;
      const int32_t at = format == kPacked   ? 2 * (y * pitch + x) + 1
                         : format == kPlanar ? luma + y / 2 * pitch / 2 + x / 2
                                             : luma + y / 2 * pitch + x + (format == kVu ? 1 : 0);
      most = std::max(most, std::abs(bytes[static_cast<size_t>(at)] - sceneChroma(x, y, 0)));
    }
  }
  return most;
}

TEST(OddSize, PictureFollowsThePicturesAlone) {
  const struct {
    const char* format;
    int32_t width, height;
  } cases[] = {{kVu, 641, 481}, {kVu, 641, 480}, {kUv, 640, 481}, {kPlanar, 643, 481}, {kPacked, 641, 483}};
  for (const auto& c : cases) {
    std::vector<Frame> burst(2, makeFrame(c.format, c.width, c.height));
    for (Frame& frame : burst) {
      frame = makeFrame(c.format, c.width, c.height);
      fillFrame(&frame, c.format, 0, 0, 3.0, static_cast<uint32_t>(&frame - burst.data()));
    }
    for (int32_t scaling : {0, 1}) {
      SCOPED_TRACE(testing::Message() << c.format << ' ' << c.width << 'x' << c.height << ", scaling " << scaling);
      const std::vector<uint8_t> expected = mergeOver({0}, burst, c.format, scaling);
      EXPECT_LT(edgeError(expected, c.format, c.width, c.height), 12.0);
      for (int32_t byte : {0xFF, -1}) EXPECT_TRUE(mergeOver({byte}, burst, c.format, scaling) == expected) << byte;
    }
  }
}

}  // namespace
}  // namespace test
