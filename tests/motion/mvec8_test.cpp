#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <random>

#include "motion/mvec8_f32.h"
#include "motion/mvec8_real.h"

namespace {

constexpr double kPi = 3.14159265358979323846;
constexpr int32_t kMax = 2147483647, kMin = -kMax - 1;

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
  } const cases[] = {{0, 1, 3, 3},       {0.5, 1, 3, 4},     {-3.5, 1, 3, -1},     {-3.4999, 1, 3, 0},
                     {0, 2, 3, 2},       {0, -2, 3, -2},     {1e12, 1, 3, kMax},   {-1e12, 1, 3, kMin},
                     {0, 0, 3, kMax},    {0, 0, -3, kMin},   {0, 0, 0, 0},         {0.49, 1, -7, -7},
                     {0, 1, kMax, kMax}, {0, 1, kMin, kMin}, {-0.5, 1, kMax, kMax}};
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
  Mvec8Real identity;
  Mvec8Real_setIdentity(&identity);
  for (int i = 0; i < 300; ++i) {
    int32_t x = anyQ15(random), y = anyQ15(random), u, v;
    Mvec8Real_trans2DF32(&identity, &u, &v, x, y);
    ASSERT_EQ(u, x);
    ASSERT_EQ(v, y);

    x = coordinate(random), y = coordinate(random);
    const Mvec8Real m = randomMotion(random);
    double realX, realY, X, Y, W;
    Mvec8Real_trans2DReal(&m, &realX, &realY, x / 32768.0, y / 32768.0);
    Mvec8Real_trans3DReal(&m, &X, &Y, &W, x / 32768.0, y / 32768.0, 1.0);
    EXPECT_NEAR(X / W, realX, 1e-9);
    EXPECT_NEAR(Y / W, realY, 1e-9);
    Mvec8Real_trans2DF32(&m, &u, &v, x, y);
    EXPECT_LE(std::fabs(u - realX * 32768.0), 0.5 + 1e-6);
    EXPECT_LE(std::fabs(v - realY * 32768.0), 0.5 + 1e-6);

    Mvec8F32 q15;
    Mvec8Real back = {};
    for (int k = 0; k < 9; ++k) back.h[k] = q15.h[k] = static_cast<int32_t>(m.h[k] / m.h[8] * 32768.0);
    int32_t quantised[4], real[4];
    Mvec8F32_trans2DF32(&q15, &quantised[0], &quantised[1], x, y);
    Mvec8Real_trans2DF32(&back, &real[0], &real[1], x, y);
    Mvec8F32_trans2D(&q15, &quantised[2], &quantised[3], x >> 15, y >> 15);
    Mvec8Real_trans2D(&back, &real[2], &real[3], x >> 15, y >> 15);
    EXPECT_EQ(std::memcmp(quantised, real, sizeof real), 0);
    Mvec8F32_trans2DReal(&q15, &X, &Y, 17.5, 3.25);
    Mvec8Real_trans2DReal(&back, &realX, &realY, 17.5, 3.25);
    EXPECT_EQ(X, realX);
    EXPECT_EQ(Y, realY);
  }
}

TEST(Mvec8Real, InverseAndProductCompose) {
  std::mt19937 random(2);
  Mvec8Real identity;
  Mvec8Real_setIdentity(&identity);
  for (int i = 0; i < 100; ++i) {
    const Mvec8Real a = randomMotion(random), b = randomMotion(random);
    Mvec8Real inverse = b, product, normal = b;
    EXPECT_EQ(Mvec8Real_inv(&inverse, &a), ZELVAN_OK);
    EXPECT_EQ(std::memcmp(inverse.angles, b.angles, sizeof b.angles), 0);
    EXPECT_EQ(Mvec8Real_mult(&product, &a, &inverse), ZELVAN_OK);
    for (int k = 0; k < 9; ++k) EXPECT_NEAR(product.h[k], identity.h[k], 1e-10);
    EXPECT_EQ(Mvec8Real_normalize(&normal, &a), ZELVAN_OK);
    EXPECT_NEAR(normal.h[0] * normal.h[0] + normal.h[4] * normal.h[4] + normal.h[8] * normal.h[8], 1.0, 1e-8);
    EXPECT_EQ(std::memcmp(normal.angles, b.angles, sizeof b.angles), 0);
    for (int k = 0; k < 9; ++k) EXPECT_NEAR(normal.h[k] * a.h[8], a.h[k] * normal.h[8], 1e-9);

    Mvec8Real_mult(&product, &a, &b);
    double x, y, u, v;
    Mvec8Real_trans2DReal(&b, &x, &y, 40.0, 70.0);
    Mvec8Real_trans2DReal(&a, &x, &y, x, y);
    Mvec8Real_trans2DReal(&product, &u, &v, 40.0, 70.0);
    EXPECT_NEAR(u, x, 1e-9);
    EXPECT_NEAR(v, y, 1e-9);

    Mvec8Real inPlace = a, left = a, right = b;
    Mvec8Real_inv(&inPlace, &inPlace);
    EXPECT_EQ(std::memcmp(inPlace.h, inverse.h, sizeof inverse.h), 0);
    Mvec8Real_mult(&left, &left, &b);
    Mvec8Real_mult(&right, &a, &right);
    EXPECT_EQ(std::memcmp(left.h, product.h, sizeof product.h), 0);
    EXPECT_EQ(std::memcmp(right.h, product.h, sizeof product.h), 0);
  }
  const Mvec8Real singular[] = {
      {{}, {1, 2, 3}}, {{1, 2, 3, 2, 4, 6, 0, 0, 1}, {}}, {{1e-6, 0, 0, 0, 1e-6, 0, 0, 0, 1e-6}, {}}};
  for (const Mvec8Real& m : singular) {
    Mvec8Real out = {{9, 9, 9, 9, 9, 9, 9, 9, 9}, {9, 9, 9}};
    EXPECT_EQ(Mvec8Real_inv(&out, &m), ZELVAN_ERROR_GENERAL);
    EXPECT_EQ(std::memcmp(&out, &identity, sizeof out), 0);
  }
}

