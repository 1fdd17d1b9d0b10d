#include "tracker/vectral_fp_list.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>

#include "smooth_texture.h"
#include "support/test_arena.h"
#include "support/test_executor.h"

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
  std::vector<uint8_t> dump() const {
    int32_t size = -1;
    EXPECT_EQ(VectralFPList_getDumpSize(this, &size), ZELVAN_OK);
    std::vector<uint8_t> bytes(size + 1, 0xEE);
    EXPECT_EQ(VectralFPList_dumpPacked(this, bytes.data()), ZELVAN_OK);
    return bytes;
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
    Mvec8Real_setIdentity(&motion);
    motion.h[2] = 1.2;
    motion.h[5] = -0.4;
  }
  TestArena arena;
  TestImage base, image;
  std::vector<FeatPnt> pnts;
  FeatPntList feats;
  Mvec8Real motion;
  const int32_t ranges[2] = {4, 3};
};

TEST_F(Tracking, FollowsPointsForAnyNumberOfWorkers) {
  TestExecutor one(1), three(3), narrow(2, 5);
  for (int32_t type = 0; type <= 4; ++type) {
    List list(arena.env());
    ASSERT_EQ(VectralFPList_set(&list, &feats, &base, type), ZELVAN_OK);
    ASSERT_GT(list.count, 65);
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
}

TEST_F(Tracking, LeavesOutPointsNearerThanThreePixelsToTheBorder) {
  const int32_t last = kWidth - 3, step = 32768;
  for (const int32_t px : {3 * step, 3 * step - 1, last * step - 1, last * step}) {
    const FeatPnt pnt = {0, 0, 1, 1, px < last * step - 1 ? 6 : kWidth - 7, 36, 20};
    const FeatPntList single = {const_cast<FeatPnt*>(&pnt), 1, 1, nullptr};
    List list(arena.env());
    ASSERT_EQ(VectralFPList_set(&list, &single, &base, 2), ZELVAN_OK);
    motion.h[2] = px / 32768.0 - pnt.x;
    motion.h[5] = 0;
    EXPECT_EQ(VectralFPList_updatePos(&list, &base, &motion, ranges, nullptr), ZELVAN_OK);
    // Block matching, which keeps a prediction so near to the border.
    EXPECT_EQ(list.curX[0], px >= 3 * step && px < last * step ? px : VECTRAL_POS_OUTSIDE);
  }
}

TEST_F(Tracking, MapsPatchesLikeAWholeImage) {
  int32_t table[256];
  for (int32_t i = 0; i < 256; ++i) table[i] = 255 - i / 2;
  TestImage mapped(kWidth, kHeight, IMAGE_UINT8), mappedBase(kWidth, kHeight, IMAGE_UINT8);
  for (int32_t i = 0; i < kWidth * kHeight; ++i) {
    mapped.row(0, i / kWidth)[i % kWidth] = static_cast<uint8_t>(table[image.row(0, i / kWidth)[i % kWidth]]);
    mappedBase.row(0, i / kWidth)[i % kWidth] = static_cast<uint8_t>(table[base.row(0, i / kWidth)[i % kWidth]]);
  }
  for (int32_t type = 0; type <= 4; ++type) {
    List whole(arena.env()), patches(arena.env());
    ASSERT_EQ(VectralFPList_set(&whole, &feats, &mappedBase, type), ZELVAN_OK);
    ASSERT_EQ(VectralFPList_copy(&patches, &whole), ZELVAN_OK);
    EXPECT_EQ(VectralFPList_updatePos(&whole, &mapped, &motion, ranges, nullptr), ZELVAN_OK);
    EXPECT_EQ(VectralFPList_updatePos2(&patches, &image, &motion, ranges, 0, 0, table), ZELVAN_OK);
    int32_t tracked = 0;
    for (int32_t i = 0; i < whole.count; ++i) {
      const int32_t x = whole.baseX[i] + 1, y = whole.baseY[i] - 1;  // whole pixels of the prediction
      if (x < 7 || y < 7 || x > kWidth - 8 || y > kHeight - 8) {
        EXPECT_EQ(patches.curX[i], VECTRAL_POS_OUTSIDE);
      } else if (whole.curX[i] >= 0) {
        EXPECT_EQ(patches.points()[i], whole.points()[i]);
        ++tracked;
      } else {
        EXPECT_LT(patches.curX[i], 0);
      }
    }
    EXPECT_GT(tracked, 120);
  }
}

TEST_F(Tracking, GoesThroughTheLens) {
  List plain(arena.env()), lens(arena.env());
  TestExecutor pool(2);
  ASSERT_EQ(VectralFPList_set(&plain, &feats, &base, 2), ZELVAN_OK);
  ASSERT_EQ(VectralFPList_copy(&lens, &plain), ZELVAN_OK);
  double factor = 1.25;
  lens.lensContext = &factor;
  lens.lensUndistort = [](void* context, double* outX, double* outY, double x, double y, double w, double h, double s) {
    *outX = x * *static_cast<double*>(context);
    *outY = y + s * 0.5 * std::hypot(w, h);
  };
  lens.lensDistort = [](void* context, double* outX, double* outY, double x, double y, double w, double h, double) {
    *outX = x / *static_cast<double*>(context) + (w - kWidth);
    *outY = y - 1 + (h - kHeight);
  };
  motion.h[2] = 1.25;
  motion.h[5] = -0.5;
  EXPECT_EQ(VectralFPList_updatePos(&lens, &image, &motion, ranges, pool.get()), ZELVAN_OK);
  motion.h[2] = 1.0;
  EXPECT_EQ(VectralFPList_updatePos(&plain, &image, &motion, ranges, nullptr), ZELVAN_OK);
  for (int32_t i = 0; i < plain.count; ++i) {  // the start may differ by a rounding of 1/32768
    EXPECT_LE(std::abs(plain.curX[i] - lens.curX[i]), 32 << 10);
  }
  lens.curX[3] = (lens.baseX[3] + 3) << 15;
  lens.curY[3] = (lens.baseY[3] << 15) - (1 << 14) + (9 << 10);
  EXPECT_EQ(VectralFPList_updateSt(&lens, &motion), ZELVAN_OK);
  EXPECT_EQ(lens.history[3].sum, (64 * 64 + 9 * 9) >> 5);
  EXPECT_EQ(lens.history[3].count, 1);
}

TEST_F(Tracking, DumpsLoadAgain) {
  for (int32_t type = 0; type <= 4; ++type) {
    List list(arena.env()), loaded(arena.env());
    ASSERT_EQ(VectralFPList_set(&list, &feats, &base, type), ZELVAN_OK);
    std::vector<uint8_t> bytes = list.dump();
    EXPECT_EQ(bytes.size(), list.count * (type == 0 ? 136u : type % 2 == 1 ? 68u : 140u) + 1);
    ASSERT_EQ(VectralFPList_loadPacked(&loaded, list.count, bytes.data(), type), ZELVAN_OK);
    EXPECT_EQ(loaded.points(), list.points());
    EXPECT_EQ(loaded.dump(), bytes);
    VectralFPList_updatePos(&list, &image, &motion, ranges, nullptr);
    VectralFPList_updatePos(&loaded, &image, &motion, ranges, nullptr);
    EXPECT_EQ(loaded.points(), list.points());
    if (type % 2 != 0 || type == 0) continue;
    bytes[140] = 77;  // no such kind
    EXPECT_EQ(VectralFPList_loadPacked(&loaded, 3, bytes.data(), type), ZELVAN_ERROR_PARAM);
    EXPECT_EQ(loaded.count, 3);
    EXPECT_EQ(VectralFPList_updatePos(&loaded, &image, &motion, ranges, nullptr), ZELVAN_OK);
    EXPECT_EQ(VectralFPList_set(&loaded, &feats, &base, 5), ZELVAN_ERROR_PARAM);
    EXPECT_EQ(loaded.count, 0);
  }
}

TEST_F(Tracking, GivesBackWhatItTookWhenTheArenaEnds) {
  List whole(arena.env());
  ASSERT_EQ(VectralFPList_set(&whole, &feats, &base, 2), ZELVAN_OK);
  const std::vector<uint8_t> bytes = whole.dump();
  std::array<int32_t, 3> failures = {};
  for (uint32_t size = 1000; size < 260000; size += 900) {
    TestArena small(size);  // checks at its end that nothing is left
    List list(small.env());
    const auto check = [&](int32_t which, Status status) {
      failures[which] += status != ZELVAN_OK;
      EXPECT_EQ(status, list.count == 0 ? ZELVAN_ERROR_NOMEM : ZELVAN_OK);
    };
    check(0, VectralFPList_set(&list, &feats, &base, 2));
    check(1, VectralFPList_loadPacked(&list, whole.count, bytes.data(), 2));
    check(2, VectralFPList_copy(&list, &whole));
  }
  for (const int32_t count : failures) EXPECT_TRUE(count > 10 && count < 280);
}

}  // namespace
