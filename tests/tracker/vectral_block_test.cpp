#include "tracker/vectral_block.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "smooth_texture.h"
#include "tracker/square_spiral.h"

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
  const auto ring = [](const Point& p) { return std::max(std::abs(p[0] - 40), std::abs(p[1] + 7)); };
  EXPECT_TRUE(std::is_sorted(visited.begin(), visited.end(), [&](auto& a, auto& b) { return ring(a) < ring(b); }));
  std::sort(visited.begin(), visited.end());
  EXPECT_EQ(std::unique(visited.begin(), visited.end()) - visited.begin(), 11 * 11);
}

// Noise of few grey levels, so that costs tie, or of all.
void drawNoise(TestImage* image, uint32_t levels, std::mt19937* random) {
  for (int32_t i = 0; i < image->width * image->height; ++i) {
    image->row(0, i / image->width)[i % image->width] =
        static_cast<uint8_t>((*random)() % levels * (255 / (levels - 1)));
  }
}

// Pixel i of the 7x7 window with this centre.
int32_t at(const Image& image, const Point& centre, int32_t i) {
  return imageRow(&image, centre[1] - 3 + i / 7)[centre[0] - 3 + i % 7];
}

int64_t mean16(const Image& image, const Point& centre) {
  int64_t sum = 0;
  for (int32_t i = 0; i < 49; ++i) sum += at(image, centre, i);
  return sum * 1337 + ((sum * 15381) >> 15);
}

TEST(BlockMatching, TakesTheFirstOfTheLowestCosts) {
  std::mt19937 random(5);
  int32_t ties = 0;
  for (int32_t round = 0; round < 300; ++round) {
    TestImage base(31, 27, IMAGE_UINT8), image(31, 27, IMAGE_UINT8);
    const uint32_t levels = round % 3 == 0 ? 2 : round % 3 == 1 ? 4 : 256;
    drawNoise(&base, levels, &random);
    drawNoise(&image, levels, &random);
    for (int32_t row = 0; round % 2 != 0 && row < 14; ++row) std::fill_n(image.row(0, row), 31, uint8_t{200});
    const auto below = [&](int32_t n) { return static_cast<int32_t>(random() % n); };
    const int32_t radius = below(5);
    const Point from = {3 + below(25), 3 + below(21)};
    const Point start = {radius + 3 + below(25 - 2 * radius), radius + 3 + below(21 - 2 * radius)};
    VectralBlockBM7x7 block;
    ASSERT_EQ(VectralBlockBM7x7_init(&block, &base, from[0], from[1], 0), ZELVAN_OK);
    Point expected = start;
    std::vector<int64_t> costs(2, 49 << 24);
    for (const Point& p : spiral(start[0], start[1], radius)) {
      const int64_t shift = mean16(image, p) - mean16(base, from);
      int64_t cost = 0;
      for (int32_t i = 0; i < 49; ++i) cost += std::abs((at(base, from, i) - at(image, p, i)) * 65536 + shift);
      if (cost < *std::min_element(costs.begin(), costs.end())) expected = p;
      costs.push_back(cost);
    }
    std::sort(costs.begin(), costs.end());
    ties += costs[0] == costs[1];
    const int64_t margin = std::min<int64_t>((costs[1] - costs[0] + 65535) / 65536, 255);
    for (const bool withRel : {false, true}) {
      int32_t x = start[0] * 32768 + 32767, y = start[1] * 32768 + 5, rel = -9;
      const auto align = withRel ? VectralBlockBM7x7_alignmentWithRel : VectralBlockBM7x7_alignment;
      EXPECT_EQ(align(&block, &image, &x, &y, &radius, &rel), ZELVAN_OK);
      EXPECT_EQ((Point{x, y}), (Point{expected[0] * 32768, expected[1] * 32768}));
      EXPECT_EQ(rel, withRel ? margin : -9);
    }
  }
  EXPECT_GT(ties, 20);
}

