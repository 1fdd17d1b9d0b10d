#include "image_file.h"

#include <cstdio>

#include <jpeglib.h>

#include "metadata_blocks.h"
#include "tool_run.h"

namespace tool {
namespace {

using Plane = std::vector<uint8_t>;

class ImageFile : public ::testing::Test, public ToolFolder {
 protected:
  ImageFile() : ToolFolder("files") {}
};

// Slow slopes, which JPEG keeps nearly as they are.
Picture smoothPicture(int32_t width, int32_t height) {
  Picture picture(width, height);
  const auto slope = [](size_t i, size_t n, size_t rise) { return rise * i / std::max<size_t>(n, 100); };
  const auto w = static_cast<size_t>(width);
  const auto h = static_cast<size_t>(height);
  for (size_t i = 0; i < picture.y.size(); ++i) {
    picture.y[i] = static_cast<uint8_t>(60 + slope(i % w, w, 100) + slope(i / w, h, 40));
  }
  const auto cw = static_cast<size_t>(picture.chromaWidth());
  for (size_t i = 0; i < picture.u.size(); ++i) {
    picture.u[i] = static_cast<uint8_t>(100 + slope(i % cw, w, 100));
    picture.v[i] = static_cast<uint8_t>(160 - slope(i / cw, h, 100));
  }
  return picture;
}

int32_t worstDifference(const Plane& a, const Plane& b) {
  int32_t worst = a.size() == b.size() ? 0 : 256;
  for (size_t i = 0; i < a.size() && i < b.size(); ++i) worst = std::max(worst, std::abs(a[i] - b[i]));
  return worst;
}

void expectNear(const Picture& a, const Picture& b, int32_t luma, int32_t chroma) {
  EXPECT_EQ(a.width, b.width);
  EXPECT_EQ(a.height, b.height);
  EXPECT_LE(worstDifference(a.y, b.y), luma);
  EXPECT_LE(worstDifference(a.u, b.u), chroma);
  EXPECT_LE(worstDifference(a.v, b.v), chroma);
}

std::string errorOf(const std::string& file, const std::optional<RawLayout>& raw = std::nullopt) {
  try {
    readFrames({.paths = {file}, .raw = raw});
  } catch (const Error& error) {
    EXPECT_EQ(std::string(error.what()).rfind(file + ": ", 0), 0u) << error.what();
    return error.what();
  }
  return "";
}

TEST_F(ImageFile, ComesBackAtAnySize) {
  for (const auto& [width, height] : {std::pair{1, 1}, {2, 3}, {17, 1}, {33, 15}, {48, 32}, {641, 483}}) {
    for (const char* ending : {"nv21", "nv12", "i420", "yuv", "yuyv", "y4m", "jpg", "jpeg", "png", "PNG"}) {
      SCOPED_TRACE(std::to_string(width) + "x" + std::to_string(height) + " " + ending);
      const std::string file = path(std::string("f.") + ending), kind = ending;
      const bool lossy = kind[0] == 'j' || kind == "png" || kind == "PNG";
      const Picture picture = lossy ? smoothPicture(width, height) : randomPicture(width, height);
      writePicture(file, picture);
      const RawLayout layout{width, height, ""};
      const Picture back = readPicture(file, layout);
      const bool jpeg = kind[0] == 'j';
      expectNear(back, picture, jpeg ? 6 : lossy, jpeg ? 6 : 2 * lossy);  // the way through RGB rounds
      EXPECT_TRUE(!lossy || jpeg || readRgb(file).pixels == toRgb(picture).pixels);
    }
  }
}

// Compresses interleaved samples at full size with the luma's sampling factors.
std::string jpegOf(const Plane& samples, int32_t width, int32_t height, J_COLOR_SPACE in, J_COLOR_SPACE stored,
                   int32_t factorX, int32_t factorY) {
  jpeg_compress_struct info;
  jpeg_error_mgr manager;
  info.err = jpeg_std_error(&manager);
  jpeg_create_compress(&info);
  unsigned char* bytes = nullptr;
  unsigned long size = 0;
  jpeg_mem_dest(&info, &bytes, &size);
  info.image_width = static_cast<JDIMENSION>(width);
  info.image_height = static_cast<JDIMENSION>(height);
  info.input_components = in == JCS_GRAYSCALE ? 1 : in == JCS_CMYK ? 4 : 3;
  info.in_color_space = in;
  jpeg_set_defaults(&info);
  jpeg_set_colorspace(&info, stored);
  jpeg_set_quality(&info, 100, TRUE);
  info.comp_info[0].h_samp_factor = factorX;
  info.comp_info[0].v_samp_factor = factorY;
  jpeg_start_compress(&info, TRUE);
  while (info.next_scanline < info.image_height) {
    auto* row = const_cast<JSAMPROW>(samples.data()) +
                static_cast<size_t>(info.next_scanline) * info.image_width * static_cast<size_t>(info.input_components);
    jpeg_write_scanlines(&info, &row, 1);
  }
  jpeg_finish_compress(&info);
  jpeg_destroy_compress(&info);
  const std::string out(bytes, bytes + size);
  std::free(bytes);
  return out;
}

TEST_F(ImageFile, JpegSamplingsComeAsTheirOwnYCbCr) {
  constexpr int32_t kWidth = 45, kHeight = 31;
  const Picture picture = smoothPicture(kWidth, kHeight);
  const RgbPicture rgb = toRgb(picture);
  Plane ycc(rgb.pixels.size());
  for (int32_t y = 0; y < kHeight; ++y) {
    for (int32_t x = 0; x < kWidth; ++x) {
      const auto at = static_cast<size_t>(y * kWidth + x);
      const auto chroma = static_cast<size_t>(y / 2 * picture.chromaWidth() + x / 2);
      ycc[3 * at] = picture.y[at];
      ycc[3 * at + 1] = picture.u[chroma];
      ycc[3 * at + 2] = picture.v[chroma];
    }
  }
  for (const auto& [x, y] : {std::pair{1, 1}, {2, 1}, {1, 2}, {2, 2}, {4, 1}}) {
    SCOPED_TRACE(std::to_string(x) + "x" + std::to_string(y));
    std::string bytes = jpegOf(ycc, kWidth, kHeight, JCS_YCbCr, JCS_YCbCr, x, y);
    bytes.insert(2, std::string("\xFF\xE1\0\x0A"
                                "Exif\0\0MM",
                                12));
    const std::string file = write("s.jpg", bytes);
    EXPECT_EQ(readPicture(file).metadata.exif, (Plane{'M', 'M'}));
    expectNear(readPicture(file), picture, 1, x == 4 ? 4 : 1);
  }
  const std::string stored = write("rgb.jpg", jpegOf(rgb.pixels, kWidth, kHeight, JCS_RGB, JCS_RGB, 1, 1));
  expectNear(readPicture(stored), picture, 2, 3);
  const std::string grey = write("g.jpg", jpegOf(picture.y, kWidth, kHeight, JCS_GRAYSCALE, JCS_GRAYSCALE, 1, 1));
  Picture expected = picture;
  expected.u.assign(picture.u.size(), 128);
  expected.v = expected.u;
  expectNear(readPicture(grey), expected, 1, 0);
  const Plane ink(4 * kWidth * kHeight, 90);
  EXPECT_NE(errorOf(write("k.jpg", jpegOf(ink, kWidth, kHeight, JCS_CMYK, JCS_CMYK, 1, 1))).find("CMYK"),
            std::string::npos);
}

TEST_F(ImageFile, CutFilesAreRefusedAtAnyLength) {
  for (const char* ending : {"jpg", "png", "y4m", "nv21"}) {
    const std::string whole = path(std::string("whole.") + ending);
    writePicture(whole, randomPicture(40, 24));
    const std::string bytes = textOf(whole);
    const std::optional<RawLayout> raw = RawLayout{40, 24, ""};
    EXPECT_EQ(errorOf(whole, raw), "");
    for (size_t length = 0; length < bytes.size(); length += length + 40 < bytes.size() ? 37 : 1) {
      EXPECT_NE(errorOf(write(std::string("cut.") + ending, bytes.substr(0, length)), raw), "")
          << ending << " of " << length << " of " << bytes.size() << " bytes";
    }
  }
}

TEST_F(ImageFile, Y4mLevelsFollowTheHeader) {
  struct Row {
    const char* tags;
    uint8_t stored[3], read[3];
  };
  for (const Row& row : {Row{"C420jpeg XCOLORRANGE=FULL", {16, 16, 240}, {16, 16, 240}},
                         Row{"C420jpeg XCOLORRANGE=LIMITED", {16, 16, 240}, {0, 1, 255}},
                         Row{"C420mpeg2", {235, 128, 128}, {255, 128, 128}},
                         Row{"C420paldv Ip A1:1 F30:1", {126, 64, 192}, {128, 55, 201}},
                         Row{"C420 I?", {255, 0, 255}, {255, 0, 255}}, Row{"", {0, 255, 0}, {0, 255, 0}}}) {
    SCOPED_TRACE(row.tags);
    std::string bytes = std::string("YUV4MPEG2 W2 H2 ") + row.tags + "\nFRAME Ip\n";
    for (const int32_t i : {0, 0, 0, 0, 1, 2}) bytes += static_cast<char>(row.stored[i]);
    const Picture picture = readPicture(write("l.y4m", bytes));
    EXPECT_EQ(picture.y, Plane(4, row.read[0]));
    EXPECT_EQ(picture.u, Plane(1, row.read[1]));
    EXPECT_EQ(picture.v, Plane(1, row.read[2]));
  }
}

TEST_F(ImageFile, OddStreamsAndListsAreRefused) {
  const std::string frame = "FRAME\n" + std::string(6, 'x');
  const auto frames = [&](int32_t count) {
    std::string all;
    for (int32_t i = 0; i < count; ++i) all += frame;
    return all;
  };
  for (const auto& [bytes, reason] :
       std::vector<std::pair<std::string, const char*>>{{"YUV4MPEG2 W2 H2 C444\n" + frame, "C444"},
                                                        {"YUV4MPEG2 W2 H2 C420p10\n" + frame, "C420p10"},
                                                        {"YUV4MPEG2 W2 H2 It\n" + frame, "interlaced"},
                                                        {"YUV4MPEG2 H2\n" + frame, "size"},
                                                        {"YUV4MPEG2 W-2 H2\n" + frame, "size"},
                                                        {"YUV4MPEG2 W2x H2\n" + frame, "W2x"},
                                                        {"YUV4MPEG2 W99999999999 H2\n" + frame, "W99999999999"},
                                                        {"YUV4MPEG2 W2000000 H2000000\n" + frame, "size"},
                                                        {"YUV4MPEG2 W2 H2\n", "without frames"},
                                                        {"YUV4MPEG2 W2 H2\nPHRASE\n" + frame, "FRAME"},
                                                        {"YUV4MPEG2 W2 H2\n" + frames(11), "more than 10"},
                                                        {"YUV4MPEG2 W2 H2\n" + frames(100000), "more than 10"}}) {
    EXPECT_NE(errorOf(write("o.y4m", bytes)).find(reason), std::string::npos) << bytes.substr(0, 60);
  }
  EXPECT_EQ(readFrames({.paths = {write("ten.y4m", "YUV4MPEG2 W2 H2\n" + frames(10))}}).size(), 10u);
  writePicture(path("a.png"), Picture(8, 8));
  EXPECT_THROW(readFrames({.paths = {path("a.png"), path("ten.y4m")}}), Error);
  EXPECT_NE(errorOf(write("a.nv21", std::string(96, 'x'))).find("--size"), std::string::npos);
  EXPECT_NE(errorOf(write("a.bin", std::string(96, 'x')), RawLayout{8, 8, ""}).find("--format"), std::string::npos);
}

}  // namespace
}  // namespace tool
