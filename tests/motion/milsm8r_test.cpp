#include "motion/milsm8r.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <utility>

#include "support/test_arena.h"

namespace {

constexpr int32_t kWidth = 640, kHeight = 480, kImages = 4;
constexpr double kFov = 61.0;
// Angles of the motions from image 0.
constexpr double kAngles[kImages][3] = {{0, 0, 0}, {0.02, -0.03, 0.05}, {-0.12, 0.06, -0.4}, {0.3, -0.25, 1.3}};

struct Rotations {
  explicit Rotations(int32_t imageCount) {
    construct_MILsm(&lsm, arena.env());
    EXPECT_EQ(MILsm_init(&lsm, MILSM_8R, imageCount), ZELVAN_OK);
    EXPECT_EQ(MILsm_setCameraParam(&lsm, kWidth, kHeight, kFov), ZELVAN_OK);
    record = static_cast<MILsm8R*>(lsm.impl);
  }
  ~Rotations() { EXPECT_EQ(destruct_MILsm(&lsm), ZELVAN_OK); }
  int32_t solve() {
    int32_t code = -1;
    EXPECT_EQ(MILsm_solve(&lsm), ZELVAN_OK);
    EXPECT_EQ(MILsm_getFailureCode(&lsm, &code), ZELVAN_OK);
    return code;
  }
  Mvec8Real output(int32_t image) {
    Mvec8Real out;
    EXPECT_EQ(MILsm_outputMvecReal(&lsm, &out, image), ZELVAN_OK);
    return out;
  }
  TestArena arena;
  MILsm lsm;
  MILsm8R* record;
};

Mvec8Real motionOf(int32_t image) {
  Mvec8Real m = {};
  const double* a = kAngles[image];
  Mvec8Real_setRotationAngle(&m, a[0], a[1], a[2], kWidth, kHeight, kFov, 0);
  return m;
}

// Points that both images of a pair see, with an error of the second image.
void addPoints(MILsm* lsm, int32_t i, int32_t j, double noise) {
  std::mt19937 random(11);
  std::uniform_real_distribution<double> shift(-noise, noise), weight(0.5, 2.0);
  const Mvec8Real first = motionOf(i), second = motionOf(j);
  for (int k = 0; k < 48; ++k) {
    double ax, ay, bx, by;
    Mvec8Real_trans2DReal(&first, &ax, &ay, 180 + 40 * (k % 8), 140 + 40 * (k / 8));
    Mvec8Real_trans2DReal(&second, &bx, &by, 180 + 40 * (k % 8), 140 + 40 * (k / 8));
    // One after the other: compilers differ in the order of arguments.
    const double dx = shift(random), dy = shift(random), w = weight(random);
    EXPECT_EQ(MILsm_addReal(lsm, i, ax, ay, j, bx + dx, by + dy, w), ZELVAN_OK);
  }
}

TEST(MILsm8R, RecoversRotations) {
  struct {
    int32_t imageCount;
    std::initializer_list<std::pair<int32_t, int32_t>> pairs;
  } const cases[] = {{2, {{0, 1}}}, {4, {{0, 1}, {2, 1}, {3, 2}, {1, 3}, {3, 0}}}};
  for (const auto& c : cases) {
    for (double noise : {0.0, 0.8}) {
      Rotations s(c.imageCount), copied(2);
      for (const auto& [i, j] : c.pairs) addPoints(&s.lsm, i, j, noise);
      EXPECT_EQ(MILsm_changeImageNum(&s.lsm, 9) | MILsm_changeImageNum(&s.lsm, c.imageCount), ZELVAN_OK);
      EXPECT_EQ(MILsm_copy(&copied.lsm, &s.lsm), ZELVAN_OK);
      ASSERT_EQ(copied.solve(), MILSM_CONVERGED) << c.imageCount << " " << noise;
      for (int32_t k = 1; k < c.imageCount; ++k) {
        const Mvec8Real found = copied.output(k), expected = motionOf(k);
        for (int i = 0; i < 3; ++i) EXPECT_NEAR(found.angles[i], kAngles[k][i], noise == 0.0 ? 1e-9 : 1e-3);
        for (int i = 0; i < 9; ++i) {
          // An angle's error of 1e-3 shifts the picture by that share of the focal length.
          const double noisy = i == 2 || i == 5 ? 0.5 : 1e-2 * (1 + std::fabs(expected.h[i]));
          EXPECT_NEAR(found.h[i], expected.h[i], noise == 0.0 ? 1e-9 * (1 + std::fabs(expected.h[i])) : noisy);
        }
      }
    }
  }
}

TEST(MILsm8R, EdgesAndFailures) {
  Rotations s(2);
  EXPECT_EQ(MILsm8R_init(s.record, 1), ZELVAN_ERROR_PARAM);
  const Mvec8Real start = motionOf(3);
  EXPECT_EQ(MILsm_setInitialMvecReal(&s.lsm, &start, 1), ZELVAN_OK);
  EXPECT_EQ(MILsm_setInitialMvecReal(&s.lsm, &start, 2), ZELVAN_ERROR_PARAM);
  EXPECT_EQ(MILsm_addReal(&s.lsm, 0, 1, 1, 2, 1, 1, 1), ZELVAN_ERROR_PARAM);
  EXPECT_EQ(s.solve(), MILSM_FAIL_DIAGONAL);  // no points: the motion stays
  for (int i = 0; i < 3; ++i) EXPECT_NEAR(s.output(1).angles[i], kAngles[3][i], 1e-9);
  addPoints(&s.lsm, 1, 0, 0.0);
  s.record->tolerance = 0.0;  // never met
  EXPECT_EQ(s.solve(), MILSM_FAIL_PASSES);
  EXPECT_NEAR(s.output(1).angles[1], kAngles[1][1], 1e-9);
}

}  // namespace