TEST(BlockMatching, KeepsThePredictionNearTheBorder) {
  const TestImage image(24, 20, IMAGE_UINT8);
  VectralBlockBM7x7 block;
  ASSERT_EQ(VectralBlockBM7x7_init(&block, &image, 10, 10, 0), ZELVAN_OK);
  for (const Point& p : {Point{5, 10}, {10, 5}, {18, 10}, {10, 14}, {2, 10}, {10, 2}, {21, 10}, {10, 17}}) {
    const Point start = {p[0] * 32768 + 77, p[1] * 32768 + 99};
    Point now = start;
    int32_t radius = 3, rel = 5, cost = 0x7FFFFFFF;
    VectralBlockBM7x7_alignmentWithRel(&block, &image, &now[0], &now[1], &radius, &rel);
    EXPECT_EQ(now, start);
    EXPECT_EQ(rel, 5);
    const bool fits = p[0] >= 3 && p[0] < 21 && p[1] >= 3 && p[1] < 17;
    VectralBlockBM7x7_evalCandidate(&block, &image, p[0], p[1], &now[0], &now[1], &cost);
    EXPECT_EQ(cost != 0x7FFFFFFF, fits);
    EXPECT_EQ(VectralBlockBM7x7_init(&block, &image, p[0], p[1], 0), fits ? ZELVAN_OK : ZELVAN_ERROR_GENERAL);
  }
}

// The fine alignment by its definition, in 64 bits and with all sums anew for each step. Returns how it ended.
enum Outcome { kFound, kOutOfRange, kAlternates, kNoEnd };
Outcome alignSlowly(const Image& base, const Point& from, const Image& image, Point* position, int32_t radius) {
  const auto gradient = [&](int32_t i, int32_t axis) {
    const Point before = {from[0] - (axis == 0), from[1] - (axis == 1)};
    const Point behind = {from[0] + (axis == 0), from[1] + (axis == 1)};
    return at(base, before, i) - at(base, behind, i);
  };
  const auto correlate = [&](const Image& with, const Point& centre, int32_t axis) {
    int64_t sum = 0;
    for (int32_t i = 0; i < 49; ++i) sum += gradient(i, axis) * at(with, centre, i);
    return sum;
  };
  int64_t hess[2] = {};
  for (int32_t i = 0; i < 98; ++i) hess[i % 2] += gradient(i / 2, i % 2) * gradient(i / 2, i % 2);
  const Point start = {(*position)[0] >> 15, (*position)[1] >> 15};
  Point now = {(*position)[0] >> 10, (*position)[1] >> 10}, last = {-1 << 30, -1 << 30}, last2 = last;
  *position = {VECTRAL_POS_LOST, VECTRAL_POS_LOST};
  for (int32_t step = 0;; ++step) {
    const Point whole = {now[0] >> 5, now[1] >> 5};
    const int32_t fx = now[0] & 31, fy = now[1] & 31;
    if (std::max(std::abs(whole[0] - start[0]), std::abs(whole[1] - start[1])) > radius) return kOutOfRange;
    if (whole[0] < 3 || whole[1] < 3 || whole[0] + 5 > image.width || whole[1] + 5 > image.height) return kOutOfRange;
    if (step == 20) return kNoEnd;
    for (int32_t axis = 0; axis < 2; ++axis) {
      const auto sum = [&](int32_t a, int32_t b) { return correlate(image, {whole[0] + a, whole[1] + b}, axis); };
      const int64_t value = (((32 - fx) * sum(0, 0) + fx * sum(1, 0)) >> 5) * (32 - fy) +
                            (((32 - fx) * sum(0, 1) + fx * sum(1, 1)) >> 5) * fy;
      const int64_t move = (value - 32 * correlate(base, from, axis)) / (hess[axis] / 2);
      now[axis] += static_cast<int32_t>(std::clamp<int64_t>(move, -32, 32));
    }
    if (now == last) *position = {now[0] * 1024, now[1] * 1024};
    if (now == last || now == last2) return now == last ? kFound : kAlternates;
    last2 = last;
    last = now;
  }
}

