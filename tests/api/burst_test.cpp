#include <thread>

#include "instance.h"

namespace test {
namespace {

void noSharpening(zelvan_Tessaline4* handle) {
  EXPECT_EQ(zelvan_Tessaline4_setSharpnessEnhanceLevel(handle, 0), kOk);
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
    Instance handle(640, 480, 3);
    std::vector<Frame> frames = copyBurst(burst);
    ASSERT_EQ(handle.start(isFine ? Settings(fine) : Settings()), kOk);
    for (Frame& frame : frames) ASSERT_EQ(zelvan_Tessaline4_addImage(handle, &frame.data), kOk);
    ASSERT_EQ(zelvan_Tessaline4_merge(handle), kOk);
    ASSERT_EQ(zelvan_Tessaline4_enhance(handle), kOk);
    EXPECT_TRUE(std::equal(whole.begin(), whole.begin() + 640 * 480, handle.output.bytes.begin()));
    EXPECT_EQ(handle.output.bytes == whole, isFine);
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
  Instance handle(642, 482, 3);
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
  EXPECT_LT(std::min({lumaError(luma, 0), lumaError(luma, 1), lumaError(luma, 2)}), 20.0);  // one is the base
}

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

// The bytes of the result that show something, the others as 0. The working memory, the output and the padding of the
// frames hold this byte beforehand, or noise.
std::vector<uint8_t> mergeOver(int32_t byte, const std::vector<Frame>& burst, const std::string& format,
                               int32_t scaling) {
  const int32_t width = burst[0].data.width, height = burst[0].data.height;
  const std::vector<bool> shown = pictureBytes(format, static_cast<size_t>(width), static_cast<size_t>(height));
  std::vector<Frame> frames = copyBurst(burst);
  Instance instance(width, height, static_cast<int32_t>(frames.size()), format, byte);
  std::mt19937 random(9);
  for (size_t i = 0; i < shown.size(); ++i) {
    instance.output.bytes[i] = static_cast<uint8_t>(byte < 0 ? random() >> 8 : static_cast<uint32_t>(byte));
    for (Frame& frame : frames) frame.bytes[i] = shown[i] ? frame.bytes[i] : instance.output.bytes[i];
  }
  const Settings settings = [&](zelvan_Tessaline4* handle) {
    EXPECT_EQ(zelvan_Tessaline4_setAutoScaling(handle, scaling), kOk);
    EXPECT_EQ(zelvan_Tessaline4_setChromaNoiseReductionLevel(handle, 7), kOk);
    EXPECT_EQ(zelvan_Tessaline4_setLumaNoiseReductionLevel(handle, 3), kOk);
    EXPECT_EQ(zelvan_Tessaline4_setRemoveSpikeNoiseLevel_internal(handle, 20), kOk);
  };
  EXPECT_EQ(instance.run(frames, settings), kOk);
  for (size_t i = 0; i < shown.size(); ++i) instance.output.bytes[i] = shown[i] ? instance.output.bytes[i] : 0;
  return instance.output.bytes;
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
      const std::vector<uint8_t> expected = mergeOver(0, burst, c.format, scaling);
      EXPECT_LT(edgeError(expected, c.format, c.width, c.height), 12.0);
      for (int32_t byte : {0xFF, -1}) EXPECT_TRUE(mergeOver(byte, burst, c.format, scaling) == expected) << byte;
    }
  }
}

}  // namespace
}  // namespace test
