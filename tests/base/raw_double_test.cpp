#include "base/raw_double.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>
#include <random>

namespace {

constexpr double kInf = std::numeric_limits<double>::infinity();
constexpr double kNan = std::numeric_limits<double>::quiet_NaN();
constexpr double kTiny = std::numeric_limits<double>::denorm_min();
constexpr double kMax = std::numeric_limits<double>::max();

using Unary = double (*)(double);
using Binary = double (*)(double, double);

uint64_t bitsOf(double x) {
  return std::bit_cast<uint64_t>(x);
}

// Values of the same formulas, evaluated outside this library in IEEE doubles: any other order of operations, a fused
// multiply-add or a digit of a coefficient shows here.
TEST(RawDouble, GivesTheSameBitsEverywhere) {
  const struct {
    const char* name;
    double result, expected;
  } cases[] = {{"exp2", RawDouble_exp2(0.7), 0x1.9fdf8bcce533cp+0},
               {"exp2", RawDouble_exp2(-1030.25), 0x0.00d744fccad6ap-1022},
               {"log2", RawDouble_log2(3.0), 0x1.95c01a39fbd69p+0},
               {"log2", RawDouble_log2(1e-310), -0x1.01730dabca5f6p+10},
               {"log2 below the halving", RawDouble_log2(0x1.6a09e667f3bccp+0), 0x1.ffffffffffffdp-2},
               {"log2 above the halving", RawDouble_log2(0x1.6a09e667f3bcfp+0), 0x1.0000000000006p-1},
               {"exp", RawDouble_exp(1.5), 0x1.1ed3fe64fc53fp+2},
               {"log", RawDouble_log(10.0), 0x1.26bb1bbb55515p+1},
               {"sqrt", RawDouble_sqrt(2.0), 0x1.6a09e667f3bccp+0},
               {"sqrt", RawDouble_sqrt(3.0), 0x1.bb67ae8584cabp+0},
               {"cbrt", RawDouble_cbrt(-5.0), -0x1.b5c0fbcfec4d3p+0},
               {"cos", RawDouble_cos(0.5), 0x1.c1528065b7d50p-1},
               {"cos", RawDouble_cos(2.5), -0x1.9a2f7ef858b7ep-1},
               {"cos", RawDouble_cos(1000.0), 0x1.1ff026793f138p-1},
               {"sin", RawDouble_sin(0.5), 0x1.eaee8744b05f0p-2},
               {"sin", RawDouble_sin(-4.0), 0x1.837b9dddc1eb0p-1},
               {"tan", RawDouble_tan(1.25), 0x1.8139943e231a8p+1},
               {"asin", RawDouble_asin(0.3), 0x1.380159e14f6ffp-2},
               {"acos", RawDouble_acos(-0.6), 0x1.1b6e192ebbe44p+1},
               {"atan", RawDouble_atan(0.8), 0x1.5977a5103ea93p-1},
               {"atan", RawDouble_atan(-7.0), -0x1.6dcc57bb565fcp+0},
               {"sinh", RawDouble_sinh(1.25), 0x1.9a175e6cbafe6p+0},
               {"cosh", RawDouble_cosh(1.25), 0x1.e36fbf49645fap+0},
               {"tanh", RawDouble_tanh(0.4), 0x1.8511573c242d4p-2},
               {"incomplete_pow", RawDouble_incomplete_pow(2.2, 0.45), 0x1.6d0806f1c80acp+0},
               {"hypot", RawDouble_hypot(3.0, 4.5), 0x1.5a22073490378p+2},
               {"atan2", RawDouble_atan2(1.0, -3.0), 0x1.68f095fdf593cp+1},
               {"atan2", RawDouble_atan2(-5.0, 2.0), -0x1.30b6d796a4da8p+0}};
  for (const auto& c : cases) EXPECT_EQ(bitsOf(c.result), bitsOf(c.expected)) << c.name << " " << c.result;
}

TEST(RawDouble, TreatsSpecialValues) {
  const struct {
    const char* name;
    double result, expected;  // NaN: any NaN
  } cases[] = {{"exp2(1024)", RawDouble_exp2(1024), kInf},
               {"exp2(inf)", RawDouble_exp2(kInf), kInf},
               {"exp2(-2000)", RawDouble_exp2(-2000), 0.0},
               {"exp2(-1074.9)", RawDouble_exp2(-1074.9), kTiny},
               {"exp2(-1074)", RawDouble_exp2(-1074), kTiny},
               {"exp2(nan)", RawDouble_exp2(kNan), kNan},
               {"log2(0)", RawDouble_log2(0.0), -kInf},
               {"log2(-1)", RawDouble_log2(-1.0), kNan},
               {"log2(inf)", RawDouble_log2(kInf), kInf},
               {"log2(-inf)", RawDouble_log2(-kInf), kNan},
               {"log2(tiny)", RawDouble_log2(kTiny), -1074.0},
               {"sqrt(0)", RawDouble_sqrt(0.0), 0.0},
               {"sqrt(-1)", RawDouble_sqrt(-1.0), kNan},
               {"cbrt(-0)", RawDouble_cbrt(-0.0), -0.0},
               {"cos(inf)", RawDouble_cos(kInf), kNan},
               {"cos(nan)", RawDouble_cos(kNan), kNan},
               {"hypot(-inf, nan)", RawDouble_hypot(-kInf, kNan), kInf},
               {"hypot(0, -3)", RawDouble_hypot(0.0, -3.0), 3.0},
               {"atan2(0, 1)", RawDouble_atan2(0.0, 1.0), 0.0},
               {"atan2(-0, 0)", RawDouble_atan2(-0.0, 0.0), -0.0},
               {"atan2(0, -0)", RawDouble_atan2(0.0, -0.0), M_PI},
               {"atan2(0, -1)", RawDouble_atan2(0.0, -1.0), M_PI},
               {"atan2(-0, -1)", RawDouble_atan2(-0.0, -1.0), -M_PI},
               {"atan2(-inf, -inf)", RawDouble_atan2(-kInf, -kInf), -3 * M_PI_4},
               {"asin(1)", RawDouble_asin(1.0), M_PI_2},
               {"acos(-1)", RawDouble_acos(-1.0), M_PI},
               {"atan(-inf)", RawDouble_atan(-kInf), -M_PI_2},
               {"ulp(1)", RawDouble_ulp(1.0), 0x1p-52},
               {"ulp(0)", RawDouble_ulp(-0.0), kTiny},
               {"ulp(-inf)", RawDouble_ulp(-kInf), kInf},
               {"ulp(nan)", RawDouble_ulp(kNan), kNan},
               {"ulp(max)", RawDouble_ulp(kMax), 0x1p971}};
  for (const auto& c : cases) {
    if (std::isnan(c.expected)) {
      EXPECT_TRUE(std::isnan(c.result)) << c.name << " " << c.result;
    } else {
      EXPECT_EQ(bitsOf(c.result), bitsOf(c.expected)) << c.name << " " << c.result;
    }
  }
  EXPECT_EQ(bitsOf(RawDouble_cos(-kInf)), 0x7ff8000000000000u);
  EXPECT_EQ(bitsOf(RawDouble_log2(-kInf)), 0xfff8000000000000u);
}

// Errors in units of 2^-53, relative ones divided by |true value|.
TEST(RawDouble, ComesCloseToTheTrueValues) {
  using Wide = long double (*)(long double);
  const struct {
    const char* name;
    Unary function;
    Wide truth;
    double low, high, absolute, relative;
  } cases[] = {
      {"exp2", RawDouble_exp2, std::exp2, -1021, 1023, 0, 5},  {"exp", RawDouble_exp, std::exp, -5, 5, 0, 16},
      {"log2", RawDouble_log2, std::log2, 0.5, 2, 3, 4},       {"log2", RawDouble_log2, std::log2, 2, 1e9, 2, 2},
      {"log", RawDouble_log, std::log, 0.01, 1e6, 2, 4},       {"sqrt", RawDouble_sqrt, std::sqrt, 1e-3, 1e6, 0, 20},
      {"cbrt", RawDouble_cbrt, std::cbrt, -1e6, 1e6, 0, 20},   {"cos", RawDouble_cos, std::cos, -3.2, 3.2, 3, 0},
      {"sin", RawDouble_sin, std::sin, -3, 3, 7, 0},           {"cos", RawDouble_cos, std::cos, -300, 300, 600, 0},
      {"tan", RawDouble_tan, std::tan, -1, 1, 8, 0},           {"asin", RawDouble_asin, std::asin, -0.99, 0.99, 32, 0},
      {"acos", RawDouble_acos, std::acos, -0.99, 0.99, 32, 0}, {"atan", RawDouble_atan, std::atan, -1, 1, 0, 40},
      {"atan", RawDouble_atan, std::atan, -50, 50, 4, 0},      {"sinh", RawDouble_sinh, std::sinh, -3, 3, 4, 10},
      {"cosh", RawDouble_cosh, std::cosh, -3, 3, 0, 12},       {"tanh", RawDouble_tanh, std::tanh, -3, 3, 16, 0}};
  for (const auto& c : cases) {
    constexpr int kSteps = 20000;
    long double worst = 0, at = 0;
    for (int i = 0; i <= kSteps; ++i) {
      const double x = c.low + (c.high - c.low) * i / kSteps;
      const long double truth = c.truth(x);
      const long double allowed = (c.absolute + c.relative * std::fabs(truth)) * 0x1p-53L;
      const long double error = std::fabs(c.function(x) - truth) / allowed;
      if (!(error <= worst)) worst = error, at = x;
    }
    EXPECT_LE(worst, 1) << c.name << " at " << at;
    EXPECT_GT(worst, 0.05) << c.name << ": the limit is too wide to tell anything";
  }
}

TEST(RawDouble, Atan2AndHypotCoverAllDirections) {
  for (double radius : {1e-300, 0.01, 1.0, 3e5, 1e300}) {
    for (int i = 0; i < 720; ++i) {
      const double y = radius * std::sin(i * M_PI / 360), x = radius * std::cos(i * M_PI / 360);
      EXPECT_NEAR(RawDouble_atan2(y, x), std::atan2(y, x), 8e-16) << y << " " << x;
      EXPECT_NEAR(RawDouble_hypot(y, x) / radius, 1.0, 8e-16);
    }
  }
}

TEST(RawDouble, RoundsLikeIeeeIncludingTheSignOfZero) {
  std::mt19937_64 random(1);
  const struct {
    Unary function, truth;
  } cases[] = {{RawDouble_ceil, std::ceil}, {RawDouble_floor, std::floor}, {RawDouble_round, std::round}};
  const auto check = [&cases](double x) {
    for (const auto& c : cases) ASSERT_EQ(bitsOf(c.function(x)), bitsOf(c.truth(x))) << x;
  };
  for (double x : {0.0, 0.49999999999999994, 0.5, 1.0, 1.5, 2.5, 0.9999999999999999, kTiny, 4503599627370495.5,
                   4503599627370496.0, 4503599627370497.0, 9.3e18, kMax, kInf}) {
    check(x);
    check(-x);
  }
  for (int i = 0; i < 20000; ++i) {
    check(std::ldexp(static_cast<double>(static_cast<int64_t>(random())), -static_cast<int>(random() % 70)));
  }
  EXPECT_TRUE(std::isnan(RawDouble_floor(kNan)) && std::isnan(RawDouble_ceil(kNan)) &&
              std::isnan(RawDouble_round(kNan)));
}

TEST(RawDouble, EveryExponentWorks) {
  for (int e = -1074; e < 1024; ++e) {
    const double power = std::ldexp(1.0, e);
    ASSERT_EQ(RawDouble_exp2(e), power);
    ASSERT_EQ(RawDouble_log2(power), e);
    ASSERT_EQ(RawDouble_ulp(-power), std::nextafter(power, kInf) - power) << e;
    for (double x : {power, 1.7 * power, -1.3 * power}) {
      const double cosine = RawDouble_cos(x);  // ends, and in range
      ASSERT_LE(std::fabs(cosine), 1.0) << x;
    }
  }
  EXPECT_LE(std::fabs(RawDouble_cos(1e300)), 1.0);
  EXPECT_LE(std::fabs(RawDouble_cos(kMax)), 1.0);
}

}  // namespace