TEST(Mvec8Real, RotationsMoveViewingRays) {
  constexpr int32_t kWidth = 640, kHeight = 480;
  constexpr double kFov = 61.0;
  const double f = 400.0 / std::tan(kFov * kPi / 360.0);  // half the diagonal of 640 x 480 is 400
  const double angles[] = {-1.4, -0.5, -0.01, 0.0, 0.2, 1.1};
  for (double a : angles) {
    for (double b : angles) {
      for (double c : angles) {
        double r[9], transposed[9];
        Mvec8Real_rotationFromAngles(r, 0, a, b, c);
        Mvec8Real_rotationFromAngles(transposed, 1, a, b, c);
        Mvec8Real forward = {}, backward = {}, fromMatrix = {}, inverted = {};
        EXPECT_EQ(Mvec8Real_setRotationAngle(&forward, a, b, c, kWidth, kHeight, kFov, 0), ZELVAN_OK);
        EXPECT_EQ(Mvec8Real_setRotationAngle(&backward, a, b, c, kWidth, kHeight, kFov, 1), ZELVAN_OK);
        EXPECT_EQ(Mvec8Real_setRotationMatrix(&fromMatrix, r, kWidth, kHeight, kFov, 0), ZELVAN_OK);
        EXPECT_EQ(Mvec8Real_setRotationMatrix(&inverted, r, kWidth, kHeight, kFov, 1), ZELVAN_OK);
        EXPECT_NEAR(fromMatrix.h[0] * fromMatrix.h[0] + fromMatrix.h[1] * fromMatrix.h[1], 1.0, 1e-8);
        EXPECT_NEAR(inverted.h[0] * inverted.h[0] + inverted.h[1] * inverted.h[1], 1.0, 1e-8);

        // A ray turned about y by a, then about x by b, then about z by c.
        const double ray[3] = {30.0, -50.0, f};
        double z1[3] = {ray[0], ray[1], ray[2]};
        turn(a, &z1[2], &z1[0]);
        turn(b, &z1[1], &z1[2]);
        turn(c, &z1[0], &z1[1]);
        for (int k = 0; k < 3; ++k) {
          EXPECT_NEAR(r[3 * k] * ray[0] + r[3 * k + 1] * ray[1] + r[3 * k + 2] * ray[2], z1[k], 1e-9);
          for (int l = 0; l < 3; ++l) EXPECT_EQ(transposed[3 * k + l], r[3 * l + k]);
        }
        const double x = 320 + f * z1[0] / z1[2], y = 240 + f * z1[1] / z1[2];
        const double limit = 1e-7 * (1 + std::fabs(x) + std::fabs(y));
        for (const Mvec8Real* m : {&forward, &fromMatrix}) {
          double u, v;
          Mvec8Real_trans2DReal(m, &u, &v, 350.0, 190.0);
          EXPECT_NEAR(u, x, limit * (1 + std::fabs(f / z1[2])));
          EXPECT_NEAR(v, y, limit * (1 + std::fabs(f / z1[2])));
        }
        for (const Mvec8Real* m : {&backward, &inverted}) {
          double u, v;
          Mvec8Real_trans2DReal(m, &u, &v, x, y);
          EXPECT_NEAR(u, 350.0, 1e-4);
          EXPECT_NEAR(v, 190.0, 1e-4);
        }

        double a2, b2, c2, r2[9];
        EXPECT_EQ(Mvec8Real_estimateRotationAngle(&a2, &b2, &c2, &forward, kWidth, kHeight, kFov), ZELVAN_OK);
        EXPECT_NEAR(a2, a, 1e-7);
        EXPECT_NEAR(b2, b, 1e-7);
        EXPECT_NEAR(c2, c, 1e-7);
        for (Mvec8Real* m : {&forward, &fromMatrix}) {
          Mvec8Real_estimateRotationMatrix(r2, m, kWidth, kHeight, kFov);
          const double sign = r2[8] * r[8] < 0 ? -1.0 : 1.0;  // the scale of a motion may be negative
          for (int k = 0; k < 9; ++k) EXPECT_NEAR(sign * r2[k], r[k], 1e-7);
        }
      }
    }
  }
}

