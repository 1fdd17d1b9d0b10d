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

// The response by its definition, wide and cut to 32 bits at the end. Windows beyond the image count as 0.
int32_t response(const Image& image, int32_t x, int32_t y, bool* wraps) {
  if (x < 2 || y < 2 || x + 3 >= image.width || y + 3 >= image.height) return 0;
  const auto at = [&](int32_t u, int32_t v) { return imageRow(&image, v)[u]; };
  int64_t xx = 0, yy = 0, xy = 0;
  for (int32_t i = 0; i < 16; ++i) {
    const int32_t u = x - 1 + i % 4, v = y - 1 + i / 4;
    const int32_t dx = at(u + 1, v) - at(u - 1, v), dy = at(u, v + 1) - at(u, v - 1);
    xx += dx * dx;
    yy += dy * dy;
    xy += dx * dy;
  }
  const int64_t a = xx >> 2, c = yy >> 2, e = xy >> 2, square = (a + c) * (a + c);
  *wraps |= square > UINT32_MAX;
  return std::max(0, static_cast<int32_t>(a * c - e * e - (static_cast<uint32_t>(square) >> 4)));
}

std::vector<int32_t> responses(const Image& image, int32_t step, int32_t block, bool* wraps) {
  const int32_t w = (image.width - 1) / step + 1, h = (image.height - 1) / step + 1, b = block / 2;
  std::vector<int32_t> all(static_cast<size_t>(w) * h, 0);
  for (int32_t fy = (b - 1) / step + 1; fy < (image.height - b) / step; ++fy) {
    for (int32_t fx = (b - 1) / step + 1; fx < (image.width - b) / step; ++fx) {
      all[fy * w + fx] = response(image, fx * step, fy * step, wraps);
    }
  }
  return all;
}

// Detection by its definition, without subdivision.
std::vector<Record> detect(const Image& image, size_t maximum, int32_t cell, int32_t step, int32_t scale, bool* wraps) {
  const std::vector<int32_t> feat = responses(image, step, 7, wraps);
  const int32_t w = (image.width - 1) / step + 1;
  std::vector<Record> all;
  for (int32_t top = 0; top < image.height; top += cell) {
    for (int32_t left = 0; left < image.width; left += cell) {
      Record p = {left, top, std::min(left + cell, image.width), std::min(top + cell, image.height), 0, 0, 0};
      int32_t best = 1;
      for (int32_t fy = top / step; fy < p[3] / step; ++fy) {
        for (int32_t fx = left / step; fx < p[2] / step; ++fx) {
          if (feat[fy * w + fx] < best) continue;
          best = feat[fy * w + fx];
          p[4] = fx * step;
          p[5] = fy * step;
          p[6] = std::min(scale * static_cast<int32_t>(std::sqrt(std::floor(std::sqrt(best)))) >> 15, 255);
        }
      }
      if (p[4] > 0) all.push_back(p);
    }
  }
  std::stable_sort(all.begin(), all.end(), [](const Record& a, const Record& b) { return a[6] > b[6]; });
  all.resize(std::min(all.size(), maximum));
  return all;
}

enum Pattern { kNoise, kCheckerboard, kCorners, kFlat };

void draw(TestImage* image, Pattern pattern) {
  for (int32_t y = 0; y < image->height; ++y) {
    for (int32_t x = 0; x < image->width; ++x) {
      uint8_t& pixel = image->row(0, y)[x];
      if (pattern == kCheckerboard) pixel = static_cast<uint8_t>(((x / 3 ^ y / 3) & 1) != 0 ? 255 - y / 4 : x / 4);
      if (pattern == kCorners) pixel = static_cast<uint8_t>(x / 13 * 37 + y / 11 * 29 + (pixel & 3));
      if (pattern == kFlat) pixel = 100;
    }
  }
}

