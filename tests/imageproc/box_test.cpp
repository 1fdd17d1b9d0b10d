#include "imageproc/box.h"

#include <functional>

#include "imageproc/kernel_rig.h"

namespace {

TEST(Box, SumsAndMeansOfTheWindow) {
  TestArena arena;
  ImageProc proc = {arena.env(), nullptr};
  ImageProc2 proc2 = {arena.env(), nullptr};
  for (const int32_t window : {1, 2, 3, 5, 8, 31}) {
    SCOPED_TRACE(window);
    TestImage src(17, 12, 57, 3), sums(17, 12, 58, 4, 8), mean(17, 12, 57, 5), twin(17, 12, 57, 5);
    ASSERT_EQ(ImageProc_boxSum(&proc, &sums, &src, window), ZELVAN_OK);
    ASSERT_EQ(ImageProc_boxBlur(&proc, &mean, &src, window), ZELVAN_OK);
    EXPECT_TRUE(sums.guardsUnchanged() && mean.guardsUnchanged());
    const Plane from = planesOf(src)[0];
    const int32_t reach = window / 2, r = (window - 1) / 2, scale = 32768 / window;
    Plane sum(17, 12), across(17, 12), down(17, 12);
    sum.fill([&](int32_t x, int32_t y, int32_t) {
      int64_t all = 0;
      for (int32_t j = -reach; j <= reach; ++j) all += from.lineSum(x, std::clamp(y + j, 0, 11), 1, 0, reach);
      return all;
    });
    across.fill([&](int32_t x, int32_t y, int32_t) { return (from.lineSum(x, y, 1, 0, r) * scale + 16384) >> 15; });
    down.fill([&](int32_t x, int32_t y, int32_t) { return (across.lineSum(x, y, 0, 1, r) * scale + 16384) >> 15; });
    EXPECT_EQ(planesOf(sums)[0], sum);
    EXPECT_EQ(planesOf(mean)[0], down);
    EXPECT_EQ(ImageProc2_boxBlur(&proc2, &twin, &src, window), window % 2 == 0 ? ZELVAN_ERROR_UNSUPPORTED : ZELVAN_OK);
    EXPECT_EQ(twin.sameBytes(mean), window % 2 != 0);
  }
  TestImage chroma(9, 6, IMAGE_UINT88, 3), u(9, 6, IMAGE_UINT8, 3);
  for (int32_t i = 0; i < 9 * 6; ++i) u.row(0, i / 9)[i % 9] = chroma.row(0, i / 9)[i % 9 * 2];
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
      {[](ImageProc* p, Image* d, const Image* s) { return ImageProc_filterAveraging3x3(p, d, s, 1.0); }, mean},
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
    TestImage dst(13, 9, IMAGE_UINT8, 3);
    const Plane from = planesOf(dst)[0];
    ASSERT_EQ(filter(&proc, &dst, &dst), ZELVAN_OK);  // in place
    for (int32_t k = 0; k < 13 * 9; ++k) {
      std::vector<int32_t> v;
      for (int32_t i = 0; i < 9; ++i)
        v.push_back(static_cast<int32_t>(from.edge(k % 13 + i % 3 - 1, k / 13 + i / 3 - 1)));
      ASSERT_EQ(dst.row(0, k / 13)[k % 13], rule(v)) << k;
    }
  }
  ImageProc2 proc2 = {arena.env(), nullptr};
  TestImage rgb(4, 4, IMAGE_RGB888);
  EXPECT_EQ(ImageProc2_filterMax3x3(&proc2, &rgb, &rgb), ZELVAN_ERROR_UNSUPPORTED);
}

}  // namespace