TEST(Mvec8Real, AnglesOfSpecialMotions) {
  Mvec8Real m;
  Mvec8Real_setIdentity(&m);
  double a = 9, b = 9, c = 9;
  EXPECT_EQ(Mvec8Real_estimateRotationAngle(&a, &b, &c, &m, 640, 480, 61.0), ZELVAN_OK);
  EXPECT_EQ(a, 0.0);
  EXPECT_EQ(b, 0.0);
  EXPECT_NEAR(c, 0.0, 1e-15);
  m = {};
  EXPECT_EQ(Mvec8Real_estimateRotationAngle(&a, &b, &c, &m, 640, 480, 61.0), ZELVAN_ERROR_GENERAL);
  EXPECT_NEAR(std::fabs(a) + std::fabs(b) + std::fabs(c), 0.0, 1e-15);

  // Swapping one axis with depth: the inverse has W = x, so the centre (0, 0) of an empty picture goes to infinity.
  struct {
    Mvec8Real motion;
    double a, b;
  } const atInfinity[] = {{{{0, 0, 1, 0, 1, 0, 1, 0, 0}, {}}, -kPi / 2, 0},
                          {{{0, 0, -1, 0, 1, 0, 1, 0, 0}, {}}, -kPi / 2, 0},
                          {{{1, 0, 0, 0, 0, 1, 0, 1, 0}, {}}, 0, kPi / 2},
                          {{{1, 0, 0, 0, 0, 1, 0, -1, 0}, {}}, 0, -kPi / 2}};
  for (const auto& special : atInfinity) {
    EXPECT_EQ(Mvec8Real_estimateRotationAngle(&a, &b, &c, &special.motion, 0, 0, 61.0), ZELVAN_OK);
    EXPECT_NEAR(a, special.a, 1e-7);
    EXPECT_NEAR(b, special.b, 1e-7);
  }
}

TEST(Mvec8F32, InverseUsesTheUpperLeftBlock) {
  const Mvec8F32 affine = {{36044, 3276, 5 << 15, -3276, 32768, -(7 << 15), 0, 0, 32768}};
  Mvec8F32 inverse;
  ASSERT_EQ(Mvec8F32_inv(&inverse, &affine), ZELVAN_OK);
  int32_t x, y;
  Mvec8F32_trans2DF32(&affine, &x, &y, 100 << 15, 60 << 15);
  Mvec8F32_trans2DF32(&inverse, &x, &y, x, y);
  EXPECT_NEAR(x, 100 << 15, 120);  // entries are off by half a unit, and so by up to 0.5 * (100 + 60 + 1)
  EXPECT_NEAR(y, 60 << 15, 120);

  // d is 2^31, so that entries are the adjugate's over 2^16: 5 and 7 are -h5 / 2 and -h7 / 2 here.
  for (const int32_t sign : {1, -1}) {
    const Mvec8F32 ties = {{32768, 0, 0, 0, 65536, -3 * sign, 16384, 5 * sign, 32768}};
    ASSERT_EQ(Mvec8F32_inv(&inverse, &ties), ZELVAN_OK);
    const int32_t expected[9] = {32768, 0, 0, -1 * sign, 16384, 2 * sign, -16384, -3 * sign, 32768};
    for (int k = 0; k < 9; ++k) EXPECT_EQ(inverse.h[k], expected[k]) << k;
  }
  const Mvec8F32 singular = {{2, 4, 0, 1, 2, 0, 0, 0, 32768}};
  inverse.h[0] = 77;
  EXPECT_EQ(Mvec8F32_inv(&inverse, &singular), ZELVAN_ERROR_GENERAL);
  EXPECT_EQ(inverse.h[0], 77);
}

}  // namespace