TEST(FineAlignment, EqualsTheSlowForm) {
  std::mt19937 random(11);
  std::array<int32_t, 4> seen = {};
  for (int32_t round = 0; round < 2500; ++round) {
    const auto below = [&](int32_t n) { return static_cast<int32_t>(random() % n); };
    TestImage base(25, 22, IMAGE_UINT8), image(25, 22, IMAGE_UINT8);
    const double x = below(1000) / 32.0, y = below(1000) / 32.0;
    drawTexture(&base, x, y);
    drawTexture(&image, x + below(64) / 32.0, y + below(64) / 32.0);
    if (round % 3 == 0) drawNoise(&image, 256, &random);
    if (round % 3 == 1) drawTexture(&image, y, x);
    for (int32_t i = 0; i < 60; ++i) image.row(0, below(22))[below(25)] ^= 31;
    const Point from = {4 + below(17), 4 + below(14)};
    VectralBlockICIA7x7 block;
    if (VectralBlockICIA7x7_init(&block, &base, from[0], from[1], 0) != ZELVAN_OK) continue;
    Point fast = {from[0] * 32768 + below(65536) - 32768, from[1] * 32768 + below(65536) - 32768};
    Point slow = fast;
    const int32_t radius = below(6);
    ++seen[alignSlowly(base, from, image, &slow, radius)];
    EXPECT_EQ(VectralBlockICIA7x7_alignment(&block, &image, &fast[0], &fast[1], &radius, nullptr), ZELVAN_OK);
    ASSERT_EQ(fast, slow) << round;
  }
  for (const int32_t count : seen) EXPECT_GT(count, 0);
}

TEST(Blocks, FindKnownShifts) {
  TestImage base(48, 40, IMAGE_UINT8), image(48, 40, IMAGE_UINT8), brighter(48, 40, IMAGE_UINT8);
  drawTexture(&base, 0, 0);
  const int32_t radius = 4;
  for (const auto& [dx, dy] :
       std::vector<std::array<double, 2>>{{0, 0}, {2, -1}, {-3, 3}, {.5, .25}, {1.375, -1.625}}) {
    drawTexture(&image, dx, dy);
    drawTexture(&brighter, dx, dy, 12.0);
    for (const Point& from : {Point{14, 12}, {20, 21}, {33, 27}}) {
      VectralBlockBM7x7 matching;
      VectralBlockICIA7x7 fine;
      ASSERT_EQ(VectralBlockBM7x7_init(&matching, &base, from[0], from[1], 0), ZELVAN_OK);
      ASSERT_EQ(VectralBlockICIA7x7_init(&fine, &base, from[0], from[1], 0), ZELVAN_OK);
      Point whole = {from[0] * 32768, from[1] * 32768};
      Point part = {whole[0] + 1023, whole[1] + 1};
      VectralBlockBM7x7_alignment(&matching, &brighter, &whole[0], &whole[1], &radius, nullptr);
      VectralBlockICIA7x7_alignment(&fine, &image, &part[0], &part[1], &radius, nullptr);
      EXPECT_NEAR(whole[0] / 32768.0 - from[0], dx, 0.75);
      EXPECT_NEAR(whole[1] / 32768.0 - from[1], dy, 0.75);
      EXPECT_NEAR(part[0] / 32768.0 - from[0], dx, 0.07);
      EXPECT_NEAR(part[1] / 32768.0 - from[1], dy, 0.07);
    }
  }
}

