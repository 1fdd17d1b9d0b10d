#include "tracker/vectral_fp_list.h"

#include "tracker/vectral_scene.h"
#include "tracker/vectral_util.h"

namespace {

using Points = std::vector<std::array<int32_t, 6>>;

class List : public VectralFPList {
 public:
  explicit List(Env* env) { EXPECT_EQ(construct_VectralFPList(this, env), ZELVAN_OK); }
  ~List() { EXPECT_EQ(destruct_VectralFPList(this), ZELVAN_OK); }
  Points points() const {
    Points all;
    for (int32_t i = 0; i < count; ++i) all.push_back({baseX[i], baseY[i], curX[i], curY[i], strength[i], inlier[i]});
    return all;
  }
};

constexpr int32_t kWidth = 90, kHeight = 72;

// Feature points of all strengths over the whole picture, border included.
class Tracking : public testing::Test {
 protected:
  Tracking() : base(kWidth, kHeight, IMAGE_UINT8), image(kWidth, kHeight, IMAGE_UINT8) {
    drawTexture(&base, 0, 0);
    drawTexture(&image, 1.5, -0.75);
    for (int32_t y = 0; y < kHeight; y += 4) {
      for (int32_t x = 0; x < kWidth; x += 5) pnts.push_back({0, 0, 1, 1, x, y, (x * 7 + y * 3) % 100});
    }
    pnts.push_back({0, 0, 1, 1, kWidth - 5, kHeight - 5, 99});
    pnts.push_back({0, 0, 1, 1, kWidth - 4, 30, 99});
    feats = {pnts.data(), static_cast<int32_t>(pnts.size()), static_cast<int32_t>(pnts.size()), nullptr};
  }
  TestArena arena;
  TestImage base, image;
  std::vector<FeatPnt> pnts;
  FeatPntList feats;
  Mvec8Real motion = sceneMotion(1.2, -0.4);
  const int32_t ranges[2] = {4, 3};
};

TEST_F(Tracking, FollowsPointsForAnyNumberOfWorkers) {
  TestExecutor one(1), three(3), narrow(2, 5);
  for (int32_t type = 0; type <= 4; ++type) {
    List list(arena.env());
    ASSERT_EQ(VectralFPList_set(&list, &feats, &base, type), ZELVAN_OK);
    EXPECT_EQ(list.points().back()[0], kWidth - 5);
    EXPECT_EQ(list.points().front(), (std::array{5, 4, VECTRAL_POS_LOST, VECTRAL_POS_LOST, 47, 0}));
    Points expected;
    for (ParallelExecutor* const executor : {(ParallelExecutor*)nullptr, one.get(), three.get(), narrow.get()}) {
      VectralFPList_set(&list, &feats, &base, type);
      std::fill_n(list.inlier, list.count, 1);
      EXPECT_EQ(VectralFPList_updatePos(&list, &image, &motion, ranges, executor), ZELVAN_OK);
      if (expected.empty()) expected = list.points();
      EXPECT_EQ(list.points(), expected);
    }
    int32_t tracked = 0;
    for (const auto& p : expected) {
      EXPECT_EQ(p[5], 0);
      if (p[2] < 0 || p[0] < 8 || p[1] < 8 || p[0] > kWidth - 9 || p[1] > kHeight - 9) continue;
      const double tolerance = p[2] % 32768 == 0 && p[3] % 32768 == 0 ? 0.76 : 0.1;
      EXPECT_NEAR(p[2] / 32768.0, p[0] + 1.5, tolerance);
      EXPECT_NEAR(p[3] / 32768.0, p[1] - 0.75, tolerance);
      ++tracked;
    }
    EXPECT_GT(tracked, 120);
  }
  const int32_t last = kWidth - 3;  // a window's centre keeps three pixels to the border
  for (const int32_t px : {3 << 15, (3 << 15) - 1, (last << 15) - 1, last << 15}) {
    FeatPnt pnt = {0, 0, 1, 1, px < last << 14 ? 6 : kWidth - 7, 36, 20};
    const FeatPntList single = {&pnt, 1, 1, nullptr};
    List list(arena.env());
    ASSERT_EQ(VectralFPList_set(&list, &single, &base, 2), ZELVAN_OK);
    motion = sceneMotion(px / 32768.0 - pnt.x, 0);
    EXPECT_EQ(VectralFPList_updatePos(&list, &base, &motion, ranges, nullptr), ZELVAN_OK);
    // Block matching, which keeps a prediction so near to the border.
    EXPECT_EQ(list.curX[0], px >= 3 << 15 && px < last << 15 ? px : VECTRAL_POS_OUTSIDE);
  }
}

TEST_F(Tracking, DumpsLoadAgain) {
  for (int32_t type = 0; type <= 4; ++type) {
    List list(arena.env()), loaded(arena.env());
    ASSERT_EQ(VectralFPList_set(&list, &feats, &base, type), ZELVAN_OK);
    int32_t size = -1;
    EXPECT_EQ(VectralFPList_getDumpSize(&list, &size), ZELVAN_OK);
    EXPECT_EQ(size, list.count * (type == 0 ? 136 : type % 2 == 1 ? 68 : 140));
    std::vector<uint8_t> bytes(size);
    EXPECT_EQ(VectralFPList_dumpPacked(&list, bytes.data()), ZELVAN_OK);
    ASSERT_EQ(VectralFPList_loadPacked(&loaded, list.count, bytes.data(), type), ZELVAN_OK);
    EXPECT_EQ(loaded.points(), list.points());
    VectralFPList_updatePos(&list, &image, &motion, ranges, nullptr);
    VectralFPList_updatePos(&loaded, &image, &motion, ranges, nullptr);
    EXPECT_EQ(loaded.points(), list.points());
    if (type != 2 && type != 4) continue;
    bytes[140] = 4;  // a damaged block aligns to its prediction
    EXPECT_EQ(VectralFPList_loadPacked(&loaded, 3, bytes.data(), type), ZELVAN_ERROR_PARAM);
    EXPECT_EQ(VectralFPList_updatePos(&loaded, &image, &motion, ranges, nullptr), ZELVAN_OK);
    EXPECT_EQ(VectralFPList_set(&loaded, &feats, &base, 5), ZELVAN_ERROR_PARAM);
    EXPECT_EQ(loaded.count, 0);
  }
}

// A copy goes its own way; the history sums squared distances in 1/32 pixel from the motion, of tracked points alone.
TEST_F(Tracking, CopiesAreDeepAndHistoriesGrow) {
  List list(arena.env()), copy(arena.env());
  ASSERT_EQ(VectralFPList_set(&list, &feats, &base, 1), ZELVAN_OK);
  ASSERT_EQ(VectralFPList_updatePos(&list, &image, &motion, ranges, nullptr), ZELVAN_OK);
  ASSERT_EQ(VectralFPList_copy(&copy, &list), ZELVAN_OK);
  const Points before = list.points();
  EXPECT_EQ(copy.points(), before);
  ASSERT_EQ(VectralFPList_updatePos(&copy, &base, &motion, ranges, nullptr), ZELVAN_OK);
  EXPECT_NE(copy.points(), before);
  EXPECT_EQ(list.points(), before);
  const Mvec8Real still = sceneMotion(0, 0);
  for (const int32_t times : {1, 2}) {
    ASSERT_EQ(VectralFPList_updateSt(&list, &still), ZELVAN_OK);
    EXPECT_EQ(list.updateCount, times);
    for (int32_t i = 0; i < list.count; ++i) {
      const auto& p = before[static_cast<size_t>(i)];
      const int32_t dx = (p[2] - (p[0] << 15)) >> 10, dy = (p[3] - (p[1] << 15)) >> 10;
      EXPECT_EQ(list.history[i].count, p[2] < 0 ? 0 : times);
      EXPECT_EQ(list.history[i].sum, p[2] < 0 ? 0 : times * ((dx * dx + dy * dy) >> 5));
    }
  }
  EXPECT_EQ(VectralFPList_copy(&list, &list), ZELVAN_OK);
  EXPECT_EQ(VectralFPList_copy(&copy, nullptr) & VectralFPList_updateSt(nullptr, &still), ZELVAN_ERROR_PARAM);
}

// Costs of single candidates lead to the winner of the whole search.
TEST_F(Tracking, CandidatesAndPlainFormsAgreeWithTheirTwins) {
  VectralBlockBM7x7 block;
  ASSERT_EQ(VectralBlockBM7x7_init(&block, &base, 40, 30, 50), ZELVAN_OK);
  int32_t x = 40 << 15, y = 30 << 15, best[3] = {-1, -1, INT32_MAX};
  ASSERT_EQ(VectralBlockBM7x7_alignment(&block, &image, &x, &y, ranges, nullptr), ZELVAN_OK);
  for (int32_t i = 0; i < 81; ++i) {
    VectralBlockBM7x7_evalCandidate(&block, &image, 36 + i % 9, 26 + i / 9, &best[0], &best[1], &best[2]);
  }
  EXPECT_TRUE(best[0] == x >> 15 && best[1] == y >> 15) << best[0] << ' ' << best[1];
  const int32_t cost = best[2];
  VectralBlockBM7x7_evalCandidate(&block, &image, -30, 26, &best[0], &best[1], &best[2]);
  EXPECT_EQ(best[2], cost);

  FeatPntList one, many;
  ASSERT_EQ(construct_FeatPntList(&one, 60, arena.env()) | construct_FeatPntList(&many, 60, arena.env()), ZELVAN_OK);
  TestExecutor three(3);
  ASSERT_EQ(calcFeatPntList(&one, &base, 40, 7, 1, 32768, 4), ZELVAN_OK);
  ASSERT_EQ(VectralFeatPntList_calc(&many, &base, 40, 7, 1, 32768, 4, three.get()), ZELVAN_OK);
  EXPECT_TRUE(one.count > 10 && one.count == many.count);
  for (int32_t i = 0; i < one.count; ++i) EXPECT_EQ(memcmp(&one.pnts[i], &many.pnts[i], sizeof(FeatPnt)), 0);
  EXPECT_EQ(destruct_FeatPntList(&one) | destruct_FeatPntList(&many), ZELVAN_OK);

  ScopedImage half(arena.env()), twin(arena.env());
  ASSERT_EQ(ImageUint8_shrink2ForMvecDetect(&half, &base), ZELVAN_OK);
  ASSERT_EQ(VectralUtil_shrink2ForMvecDetect(&twin, &base, three.get()), ZELVAN_OK);
  for (int32_t y2 = 0; y2 < half.height; ++y2) {
    EXPECT_EQ(memcmp(imageRow(&half, y2), imageRow(&twin, y2), static_cast<size_t>(half.width)), 0);
  }
}

}  // namespace
