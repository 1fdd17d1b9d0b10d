#include "tracker/vectral_block.h"

#include "tracker/square_spiral.h"
#include "tracker/vectral_scene.h"

namespace {

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

}  // namespace
