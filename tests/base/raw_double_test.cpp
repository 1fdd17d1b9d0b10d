#include "base/raw_double.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>
#include <random>

#include "base/fixed_math.h"
#include "base/integer.h"
#include "base/soft_double.h"

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

TEST(FixedMath, FollowsTheRealFunctions) {
  for (int32_t a = -400000; a <= 400000; a += 37) {
    const double x = a / 32768.0;
    int32_t sine;
    int32_t cosine;
    mi_lsm_sincos(a, &sine, &cosine);
    ASSERT_NEAR(sine, std::sin(x) * 32768, 2.0) << a;
    ASSERT_NEAR(cosine, std::cos(x) * 32768, 2.0) << a;
    ASSERT_EQ(mi_lsm_sin(a), sine);
    ASSERT_NEAR(getCOS(a), std::cos(x) * 32768, 80.0) << a;  // steps of 1 / 4096 of the circle
    ASSERT_NEAR(mi_lsm_tanh(a), std::tanh(x) * 32768, 1.0);
    if (std::abs(cosine) < 3000) continue;
    ASSERT_NEAR(mi_lsm_tan(a), std::tan(x) * 32768, 400.0) << a;
  }
  EXPECT_NEAR(getCOS(INT32_MIN), std::cos(65536.0) * 32768, 80.0);
  for (int32_t v = 0; v <= 1024; ++v) ASSERT_NEAR(getASIN(v), std::asin(v / 1024.0) * 32768, 0.6);
  EXPECT_EQ(getASIN(1025), 0);
  EXPECT_EQ(mi_lsm_asin(32768), std::lround(std::asin(1.0) * 32768));
  EXPECT_EQ(mi_lsm_atan2(1, -1), std::lround(std::atan2(1.0, -1.0) * 32768));
  EXPECT_EQ(mi_lsm_log(65536), std::lround(std::log(2.0) * 32768));
  std::mt19937 random(3);
  for (int32_t i = 0; i < 20000; ++i) {
    const uint32_t v = random() >> (random() % 32);
    ASSERT_EQ(mi_lsm_sqrt(v), static_cast<uint32_t>(std::sqrt(static_cast<double>(v))));
    if (v == 0) continue;
    const double inverse = 4294967296.0 / std::sqrt(static_cast<double>(v));
    ASSERT_NEAR(mi_lsm_invsqrt(v), inverse, inverse * 1e-5 + 70000.0 / inverse + 2) << v;
  }
}

TEST(FixedMath, Bytes) {
  uint8_t bytes[11] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10};
  swapbo2(bytes + 1);
  swapbo8(bytes + 3);
  EXPECT_EQ(bytes[1], 2);
  EXPECT_EQ(bytes[3], 10);
  swapbo4(bytes + 3);
  EXPECT_EQ(bytes[3], 7);
  uint8_t copy[11] = {};
  bytesCopy(copy + 1, bytes + 1, 9);
  EXPECT_EQ(copy[0] | copy[10], 0);
  EXPECT_EQ(copy[9], bytes[9]);
  bytesFill(copy + 2, 0x1FF, 2);
  EXPECT_EQ(copy[3], 0xFF);
  EXPECT_EQ(copy[4], bytes[4]);
}

TEST(SoftDouble, AgreesWithTheHardware) {
  std::mt19937_64 random(9);
  const auto bits = [](double v) { return std::bit_cast<Double>(v); };
  for (int32_t i = 0; i < 2000; ++i) {
    const double a =
        std::ldexp(static_cast<double>(static_cast<int64_t>(random())), static_cast<int>(random() % 40) - 60);
    const double b =
        std::ldexp(static_cast<double>(static_cast<int64_t>(random())), static_cast<int>(random() % 40) - 60);
    EXPECT_EQ(Double_add(bits(a), bits(b)), bits(a + b));
    EXPECT_EQ(Double_sub(bits(a), bits(b)), bits(a - b));
    EXPECT_EQ(Double_mul(bits(a), bits(b)), bits(a * b));
    EXPECT_EQ(Double_div(bits(a), bits(b)), bits(a / b));
    EXPECT_EQ(Double_isLessThan(bits(a), bits(b)), a < b);
    EXPECT_NEAR(std::bit_cast<double>(Double_sqrt(bits(std::fabs(a)))), std::sqrt(std::fabs(a)),
                1e-15 * std::sqrt(std::fabs(a)));
    const auto whole = static_cast<int64_t>(random());
    const auto word = static_cast<int32_t>(whole);
    EXPECT_EQ(DoubleToInt32(Int32ToDouble(word)), word);
    EXPECT_EQ(DoubleToUint32(Uint32ToDouble(static_cast<uint32_t>(word))), static_cast<uint32_t>(word));
    EXPECT_EQ(Int64ToDouble(whole), bits(static_cast<double>(whole)));
    EXPECT_EQ(Uint64ToDouble(static_cast<uint64_t>(whole)), bits(static_cast<double>(static_cast<uint64_t>(whole))));
    EXPECT_EQ(DoubleToF32(F32ToDouble(word)), word);
  }
  EXPECT_EQ(DoubleToInt32(bits(-2.9)), -2);
  EXPECT_EQ(DoubleToInt32(bits(1e300)), INT32_MAX);
  EXPECT_EQ(DoubleToUint64(bits(-1.0)), 0u);
  EXPECT_EQ(DoubleToInt64(bits(-1e300)), INT64_MIN);
  EXPECT_EQ(Double_sqrt(bits(-4.0)), 0xFFF0000000000000u);
  EXPECT_EQ(Double_add(bits(NAN), bits(1.0)), 0x7FF0000000000001u);
  EXPECT_EQ(Double_mul(bits(1e-300), bits(1e-300)), 0u);
  EXPECT_EQ(Double_add(bits(5e-324), 0), 0u) << "a subnormal counts as zero";
  EXPECT_EQ(Double_pow(0, bits(3.0)), 0u);
  EXPECT_EQ(Double_mul2(bits(0.75)), bits(1.5));
  EXPECT_NEAR(std::bit_cast<double>(Double_pow(bits(2.0), bits(0.5))), std::sqrt(2.0), 1e-14);
  const std::pair<Double, double> functions[] = {{Double_sin(bits(1.0)), std::sin(1.0)},
                                                 {Double_cos(bits(1.0)), std::cos(1.0)},
                                                 {Double_exp(bits(1.5)), std::exp(1.5)},
                                                 {Double_log(bits(10.0)), std::log(10.0)}};
  for (const auto& [found, value] : functions) EXPECT_NEAR(std::bit_cast<double>(found), value, 2e-15);
}

TEST(Integer, IsqrtIsTheFloorOfTheRoot) {
  const auto check = [](int64_t n) {
    const int64_t root = isqrt(static_cast<int32_t>(n));
    ASSERT_TRUE(root >= 0 && root * root <= n && (root + 1) * (root + 1) > n) << n << " gives " << root;
  };
  for (int64_t root = 1; root <= 46340; ++root) {
    for (int64_t n = root * root - 1; n <= root * root + 1; ++n) check(n);
  }
  check(INT32_MAX);
  for (int32_t n : {-1, -2, -100, INT32_MIN}) EXPECT_LE(isqrt(n), 0);  // ends at least
}

}  // namespace
