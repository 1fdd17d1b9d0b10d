#include "fine/sampler.h"

#include <algorithm>
#include <cstring>

#include "base/integer.h"

namespace fine {
namespace {

#define ALWAYS_INLINE [[gnu::always_inline]] inline

// (a b + 2^14) >> 15, in the form that vectorisers know as one instruction.
ALWAYS_INLINE int16_t mulRound(int16_t a, int16_t b) {
  return static_cast<int16_t>((((int32_t{a} * b) >> 14) + 1) >> 1);
}

ALWAYS_INLINE int16_t add(int16_t a, int16_t b) {
  return static_cast<int16_t>(a + b);
}

// A byte less 128 with seven bits of fraction.
ALWAYS_INLINE int16_t centred(uint8_t v) {
  return static_cast<int16_t>((v - 128) * 128);
}

struct CubicTaps {
  int16_t before, here, next, after;  // Q14

  ALWAYS_INLINE explicit CubicTaps(int16_t f) {
    const int16_t f2 = mulRound(f, f);
    const int16_t f3 = mulRound(f2, f);
    // The sums wrap in between and end within -0.15 to 1 in Q15; halves of halves make Q14.
    const auto b = static_cast<int16_t>(static_cast<uint16_t>(2 * f2 - f - f3));
    const auto a = static_cast<int16_t>(f3 - f2);
    before = static_cast<int16_t>(b >> 2);
    after = static_cast<int16_t>(a >> 2);
    // (f + 4 f2 - 3 f3) / 2 = f + (f - f3 + 4 (f2 - f3) ... ) kept small: f2 - f3 is at most 4 / 27.
    const auto c = static_cast<int16_t>(4 * (f2 - f3));
    const auto d = static_cast<int16_t>(f3 >> 1);
    next = static_cast<int16_t>((static_cast<int16_t>(f >> 1) + static_cast<int16_t>(c >> 1) + d) >> 1);
    here = static_cast<int16_t>(16384 - before - next - after);
  }
};

template <int32_t Channels>
ALWAYS_INLINE void cubicRow(int16_t* __restrict out, const SampleRun& run, int32_t count) {
  const uint8_t* __restrict r0 = run.rows[0];
  const uint8_t* __restrict r1 = run.rows[1];
  const uint8_t* __restrict r2 = run.rows[2];
  const uint8_t* __restrict r3 = run.rows[3];
  const uint16_t x = run.fx, y = run.fy, dx = run.dx, dy = run.dy;
  for (int32_t j = 0; j < count * Channels; ++j) {
    const auto k = static_cast<uint16_t>(j / Channels);
    const CubicTaps tx(static_cast<int16_t>(static_cast<uint16_t>(x + k * dx)));
    const CubicTaps ty(static_cast<int16_t>(static_cast<uint16_t>(y + k * dy)));
    const auto across = [&](const uint8_t* __restrict r) {
      const int16_t left = add(mulRound(centred(r[j]), tx.before), mulRound(centred(r[j + Channels]), tx.here));
      const int16_t right =
          add(mulRound(centred(r[j + 2 * Channels]), tx.next), mulRound(centred(r[j + 3 * Channels]), tx.after));
      return static_cast<int16_t>(2 * add(left, right));
    };
    const int16_t upper = add(mulRound(across(r0), ty.before), mulRound(across(r1), ty.here));
    const int16_t lower = add(mulRound(across(r2), ty.next), mulRound(across(r3), ty.after));
    out[j] = add(upper, lower);
  }
}

template <int32_t Channels>
ALWAYS_INLINE void bilinearRow(int16_t* __restrict out, const SampleRun& run, int32_t count) {
  const uint8_t* __restrict r1 = run.rows[1] + Channels;
  const uint8_t* __restrict r2 = run.rows[2] + Channels;
  const uint16_t x = run.fx, y = run.fy, dx = run.dx, dy = run.dy;
  for (int32_t j = 0; j < count * Channels; ++j) {
    const auto k = static_cast<uint16_t>(j / Channels);
    const auto fx = static_cast<int16_t>(static_cast<uint16_t>(x + k * dx));
    const auto fy = static_cast<int16_t>(static_cast<uint16_t>(y + k * dy));
    const auto across = [&](const uint8_t* __restrict r) {  // six bits of fraction
      return static_cast<int16_t>((r[j] - 128) * 64 +
                                  mulRound(static_cast<int16_t>((r[j + Channels] - r[j]) * 64), fx));
    };
    const int16_t upper = across(r1);
    const int16_t lower = across(r2);
    out[j] = add(upper, mulRound(static_cast<int16_t>(lower - upper), fy));
  }
}

#define SAMPLER_VARIANT(suffix, target)                                             \
  target void cubic1_##suffix(int16_t* out, const SampleRun& run, int32_t count) {  \
    cubicRow<1>(out, run, count);                                                   \
  }                                                                                 \
  target void cubic2_##suffix(int16_t* out, const SampleRun& run, int32_t count) {  \
    cubicRow<2>(out, run, count);                                                   \
  }                                                                                 \
  target void linear1_##suffix(int16_t* out, const SampleRun& run, int32_t count) { \
    bilinearRow<1>(out, run, count);                                                \
  }                                                                                 \
  target void linear2_##suffix(int16_t* out, const SampleRun& run, int32_t count) { \
    bilinearRow<2>(out, run, count);                                                \
  }                                                                                 \
  constexpr Samplers kSamplers_##suffix = {                                         \
      #suffix, {cubic1_##suffix, cubic2_##suffix}, {linear1_##suffix, linear2_##suffix}};

