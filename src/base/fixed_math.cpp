#include "base/fixed_math.h"

#include <array>
#include <bit>
#include <cstddef>
#include <limits>

#include "base/integer.h"
#include "base/raw_double.h"

namespace {

// Taylor series, for tables at compile time; |x| up to pi / 2.
constexpr double seriesSin(double x) {
  double term = x;
  double sum = x;
  for (int32_t k = 1; k < 14; ++k) {
    term *= -x * x / ((2 * k) * (2 * k + 1));
    sum += term;
  }
  return sum;
}

constexpr double kPi = 3.14159265358979323846;

// A quarter circle of the 65536-step one in steps of 16.
constexpr int32_t kQuarter = 1024;
constexpr std::array<uint16_t, kQuarter + 1> kCosine = [] {
  std::array<uint16_t, kQuarter + 1> table = {};
  for (size_t i = 0; i <= kQuarter; ++i) {
    table[i] = static_cast<uint16_t>(seriesSin(kPi / 2 * static_cast<double>(kQuarter - i) / kQuarter) * 32768 + 0.5);
  }
  return table;
}();
// Newton's steps on the sine, each entry from the one before.
constexpr std::array<uint16_t, kQuarter + 1> kArcSine = [] {
  std::array<uint16_t, kQuarter + 1> table = {};
  double angle = 0.0;
  for (size_t i = 0; i < kQuarter; ++i) {
    for (int32_t step = 0; step < 6; ++step) {
      angle -= (seriesSin(angle) - static_cast<double>(i) / kQuarter) / seriesSin(kPi / 2 - angle);
    }
    table[i] = static_cast<uint16_t>(angle * 32768 + 0.5);
  }
  table[kQuarter] = static_cast<uint16_t>(kPi / 2 * 32768 + 0.5);
  return table;
}();

// Sine in Q20, one entry per 2^17 steps of Q25: 1/256 radian.
constexpr int32_t kSineStep = 17;
constexpr int32_t kTwoPi = 210828714;  // Q25
constexpr int32_t kOnePi = 105414357;
constexpr int32_t kHalfPi = 52707328;
constexpr std::array<int32_t, (kHalfPi >> kSineStep) + 3> kSine = [] {
  std::array<int32_t, (kHalfPi >> kSineStep) + 3> table = {};
  for (size_t i = 0; i < table.size(); ++i) {
    table[i] = static_cast<int32_t>(seriesSin(static_cast<double>(i) / 256) * (1 << 20) + 0.5);
  }
  return table;
}();

// 2^32 / sqrt(2^k), where Newton's steps begin.
constexpr std::array<uint32_t, 32> kInverseRoot = [] {
  std::array<uint32_t, 32> table = {};
  double value = 4294967295.0;
  for (uint32_t& entry : table) {
    entry = static_cast<uint32_t>(value);
    value *= 0.70710678118654752440;
  }
  return table;
}();

// Sine of an angle in Q25 radians.
int32_t sineQ25(int64_t angle) {
  bool negative = angle < 0;
  int32_t a = static_cast<int32_t>((negative ? -angle : angle) % kTwoPi);
  if (a >= kOnePi) {
    a -= kOnePi;
    negative = !negative;
  }
  if (a > kHalfPi) a = kOnePi - a;
  const size_t i = static_cast<size_t>(a >> kSineStep);
  const int64_t rest = a & ((1 << kSineStep) - 1);
  const int32_t q20 = static_cast<int32_t>(kSine[i] + (((kSine[i + 1] - kSine[i]) * rest) >> kSineStep));
  const int32_t q15 = q20 >> 5;
  const int32_t sine = q15 < 32768 ? q15 : 32768;
  return negative ? -sine : sine;
}

int64_t toQ25(int32_t angle) {
  return int64_t{angle} * 1024;
}

int32_t toQ15(double value) {
  return truncToInt32(RawDouble_round(value * 32768.0));
}

template <int32_t Size>
void reverse(void* word) {
  auto* bytes = static_cast<uint8_t*>(word);
  for (int32_t i = 0; i < Size / 2; ++i) {
    const uint8_t kept = bytes[i];
    bytes[i] = bytes[Size - 1 - i];
    bytes[Size - 1 - i] = kept;
  }
}

}  // namespace

