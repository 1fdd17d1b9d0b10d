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

struct Case {
  const char* name;
  double result, expected;  // NaN: any NaN
};

void expectBits(const Case& c) {
  if (std::isnan(c.expected)) {
    EXPECT_TRUE(std::isnan(c.result)) << c.name << " " << c.result;
  } else {
    EXPECT_EQ(std::bit_cast<uint64_t>(c.result), std::bit_cast<uint64_t>(c.expected)) << c.name << " " << c.result;
  }
}

// Values of the same formulas, evaluated outside this library in IEEE doubles: any other order of operations, a fused
// multiply-add or a digit of a coefficient shows here.
TEST(RawDouble, GivesTheSameBitsEverywhere) {
  const Case cases[] = {{"exp2", RawDouble_exp2(0.7), 0x1.9fdf8bcce533cp+0},
                        {"log2", RawDouble_log2(3.0), 0x1.95c01a39fbd69p+0},
                        {"log2", RawDouble_log2(1e-310), -0x1.01730dabca5f6p+10},
                        {"log2 below the halving", RawDouble_log2(0x1.6a09e667f3bccp+0), 0x1.ffffffffffffdp-2},
                        {"log2 above the halving", RawDouble_log2(0x1.6a09e667f3bcfp+0), 0x1.0000000000006p-1},
                        {"exp", RawDouble_exp(1.5), 0x1.1ed3fe64fc53fp+2},
                        {"log", RawDouble_log(10.0), 0x1.26bb1bbb55515p+1},
                        {"sqrt", RawDouble_sqrt(3.0), 0x1.bb67ae8584cabp+0},
                        {"cbrt", RawDouble_cbrt(-5.0), -0x1.b5c0fbcfec4d3p+0},
                        {"cos", RawDouble_cos(1000.0), 0x1.1ff026793f138p-1},
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
                        {"atan2", RawDouble_atan2(-5.0, 2.0), -0x1.30b6d796a4da8p+0},
                        // Special values.
                        {"exp2(1024)", RawDouble_exp2(1024), kInf},
                        {"exp2(-1074.9)", RawDouble_exp2(-1074.9), kTiny},
                        {"log2(0)", RawDouble_log2(0.0), -kInf},
                        {"log2(-1)", RawDouble_log2(-1.0), kNan},
                        {"log2(-inf)", RawDouble_log2(-kInf), kNan},
                        {"cos(-inf)", RawDouble_cos(-kInf), kNan},
                        {"hypot(-inf, nan)", RawDouble_hypot(-kInf, kNan), kInf},
                        {"atan2(0, -0)", RawDouble_atan2(0.0, -0.0), M_PI},
                        {"atan2(0, -1)", RawDouble_atan2(0.0, -1.0), M_PI},
                        {"atan2(-0, -1)", RawDouble_atan2(-0.0, -1.0), -M_PI},
                        {"atan2(-inf, -inf)", RawDouble_atan2(-kInf, -kInf), -3 * M_PI_4},
                        {"acos(-1)", RawDouble_acos(-1.0), M_PI},
                        {"floor(nan)", RawDouble_floor(kNan), kNan}};
  for (const Case& c : cases) expectBits(c);
}

// Errors in units of 2^-53, relative ones divided by |true value|.
TEST(RawDouble, ComesCloseToTheTrueValues) {
  const struct {
    double (*function)(double);
    long double (*truth)(long double);
    double low, high, absolute, relative;
  } cases[] = {{RawDouble_exp2, std::exp2, -1021, 1023, 0, 5}, {RawDouble_log2, std::log2, 0.5, 2, 3, 4},
               {RawDouble_log2, std::log2, 2, 1e9, 2, 2},      {RawDouble_sin, std::sin, -3, 3, 7, 0},
               {RawDouble_cos, std::cos, -300, 300, 600, 0},   {RawDouble_acos, std::acos, -0.99, 0.99, 32, 0},
               {RawDouble_atan, std::atan, -1, 1, 0, 40},      {RawDouble_atan, std::atan, -50, 50, 4, 0}};
  for (const auto& c : cases) {
    for (int i = 0; i <= 20000; ++i) {
      const double x = c.low + (c.high - c.low) * i / 20000;
      const long double truth = c.truth(x);
      ASSERT_LE(std::fabs(c.function(x) - truth), (c.absolute + c.relative * std::fabs(truth)) * 0x1p-53L)
          << &c - cases << " at " << x;
    }
  }
  for (int i = 0; i < 720; ++i) {
    const double y = std::sin(i * M_PI / 360), x = std::cos(i * M_PI / 360);
    EXPECT_NEAR(RawDouble_atan2(y, x), std::atan2(y, x), 8e-16) << y << " " << x;
    EXPECT_NEAR(RawDouble_hypot(1e300 * y, 1e300 * x) / 1e300, 1.0, 8e-16);
  }
}

TEST(RawDouble, RoundsLikeIeeeIncludingTheSignOfZero) {
  std::mt19937_64 random(1);
  const auto check = [](double x) {
    expectBits({"ceil", RawDouble_ceil(x), std::ceil(x)});
    expectBits({"floor", RawDouble_floor(x), std::floor(x)});
    expectBits({"round", RawDouble_round(x), std::round(x)});
  };
  for (double x : {0.0, 0.49999999999999994, 0.5, 1.0, 1.5, 2.5, 0.9999999999999999, kTiny, 4503599627370495.5,
                   4503599627370497.0, kMax, kInf}) {
    check(x);
    check(-x);
  }
  for (int i = 0; i < 20000; ++i) {
    check(std::ldexp(static_cast<double>(static_cast<int64_t>(random())), -static_cast<int>(random() % 70)));
  }
}

TEST(RawDouble, EveryExponentWorks) {
  for (int e = -1074; e < 1024; ++e) {
    const double power = std::ldexp(1.0, e);
    ASSERT_EQ(RawDouble_exp2(e), power);
    ASSERT_EQ(RawDouble_log2(power), e);
    ASSERT_EQ(RawDouble_ulp(-power), std::nextafter(power, kInf) - power) << e;
    ASSERT_LE(std::fabs(RawDouble_cos(1.7 * power)), 1.0) << e;  // ends, and in range
  }
}

}  // namespace