SAMPLER_VARIANT(plain, )
#if defined(__x86_64__)
SAMPLER_VARIANT(avx2, [[gnu::target("avx2")]])
#endif

// Items from this one on, itself included, whose position has the same whole part; step less one pixel.
int32_t sameCell(int32_t fraction, int32_t drift, int32_t most) {
  if (drift == 0) return most;
  return std::min(most, drift > 0 ? (0x7fff - fraction) / drift + 1 : fraction / -drift + 1);
}

template <int32_t Channels>
void samplePiece(int16_t* out, SampleRow row, const Image& plane, MeshLine line, int32_t count) {
  const int32_t driftX = line.dx - 0x8000;
  const int32_t driftY = line.dy;
  for (int32_t k = 0; k < count;) {
    const int32_t px = line.x + k * line.dx;
    const int32_t py = line.y + k * line.dy;
    const int32_t ix = px >> 15;
    const int32_t iy = py >> 15;
    const int32_t n = sameCell(py & 0x7fff, driftY, sameCell(px & 0x7fff, driftX, count - k));
    SampleRun run;
    run.fx = static_cast<uint16_t>(px & 0x7fff);
    run.fy = static_cast<uint16_t>(py & 0x7fff);
    run.dx = static_cast<uint16_t>(driftX);
    run.dy = static_cast<uint16_t>(driftY);
    // Whole vectors where the picture has the bytes: what is too much is written again by the next run.
    constexpr int32_t kVector = 16 / Channels;
    const int32_t rounded = (n + kVector - 1) & -kVector;
    if (ix >= 1 && ix + rounded + 2 <= plane.width && iy >= 1 && iy + 2 < plane.height) {
      for (int32_t i = 0; i < 4; ++i) run.rows[i] = imageRow(&plane, iy - 1 + i) + (ix - 1) * Channels;
      row(out + k * Channels, run, rounded);
    } else {
      uint8_t rows[4][(kMeshStep + 3) * 2];
      for (int32_t i = 0; i < 4; ++i) {
        const uint8_t* from = imageRow(&plane, clampInt(iy - 1 + i, 0, plane.height - 1));
        for (int32_t x = 0; x < n + 3; ++x) {
          std::memcpy(rows[i] + x * Channels, from + clampInt(ix - 1 + x, 0, plane.width - 1) * Channels, Channels);
        }
        run.rows[i] = rows[i];
      }
      row(out + k * Channels, run, n);
    }
    k += n;
  }
}

}  // namespace

const Samplers* samplersAt(int32_t index) {
  if (index == 0) return &kSamplers_plain;
#if defined(__x86_64__)
  if (index == 1 && __builtin_cpu_supports("avx2")) return &kSamplers_avx2;
#endif
  return nullptr;
}

const Samplers* samplersBest() {
  const Samplers* best = samplersAt(0);
  for (int32_t i = 1; samplersAt(i) != nullptr; ++i) best = samplersAt(i);
  return best;
}

void sampleLine(int16_t* out, const Samplers& samplers, const Image& image, const MeshLine& line, int32_t count) {
  samplePiece<1>(out, samplers.bilinear[0], image, line, count);
}

void sampleRow(int16_t* out, const Samplers& samplers, bool cubic, const Image& image, const Mesh& mesh, int32_t y,
               int32_t width) {
  const int32_t channels = image.format == IMAGE_UINT88 ? 2 : 1;
  const SampleRow row = cubic ? samplers.cubic[channels - 1] : samplers.bilinear[channels - 1];
  for (int32_t i = 0; i * kMeshStep < width; ++i) {
    const int32_t at = i * kMeshStep;
    const int32_t count = std::min(kMeshStep, width - at);
    if (channels == 1) {
      samplePiece<1>(out + at, row, image, lumaLine(mesh, i, y), count);
    } else {
      samplePiece<2>(out + 2 * at, row, image, lumaLine(mesh, i, y), count);
    }
  }
}

void sampleChroma(int16_t* out, const Samplers& samplers, bool cubic, const Image& pairs, const Mesh& mesh, int32_t y,
                  int32_t width) {
  const SampleRow row = cubic ? samplers.cubic[1] : samplers.bilinear[1];
  constexpr int32_t kStep = kMeshStep / 2;
  for (int32_t i = 0; i * kStep < width; ++i) {
    const int32_t at = i * kStep;
    samplePiece<2>(out + 2 * at, row, pairs, chromaLine(mesh, i, y), std::min(kStep, width - at));
  }
}

void sampleWindowRow(int16_t* out, const Samplers& samplers, const Image& image, const Mesh& mesh, int32_t x, int32_t y,
                     int32_t count, bool chroma) {
  const int32_t step = chroma ? kMeshStep / 2 : kMeshStep;
  const int32_t i = x / step;
  MeshLine line = chroma ? chromaLine(mesh, i, y) : lumaLine(mesh, i, y);
  line.x += (x - i * step) * line.dx;
  line.y += (x - i * step) * line.dy;
  if (image.format == IMAGE_UINT88) {
    samplePiece<2>(out, samplers.cubic[1], image, line, count);
  } else {
    samplePiece<1>(out, samplers.cubic[0], image, line, count);
  }
}

}  // namespace fine