int32_t getCOS(int32_t angle) {
  // |angle| x 32 is Q20; times 2 / pi, as 0xA2F9836E / 2^32, it counts quarter circles, of which 2^14 steps each
  // remain.
  const uint64_t magnitude = static_cast<uint64_t>(angle < 0 ? -int64_t{angle} : int64_t{angle});
  const uint64_t steps = (magnitude * 0xA2F9836Eu) >> (32 - 5 + 6);  // 65536 to the circle
  const uint32_t step = static_cast<uint32_t>(steps >> 4) & 4095;    // entries, 4096 to the circle
  const uint32_t quarter = step / kQuarter;
  const uint32_t at = step % kQuarter;
  const int32_t value = (quarter & 1) == 0 ? kCosine[at] : kCosine[kQuarter - at];
  return quarter == 1 || quarter == 2 ? -value : value;
}

int32_t getASIN(int32_t v) {
  return v < 0 || v > kQuarter ? 0 : kArcSine[static_cast<size_t>(v)];
}

int32_t mi_lsm_sin(int32_t angle) {
  return sineQ25(toQ25(angle));
}

void mi_lsm_sincos(int32_t angle, int32_t* sine, int32_t* cosine) {
  *sine = sineQ25(toQ25(angle));
  *cosine = sineQ25(toQ25(angle) + kHalfPi);
}

int32_t mi_lsm_tan(int32_t angle) {
  int32_t sine;
  int32_t cosine;
  mi_lsm_sincos(angle, &sine, &cosine);
  if (cosine == 0) return sine < 0 ? std::numeric_limits<int32_t>::min() : std::numeric_limits<int32_t>::max();
  return static_cast<int32_t>(int64_t{sine} * 32768 / cosine);
}

int32_t mi_lsm_tanh(int32_t x) {
  if (x > 20 * 32768) return 32768;  // the difference is below one step
  if (x < -20 * 32768) return -32768;
  return toQ15(RawDouble_tanh(x / 32768.0));
}

int32_t mi_lsm_asin(int32_t x) {
  return toQ15(RawDouble_asin(clampInt(x, -32768, 32768) / 32768.0));
}

int32_t mi_lsm_atan2(int32_t y, int32_t x) {
  return toQ15(RawDouble_atan2(y, x));
}

int32_t mi_lsm_log(int32_t x) {
  return x <= 0 ? std::numeric_limits<int32_t>::min() : toQ15(RawDouble_log(x / 32768.0));
}

uint32_t mi_lsm_sqrt(uint32_t n) {
  if (n == 0) return 0;
  uint32_t root = 1;
  for (uint32_t rest = n; root < rest; rest >>= 1) root <<= 1;
  for (uint64_t step = (uint64_t{n / root} + root) / 2; step < root; step = (uint64_t{n / root} + root) / 2) {
    root = static_cast<uint32_t>(step);
  }
  return root;
}

uint32_t mi_lsm_invsqrt(uint32_t v) {
  if (v == 0) return 0xFFFFFFFFu;
  // g' = g (3 - v g^2) / 2, in units of 2^-32; the start is at most sqrt(2) too large.
  uint64_t g = kInverseRoot[static_cast<size_t>(std::bit_width(v) - 1)];
  for (int32_t i = 0; i < 6; ++i) {
    const uint64_t square = g * g;  // of 2^-64; its upper 32 bits are enough
    const int32_t drop = std::bit_width(square) > 32 ? std::bit_width(square) - 32 : 0;
    const uint64_t wide = (square >> drop) * v;
    const uint64_t product = drop <= 34 ? wide >> (34 - drop) : wide << (drop - 34);  // v g^2 in 2^-30
    const uint64_t factor = (uint64_t{3} << 30) - (product < (uint64_t{3} << 30) ? product : (uint64_t{3} << 30) - 1);
    g = (g * (factor >> 1)) >> 30;
    if (g == 0) g = 1;
  }
  return static_cast<uint32_t>(g < 0xFFFFFFFFu ? g : 0xFFFFFFFFu);
}

void swapbo2(void* word) {
  reverse<2>(word);
}
void swapbo4(void* word) {
  reverse<4>(word);
}
void swapbo8(void* word) {
  reverse<8>(word);
}

void bytesCopy(void* dst, const void* src, uint32_t count) {
  // Volatile, so that no compiler makes a library call of the loop.
  auto* to = static_cast<volatile uint8_t*>(dst);
  const auto* from = static_cast<const uint8_t*>(src);
  for (uint32_t i = 0; i < count; ++i) to[i] = from[i];
}

void bytesFill(void* dst, int32_t value, uint32_t count) {
  auto* to = static_cast<volatile uint8_t*>(dst);
  for (uint32_t i = 0; i < count; ++i) to[i] = static_cast<uint8_t>(value);
}
