#include "fine/dct_shrink.h"

namespace fine {
namespace {

#define ALWAYS_INLINE [[gnu::always_inline]] inline

ALWAYS_INLINE int16_t mulRound(int16_t a, int16_t b) {
  return static_cast<int16_t>((((int32_t{a} * b) >> 14) + 1) >> 1);
}
ALWAYS_INLINE int16_t add(int16_t a, int16_t b) {
  return static_cast<int16_t>(a + b);
}
ALWAYS_INLINE int16_t sub(int16_t a, int16_t b) {
  return static_cast<int16_t>(a - b);
}

// cos(k pi / 16) / 2 and 1 / sqrt(8), Q15.
constexpr int16_t kC1 = 16069, kC2 = 15137, kC3 = 13623, kC4 = 11585, kC5 = 9102, kC6 = 6270, kC7 = 3196;
// sin^2((i + 0.5) pi / 8), Q15: item i and item i + 4 add up to 32768.
constexpr int16_t kWindow[8] = {1247, 10114, 22654, 31521, 31521, 22654, 10114, 1247};

ALWAYS_INLINE void forward(const int16_t* x, int16_t* f) {
  const int16_t s0 = add(x[0], x[7]), s1 = add(x[1], x[6]), s2 = add(x[2], x[5]), s3 = add(x[3], x[4]);
  const int16_t d0 = sub(x[0], x[7]), d1 = sub(x[1], x[6]), d2 = sub(x[2], x[5]), d3 = sub(x[3], x[4]);
  const int16_t e0 = add(s0, s3), e1 = add(s1, s2), e2 = sub(s0, s3), e3 = sub(s1, s2);
  f[0] = mulRound(add(e0, e1), kC4);
  f[4] = mulRound(sub(e0, e1), kC4);
  f[2] = add(mulRound(e2, kC2), mulRound(e3, kC6));
  f[6] = sub(mulRound(e2, kC6), mulRound(e3, kC2));
  f[1] = add(add(mulRound(d0, kC1), mulRound(d1, kC3)), add(mulRound(d2, kC5), mulRound(d3, kC7)));
  f[3] = sub(sub(mulRound(d0, kC3), mulRound(d1, kC7)), add(mulRound(d2, kC1), mulRound(d3, kC5)));
  f[5] = add(sub(mulRound(d0, kC5), mulRound(d1, kC1)), add(mulRound(d2, kC7), mulRound(d3, kC3)));
  f[7] = sub(add(mulRound(d0, kC7), mulRound(d2, kC3)), add(mulRound(d1, kC5), mulRound(d3, kC1)));
}

ALWAYS_INLINE void inverse(const int16_t* f, int16_t* x) {
  const int16_t p0 = mulRound(f[0], kC4), p4 = mulRound(f[4], kC4);
  const int16_t e0 = add(p0, p4), e1 = sub(p0, p4);
  const int16_t e2 = add(mulRound(f[2], kC2), mulRound(f[6], kC6));
  const int16_t e3 = sub(mulRound(f[2], kC6), mulRound(f[6], kC2));
  const int16_t s0 = add(e0, e2), s1 = add(e1, e3), s2 = sub(e1, e3), s3 = sub(e0, e2);
  const int16_t d0 = add(add(mulRound(f[1], kC1), mulRound(f[3], kC3)), add(mulRound(f[5], kC5), mulRound(f[7], kC7)));
  const int16_t d1 = sub(sub(mulRound(f[1], kC3), mulRound(f[3], kC7)), add(mulRound(f[5], kC1), mulRound(f[7], kC5)));
  const int16_t d2 = add(sub(mulRound(f[1], kC5), mulRound(f[3], kC1)), add(mulRound(f[5], kC7), mulRound(f[7], kC3)));
  const int16_t d3 = sub(add(mulRound(f[1], kC7), mulRound(f[5], kC3)), add(mulRound(f[3], kC5), mulRound(f[7], kC1)));
  x[0] = add(s0, d0);
  x[1] = add(s1, d1);
  x[2] = add(s2, d2);
  x[3] = add(s3, d3);
  x[4] = sub(s3, d3);
  x[5] = sub(s2, d2);
  x[6] = sub(s1, d1);
  x[7] = sub(s0, d0);
}

ALWAYS_INLINE int16_t shrink(int16_t c, int16_t threshold, int16_t gain) {
  const auto size = static_cast<int16_t>(c < 0 ? -c : c);
  const auto over = static_cast<int16_t>(size > threshold ? size - threshold : 0);
  const auto twice = static_cast<int16_t>(over < 16383 ? 2 * over : 32767);
  const int16_t kept = twice < size ? twice : size;
  const int16_t strong = add(kept, mulRound(kept, gain));
  return static_cast<int16_t>(c < 0 ? -strong : strong);
}

// Eight rows of coefficients down the columns.
ALWAYS_INLINE void columns(int16_t* __restrict v, const int16_t* __restrict in, int32_t stride) {
  for (int32_t x = 0; x < stride; ++x) {
    int16_t p[8], f[8];
    for (int32_t i = 0; i < 8; ++i) p[i] = in[i * stride + x];
    forward(p, f);
    for (int32_t i = 0; i < 8; ++i) v[i * stride + x] = f[i];
  }
}

// One row of coefficients across, its four phases in planes of n + 1 items each.
ALWAYS_INLINE void across(int16_t* __restrict sum, const int16_t* __restrict phase, const int16_t* __restrict sigma,
                          const int16_t* __restrict threshold, const int16_t* __restrict gain, bool keepMean, int32_t n,
                          int32_t pitch, int16_t* __restrict late) {
  for (int32_t b = 0; b < n; ++b) {
    int16_t x[8], f[8];
    for (int32_t i = 0; i < 4; ++i) {
      x[i] = phase[i * pitch + b];
      x[4 + i] = phase[i * pitch + b + 1];
    }
    forward(x, f);
    const int16_t mean = f[0];
    for (int32_t i = 0; i < 8; ++i) f[i] = shrink(f[i], mulRound(sigma[b], threshold[i]), gain[i]);
    f[0] = keepMean ? mean : f[0];
    inverse(f, x);
    for (int32_t i = 0; i < 4; ++i) {
      sum[i * pitch + b] = mulRound(x[i], kWindow[i]);
      late[i * pitch + b] = mulRound(x[4 + i], kWindow[4 + i]);
    }
  }
}

ALWAYS_INLINE void shrinkBlocks(int16_t* __restrict out, const int16_t* __restrict in, const int16_t* __restrict sigma,
                                const ShrinkTable& table, int32_t width, int16_t* __restrict scratch) {
  const int32_t stride = dctStride(width);
  const int32_t pitch = stride / 4;
  const int32_t blocks = pitch - 1;
  int16_t* __restrict v = scratch;             // 8 rows of coefficients
  int16_t* __restrict phase = v + 8 * stride;  // 4 x pitch
  int16_t* __restrict early = phase + stride;  // 4 x pitch: the left halves of the results
  int16_t* __restrict late = early + stride;   // the right halves
  columns(v, in, stride);
  for (int32_t k = 0; k < 8; ++k) {
    int16_t* __restrict row = v + k * stride;
    for (int32_t b = 0; b < pitch; ++b) {
      for (int32_t i = 0; i < 4; ++i) phase[i * pitch + b] = row[4 * b + i];
    }
    across(early, phase, sigma, table.threshold[k], table.gain[k], k == 0, blocks, pitch, late);
    for (int32_t i = 0; i < 4; ++i) early[i * pitch + blocks] = 0;
    for (int32_t i = 0; i < 4; ++i) row[i] = early[i * pitch];
    for (int32_t b = 1; b < pitch; ++b) {
      for (int32_t i = 0; i < 4; ++i) row[4 * b + i] = add(early[i * pitch + b], late[i * pitch + b - 1]);
    }
  }
  for (int32_t x = 0; x < stride; ++x) {
    int16_t f[8], p[8];
    for (int32_t i = 0; i < 8; ++i) f[i] = v[i * stride + x];
    inverse(f, p);
    for (int32_t i = 0; i < 8; ++i) out[i * stride + x] = add(out[i * stride + x], mulRound(p[i], kWindow[i]));
  }
}

#define DCT_VARIANT(suffix, target)                                                                            \
  target void shrink_##suffix(int16_t* out, const int16_t* in, const int16_t* sigma, const ShrinkTable& table, \
                              int32_t width, int16_t* scratch) {                                               \
    shrinkBlocks(out, in, sigma, table, width, scratch);                                                       \
  }                                                                                                            \
  constexpr DctRows kDctRows_##suffix = {#suffix, shrink_##suffix};

DCT_VARIANT(plain, )
#if defined(__x86_64__)
DCT_VARIANT(avx2, [[gnu::target("avx2")]])
#endif

}  // namespace

const DctRows* dctRowsAt(int32_t index) {
  if (index == 0) return &kDctRows_plain;
#if defined(__x86_64__)
  if (index == 1 && __builtin_cpu_supports("avx2")) return &kDctRows_avx2;
#endif
  return nullptr;
}

const DctRows* dctRowsBest() {
  const DctRows* best = dctRowsAt(0);
  for (int32_t i = 1; dctRowsAt(i) != nullptr; ++i) best = dctRowsAt(i);
  return best;
}

}  // namespace fine
