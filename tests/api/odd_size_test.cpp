// Odd sizes: the picture follows the pictures of the frames alone, up to its last column and row.
#include "instance.h"

namespace test {
namespace {

constexpr char kPlanar[] = "YUV420_PLANAR";
constexpr char kPacked[] = "YUV422_YUYV";

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
