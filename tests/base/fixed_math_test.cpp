#include "base/fixed_math.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <random>

#include "base/integer.h"
#include "base/soft_double.h"

namespace {

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
