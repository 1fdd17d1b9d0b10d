// TIFF, written here by libtiff.
#ifdef TESSALINE4_TIFF
#include <gtest/gtest.h>

#include <tiffio.h>

#include "exif.h"
#include "image_file.h"
#include "metadata_blocks.h"
#include "photo.h"
#include "quality.h"
#include "tool_run.h"

namespace tool {
namespace {

struct Recipe {
  const char* name;
  uint16_t photometric = PHOTOMETRIC_RGB;
  uint16_t samples = 3;
  uint16_t bits = 8;
  bool planar = false;
  bool tiled = false;
  uint16_t compression = COMPRESSION_NONE;
  const char* mode = "w";
};

constexpr int32_t kWidth = 675;
constexpr int32_t kHeight = 483;

uint8_t sampleAt(int32_t x, int32_t y, int32_t c) {
  return static_cast<uint8_t>(c == 0 ? x / 3 + y / 8 : c == 1 ? 255 - y / 2 : c == 2 ? x / 5 + 40 : 255);
}

void setLayout(TIFF* file, const Recipe& recipe, uint32_t rows) {
  TIFFSetField(file, TIFFTAG_IMAGEWIDTH, kWidth);
  TIFFSetField(file, TIFFTAG_IMAGELENGTH, kHeight);
  TIFFSetField(file, TIFFTAG_BITSPERSAMPLE, recipe.bits);
  TIFFSetField(file, TIFFTAG_SAMPLESPERPIXEL, recipe.samples);
  TIFFSetField(file, TIFFTAG_PHOTOMETRIC, recipe.photometric);
  TIFFSetField(file, TIFFTAG_PLANARCONFIG, recipe.planar ? PLANARCONFIG_SEPARATE : PLANARCONFIG_CONTIG);
  TIFFSetField(file, TIFFTAG_COMPRESSION, recipe.compression);
  const uint16_t alpha = EXTRASAMPLE_ASSOCALPHA;
  if (recipe.samples == 4) TIFFSetField(file, TIFFTAG_EXTRASAMPLES, 1, &alpha);
  if (recipe.photometric == PHOTOMETRIC_YCBCR) TIFFSetField(file, TIFFTAG_YCBCRSUBSAMPLING, 2, 2);
  if (recipe.tiled) TIFFSetField(file, TIFFTAG_TILEWIDTH, 128);
  TIFFSetField(file, recipe.tiled ? TIFFTAG_TILELENGTH : TIFFTAG_ROWSPERSTRIP, rows);
}

// Strips or tiles of 48 rows. sample(x, y, c); 4:2:0 is asked for as 2x2 luma samples, Cb and Cr of a block.
template <typename Sample>
void writeChunks(TIFF* file, const Recipe& recipe, const Sample& sample) {
  constexpr int32_t kRows = 48;
  setLayout(file, recipe, kRows);
  const bool blocks = recipe.photometric == PHOTOMETRIC_YCBCR;
  const int32_t chunkWidth = recipe.tiled ? 128 : kWidth;
  for (int32_t plane = 0; plane < (recipe.planar ? recipe.samples : 1); ++plane) {
    for (int32_t top = 0; top < kHeight; top += kRows) {
      for (int32_t left = 0; left < kWidth; left += chunkWidth) {
        const int32_t rows = recipe.tiled ? kRows : std::min(kRows, kHeight - top);
        std::vector<uint8_t> bytes;
        const auto put = [&](int32_t x, int32_t y, int32_t c) {
          const uint8_t value = sample(left + x, top + y, c);
          // 257 times the value, and away from that by less than half a step of 8 bits.
          const auto deep = static_cast<uint16_t>(value * 257 + (value > 100 ? -120 : 120));
          if (recipe.bits == 8) bytes.push_back(value);
          if (recipe.bits == 16)
            bytes.insert(bytes.end(), {static_cast<uint8_t>(deep), static_cast<uint8_t>(deep >> 8)});
        };
        const int32_t step = blocks ? 2 : 1;
        for (int32_t y = 0; y < rows; y += step) {
          for (int32_t x = 0; x < chunkWidth; x += step) {
            if (recipe.planar) {
              put(x, y, plane);
            } else if (blocks) {
              for (int32_t i = 0; i < 4; ++i) put(x + i % 2, y + i / 2, 0);
              put(x, y, 1);
              put(x, y, 2);
            } else {
              for (int32_t c = 0; c < recipe.samples; ++c) put(x, y, c);
            }
          }
        }
        const auto size = static_cast<tmsize_t>(bytes.size());
        const auto sampleNumber = static_cast<uint16_t>(plane);
        const auto ux = static_cast<uint32_t>(left);
        const auto uy = static_cast<uint32_t>(top);
        ASSERT_GT(recipe.tiled
                      ? TIFFWriteEncodedTile(file, TIFFComputeTile(file, ux, uy, 0, sampleNumber), bytes.data(), size)
                      : TIFFWriteEncodedStrip(file, TIFFComputeStrip(file, uy, sampleNumber), bytes.data(), size),
                  0);
      }
    }
  }
}

TEST(Tiff, EveryLayoutGivesItsSamples) {
  const ToolFolder folder("tiff");
  const std::string path = (folder / "p.tif").string();
  const Recipe recipes[] = {
      {"rgb"},
      {"big-endian lzw", PHOTOMETRIC_RGB, 3, 8, false, false, COMPRESSION_LZW, "wb"},
      {"large offsets", PHOTOMETRIC_RGB, 3, 8, false, true, COMPRESSION_NONE, "w8"},
      {"planar", PHOTOMETRIC_RGB, 3, 8, true},
      {"rgba tiles", PHOTOMETRIC_RGB, 4, 8, false, true, COMPRESSION_ADOBE_DEFLATE},
      {"16 bits", PHOTOMETRIC_RGB, 3, 16},
      {"16 bits planar tiles", PHOTOMETRIC_RGB, 3, 16, true, true},
      {"grey", PHOTOMETRIC_MINISBLACK, 1},
      {"grey 16 bits", PHOTOMETRIC_MINISBLACK, 1, 16},
      {"4:2:0", PHOTOMETRIC_YCBCR},
      {"4:2:0 tiles", PHOTOMETRIC_YCBCR, 3, 8, false, true, COMPRESSION_ADOBE_DEFLATE},
      {"4:2:0 JPEG", PHOTOMETRIC_YCBCR, 3, 8, false, false, COMPRESSION_JPEG},
  };
  for (const Recipe& recipe : recipes) {
    SCOPED_TRACE(recipe.name);
    TIFF* file = TIFFOpen(path.c_str(), recipe.mode);
    writeChunks(file, recipe, sampleAt);
    TIFFClose(file);
    const Picture read = readPicture(path);
    ASSERT_EQ(read.width, kWidth);
    ASSERT_EQ(read.height, kHeight);
    Picture expected(kWidth, kHeight);
    if (recipe.photometric == PHOTOMETRIC_YCBCR) {
      for (int32_t i = 0; i < kWidth * kHeight; ++i) {
        expected.y[static_cast<size_t>(i)] = sampleAt(i % kWidth, i / kWidth, 0);
      }
      const int32_t width = expected.chromaWidth();
      for (int32_t i = 0; i < width * expected.chromaHeight(); ++i) {
        expected.u[static_cast<size_t>(i)] = sampleAt(i % width * 2, i / width * 2, 1);
        expected.v[static_cast<size_t>(i)] = sampleAt(i % width * 2, i / width * 2, 2);
      }
    } else {
      RgbPicture rgb = {kWidth, kHeight, {}};
      for (int32_t i = 0; i < kWidth * kHeight * 3; ++i) {
        rgb.pixels.push_back(sampleAt(i / 3 % kWidth, i / 3 / kWidth, recipe.samples == 1 ? 0 : i % 3));
      }
      EXPECT_EQ(readRgb(path).pixels, rgb.pixels);
      expected = toYuv420(rgb);
    }
    if (recipe.compression == COMPRESSION_JPEG) {
      // By way of RGB, which does not hold all of its colours.
      const Psnr psnr = psnrOf(read, toYuv420(toRgb(expected)), nullptr);
      EXPECT_GT(std::min(psnr.luma, psnr.chroma), 38.0);
    } else {
      EXPECT_TRUE(read.y == expected.y && read.u == expected.u && read.v == expected.v);
    }
  }
}

TEST(Tiff, MetadataComesAlongAndBadFilesAreRefused) {
  const ToolFolder folder("tiff-bad");
  const std::string path = (folder / "p.tif").string();
  const auto write = [&](int pages, uint32_t secondKind) {
    TIFF* file = TIFFOpen(path.c_str(), "w");
    for (int page = 0; page < pages; ++page) {
      const std::vector<uint8_t> icc = makeIcc(700);
      TIFFSetField(file, TIFFTAG_SUBFILETYPE, page == 0 ? 0 : secondKind);
      TIFFSetField(file, TIFFTAG_ORIENTATION, 6);
      TIFFSetField(file, TIFFTAG_MODEL, "Camera 1");
      TIFFSetField(file, TIFFTAG_ICCPROFILE, static_cast<uint32_t>(icc.size()), icc.data());
      writeChunks(file, {"page"}, sampleAt);
      TIFFWriteDirectory(file);
    }
    if (pages == 1) {
      uint64_t at = 0;
      TIFFCreateEXIFDirectory(file);
      TIFFSetField(file, EXIFTAG_DATETIMEORIGINAL, "2024:05:31 12:30:59");
      TIFFSetField(file, EXIFTAG_SUBSECTIMEORIGINAL, "25");
      TIFFSetField(file, EXIFTAG_EXPOSURETIME, 0.02);
      TIFFWriteCustomDirectory(file, &at);
      TIFFSetDirectory(file, 0);
      TIFFSetField(file, TIFFTAG_EXIFIFD, at);
      TIFFRewriteDirectory(file);
    }
    TIFFClose(file);
  };
  write(1, 0);
  const Picture read = readPicture(path);
  EXPECT_EQ(read.metadata.orientation(), 6);
  EXPECT_EQ(read.metadata.icc, makeIcc(700));
  ASSERT_NE(parseExif(read.metadata.exif), nullptr);
  EXPECT_TRUE(exifForSize(read.metadata.exif, 10, 10).has_value());
  const Photo photo = readPhoto(path);
  EXPECT_EQ(photo.model, "Camera 1");
  EXPECT_EQ(photo.time % 60'000'000, 59'250'000);
  EXPECT_NEAR(photo.exposureSeconds.value_or(0), 0.02, 1e-6);
  EXPECT_EQ(folder.run("merge p.tif p.tif -o o.jpg"), 0) << folder.err();
  EXPECT_EQ(readPicture((folder / "o.jpg").string()).metadata.orientation(), 6);

  const auto isRefused = [&](const std::string& bytes) {
    std::ofstream(folder / "bad.tif") << bytes;
    EXPECT_EQ(folder.run("merge bad.tif bad.tif -o o.jpg"), 1);
    const std::string told = folder.err();
    EXPECT_EQ(told.find("tessaline4: bad.tif: "), 0U) << told;
    EXPECT_EQ(std::count(told.begin(), told.end(), '\n'), 1) << told;
  };
  const std::string good = textOf(path);
  for (const size_t length : {size_t{3}, size_t{4}, size_t{8}, good.size() / 2}) isRefused(good.substr(0, length));
  for (const uint16_t compression : {COMPRESSION_ADOBE_DEFLATE, COMPRESSION_LZW, COMPRESSION_JPEG}) {
    TIFF* file = TIFFOpen(path.c_str(), "w");
    writeChunks(file, {"coded", PHOTOMETRIC_RGB, 3, 8, false, false, compression}, sampleAt);
    TIFFClose(file);
    isRefused(textOf(path).replace(2000, 300, std::string(300, '\xA5')));
  }
  write(2, FILETYPE_REDUCEDIMAGE);
  EXPECT_EQ(readPicture(path).width, kWidth);
  write(2, FILETYPE_PAGE);
  EXPECT_THROW(readPicture(path), Error);
}

}  // namespace
}  // namespace tool
#endif
