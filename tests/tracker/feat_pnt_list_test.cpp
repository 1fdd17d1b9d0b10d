#include "tracker/feat_pnt_list.h"

#include <algorithm>
#include <array>

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

TEST(FeatDetection, FindsTheCornersOfASquareAndNothingOnFlats) {
  TestArena arena;
  TestExecutor one(1);
  List list(400, arena.env());
  TestImage square(96, 72, IMAGE_UINT8), low(100, 23, IMAGE_UINT8), image(100, 24, IMAGE_UINT8);
  const auto calc = [&](const TestImage& in, int32_t maximum, int32_t block, int32_t type, ParallelExecutor* executor) {
    return std::pair(VectralFeatPntList_calc(&list, &in, maximum, block, 0, 32768, type, executor), list.count);
  };
  for (const int32_t level : {200, 100}) {
    for (int32_t i = 0; i < 96 * 72; ++i) {
      const int32_t x = i % 96, y = i / 96;
      square.row(0, y)[x] = static_cast<uint8_t>(x >= 30 && x < 66 && y >= 20 && y < 52 ? level : 100);
    }
    int32_t corners = 0;
    EXPECT_EQ(calc(square, 400, 7, 4, one.get()).first, ZELVAN_OK);
    for (const Record& r : list.records()) {
      corners |= 1 << ((r[4] > 48) + 2 * (r[5] > 36));
      EXPECT_LE(std::max(std::abs(std::abs(r[4] - 47) - 18), std::abs(std::abs(r[5] - 35) - 16)), 4) << r[4] << r[5];
    }
    EXPECT_EQ(corners, level == 100 ? 0 : 15);
  }
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
