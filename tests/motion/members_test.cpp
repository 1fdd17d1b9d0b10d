// The Q15 forms against those in doubles, and the members of the rotation solver that its front does not reach.
#include <gtest/gtest.h>

#include <cmath>

#include "motion/milsm8r.h"
#include "motion/mvec8_f32.h"
#include "motion/mvec8_real.h"
#include "support/test_arena.h"

namespace {

TEST(Mvec8F32, MapsAsTheSameMatrixInDoubles) {
  const Mvec8F32 motion = {{33000, -700, 5 << 15, 900, 32100, -(3 << 15), 2, -1, 32768}};
  Mvec8Real real = {};
  for (int32_t i = 0; i < 9; ++i) real.h[i] = motion.h[i] / 32768.0;
  double x = 0, y = 0, realX = 0, realY = 0;
  int32_t px = 0, py = 0;
  ASSERT_EQ(Mvec8Real_trans2DReal(&real, &realX, &realY, 300, 200), ZELVAN_OK);
  ASSERT_EQ(Mvec8F32_trans2DReal(&motion, &x, &y, 300, 200), ZELVAN_OK);
  EXPECT_NEAR(x, realX, 1e-9);
  EXPECT_NEAR(y, realY, 1e-9);
  ASSERT_EQ(Mvec8F32_trans2D(&motion, &px, &py, 300, 200), ZELVAN_OK);
  EXPECT_TRUE(px == std::lround(realX) && py == std::lround(realY));
  ASSERT_EQ(Mvec8F32_trans2DF32(&motion, &px, &py, 300 << 15, 200 << 15), ZELVAN_OK);
  EXPECT_NEAR(px / 32768.0, realX, 1e-4);
  EXPECT_NEAR(py / 32768.0, realY, 1e-4);
  Mvec8F32 identity;
  ASSERT_EQ(Mvec8F32_setIdentity(&identity), ZELVAN_OK);
  ASSERT_EQ(Mvec8F32_trans2D(&identity, &px, &py, -7, 9), ZELVAN_OK);
  EXPECT_TRUE(px == -7 && py == 9);
  EXPECT_EQ(Mvec8F32_setIdentity(nullptr) & Mvec8F32_trans2D(nullptr, &px, &py, 0, 0), ZELVAN_ERROR_PARAM);
}

TEST(MILsm8R, RaysMatricesAndQ15) {
  TestArena arena;
  MILsm lsm;
  construct_MILsm(&lsm, arena.env());
  ASSERT_EQ(MILsm_init(&lsm, MILSM_8R, 2) | MILsm_setCameraParam(&lsm, 640, 480, 60.0), ZELVAN_OK);
  auto* self = static_cast<MILsm8R*>(lsm.impl);
  double rotation[9], found[9], calculated[9];
  ASSERT_EQ(Mvec8Real_rotationFromAngles(rotation, 0, -0.05, 0.08, -0.3), ZELVAN_OK);
  for (int32_t i = 0; i < 20; ++i) {  // rays of the frame, of any length, and those of the base that turn into them
    const double q[3] = {0.3 * std::sin(i), 0.3 * std::cos(1.7 * i), 1.0 + 0.05 * i};
    double p[3];
    for (int32_t r = 0; r < 3; ++r) p[r] = rotation[r] * q[0] + rotation[3 + r] * q[1] + rotation[6 + r] * q[2];
    ASSERT_EQ(MILsm8R_addRealOnSphere(self, 0, q[0], q[1], q[2], 1, p[0], p[1], p[2], 1.0), ZELVAN_OK);
  }
  ASSERT_EQ(MILsm_solve(&lsm), ZELVAN_OK);
  ASSERT_EQ(MILsm8R_outputRotationMatrix(self, found, 1), ZELVAN_OK);
  for (int32_t i = 0; i < 9; ++i)
    EXPECT_NEAR(found[i], rotation[i % 3 * 3 + i / 3], 1e-6) << "the base's into the frame's";

  Mvec8Real real;
  Mvec8F32 fixed;
  ASSERT_EQ(MILsm8R_outputMvecReal(self, &real, 1) | MILsm8R_outputMvec(self, &fixed, 1), ZELVAN_OK);
  for (int32_t i = 0; i < 9; ++i) EXPECT_NEAR(fixed.h[i], real.h[i] * 32768.0, 0.51);
  // The matrix comes at the motion's scale.
  ASSERT_EQ(MILsm8R_calcRotMat(self, calculated, &real), ZELVAN_OK);
  const double scale = std::hypot(calculated[0], calculated[1], calculated[2]);
  for (int32_t i = 0; i < 9; ++i) EXPECT_NEAR(calculated[i] / scale, found[i], 1e-6) << i;
  EXPECT_EQ(MILsm8R_setInitialMvec(self, &fixed, 1), ZELVAN_OK);
  EXPECT_EQ(MILsm8R_clearBlock(self, 0, 1), ZELVAN_ERROR_UNSUPPORTED);
  EXPECT_EQ(destruct_MILsm(&lsm), ZELVAN_OK);
}

}  // namespace
