// A field of shifts from matches that are made up: what is there is found, what is not there is not.
#include "fine/local_motion.h"

#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <random>
#include <vector>

namespace {

using namespace fine;

constexpr int32_t kWidth = 1280;
constexpr int32_t kHeight = 960;

struct Shift {
  double x, y;
};

class LocalMotion : public testing::Test {
 protected:
  LocalMotion() : field_(shiftLattice(kWidth, kHeight)) {
    const auto nodes = static_cast<size_t>(field_.across * field_.down);
    x_.assign(nodes, 99.0);
    y_.assign(nodes, 99.0);
    field_.x = x_.data();
    field_.y = y_.data();
  }

  // A match in each cell of a grid, off the motion by shift(x, y) and noise of that standard deviation.
  template <typename ShiftAt>
  void match(ShiftAt&& shift, double noise, double outliers = 0.0) {
    std::mt19937 random(7);
    std::normal_distribution<double> normal(0.0, noise);
    std::uniform_real_distribution<double> any(0.0, 1.0);
    matches_.clear();
    for (int32_t i = 0; i < 432; ++i) {
      Match m = {};
      m.x = (i % 24 + any(random)) * kWidth / 24;
      m.y = (i / 24 + any(random)) * kHeight / 18;
      Mvec8Real_trans2DReal(&motion_, &m.u, &m.v, m.x, m.y);
      const Shift s = shift(m.x, m.y);
      m.u += s.x + normal(random);
      m.v += s.y + normal(random);
      if (any(random) < outliers) {
        m.u += 16.0 * any(random) - 8.0;
        m.v += 16.0 * any(random) - 8.0;
      }
      m.wxx = m.wyy = 1.0 / (noise * noise);
      matches_.push_back(m);
    }
  }
  Evidence evidence() {
    return localEvidence(field_, motion_, matches_.data(), static_cast<int32_t>(matches_.size()), scratch_.get());
  }
  void fit() { fitShifts(&field_, motion_, matches_.data(), static_cast<int32_t>(matches_.size()), scratch_.get()); }
  // Root of the mean squared difference of the field from a shift, over a part of the picture.
  template <typename ShiftAt>
  double error(ShiftAt&& shift, double left = 0, double top = 0, double right = kWidth, double bottom = kHeight) {
    double sum = 0.0;
    int32_t count = 0;
    for (double y = top; y < bottom; y += 16) {
      for (double x = left; x < right; x += 16, ++count) {
        const LatticePlace place = latticePlace(field_, x, y);
        const Shift s = shift(x, y);
        sum +=
            std::pow(shiftAt(field_, field_.x, place) - s.x, 2) + std::pow(shiftAt(field_, field_.y, place) - s.y, 2);
      }
    }
    return std::sqrt(sum / count);
  }

  Mvec8Real motion_ = {{1.01, -0.012, 14, 0.011, 0.99, -9, 1e-6, -2e-6, 1}, {}};
  ShiftField field_;
  std::vector<double> x_, y_;
  std::vector<Match> matches_;
  std::unique_ptr<LocalScratch> scratch_ = std::make_unique<LocalScratch>();
};

Shift still(double, double) {
  return {0, 0};
}

Shift rows(double, double y) {
  return {3.0 * std::sin(y / 150.0), std::cos(y / 200.0)};
}

Shift nearPart(double x, double y) {
  return x > 300 && x < 700 && y > 300 && y < 700 ? Shift{6.0, -3.0} : Shift{0, 0};
}

// Blocks astray do not bend the field.
TEST_F(LocalMotion, FollowsARollingShutter) {
  for (const auto& [outliers, most] : {std::pair(0.0, 0.25), {0.15, 0.4}}) {
    match(rows, 0.15, outliers);
    const Evidence e = evidence();
    EXPECT_GT(e.gain, outliers > 0 ? 0 : 0.5);
    EXPECT_GT(e.significance, 8.0);
    fit();
    EXPECT_LT(error(rows), most);
  }
}

TEST_F(LocalMotion, KeepsTheEdgeOfANearPart) {
  match(nearPart, 0.15);
  EXPECT_GT(evidence().significance, 3.8);
  fit();
  EXPECT_LT(error(nearPart, 400, 400, 620, 620), 0.25);
  EXPECT_LT(error(nearPart, 800, 0), 0.25);
}

TEST_F(LocalMotion, NeitherNoiseNorBlocksAstrayGiveEvidence) {
  for (const double noise : {0.12, 0.4, 1.5}) {
    for (const double outliers : {0.0, 0.05, 0.3}) {
      match(still, noise, outliers);
      EXPECT_LT(evidence().significance, 1.0) << noise << " " << outliers;
    }
  }
}

TEST_F(LocalMotion, LatticeFitsAnySize) {
  for (const auto& [width, height] : {std::pair{16, 16}, {65, 4000}, {1280, 960}, {4000, 3000}, {8191, 8191}}) {
    const ShiftField f = shiftLattice(width, height);
    EXPECT_TRUE(f.across >= 2 && f.down >= 2 && f.across * f.down <= kMostShiftNodes) << width << " " << height;
    EXPECT_TRUE((f.across - 1) * f.step >= width && (f.down - 1) * f.step >= height) << width << " " << height;
  }
}

}  // namespace