TEST(FeatDetection, EqualsTheDefinitionForAnyNumberOfWorkers) {
  TestArena arena;
  TestExecutor one(1), three(3), narrow(2, 5);
  List list(3000, arena.env());
  bool wraps = false;
  struct {
    int32_t w, h, maximum, cell, step, scale;
  } const cases[] = {{320, 240, 96, 28, 7, 16384}, {64, 64, 256, 4, 2, 16384},  {63, 41, 40, 8, 2, 90000},
                     {200, 100, 3, 81, 8, 16384},  {24, 24, 1000, 4, 2, 32768}, {150, 60, 111, 9, 2, 300}};
  for (const auto& c : cases) {
    for (const Pattern pattern : {kNoise, kCheckerboard, kCorners, kFlat}) {
      TestImage image(c.w, c.h, IMAGE_UINT8, 4);
      draw(&image, pattern);
      const std::vector<Record> expected = detect(image, c.maximum, c.cell, c.step, c.scale, &wraps);
      EXPECT_EQ(expected.empty(), pattern == kFlat);
      for (ParallelExecutor* const executor : {(ParallelExecutor*)nullptr, one.get(), three.get(), narrow.get()}) {
        EXPECT_EQ(VectralFeatPntList_calc(&list, &image, c.maximum, 7, 0, c.scale, 4, executor), ZELVAN_OK);
        EXPECT_EQ(list.records(), expected);
      }
      for (const int32_t block : {2, 3, 5, 16}) {
        for (const int32_t step : {1, 3}) {
          ScopedImage out(arena.env());
          ASSERT_EQ(calcFeatImage(&out, &image, step, block, 4), ZELVAN_OK);
          const auto* const got = imageRow<const int32_t>(&out, 0);
          EXPECT_EQ(std::vector(got, got + out.width * out.height), responses(image, step, block, &wraps));
        }
      }
    }
  }
  EXPECT_TRUE(wraps);
  const TestImage low(100, 23, IMAGE_UINT8), image(100, 24, IMAGE_UINT8);
  EXPECT_EQ(calcFeatPntList(&list, &low, 9, 7, 0, 32768, 4), ZELVAN_OK);
  EXPECT_EQ(list.count, 0);
  EXPECT_EQ(calcFeatPntList(&list, &image, 0, 7, 0, 32768, 4), ZELVAN_OK);
  EXPECT_EQ(list.count, 0);
  EXPECT_EQ(VectralFeatPntList_calc(&list, &image, 9, 1, 0, 32768, 4, one.get()), ZELVAN_OK) << "no feature image";
  EXPECT_EQ(list.count, 0);
  EXPECT_EQ(VectralFeatPntList_calc(&list, &image, 9, 7, 0, 32768, 3, one.get()), ZELVAN_ERROR_PARAM);
  EXPECT_EQ(calcFeatPntList(&list, &image, 9, 1, 0, 32768, 4), ZELVAN_ERROR_PARAM);
}

TEST(FeatDetection, SplitsCellsUntilTheListIsFull) {
  TestImage image(160, 120, IMAGE_UINT8, 8);
  // Texture in one quarter only, which has a dozen cells.
  for (int32_t y = 0; y < 120; ++y) std::fill(image.row(0, y) + (y < 60 ? 80 : 0), image.row(0, y) + 160, uint8_t{7});
  int32_t failures = 0;
  for (uint32_t size = 2000; size < 40000; size += 500) {
    TestArena arena(size);  // checks at its end that nothing is left
    List list(60, arena.env());
    const Status status = calcFeatPntList(&list, &image, 40, 7, 1, 32768, 4);
    failures += status == ZELVAN_ERROR_NOMEM;
    if (status != ZELVAN_OK) continue;
    EXPECT_GE(list.count, 39);
    const std::vector<Record> all = list.records();
    for (size_t i = 0; i < all.size(); ++i) {
      EXPECT_GE(all[i][6], 6);
      const auto overlaps = [&](const Record& p) {
        return p[0] < all[i][2] && all[i][0] < p[2] && p[1] < all[i][3] && all[i][1] < p[3];
      };
      EXPECT_EQ(std::count_if(all.begin(), all.end(), overlaps), 1);
    }
  }
  EXPECT_GT(failures, 3);
  EXPECT_LT(failures, 70);
}

