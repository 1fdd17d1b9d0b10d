// HEIC and AVIF, written here by libheif.
#ifdef TESSALINE4_HEIF

#include <libheif/heif.h>

#include "image_file.h"
#include "metadata_blocks.h"
#include "photo.h"
#include "quality.h"
#include "tool_run.h"

// The encoder of the test's own files keeps its tables to the end of the process.
extern "C" [[gnu::visibility("default")]] const char* __lsan_default_suppressions();
extern "C" const char* __lsan_default_suppressions() {
  return "leak:libx265";
}

namespace tool {
namespace {

void mustWork(const heif_error& error) {
  ASSERT_EQ(error.code, heif_error_Ok) << error.message;
}

struct Recipe {
  heif_compression_format format = heif_compression_HEVC;
  int bits = 8;
  bool limited = false;
  heif_matrix_coefficients matrix = heif_matrix_coefficients_ITU_R_BT_601_6;
  heif_orientation turn = heif_orientation_normal;
};

// False without an encoder.
bool writeHeif(const std::string& path, const Picture& picture, const Recipe& recipe) {
  if (heif_have_encoder_for_format(recipe.format) == 0) return false;
  heif_context* context = heif_context_alloc();
  heif_encoder* encoder = nullptr;
  mustWork(heif_context_get_encoder_for_format(context, recipe.format, &encoder));
  heif_encoder_set_lossy_quality(encoder, 90);
  heif_image* image = nullptr;
  mustWork(heif_image_create(picture.width, picture.height, heif_colorspace_YCbCr, heif_chroma_420, &image));
  const auto add = [&](heif_channel channel, const std::vector<uint8_t>& samples, int width, int height) {
    mustWork(heif_image_add_plane(image, channel, width, height, recipe.bits));
    int pitch = 0;
    uint8_t* rows = heif_image_get_plane(image, channel, &pitch);
    for (int y = 0; y < height; ++y) {
      for (int x = 0; x < width; ++x) {
        const uint8_t sample = samples[static_cast<size_t>(y * width + x)];
        const double narrow =
            channel == heif_channel_Y ? 16 + sample * 219 / 255.0 : 128 + (sample - 128) * 224 / 255.0;
        const auto value = static_cast<uint16_t>(recipe.limited ? narrow + 0.5 : sample);
        if (recipe.bits == 8) {
          rows[y * pitch + x] = static_cast<uint8_t>(value);
        } else {
          reinterpret_cast<uint16_t*>(rows + y * pitch)[x] = static_cast<uint16_t>(value << (recipe.bits - 8));
        }
      }
    }
  };
  add(heif_channel_Y, picture.y, picture.width, picture.height);
  add(heif_channel_Cb, picture.u, picture.chromaWidth(), picture.chromaHeight());
  add(heif_channel_Cr, picture.v, picture.chromaWidth(), picture.chromaHeight());
  heif_color_profile_nclx* profile = heif_nclx_color_profile_alloc();
  profile->matrix_coefficients = recipe.matrix;
  profile->full_range_flag = !recipe.limited;
  mustWork(heif_image_set_nclx_color_profile(image, profile));
  const std::vector<uint8_t> icc = makeIcc(700);
  mustWork(heif_image_set_raw_color_profile(image, "prof", icc.data(), icc.size()));
  heif_encoding_options* options = heif_encoding_options_alloc();
  options->image_orientation = recipe.turn;
  options->output_nclx_profile = profile;
  options->save_two_colr_boxes_when_ICC_and_nclx_available = 1;
  heif_image_handle* handle = nullptr;
  mustWork(heif_context_encode_image(context, image, encoder, options, &handle));
  const std::vector<uint8_t> exif = makeExif(6, false);
  mustWork(heif_context_add_exif_metadata(context, handle, exif.data(), static_cast<int>(exif.size())));
  mustWork(heif_context_write_to_file(context, path.c_str()));
  heif_image_handle_release(handle);
  heif_encoding_options_free(options);
  heif_nclx_color_profile_free(profile);
  heif_image_release(image);
  heif_encoder_release(encoder);
  heif_context_free(context);
  return true;
}

// Smooth, with strong colours, and not the same from any side.
Picture motif() {
  Picture picture(640, 480);
  for (size_t i = 0; i < picture.y.size(); ++i) picture.y[i] = static_cast<uint8_t>(i % 640 / 4 + i / 640 / 8 + 10);
  for (size_t i = 0; i < picture.u.size(); ++i) {
    picture.u[i] = static_cast<uint8_t>(90 + i % 320 / 4);
    picture.v[i] = static_cast<uint8_t>(190 - i / 320 / 2);
  }
  return picture;
}

TEST(Heif, GivesWhatWasStoredUpright) {
  const ToolFolder folder("heif");
  const Picture motif = tool::motif();
  Picture turned(480, 640);  // by a quarter, clockwise
  for (const auto plane : {&Picture::y, &Picture::u, &Picture::v}) {
    const size_t w = plane == &Picture::y ? 640 : 320, h = w * 3 / 4;  // of the motif
    for (size_t at = 0; at < w * h; ++at) (turned.*plane)[at] = (motif.*plane)[(h - 1 - at % h) * w + at / h];
  }
  const std::string path = (folder / "p.heic").string();
  for (const heif_compression_format format : {heif_compression_HEVC, heif_compression_AV1}) {
    for (const heif_orientation turn : {heif_orientation_normal, heif_orientation_rotate_90_cw}) {
      const Recipe recipe = {.format = format, .turn = turn};
      if (!writeHeif(path, motif, recipe)) GTEST_SKIP() << "no encoder";
      const Picture read = readPicture(path);
      const Picture& expected = turn == heif_orientation_normal ? motif : turned;
      ASSERT_EQ(read.width, expected.width);
      const Psnr psnr = psnrOf(read, expected, nullptr);
      EXPECT_GT(psnr.luma, 40.0) << format << " " << turn;
      EXPECT_GT(psnr.chroma, 40.0) << format << " " << turn;
      EXPECT_EQ(read.metadata.orientation(), 1);  // it would be turned twice
      EXPECT_EQ(exifNumber(parseExif(read.metadata.exif).get(), EXIF_TAG_PIXEL_X_DIMENSION), 4000);
      EXPECT_EQ(read.metadata.icc, makeIcc(700));
      EXPECT_EQ(readPhoto(path).width, expected.width);
    }
  }
}

TEST(Heif, RangeAndMatrixOfTheFileCount) {
  const ToolFolder folder("heif-colour");
  const std::string path = (folder / "p.heic").string();
  const Recipe limited = {.limited = true};
  if (!writeHeif(path, motif(), limited)) GTEST_SKIP() << "no encoder";
  EXPECT_GT(psnrOf(readPicture(path), motif(), nullptr).luma, 40.0);

  Picture flat(640, 480);
  std::fill(flat.y.begin(), flat.y.end(), uint8_t{120});
  std::fill(flat.u.begin(), flat.u.end(), uint8_t{100});
  std::fill(flat.v.begin(), flat.v.end(), uint8_t{160});
  writeHeif(path, flat, {.matrix = heif_matrix_coefficients_ITU_R_BT_709_5});
  const Picture read = readPicture(path);
  // RGB 170.4, 110.3, 68.0 by BT.709, and that by BT.601.
  EXPECT_NEAR(read.y[200'000], 123.4, 2.0);
  EXPECT_NEAR(read.u[50'000], 96.7, 2.0);
  EXPECT_NEAR(read.v[50'000], 161.5, 2.0);
}

TEST(Heif, BadAndDeepFilesAreRefused) {
  const ToolFolder folder("heif-bad");
  const Recipe deep = {.bits = 10};
  if (!writeHeif((folder / "deep.heic").string(), motif(), deep)) GTEST_SKIP() << "no encoder";
  writeHeif((folder / "good.heic").string(), motif(), {});
  const std::string good = textOf(folder / "good.heic");
  for (const size_t length : {size_t{5}, size_t{12}, size_t{200}, good.size() / 2, good.size() - 40}) {
    std::ofstream(folder / "cut.heic") << good.substr(0, length);
    EXPECT_THROW(readPicture((folder / "cut.heic").string()), Error) << length;
  }
  EXPECT_EQ(folder.run("merge deep.heic deep.heic -o o.jpg"), 1);
  expectIn(folder.err(), "deep.heic: 10 bits a sample");
  EXPECT_EQ(folder.run("merge good.heic good.heic -o o.jpg"), 0) << folder.err();
}

}  // namespace
}  // namespace tool
#endif
