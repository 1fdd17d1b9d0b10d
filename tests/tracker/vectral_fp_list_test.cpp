#include "tracker/vectral_fp_list.h"

#include "tracker/feat_pnt_list.h"
#include "tracker/square_spiral.h"
#include "tracker/vectral_block.h"
#include "tracker/vectral_scene.h"
#include "tracker/vectral_util.h"

namespace {

using Record = std::array<int32_t, 7>;

class FeatList : public FeatPntList {
 public:
  FeatList(int32_t size, Env* env) { EXPECT_EQ(construct_FeatPntList(this, size, env), ZELVAN_OK); }
  ~FeatList() { EXPECT_EQ(destruct_FeatPntList(this), ZELVAN_OK); }
  std::vector<Record> records() const {
    std::vector<Record> all;
    for (const FeatPnt* p = pnts; p != pnts + count; ++p) {
      all.push_back({p->left, p->top, p->right, p->bottom, p->x, p->y, p->strength});
    }
    return all;
  }
};

TEST(FeatDetection, RefusesAndFindsNothingInTooSmallPictures) {
  TestArena arena;
  TestExecutor one(1);
  FeatList list(400, arena.env());
  TestImage low(100, 23, IMAGE_UINT8), image(100, 24, IMAGE_UINT8);
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
  FeatList list(2, arena.env());
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

using Point = std::array<int32_t, 2>;

std::vector<Point> spiral(int32_t x, int32_t y, int32_t radius) {
  std::vector<Point> visited;
  squareSpiral(x, y, radius, [&](int32_t vx, int32_t vy) { visited.push_back({vx, vy}); });
  return visited;
}

TEST(SquareSpiral, GoesRingByRing) {
  EXPECT_EQ(spiral(0, 0, 1),
            (std::vector<Point>{{0, 0}, {1, 0}, {1, 1}, {0, 1}, {-1, 1}, {-1, 0}, {-1, -1}, {0, -1}, {1, -1}}));
  std::vector<Point> visited = spiral(40, -7, 5);
  EXPECT_EQ(visited[81], (Point{45, -11}));  // the outermost ring
  EXPECT_EQ(visited[120], (Point{45, -12}));
  std::sort(visited.begin(), visited.end());
  EXPECT_EQ(std::unique(visited.begin(), visited.end()) - visited.begin(), 11 * 11);
}

TEST(Blocks, AreRefusedOnFlatsAndEdges) {
  TestImage image(20, 20, IMAGE_UINT8);
  // Grey levels of the right half, and of one pixel beside the edge: flat, an edge, energies of 50 and 2286 (of which a
  // 32nd is 71), of 72 and 2282.
  for (const auto& [right, spot, fine] : {std::tuple{77, 77, ZELVAN_ERROR_GENERAL},
                                          {90, 77, ZELVAN_ERROR_GENERAL},
                                          {90, 82, ZELVAN_ERROR_GENERAL},
                                          {90, 83, ZELVAN_OK}}) {
    drawPixels(&image, [right = right](int32_t x, int32_t) { return x < 9 ? 77 : right; });
    image.row(0, 7)[7] = static_cast<uint8_t>(spot);
    VectralBlockHybrid block;
    EXPECT_EQ(VectralBlockICIA7x7_init(&block.inner, &image, 9, 9, 0), fine);
    EXPECT_EQ(VectralBlockHybrid_init(&block, &image, 9, 9, 31), fine) << "there is no way back to matching";
    EXPECT_EQ(VectralBlockHybrid_init(&block, &image, 9, 9, 30), ZELVAN_OK);
  }
}

TEST(Blocks, HybridChoosesFormAndRadiusByStrength) {
  const TestImage image(30, 30, IMAGE_UINT8);
  for (const auto& [type, strength, kind] :
       std::vector<std::array<int32_t, 3>>{{2, 30, 1}, {2, 31, 0}, {2, -1, 1}, {4, 50, 3}, {4, 51, 0}}) {
    VectralBlockFuncTbl table;
    ASSERT_EQ(VectralBlock_getFuncTbl(&table, type), ZELVAN_OK);
    VectralBlockHybrid block;
    ASSERT_EQ(table.init(&block, &image, 12, 14, strength), ZELVAN_OK);
    EXPECT_EQ(block.kind, kind);
    // Two pixels away; only the form's own radius reaches the block. The fine form would be lost in noise.
    for (const bool own : {true, false}) {
      const int32_t ranges[2] = {own == (kind == 0) ? 2 : -1, own == (kind == 0) ? -1 : 2};
      int32_t x = (kind == 0 ? 12 : 10) << 15, y = 14 << 15, rel = -7;
      table.alignment(&block, &image, &x, &y, ranges, &rel);
      EXPECT_EQ(x == 12 << 15 && y == 14 << 15, own);
      EXPECT_EQ(rel != -7, kind == 3);
    }
  }
}

TEST(Blocks, PackedFormsHoldTheTabledFields) {
  std::mt19937 random(3);
  uint8_t bytes[141], again[140] = {};
  uint8_t *const packed = bytes + 1, *const inner = packed + 4;  // no alignment
  const TestImage image(20, 20, IMAGE_UINT8);
  for (const int32_t kind : {0, 1}) {
    VectralBlockHybrid block, copy;
    ASSERT_EQ(VectralBlockHybrid_init(&block, &image, 9, 9, kind == 0 ? 40 : 20), ZELVAN_OK);
    int32_t* const gradients = &block.inner.icia.grad[0][0][0];
    for (int32_t i = 0; kind == 0 && i < 98; ++i) gradients[i] = i < 4 ? 255 - 170 * i : int32_t(random() % 511) - 255;
    std::memset(bytes, 0, sizeof(bytes));
    ASSERT_EQ(VectralBlockHybrid_pack(&block, packed, -2, 3000, 255), ZELVAN_OK);
    const int16_t narrow[3] = {-2, 3000, 255};
    const int32_t wide[4] = {-2, 3000, 255, block.inner.bm.meanStat};
    EXPECT_EQ(packed[0], kind);
    EXPECT_EQ(kind == 0 ? std::memcmp(inner, narrow, 6) : std::memcmp(inner + 52, wide, 16), 0);
    EXPECT_EQ(
        kind == 0 ? std::memcmp(inner + 8, &block.inner.icia.selfX, 16) : std::memcmp(inner, block.inner.bm.pixels, 49),
        0);
    for (int32_t i = 0; kind == 0 && i < 98; ++i) {
      EXPECT_EQ(2 * static_cast<int8_t>(inner[24 + i]) + (inner[122 + i / 7] >> (6 - i % 7)) % 2, gradients[i]);
    }
    int32_t x, y, strength;
    ASSERT_EQ(VectralBlockHybrid_unpack(&copy, &x, &y, &strength, packed), ZELVAN_OK);
    ASSERT_EQ(VectralBlockHybrid_pack(&copy, again, x, y, strength), ZELVAN_OK);
    EXPECT_EQ(std::memcmp(again, packed, kind == 0 ? 140 : 72), 0);
  }
}

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
