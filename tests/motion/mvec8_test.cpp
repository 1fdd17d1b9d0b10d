#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <random>

#include "motion/mvec8_f32.h"
#include "motion/mvec8_real.h"

namespace {

constexpr int32_t kMax = 2147483647, kMin = -kMax - 1;
constexpr Mvec8Real kIdentity = {{1, 0, 0, 0, 1, 0, 0, 0, 1}, {}};

Mvec8Real randomMotion(std::mt19937& random) {
  std::uniform_real_distribution<double> unit(-1.0, 1.0);
  const double scale = std::exp(unit(random));
  Mvec8Real m = {{1 + 0.2 * unit(random), 0.2 * unit(random), 30 * unit(random), 0.2 * unit(random),
                  1 + 0.2 * unit(random), 30 * unit(random), 2e-4 * unit(random), 2e-4 * unit(random), 1},
                 {unit(random), unit(random), unit(random)}};
  for (double& h : m.h) h *= scale;
  return m;
}

// Turns the plane of two axes from the first towards the second.
void turn(double angle, double* first, double* second) {
  const double x = *first, y = *second;
  *first = std::cos(angle) * x - std::sin(angle) * y;
  *second = std::sin(angle) * x + std::cos(angle) * y;
}

TEST(Mvec8Real, IntegerMappingRoundsHalvesAwayFromZeroAndSaturates) {
  struct {
    double h2, h8;
    int32_t x, expected;
  } const cases[] = {{0, 1, 3, 3}, {0.5, 1, 3, 4},    {-3.5, 1, 3, -1},   {-3.4999, 1, 3, 0},
                     {0, 2, 3, 2}, {0, -2, 3, -2},    {1e12, 1, 3, kMax}, {0, 0, -3, kMin},
                     {0, 0, 0, 0}, {0.49, 1, -7, -7}, {0, 1, kMin, kMin}, {0, 1, kMax, kMax}};
  for (const auto& c : cases) {
    const Mvec8Real m = {{1, 0, c.h2, 0, 1, c.h2, 0, 0, c.h8}, {}};
    int32_t x, y;
    EXPECT_EQ(Mvec8Real_trans2D(&m, &x, &y, c.x, c.x), ZELVAN_OK);
    EXPECT_EQ(x, c.expected) << c.h2 << " " << c.h8;
    EXPECT_EQ(y, c.expected) << c.h2 << " " << c.h8;
  }
}

TEST(Mvec8Real, MappingsAgreeInAllUnits) {
  std::mt19937 random(1);
  std::uniform_int_distribution<int32_t> anyQ15(kMin, kMax), coordinate(0, 300 << 15);
  for (int i = 0; i < 300; ++i) {
    int32_t x = anyQ15(random), y = anyQ15(random), u, v;
    Mvec8Real_trans2DF32(&kIdentity, &u, &v, x, y);
    ASSERT_TRUE(u == x && v == y);

    x = coordinate(random), y = coordinate(random);
    const Mvec8Real m = randomMotion(random);
    double realX, realY, X, Y, W;
    Mvec8Real_trans2DReal(&m, &realX, &realY, x / 32768.0, y / 32768.0);
    Mvec8Real_trans3DReal(&m, &X, &Y, &W, x / 32768.0, y / 32768.0, 1.0);
    EXPECT_NEAR(X / W, realX, 1e-9);
    EXPECT_NEAR(Y / W, realY, 1e-9);
    Mvec8Real_trans2DF32(&m, &u, &v, x, y);
    EXPECT_LE(std::hypot(u - realX * 32768.0, v - realY * 32768.0), 0.71);
  }
}

TEST(Mvec8Real, InverseAndProductCompose) {
  std::mt19937 random(2);
  for (int i = 0; i < 100; ++i) {
    const Mvec8Real a = randomMotion(random), b = randomMotion(random);
    Mvec8Real inverse = b, product, normal = b;
    EXPECT_EQ(Mvec8Real_inv(&inverse, &a), ZELVAN_OK);
    EXPECT_EQ(std::memcmp(inverse.angles, b.angles, sizeof b.angles), 0);
    EXPECT_EQ(Mvec8Real_mult(&product, &a, &inverse), ZELVAN_OK);
    for (int k = 0; k < 9; ++k) EXPECT_NEAR(product.h[k], kIdentity.h[k], 1e-10);
    EXPECT_EQ(Mvec8Real_normalize(&normal, &a), ZELVAN_OK);
    EXPECT_NEAR(normal.h[0] * normal.h[0] + normal.h[4] * normal.h[4] + normal.h[8] * normal.h[8], 1.0, 1e-8);
    for (int k = 0; k < 9; ++k) EXPECT_NEAR(normal.h[k] * a.h[8], a.h[k] * normal.h[8], 1e-9);

    Mvec8Real_mult(&product, &a, &b);
    double x, y, u, v;
    Mvec8Real_trans2DReal(&b, &x, &y, 40.0, 70.0);
    Mvec8Real_trans2DReal(&a, &x, &y, x, y);
    Mvec8Real_trans2DReal(&product, &u, &v, 40.0, 70.0);
    EXPECT_LT(std::hypot(u - x, v - y), 1e-9);

    Mvec8Real inPlace = a, left = a, right = b;
    Mvec8Real_inv(&inPlace, &inPlace);
    EXPECT_EQ(std::memcmp(inPlace.h, inverse.h, sizeof inverse.h), 0);
    Mvec8Real_mult(&left, &left, &b);
    Mvec8Real_mult(&right, &a, &right);
    EXPECT_EQ(std::memcmp(left.h, product.h, sizeof product.h), 0);
    EXPECT_EQ(std::memcmp(right.h, product.h, sizeof product.h), 0);
  }
  const Mvec8Real singular[] = {{{}, {1, 2, 3}}, {{1e-6, 0, 0, 0, 1e-6, 0, 0, 0, 1e-6}, {}}};
  for (const Mvec8Real& m : singular) {
    Mvec8Real out = {{9, 9, 9, 9, 9, 9, 9, 9, 9}, {9, 9, 9}};
    EXPECT_EQ(Mvec8Real_inv(&out, &m), ZELVAN_ERROR_GENERAL);
    EXPECT_EQ(std::memcmp(&out, &kIdentity, sizeof out), 0);
  }
}

TEST(Mvec8Real, RotationsMoveViewingRays) {
  constexpr int32_t kWidth = 640, kHeight = 480;
  constexpr double kFov = 61.0;
  const double f = 400.0 / std::tan(kFov * M_PI / 360.0);  // half the diagonal of 640 x 480 is 400
  const double angles[] = {-1.4, -0.5, 0.0, 0.2, 1.1};
  for (int i = 0; i < 125; ++i) {
    const double a = angles[i % 5], b = angles[i / 5 % 5], c = angles[i / 25];
    // The ray of a pixel turned about y by a, then about x by b, then about z by c.
    double ray[3] = {30.0, -50.0, f}, r[9], back[3], estimated[9], u, v;
    turn(a, &ray[2], &ray[0]);
    turn(b, &ray[1], &ray[2]);
    turn(c, &ray[0], &ray[1]);
    const double x = 320 + f * ray[0] / ray[2], y = 240 + f * ray[1] / ray[2];
    const double limit = 1e-7 * (1 + std::hypot(x, y)) * (1 + std::fabs(f / ray[2]));
    Mvec8Real_rotationFromAngles(r, 0, a, b, c);
    Mvec8Real byAngles = {}, byMatrix = {};
    for (int32_t inverse : {1, 0}) {
      EXPECT_EQ(Mvec8Real_setRotationAngle(&byAngles, a, b, c, kWidth, kHeight, kFov, inverse), ZELVAN_OK);
      EXPECT_EQ(Mvec8Real_setRotationMatrix(&byMatrix, r, kWidth, kHeight, kFov, inverse), ZELVAN_OK);
      EXPECT_NEAR(std::hypot(byMatrix.h[0], byMatrix.h[1]), 1.0, 1e-8);
      for (const Mvec8Real* m : {&byAngles, &byMatrix}) {
        Mvec8Real_trans2DReal(m, &u, &v, inverse != 0 ? x : 350.0, inverse != 0 ? y : 190.0);
        EXPECT_LT(std::hypot(u - (inverse != 0 ? 350.0 : x), v - (inverse != 0 ? 190.0 : y)), std::max(limit, 1e-4));
      }
    }
    EXPECT_EQ(Mvec8Real_estimateRotationAngle(&back[0], &back[1], &back[2], &byAngles, kWidth, kHeight, kFov), 0u);
    EXPECT_LT(std::hypot(back[0] - a, back[1] - b, back[2] - c), 1e-7);
    Mvec8Real_estimateRotationMatrix(estimated, &byMatrix, kWidth, kHeight, kFov);
    const double sign = estimated[8] * r[8] < 0 ? -1.0 : 1.0;  // the scale of a motion may be negative
    for (int k = 0; k < 9; ++k) EXPECT_NEAR(sign * estimated[k], r[k], 1e-7);
  }
}

TEST(Mvec8F32, InverseUsesTheUpperLeftBlock) {
  // d is 2^31, so that entries are the adjugate's over 2^16: 5 and 7 are -h5 / 2 and -h7 / 2 here.
  Mvec8F32 inverse;
  for (const int32_t sign : {1, -1}) {
    const Mvec8F32 ties = {{32768, 0, 0, 0, 65536, -3 * sign, 16384, 5 * sign, 32768}};
    ASSERT_EQ(Mvec8F32_inv(&inverse, &ties), ZELVAN_OK);
    const int32_t expected[9] = {32768, 0, 0, -1 * sign, 16384, 2 * sign, -16384, -3 * sign, 32768};
    for (int k = 0; k < 9; ++k) EXPECT_EQ(inverse.h[k], expected[k]) << k;
  }
  const Mvec8F32 singular = {{2, 4, 0, 1, 2, 0, 0, 0, 32768}};
  EXPECT_EQ(Mvec8F32_inv(&inverse, &singular), ZELVAN_ERROR_GENERAL);
}

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

}  // namespace
