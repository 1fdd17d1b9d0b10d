#include "imageproc/window_sums.h"

#include <functional>

#include "imageproc/kernel_rig.h"

namespace {

constexpr int32_t kGap = 12;  // keeps rows of 32-bit items aligned

using Run = std::function<Status(Image*, const Image*, int32_t, Pel*)>;
Run alone(Status (*sum)(Image*, const Image*, int32_t)) {
  return [sum](Image* dst, const Image* src, int32_t radius, Pel*) { return sum(dst, src, radius); };
}
Status square(Image* dst, const Image* src, int32_t radius, Pel* pel) {
  TestImage scratch(dst->width, dst->height, dst->format, 3, kGap);
  const Status status = sum_sqre(dst, src, &scratch, radius, pel);
  EXPECT_TRUE(scratch.guardsUnchanged());
  return status;
}
const std::pair<std::string, Run> kFronts[] = {
    {"hori", sum_hori}, {"vert", sum_vert}, {"diag", alone(sum_diag)}, {"anti", alone(sum_anti)}, {"sqre", square}};

int64_t literalSum(const std::string& name, const Plane& src, int32_t x, int32_t y, int32_t radius) {
  if (name == "vert") return src.lineSum(x, y, 0, 1, radius);
  if (name == "diag") return src.lineSum(x, y, 1, 1, radius);
  if (name == "anti") return src.lineSum(x, y, -1, 1, radius);
  int64_t sum = 0;
  for (int32_t k = name == "sqre" ? -radius : 0; k <= (name == "sqre" ? radius : 0); ++k) {
    sum += src.lineSum(x, std::clamp(y + k, 0, src.height - 1), 1, 0, radius);
  }
  return sum;
}

// Through the fronts, which must pick the form of the formats and refuse what their family has not.
TEST(WindowSums, EveryFormEqualsTheLiteralSum) {
  const TestPel pel(3);
  for (const auto& [kind, front] : kFronts) {
    const std::string name = kind;  // for the lambda
    const std::string forms =
        name == "hori" || name == "vert" ? "57-61 61-61 61-58 58-58" : "57-61 61-61 57-58 61-58 58-58";
    for (const int32_t in : {57, 61, 58, 65, 63}) {
      for (const int32_t out : {57, 61, 58, 65, 63}) {
        const bool served = forms.find(std::to_string(in) + "-" + std::to_string(out)) != std::string::npos;
        for (const auto& [w, h] : {std::pair{1, 1}, {1, 9}, {8, 1}, {41, 7}, {6, 23}, {19, 21}}) {
          for (const int32_t radius : {0, 1, 3, 6, 50}) {
            SCOPED_TRACE(testing::Message() << name << in << '-' << out << ' ' << w << 'x' << h << " by " << radius);
            const TestImage src(w, h, in, static_cast<uint32_t>(w + radius), kGap);
            TestImage dst(w, h, out, 2, kGap);
            ASSERT_EQ(front(&dst, &src, radius, nullptr), served ? ZELVAN_OK : ZELVAN_ERROR_UNSUPPORTED);
            if (!served) continue;
            const Plane from = planesOf(src)[0];
            Plane expected(w, h);
            expected.fill([&](int32_t x, int32_t y, int32_t) -> int64_t {
              const auto sum = static_cast<uint64_t>(literalSum(name, from, x, y, radius));
              return out == IMAGE_UINT16 ? static_cast<uint16_t>(sum) : static_cast<int32_t>(sum);
            });
            EXPECT_TRUE(planesOf(dst)[0] == expected && dst.guardsUnchanged());
            ASSERT_EQ(front(&dst, &src, radius, pel.get()), ZELVAN_OK);
            EXPECT_TRUE(planesOf(dst)[0] == expected && dst.guardsUnchanged());
          }
        }
      }
    }
    TestImage src(9, 4, 61), dst(9, 4, 61), narrow(8, 4, 61), low(9, 3, 61);
    EXPECT_EQ(front(&narrow, &src, 1, nullptr) & front(&low, &src, 1, nullptr), ZELVAN_ERROR_PARAM);
    EXPECT_EQ(front(&dst, &src, -1, nullptr), ZELVAN_ERROR_PARAM);
  }
}

template <typename Blur>
void checkBoxBlur(Blur blur, int32_t format, int32_t rowFormat, int32_t channels) {
  const TestPel pel(3);
  for (const auto& [w, h, across, down] : {std::array{1, 1, 3, 8}, {5, 31, 3, 1}, {37, 6, 91, 21}}) {
    TestImage src(w, h, format, 7, 4), dst(w, h, format, 8, 4), scratch(w, h, format, 9, 4);
    TestImage line(w * channels, 1, rowFormat, 1, 4), brief(line.width - 1, 1, rowFormat);
    Plane expected = planesOf(src)[0];
    for (const int32_t isDown : {0, 1}) {
      const Plane from = expected;
      const int32_t radius = (isDown ? down : across) / 2;
      expected.fill([&](int32_t x, int32_t y, int32_t c) {
        return (from.lineSum(x, y, 1 - isDown, isDown, radius, c) + radius) / (2 * radius + 1);
      });
    }
    ASSERT_EQ(blur(&dst, &src, &scratch, &line, across, down, pel.get()), ZELVAN_OK);
    ASSERT_EQ(blur(&src, &src, &scratch, &line, across, down, nullptr), ZELVAN_OK);
    EXPECT_TRUE(planesOf(dst)[0] == expected && planesOf(src)[0] == expected) << across << 'x' << down;
    EXPECT_TRUE(dst.guardsUnchanged() && scratch.guardsUnchanged() && line.guardsUnchanged());
    EXPECT_EQ(blur(&dst, &src, &scratch, &line, 1, 65536, nullptr), ZELVAN_ERROR_UNSUPPORTED);
    EXPECT_EQ(blur(&dst, &src, &scratch, &brief, 1, 1, nullptr), ZELVAN_ERROR_PARAM);
  }
}

TEST(BoxBlur, EqualsTwoRoundedMeansAndMayRunInPlace) {
  checkBoxBlur(box_blur_u8, IMAGE_UINT8, IMAGE_UINT16, 1);
  checkBoxBlur(box_blur_u88, IMAGE_UINT88, IMAGE_UINT16, 2);
  checkBoxBlur(box_blur_u16, IMAGE_UINT16, IMAGE_INT32, 1);
}

}  // namespace