TEST(FeatPntList, AddsTheBestOfACellAndSplitsIt) {
  TestArena arena;
  List list(3, arena.env());
  TestImage feat(6, 5, IMAGE_INT32, 1, 4);
  const auto sample = [&](int32_t x, int32_t y) -> int32_t& { return imageRow<int32_t>(&feat, y)[x]; };
  for (int32_t y = 0; y < 5; ++y) std::fill_n(&sample(0, y), 6, 0);
  sample(1, 1) = 10000;
  sample(3, 2) = 10000;
  sample(5, 4) = 0x7FFFFFFF;
  sample(5, 0) = 1295;
  struct {
    ImageRect rect;
    int32_t floorFlag, scale;
    Status status;
    Record record;
  } const cases[] = {
      {{0, 0, 17, 11}, 1, 32768, 1, {0, 0, 17, 11, 4, 4, 10}},   // up to sample (4, 2), exclusive
      {{0, 0, 17, 15}, 1, 32768, 2, {0, 0, 17, 15, 12, 8, 10}},  // the last one of equals
      {{20, 0, 24, 4}, 1, 32768, ZELVAN_ERROR_STATE, {}},        // strength 5
      {{0, 12, 8, 20}, 0, 32768, ZELVAN_ERROR_STATE, {}},        // all 0
      {{0, 0, 3, 8}, 0, 32768, ZELVAN_ERROR_PARAM, {}},          // no sample
      {{0, 0, 28, 8}, 0, 32768, ZELVAN_ERROR_PARAM, {}},         // beyond the image
      {{20, 0, 24, 20}, 1, 65536, 3, {20, 0, 24, 20, 20, 16, 255}},
      {{20, 0, 24, 4}, 0, 32768, ZELVAN_ERROR_STATE, {}},  // full
  };
  for (const auto& c : cases) {
    EXPECT_EQ(FeatPntList_addFeatPnt(&list, &c.rect, &feat, 4, c.floorFlag, c.scale), c.status);
    EXPECT_TRUE(isFailure(c.status) || list.records().back() == c.record);
  }
  EXPECT_EQ(FeatPntList_div(&list, 2, &feat, 4, 32768), ZELVAN_ERROR_STATE) << "4 wide";
  // Full: no quarter is added, and the record at index is lost. Then there is room for the first quarter with a corner
  // only.
  EXPECT_EQ(FeatPntList_div(&list, 0, &feat, 4, 32768), ZELVAN_OK);
  EXPECT_EQ(list.records(), (std::vector<Record>{cases[6].record, cases[1].record}));
  EXPECT_EQ(FeatPntList_div(&list, 1, &feat, 4, 32768), ZELVAN_OK);
  EXPECT_EQ(list.records(), (std::vector<Record>{cases[6].record, {0, 7, 8, 15, 4, 4, 10}}));
}

TEST(FeatPntList, StripIsAStableSort) {
  std::mt19937 random(2);
  TestArena arena(60000);
  for (const int32_t count : {1, 2, 100, 400}) {
    List list(count, arena.env());
    for (int32_t i = 0; i < count; ++i) {
      const FeatPnt p = {i, 2, 3, 4, 5, 6, static_cast<int32_t>(random() % (count < 200 ? 4 : 256))};
      EXPECT_EQ(FeatPntList_add(&list, &p), static_cast<Status>(i + 1));
    }
    std::vector<Record> expected = list.records();
    {
      const ScopedBlock<uint8_t> hog(arena.env(), Heap2_getFreeSize(&arena.env()->heap) - 600);
      EXPECT_EQ(FeatPntList_strip(&list, 9), ZELVAN_ERROR_NOMEM);
      EXPECT_EQ(list.records(), expected);
    }
    std::stable_sort(expected.begin(), expected.end(), [](const Record& a, const Record& b) { return a[6] > b[6]; });
    for (const int32_t maximum : {count, 3}) {
      EXPECT_EQ(FeatPntList_strip(&list, maximum), ZELVAN_OK);
      expected.resize(std::min(count, maximum));
      EXPECT_EQ(list.records(), expected);
    }
    EXPECT_EQ(FeatPntList_strip(&list, 0), ZELVAN_ERROR_PARAM);
  }
}

}  // namespace
