#include "imageproc/window_sums.h"

#include <functional>
#include <string>

#include "base/integer.h"
#include "support/test_image.h"
#include "support/test_pel.h"

namespace {

constexpr int32_t kGap = 12;  // keeps rows of 32-bit items aligned

uint32_t item(const Image& image, int32_t x, int32_t y, int32_t channel = 0) {
  const uint8_t* row = imageRow<const uint8_t>(&image, y);
  switch (image.format) {
    case IMAGE_UINT8:
      return row[x];
    case IMAGE_UINT88:
      return row[2 * x + channel];
    case IMAGE_INT16:
    case IMAGE_UINT16:
      return imageRow<const uint16_t>(&image, y)[x];
    default:
      return imageRow<const uint32_t>(&image, y)[x];
  }
}

// Sum of 2r + 1 samples along (dx, dy). One that falls outside comes back along the line to the last inside.
uint32_t lineSum(const Image& src, int32_t x, int32_t y, int32_t dx, int32_t dy, int32_t radius, int32_t channel = 0) {
  uint32_t sum = 0;
  for (const int32_t sign : {-1, 1}) {
    int32_t px = x, py = y;
    for (int32_t k = 1; k <= radius; ++k) {
      const int32_t nx = px + sign * dx, ny = py + sign * dy;
      if (nx >= 0 && nx < src.width && ny >= 0 && ny < src.height) px = nx, py = ny;
      sum += item(src, px, py, channel);
    }
  }
  return sum + item(src, x, y, channel);
}

using Run = std::function<Status(Image*, const Image*, int32_t, Pel*)>;
struct Form {
  const char* name;
  int32_t in, out;
  Run run;
};
Run alone(Status (*sum)(Image*, const Image*, int32_t)) {
  return [sum](Image* dst, const Image* src, int32_t radius, Pel*) { return sum(dst, src, radius); };
}
Run square(Status (*sum)(Image*, const Image*, Image*, int32_t, Pel*)) {
  return [sum](Image* dst, const Image* src, int32_t radius, Pel* pel) {
    TestImage scratch(dst->width, dst->height, dst->format, 3, kGap);
    const Status status = sum(dst, src, &scratch, radius, pel);
    EXPECT_TRUE(scratch.guardsUnchanged());
    return status;
  };
}

constexpr int32_t U8 = IMAGE_UINT8, U16 = IMAGE_UINT16, U32 = IMAGE_INT32;
const Form kForms[] = {
    {"hori", U8, U16, sum_hori_u8_to_u16},           {"hori", U16, U16, sum_hori_u16_to_u16},
    {"hori", U16, U32, sum_hori_u16_to_u32},         {"hori", U32, U32, sum_hori_u32_to_u32},
    {"vert", U8, U16, sum_vert_u8_to_u16},           {"vert", U16, U16, sum_vert_u16_to_u16},
    {"vert", U16, U32, sum_vert_u16_to_u32},         {"vert", U32, U32, sum_vert_u32_to_u32},
    {"diag", U8, U16, alone(sum_diag_u8_to_u16)},    {"diag", U16, U16, alone(sum_diag_u16_to_u16)},
    {"diag", U8, U32, alone(sum_diag_u8_to_u32)},    {"diag", U16, U32, alone(sum_diag_u16_to_u32)},
    {"diag", U32, U32, alone(sum_diag_u32_to_u32)},  {"anti", U8, U16, alone(sum_anti_u8_to_u16)},
    {"anti", U16, U16, alone(sum_anti_u16_to_u16)},  {"anti", U8, U32, alone(sum_anti_u8_to_u32)},
    {"anti", U16, U32, alone(sum_anti_u16_to_u32)},  {"anti", U32, U32, alone(sum_anti_u32_to_u32)},
    {"sqre", U8, U16, square(sum_sqre_u8_to_u16)},   {"sqre", U16, U16, square(sum_sqre_u16_to_u16)},
    {"sqre", U8, U32, square(sum_sqre_u8_to_u32)},   {"sqre", U16, U32, square(sum_sqre_u16_to_u32)},
    {"sqre", U32, U32, square(sum_sqre_u32_to_u32)},
};
const std::pair<const char*, Run> kFronts[] = {{"hori", sum_hori},
                                               {"vert", sum_vert},
                                               {"diag", alone(sum_diag)},
                                               {"anti", alone(sum_anti)},
                                               {"sqre", square(sum_sqre)}};

uint32_t expectedSum(const std::string& name, const Image& src, int32_t x, int32_t y, int32_t radius) {
  if (name == "hori") return lineSum(src, x, y, 1, 0, radius);
  if (name == "vert") return lineSum(src, x, y, 0, 1, radius);
  if (name == "diag") return lineSum(src, x, y, 1, 1, radius);
  if (name == "anti") return lineSum(src, x, y, -1, 1, radius);
  uint32_t sum = 0;
  for (int32_t k = -radius; k <= radius; ++k) {
    sum += lineSum(src, x, clampInt(y + k, 0, src.height - 1), 1, 0, radius);
  }
  return sum;
}

TEST(WindowSums, EveryFormEqualsTheLiteralSum) {
  const TestPel pel(3);
  const std::pair<int32_t, int32_t> sizes[] = {{1, 1}, {1, 9}, {8, 1}, {2, 5}, {41, 7}, {6, 23}, {19, 21}};
  for (const Form& form : kForms) {
    for (const auto& [w, h] : sizes) {
      for (const int32_t radius : {0, 1, 3, 6, 50}) {
        SCOPED_TRACE(testing::Message() << form.name << ' ' << form.in << " to " << form.out << ", " << w << 'x' << h
                                        << " radius " << radius);
        const TestImage src(w, h, form.in, static_cast<uint32_t>(w + radius), kGap);
        for (Pel* with : {static_cast<Pel*>(nullptr), pel.get()}) {
          TestImage dst(w, h, form.out, 2, kGap);
          ASSERT_EQ(form.run(&dst, &src, radius, with), ZELVAN_OK);
          const uint32_t mask = form.out == U16 ? 0xFFFF : 0xFFFFFFFF;
          for (int32_t y = 0; y < h; ++y) {
            for (int32_t x = 0; x < w; ++x) {
              ASSERT_EQ(item(dst, x, y), expectedSum(form.name, src, x, y, radius) & mask) << x << ',' << y;
            }
          }
          EXPECT_TRUE(dst.guardsUnchanged());
        }
      }
    }
  }
}

TEST(WindowSums, FrontsTakeExactlyTheFormsOfTheirFamily) {
  for (const auto& [name, front] : kFronts) {
    for (const int32_t in : {U8, U16, U32, int32_t{IMAGE_INT16}, int32_t{IMAGE_FLOAT}}) {
      for (const int32_t out : {U8, U16, U32, int32_t{IMAGE_INT16}, int32_t{IMAGE_FLOAT}}) {
        SCOPED_TRACE(testing::Message() << name << ' ' << in << " to " << out);
        const TestImage src(9, 4, in, 1, kGap);
        TestImage dst(9, 4, out, 2, kGap), same(9, 4, out, 2, kGap);
        Status expected = ZELVAN_ERROR_UNSUPPORTED;
        for (const Form& form : kForms) {
          if (form.name == std::string(name) && form.in == in && form.out == out) {
            expected = form.run(&same, &src, 2, nullptr);
          }
        }
        EXPECT_EQ(front(&dst, &src, 2, nullptr), expected);
        for (int32_t i = 0; i < 36; ++i) EXPECT_EQ(item(dst, i % 9, i / 9), item(same, i % 9, i / 9));
      }
    }
    const TestImage src(9, 4, U16);
    TestImage dst(9, 4, U16), narrow(8, 4, U16), low(9, 3, U16);
    EXPECT_EQ(front(&narrow, &src, 1, nullptr), ZELVAN_ERROR_PARAM);
    EXPECT_EQ(front(&low, &src, 1, nullptr), ZELVAN_ERROR_PARAM);
    EXPECT_EQ(front(&dst, &src, -1, nullptr), ZELVAN_ERROR_PARAM);
    EXPECT_TRUE(dst.unchanged());
  }
}

TEST(BoxBlur, EqualsTwoRoundedMeansAndMayRunInPlace) {
  struct Blur {
    int32_t format, rowFormat, channels;
    Status (*run)(Image*, const Image*, Image*, Image*, int32_t, int32_t, Pel*);
  };
  const TestPel pel(3);
  for (const Blur& blur : {Blur{IMAGE_UINT8, IMAGE_UINT16, 1, box_blur_u8},
                           {IMAGE_UINT88, IMAGE_UINT16, 2, box_blur_u88},
                           {IMAGE_UINT16, IMAGE_INT32, 1, box_blur_u16}}) {
    for (const auto& [w, h] : {std::pair{1, 1}, {5, 31}, {37, 6}}) {
      for (const auto& [across, down] : {std::pair{1, 1}, {3, 8}, {91, 21}}) {
        TestImage src(w, h, blur.format, 7, 4), dst(w, h, blur.format, 8, 4), scratch(w, h, blur.format, 9, 4);
        TestImage line(w * blur.channels, 1, blur.rowFormat, 1, 4);
        ASSERT_EQ(blur.run(&dst, &src, &scratch, &line, across, down, pel.get()), ZELVAN_OK);
        ASSERT_EQ(blur.run(&src, &src, &scratch, &line, across, down, nullptr), ZELVAN_OK);
        EXPECT_TRUE(dst.guardsUnchanged() && scratch.guardsUnchanged() && line.guardsUnchanged());
        const TestImage original(w, h, blur.format, 7, 4);
        const auto mean = [](uint32_t sum, int32_t radius) { return (sum + radius) / (2 * radius + 1); };
        for (int32_t i = 0; i < w * h * blur.channels; ++i) {
          const int32_t c = i % blur.channels, x = i / blur.channels % w, y = i / blur.channels / w;
          uint32_t sum = 0;
          for (int32_t k = -(down / 2); k <= down / 2; ++k) {
            sum += mean(lineSum(original, x, clampInt(y + k, 0, h - 1), 1, 0, across / 2, c), across / 2);
          }
          ASSERT_EQ(item(dst, x, y, c), mean(sum, down / 2)) << across << 'x' << down << " at " << x << ',' << y;
          ASSERT_EQ(item(src, x, y, c), mean(sum, down / 2));
        }
      }
    }
    TestImage image(8, 8, blur.format, 1, 4), scratch(8, 8, blur.format, 1, 4);
    TestImage line(8 * blur.channels, 1, blur.rowFormat, 1, 4), brief(8 * blur.channels - 1, 1, blur.rowFormat, 1, 4);
    const int32_t over = blur.format == IMAGE_UINT16 ? 65536 : 258;
    EXPECT_EQ(blur.run(&image, &image, &scratch, &line, 1, over, nullptr), ZELVAN_ERROR_UNSUPPORTED);
    EXPECT_EQ(blur.run(&image, &image, &scratch, &line, 0, 1, nullptr), ZELVAN_ERROR_PARAM);
    EXPECT_EQ(blur.run(&image, &image, &scratch, &brief, 1, 1, nullptr), ZELVAN_ERROR_PARAM);
    EXPECT_EQ(blur.run(&image, &image, nullptr, &line, 1, 1, nullptr), ZELVAN_ERROR_PARAM);
    EXPECT_TRUE(image.unchanged());
  }
}

}  // namespace
