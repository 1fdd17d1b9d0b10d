#include "imageproc/box.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <functional>

#include "support/test_arena.h"
#include "support/test_image.h"

namespace {

int32_t pixel(const TestImage& image, int32_t x, int32_t y) {
  return image.row(0, std::clamp(y, 0, image.height - 1))[std::clamp(x, 0, image.width - 1)];
}

TEST(Box, SumsAndMeansOfTheWindow) {
  TestArena arena;
  ImageProc proc = {arena.env(), nullptr};
  ImageProc2 proc2 = {arena.env(), nullptr};
  for (const int32_t window : {1, 2, 3, 5, 8, 31}) {
    SCOPED_TRACE(window);
    TestImage src(17, 12, IMAGE_UINT8, 3);
    TestImage sums(17, 12, IMAGE_INT32, 4, 8);
    TestImage mean(17, 12, IMAGE_UINT8, 5);
    TestImage twin(17, 12, IMAGE_UINT8, 5);
    ASSERT_EQ(ImageProc_boxSum(&proc, &sums, &src, window), ZELVAN_OK);
    ASSERT_EQ(ImageProc_boxBlur(&proc, &mean, &src, window), ZELVAN_OK);
    EXPECT_TRUE(sums.guardsUnchanged() && mean.guardsUnchanged());
    const auto rowMean = [&](int32_t x, int32_t y, int32_t r) {
      int32_t sum = 0;
      for (int32_t i = -r; i <= r; ++i) sum += pixel(src, x + i, y);
      return (sum * (32768 / window) + 16384) >> 15;
    };
    for (int32_t y = 0; y < 12; ++y) {
      for (int32_t x = 0; x < 17; ++x) {
        int32_t sum = 0;
        for (int32_t j = -(window / 2); j <= window / 2; ++j) {
          for (int32_t i = -(window / 2); i <= window / 2; ++i) sum += pixel(src, x + i, y + j);
        }
        ASSERT_EQ(imageRow<int32_t>(&sums, y)[x], sum);
        const int32_t r = (window - 1) / 2;
        int32_t down = 0;
        for (int32_t j = -r; j <= r; ++j) down += rowMean(x, std::clamp(y + j, 0, 11), r);
        ASSERT_EQ(mean.row(0, y)[x], (down * (32768 / window) + 16384) >> 15);
      }
    }
    EXPECT_EQ(ImageProc2_boxBlur(&proc2, &twin, &src, window), window % 2 == 0 ? ZELVAN_ERROR_UNSUPPORTED : ZELVAN_OK);
    EXPECT_EQ(twin.sameBytes(mean), window % 2 != 0);
  }
  TestImage chroma(9, 6, IMAGE_UINT88, 3);
  TestImage u(9, 6, IMAGE_UINT8, 3);
  for (int32_t y = 0; y < 6; ++y) {
    for (int32_t x = 0; x < 9; ++x) u.row(0, y)[x] = chroma.row(0, y)[2 * x];
  }
  ASSERT_EQ(ImageProc_boxBlur2(&proc, &chroma, &chroma, 3), ZELVAN_OK);
  ASSERT_EQ(ImageProc_boxBlur2(&proc, &u, &u, 3), ZELVAN_OK);
  EXPECT_EQ(chroma.row(0, 3)[8], u.row(0, 3)[4]) << "channels stay apart";
}

TEST(Filter3x3, EveryMemberByItsRule) {
  TestArena arena;
  ImageProc proc = {arena.env(), nullptr};
  using Filter = Status (*)(ImageProc*, Image*, const Image*);
  using Rule = std::function<int32_t(std::vector<int32_t>)>;
  const auto mean = [](const std::vector<int32_t>& v) {
    int32_t sum = 0;
    for (int32_t x : v) sum += x;
    return static_cast<int32_t>((sum + 4.5) / 9);
  };
  const std::pair<Filter, Rule> members[] = {
      {ImageProc_filterAveraging3x3, mean},
      {ImageProc_filterMax3x3, [](auto v) { return *std::max_element(v.begin(), v.end()); }},
      {ImageProc_filterMin3x3, [](auto v) { return *std::min_element(v.begin(), v.end()); }},
      {ImageProc_filterMedian3x3,
       [](auto v) {
         std::sort(v.begin(), v.end());
         return v[4];
       }},
      {ImageProc_filterSharpen, [&](auto v) { return std::clamp(2 * v[4] - mean(v), 0, 255); }},
      {ImageProc_filterLaplacian, [](auto v) { return std::min(std::abs(4 * v[4] - v[1] - v[3] - v[5] - v[7]), 255); }},
  };
  for (const auto& [filter, rule] : members) {
    TestImage src(13, 9, IMAGE_UINT8, 3);
    TestImage dst(13, 9, IMAGE_UINT8, 3);
    ASSERT_EQ(filter(&proc, &dst, &dst), ZELVAN_OK);  // in place
    for (int32_t y = 0; y < 9; ++y) {
      for (int32_t x = 0; x < 13; ++x) {
        std::vector<int32_t> v;
        for (int32_t i = 0; i < 9; ++i) v.push_back(pixel(src, x + i % 3 - 1, y + i / 3 - 1));
        ASSERT_EQ(dst.row(0, y)[x], rule(v)) << x << ' ' << y;
      }
    }
  }
  ImageProc2 proc2 = {arena.env(), nullptr};
  TestImage rgb(4, 4, IMAGE_RGB888);
  EXPECT_EQ(ImageProc2_filterMax3x3(&proc2, &rgb, &rgb), ZELVAN_ERROR_UNSUPPORTED);
}

}  // namespace
