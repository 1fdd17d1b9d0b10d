#include "tracker/feat_pnt_list.h"

#include <algorithm>
#include <array>
#include <cmath>

#include "support/test_arena.h"
#include "support/test_executor.h"
#include "support/test_image.h"

namespace {

using Record = std::array<int32_t, 7>;

class List : public FeatPntList {
 public:
  List(int32_t size, Env* env) { EXPECT_EQ(construct_FeatPntList(this, size, env), ZELVAN_OK); }
  ~List() { EXPECT_EQ(destruct_FeatPntList(this), ZELVAN_OK); }
  std::vector<Record> records() const {
    std::vector<Record> all;
    for (const FeatPnt* p = pnts; p != pnts + count; ++p) {
      all.push_back({p->left, p->top, p->right, p->bottom, p->x, p->y, p->strength});
    }
    return all;
  }
};

// The response by its definition, wide and cut to 32 bits at the end.
int32_t response(const Image& image, int32_t x, int32_t y, bool* wraps) {
  const auto at = [&](int32_t u, int32_t v) { return imageRow(&image, v)[u]; };
  int64_t xx = 0, yy = 0, xy = 0;
  for (int32_t i = 0; i < 16; ++i) {
    const int32_t u = x - 1 + i % 4, v = y - 1 + i / 4;
    const int32_t dx = at(u + 1, v) - at(u - 1, v), dy = at(u, v + 1) - at(u, v - 1);
    xx += dx * dx, yy += dy * dy, xy += dx * dy;
  }
  const int64_t a = xx >> 2, c = yy >> 2, e = xy >> 2, square = (a + c) * (a + c);
  *wraps |= square > UINT32_MAX;
  return std::max(0, static_cast<int32_t>(a * c - e * e - (static_cast<uint32_t>(square) >> 4)));
}

// Detection by its definition with blocks of 7, without subdivision.
std::vector<Record> detect(const Image& image, size_t maximum, int32_t cell, int32_t step, int32_t scale, bool* wraps) {
  std::vector<Record> all;
  for (int32_t top = 0; top < image.height; top += cell) {
    for (int32_t left = 0; left < image.width; left += cell) {
      Record p = {left, top, std::min(left + cell, image.width), std::min(top + cell, image.height), 0, 0, 0};
      int32_t best = 1;
      for (int32_t fy = std::max(top / step, 2 / step + 1); fy < std::min(p[3], image.height - 3) / step; ++fy) {
        for (int32_t fx = std::max(left / step, 2 / step + 1); fx < std::min(p[2], image.width - 3) / step; ++fx) {
          const int32_t value = response(image, fx * step, fy * step, wraps);
          if (value < best) continue;
          best = value;
          p[4] = fx * step;
          p[5] = fy * step;
          p[6] = std::min(scale * static_cast<int32_t>(std::sqrt(std::floor(std::sqrt(best)))) >> 15, 255);
        }
      }
      if (p[4] > 0 && all.size() < maximum) all.push_back(p);  // a full list takes no more
    }
  }
  std::stable_sort(all.begin(), all.end(), [](const Record& a, const Record& b) { return a[6] > b[6]; });
  return all;
}

TEST(FeatDetection, EqualsTheDefinitionForAnyNumberOfWorkers) {
  TestArena arena;
  TestExecutor one(1), three(3), narrow(2, 5);
  bool wraps = false;
  struct {
    int32_t w, h, maximum, cell, step, scale;
  } const cases[] = {{320, 240, 96, 28, 7, 16384}, {64, 64, 256, 4, 2, 16384},  {63, 41, 40, 8, 2, 90000},
                     {200, 100, 3, 81, 8, 16384},  {24, 24, 1000, 4, 2, 32768}, {150, 60, 111, 9, 2, 300}};
  for (const auto& c : cases) {
    List list(c.maximum, arena.env());
    for (int32_t pattern = 0; pattern < 4; ++pattern) {
      TestImage image(c.w, c.h, IMAGE_UINT8, 4);
      for (int32_t i = 0; pattern > 0 && i < c.w * c.h; ++i) {
        const int32_t x = i % c.w, y = i / c.w;
        const int32_t checkers = ((x / 3 ^ y / 3) & 1) != 0 ? 255 - y / 4 : x / 4, flat = 100;
        image.row(0, y)[x] = pattern == 1 ? checkers : pattern == 2 ? flat : x / 13 * 37 + y / 11 * 29 + x * y % 4;
      }
      const std::vector<Record> expected = detect(image, c.maximum, c.cell, c.step, c.scale, &wraps);
      EXPECT_EQ(expected.empty(), pattern == 2);
      for (ParallelExecutor* const executor : {(ParallelExecutor*)nullptr, one.get(), three.get(), narrow.get()}) {
        EXPECT_EQ(VectralFeatPntList_calc(&list, &image, c.maximum, 7, 0, c.scale, 4, executor), ZELVAN_OK);
        EXPECT_EQ(list.records(), expected);
      }
    }
  }
  EXPECT_TRUE(wraps);
  List list(9, arena.env());
  const TestImage low(100, 23, IMAGE_UINT8), image(100, 24, IMAGE_UINT8);
  const auto calc = [&](const TestImage& in, int32_t maximum, int32_t block, int32_t type, ParallelExecutor* executor) {
    return std::pair(VectralFeatPntList_calc(&list, &in, maximum, block, 0, 32768, type, executor), list.count);
  };
  const auto empty = std::pair(ZELVAN_OK, 0), refused = std::pair(ZELVAN_ERROR_PARAM, 0);
  EXPECT_EQ(calc(low, 9, 7, 4, nullptr), empty);
  EXPECT_EQ(calc(image, 0, 7, 4, nullptr), empty);
  EXPECT_EQ(calc(image, 9, 1, 4, one.get()), empty) << "no feature image";
  EXPECT_EQ(calc(image, 9, 1, 4, nullptr), refused);
  EXPECT_EQ(calc(image, 9, 7, 3, one.get()), refused);
}

TEST(FeatPntList, RefusesWeakCornersAndSplitsCells) {
  TestArena arena(10000);
  List list(2, arena.env());
  TestImage feat(6, 5, IMAGE_INT32, 1, 4);
  for (int32_t y = 0; y < 5; ++y) std::fill_n(imageRow<int32_t>(&feat, y), 6, 0);
  imageRow<int32_t>(&feat, 1)[1] = 10000;
  imageRow<int32_t>(&feat, 0)[5] = 1295;
  const auto add = [&](const ImageRect& rect, int32_t floorFlag) {
    return FeatPntList_addFeatPnt(&list, &rect, &feat, 4, floorFlag, 32768);
  };
  EXPECT_EQ(add({20, 0, 24, 4}, 1), ZELVAN_ERROR_STATE) << "strength 5";
  EXPECT_EQ(add({0, 12, 8, 20}, 0), ZELVAN_ERROR_STATE) << "all 0";
  EXPECT_EQ(add({0, 0, 3, 8}, 0), ZELVAN_ERROR_PARAM) << "no sample";
  EXPECT_EQ(add({20, 0, 24, 4}, 0), 1u);
  EXPECT_EQ(add({0, 0, 17, 11}, 1), 2u);
  EXPECT_EQ(FeatPntList_div(&list, 0, &feat, 4, 32768), ZELVAN_ERROR_STATE) << "4 wide";
  // Full: no quarter is added, and the record is lost. Then there is room for the one quarter with a corner.
  EXPECT_EQ(FeatPntList_div(&list, 1, &feat, 4, 32768), ZELVAN_OK);
  EXPECT_EQ(list.count, 1);
  EXPECT_EQ(add({0, 0, 17, 15}, 1), 2u);
  list.pnts[0] = list.pnts[1];
  list.count = 1;
  EXPECT_EQ(FeatPntList_div(&list, 0, &feat, 4, 32768), ZELVAN_OK);
  const std::vector<Record> quarter = {{0, 7, 8, 15, 4, 4, 10}};
  EXPECT_EQ(list.records(), quarter);
  const ScopedBlock<uint8_t> hog(arena.env(), Heap2_getFreeSize(&arena.env()->heap) - 100);
  EXPECT_EQ(FeatPntList_strip(&list, 1), ZELVAN_ERROR_NOMEM);
  EXPECT_EQ(list.records(), quarter);
}

}  // namespace