TEST(Blocks, AreRefusedOnFlatsAndEdges) {
  TestImage image(20, 20, IMAGE_UINT8);
  struct {
    uint8_t right, spot;  // grey levels of the right half, and of one pixel beside the edge
    Status fine;
  } const cases[] = {
      {77, 77, ZELVAN_ERROR_GENERAL},  // flat
      {90, 77, ZELVAN_ERROR_GENERAL},  // edge
      {90, 82, ZELVAN_ERROR_GENERAL},  // energies 50 and 2286, of which a 32nd is 71
      {90, 83, ZELVAN_OK},             // 72 and 2282
  };
  for (const auto& c : cases) {
    for (int32_t y = 0; y < 20; ++y) std::fill_n(std::fill_n(image.row(0, y), 9, uint8_t{77}), 11, c.right);
    image.row(0, 7)[7] = c.spot;
    VectralBlockHybrid block;
    EXPECT_EQ(VectralBlockICIA7x7_init(&block.inner, &image, 9, 9, 0), c.fine);
    EXPECT_EQ(VectralBlockHybrid_init(&block, &image, 9, 9, 31), c.fine) << "there is no way back to matching";
    EXPECT_EQ(VectralBlockHybrid_init(&block, &image, 9, 9, 30), ZELVAN_OK);
  }
}

TEST(HybridBlock, ChoosesFormAndRadiusByStrength) {
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

TEST(PackedBlocks, HoldTheTabledFields) {
  std::mt19937 random(3);
  uint8_t bytes[141], again[140];
  uint8_t* const packed = bytes + 1;  // no alignment
  const TestImage image(20, 20, IMAGE_UINT8);
  int32_t x, y, strength;
  for (const int32_t kind : {0, 1}) {
    VectralBlockHybrid block, copy;
    ASSERT_EQ(VectralBlockHybrid_init(&block, &image, 9, 9, kind == 0 ? 40 : 20), ZELVAN_OK);
    int32_t* const gradients = &block.inner.icia.grad[0][0][0];
    for (int32_t i = 0; kind == 0 && i < 98; ++i) gradients[i] = i < 4 ? 255 - 170 * i : int32_t(random() % 511) - 255;
    std::memset(bytes, 0xEE, sizeof(bytes));
    ASSERT_EQ(VectralBlockHybrid_pack(&block, packed, -2, 3000, 255), ZELVAN_OK);
    EXPECT_EQ(std::memcmp(packed, &kind, 4), 0);
    const uint8_t* const inner = packed + 4;
    if (kind == 0) {
      const int16_t position[3] = {-2, 3000, 255};
      EXPECT_EQ(std::memcmp(inner, position, sizeof(position)), 0);
      EXPECT_EQ(std::memcmp(inner + 8, &block.inner.icia.selfX, 16), 0);
      for (int32_t i = 0; i < 98; ++i) {
        EXPECT_EQ(2 * static_cast<int8_t>(inner[24 + i]) + (inner[122 + i / 7] >> (6 - i % 7) & 1), gradients[i]);
        EXPECT_EQ(inner[122 + i / 7] & 128, 0);
      }
    } else {
      const int32_t rest[4] = {-2, 3000, 255, block.inner.bm.meanStat};
      EXPECT_EQ(std::memcmp(inner, block.inner.bm.pixels, 49), 0);
      EXPECT_EQ(std::memcmp(inner + 52, rest, sizeof(rest)), 0);
      EXPECT_EQ(std::count(packed + 72, packed + 140, 0xEE), 68);
    }
    ASSERT_EQ(VectralBlockHybrid_unpack(&copy, &x, &y, &strength, packed), ZELVAN_OK);
    EXPECT_EQ((std::array{x, y, strength}), (std::array{-2, 3000, 255}));
    std::memset(again, 0xEE, sizeof(again));
    EXPECT_EQ(VectralBlockHybrid_pack(&copy, again, -2, 3000, 255), ZELVAN_OK);
    EXPECT_EQ(std::memcmp(again, packed, sizeof(again)), 0);
  }
  for (const int32_t kind : {-1, 2, 4, 5}) {
    std::memcpy(packed, &kind, sizeof(kind));
    VectralBlockHybrid damaged;
    EXPECT_EQ(VectralBlockHybrid_unpack(&damaged, &x, &y, &strength, packed), ZELVAN_ERROR_PARAM);
    const int32_t ranges[2] = {3, 3};
    EXPECT_EQ(VectralBlockHybrid_alignment(&damaged, &image, &x, &y, ranges, nullptr), ZELVAN_OK);
  }
}

}  // namespace
