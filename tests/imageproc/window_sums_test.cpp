#include "imageproc/window_sums.h"

#include <functional>
#include <string>

#include "imageproc/kernel_rig.h"

namespace {

constexpr int32_t kGap = 12;  // keeps rows of 32-bit items aligned

using Run = std::function<Status(Image*, const Image*, int32_t, Pel*)>;
struct Form {
  std::string name;
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
const std::pair<std::string, Run> kFronts[] = {{"hori", sum_hori},
                                               {"vert", sum_vert},
                                               {"diag", alone(sum_diag)},
                                               {"anti", alone(sum_anti)},
                                               {"sqre", square(sum_sqre)}};

int64_t expectedSum(const std::string& name, const Plane& src, int32_t x, int32_t y, int32_t radius) {
  if (name == "vert") return src.lineSum(x, y, 0, 1, radius);
  if (name == "diag") return src.lineSum(x, y, 1, 1, radius);
  if (name == "anti") return src.lineSum(x, y, -1, 1, radius);
  int64_t sum = 0;
  for (int32_t k = name == "sqre" ? -radius : 0; k <= (name == "sqre" ? radius : 0); ++k) {
    sum += src.lineSum(x, std::clamp(y + k, 0, src.height - 1), 1, 0, radius);
  }
  return sum;
}

TEST(WindowSums, EveryFormEqualsTheLiteralSum) {
  const TestPel pel(3);
  for (const Form& form : kForms) {
    for (const auto& [w, h] : {std::pair{1, 1}, {1, 9}, {8, 1}, {41, 7}, {6, 23}, {19, 21}}) {
      for (const int32_t radius : {0, 1, 3, 6, 50}) {
        SCOPED_TRACE(testing::Message() << form.name << form.in << ' ' << w << 'x' << h << " radius " << radius);
        const TestImage src(w, h, form.in, static_cast<uint32_t>(w + radius), kGap);
        const Plane from = planesOf(src)[0];
        Plane expected(w, h);
        for (int32_t i = 0; i < w * h; ++i) {
          const auto sum = static_cast<uint64_t>(expectedSum(form.name, from, i % w, i / w, radius));
          expected.values[i] = form.out == U16 ? static_cast<uint16_t>(sum) : static_cast<int32_t>(sum);
        }
        for (Pel* with : {static_cast<Pel*>(nullptr), pel.get()}) {
          TestImage dst(w, h, form.out, 2, kGap);
          ASSERT_EQ(form.run(&dst, &src, radius, with), ZELVAN_OK);
          EXPECT_TRUE(planesOf(dst)[0] == expected && dst.guardsUnchanged());
        }
      }
    }
  }
}

TEST(WindowSums, FrontsTakeExactlyTheFormsOfTheirFamily) {
  for (const auto& [name, front] : kFronts) {
    for (const int32_t in : {U8, U16, U32, int32_t{IMAGE_INT16}, int32_t{IMAGE_FLOAT}}) {
      for (const int32_t out : {U8, U16, U32, int32_t{IMAGE_INT16}, int32_t{IMAGE_FLOAT}}) {
        const TestImage src(9, 4, in, 1, kGap);
        TestImage dst(9, 4, out, 2, kGap), same(9, 4, out, 2, kGap);
        Status expected = ZELVAN_ERROR_UNSUPPORTED;
        for (const Form& form : kForms) {
          if (form.name == name && form.in == in && form.out == out) expected = form.run(&same, &src, 2, nullptr);
        }
        EXPECT_EQ(front(&dst, &src, 2, nullptr), expected) << name << ' ' << in << " to " << out;
        EXPECT_TRUE(dst.sameBytes(same));
      }
    }
    const TestImage src(9, 4, U16);
    TestImage dst(9, 4, U16), narrow(8, 4, U16), low(9, 3, U16);
    EXPECT_EQ(front(&narrow, &src, 1, nullptr), ZELVAN_ERROR_PARAM);
    EXPECT_EQ(front(&low, &src, 1, nullptr), ZELVAN_ERROR_PARAM);
    EXPECT_EQ(front(&dst, &src, -1, nullptr), ZELVAN_ERROR_PARAM);
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
    for (const auto& [w, h, across, down] : {std::array{1, 1, 3, 8}, {5, 31, 3, 1}, {37, 6, 91, 21}}) {
      TestImage src(w, h, blur.format, 7, 4), dst(w, h, blur.format, 8, 4), scratch(w, h, blur.format, 9, 4);
      TestImage line(w * blur.channels, 1, blur.rowFormat, 1, 4), brief(line.width - 1, 1, blur.rowFormat);
      Plane expected = planesOf(src)[0];
      for (const int32_t isDown : {0, 1}) {
        const Plane from = expected;
        const int32_t radius = (isDown ? down : across) / 2;
        for (size_t i = 0; i < expected.values.size(); ++i) {
          const auto pixel = static_cast<int32_t>(i) / blur.channels, c = static_cast<int32_t>(i) % blur.channels;
          const int64_t sum = from.lineSum(pixel % w, pixel / w, 1 - isDown, isDown, radius, c);
          expected.values[i] = (sum + radius) / (2 * radius + 1);
        }
      }
      ASSERT_EQ(blur.run(&dst, &src, &scratch, &line, across, down, pel.get()), ZELVAN_OK);
      ASSERT_EQ(blur.run(&src, &src, &scratch, &line, across, down, nullptr), ZELVAN_OK);
      EXPECT_TRUE(planesOf(dst)[0] == expected && planesOf(src)[0] == expected) << across << 'x' << down;
      EXPECT_TRUE(dst.guardsUnchanged() && scratch.guardsUnchanged() && line.guardsUnchanged());
      const int32_t over = blur.format == IMAGE_UINT16 ? 65536 : 258;
      EXPECT_EQ(blur.run(&dst, &src, &scratch, &line, 1, over, nullptr), ZELVAN_ERROR_UNSUPPORTED);
      EXPECT_EQ(blur.run(&dst, &src, &scratch, &line, 0, 1, nullptr), ZELVAN_ERROR_PARAM);
      EXPECT_EQ(blur.run(&dst, &src, &scratch, &brief, 1, 1, nullptr), ZELVAN_ERROR_PARAM);
      EXPECT_EQ(blur.run(&dst, &src, nullptr, &line, 1, 1, nullptr), ZELVAN_ERROR_PARAM);
    }
  }
}

}  // namespace
