// The alignment of the fine road on pictures whose motion is known.
#include <cmath>
#include <memory>

#include "fine/align.h"
#include "support/burst.h"
#include "support/test_arena.h"
#include "support/test_image.h"

#include <gtest/gtest.h>

namespace fine {
namespace {

constexpr int32_t kWidth = 640, kHeight = 480;

using Scene = double (*)(double, double);

struct Shot {
  std::unique_ptr<TestImage> image;
  Pyramid pyramid;
};

class FineAlign : public testing::Test {
 protected:
  FineAlign() : arena_(24u << 20), blocks_(kMostBlocks * kMostLevels), matches_(kMostMatches) {}
  ~FineAlign() override {
    for (auto& shot : shots_) release(&shot->pyramid);
  }
  // The scene where the motion takes the pixels of the frame back to; what lies in the square moves by itself.
  const Pyramid& shoot(Scene scene, const Mvec8Real& motion, double noise, uint32_t seed, double squareShift = 0) {
    auto shot = std::make_unique<Shot>();
    shot->image = std::make_unique<TestImage>(kWidth, kHeight, IMAGE_YVU420_SEMIPLANAR);
    Mvec8Real back;
    Mvec8Real_inv(&back, &motion);
    std::mt19937 random(seed);
    std::normal_distribution<double> normal(0, noise > 0 ? noise : 1);
    for (int32_t y = 0; y < kHeight; ++y) {
      for (int32_t x = 0; x < kWidth; ++x) {
        double u, v;
        Mvec8Real_trans2DReal(&back, &u, &v, x, y);
        if (u > 200 && u < 380 && v > 150 && v < 330) u += squareShift;
        const double value = scene(u, v) + (noise > 0 ? normal(random) : 0) + 0.5;
        shot->image->row(0, y)[x] = static_cast<uint8_t>(std::clamp(value, 0.0, 255.0));
      }
    }
    construct(&shot->pyramid, arena_.env());
    EXPECT_EQ(build(&shot->pyramid, nullptr, shot->image.get()), ZELVAN_OK);
    shots_.push_back(std::move(shot));
    return shots_.back()->pyramid;
  }
  Alignment align(const Pyramid& base, const Pyramid& frame) {
    AlignBase prepared;
    EXPECT_EQ(prepareBase(&prepared, arena_.env(), &base, blocks_.data(), &coarse_), ZELVAN_OK);
    Alignment out;
    alignFrame(&out, prepared, frame, nullptr, 0, matches_.data());
    return out;
  }
  static double worstCorner(const Mvec8Real& a, const Mvec8Real& b) {
    double worst = 0;
    for (const auto& [x, y] : {std::pair(0, 0), {kWidth - 1, 0}, {0, kHeight - 1}, {kWidth - 1, kHeight - 1}}) {
      double u, v, p, q;
      Mvec8Real_trans2DReal(&a, &u, &v, x, y);
      Mvec8Real_trans2DReal(&b, &p, &q, x, y);
      worst = std::max(worst, std::hypot(u - p, v - q));
    }
    return worst;
  }

  TestArena arena_;
  std::vector<std::unique_ptr<Shot>> shots_;
  std::vector<Block> blocks_;
  std::vector<Match> matches_;
  CoarseBase coarse_;
};

constexpr Mvec8Real kStill = {{1, 0, 0, 0, 1, 0, 0, 0, 1}, {}};

Mvec8Real turned(double degrees, double zoom, double dx, double dy) {
  const double c = zoom * std::cos(degrees * 3.14159265358979 / 180),
               s = zoom * std::sin(degrees * 3.14159265358979 / 180);
  const double mx = 0.5 * (kWidth - 1), my = 0.5 * (kHeight - 1);
  return {{c, -s, mx - c * mx + s * my + dx, s, c, my - s * mx - c * my + dy, 0, 0, 1}, {}};
}

TEST_F(FineAlign, FindsWhatAHandDoes) {
  const Pyramid& base = shoot(test::sceneLuma, kStill, 6, 1);
  const struct {
    Mvec8Real motion;
    double noise;
  } cases[] = {{turned(0, 1, 0.4, -0.3), 6},   {turned(0.3, 1.002, -7.7, 3.1), 6}, {turned(3, 1, 10, 5), 4},
               {turned(-1, 0.97, 2, 30), 4},   {turned(0, 1, 64, -20), 4},         {turned(0.2, 1.03, -64, 10), 4},
               {turned(-0.5, 1.001, 5, 5), 15}};
  uint32_t seed = 10;
  for (const auto& [motion, noise] : cases) {
    const Alignment found = align(base, shoot(test::sceneLuma, motion, noise, ++seed));
    EXPECT_EQ(found.verdict, ALIGNED) << seed;
    EXPECT_LT(worstCorner(found.motion, motion), noise > 10 ? 0.3 : 0.15) << seed;
  }
}

TEST_F(FineAlign, IsNotPulledByWhatMoves) {
  const Pyramid& base = shoot(test::sceneLuma, kStill, 4, 1);
  const Mvec8Real motion = turned(0.4, 1, 3.3, -2.6);
  const Alignment found = align(base, shoot(test::sceneLuma, motion, 4, 2, 9.0));
  EXPECT_EQ(found.verdict, ALIGNED);
  EXPECT_LT(worstCorner(found.motion, motion), 0.2);
}

// Another picture, nothing to see, or structure in one corner alone: noise confirms no motion.
TEST_F(FineAlign, SaysNo) {
  const Pyramid& base = shoot(test::sceneLuma, kStill, 4, 1);
  const auto other = [](double x, double y) { return test::sceneLuma(x + 5000, y + 3000); };
  EXPECT_NE(align(base, shoot(other, kStill, 4, 2)).verdict, ALIGNED);
  const auto flat = [](double, double) { return 120.0; };
  EXPECT_NE(align(shoot(flat, kStill, 8, 3), shoot(flat, turned(0, 1, 3, 3), 8, 4)).verdict, ALIGNED);
  const auto corner = [](double x, double y) {
    return x < 90 && y < 90 ? 120 + 60 * std::sin(x / 3) * std::cos(y / 4) : 120.0;
  };
  EXPECT_NE(align(shoot(corner, kStill, 8, 5), shoot(corner, turned(1, 1, 2, 0), 8, 6)).verdict, ALIGNED);
}

}  // namespace
}  // namespace fine
