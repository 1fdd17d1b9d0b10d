#include "fine/sampler.h"

#include <algorithm>
#include <cstring>

#include "base/integer.h"
#include "fine/lanes.h"

namespace fine {
namespace {

// A byte less 128 with seven bits of fraction.
ALWAYS_INLINE int16_t centred(uint8_t v) {
  return static_cast<int16_t>((v - 128) * 128);
}

// A run of kItems samples, of one or two interleaved channels. rows: the four source rows, at the tap left of the first
// sample's. Fractions Q15, steps Q15 less one pixel.
constexpr int32_t kItems = kMeshStep;
struct SampleRun {
  const uint8_t* rows[4];
  uint16_t fx;
  uint16_t fy;
  uint16_t dx;
  uint16_t dy;
};

// The filter runs in stages over arrays of one run's length, each stage a loop of known length over 16-bit values: told
// ranges through registers, g++ 12 would widen the products to 32 bits.

// The taps of the samples' fractions, Q14.
struct CubicTaps {
  alignas(64) int16_t before[kItems];
  alignas(64) int16_t here[kItems];
  alignas(64) int16_t next[kItems];
  alignas(64) int16_t after[kItems];
};

template <int32_t Channels>
ALWAYS_INLINE void fillTaps(CubicTaps* __restrict taps, uint16_t first, uint16_t step) {
  alignas(64) int16_t fraction[kItems], square[kItems], cube[kItems];
  for (int32_t j = 0; j < kItems; ++j) {
    fraction[j] = static_cast<int16_t>(static_cast<uint16_t>(first + static_cast<uint16_t>(j / Channels) * step));
  }
  for (int32_t j = 0; j < kItems; ++j) square[j] = mulRound(fraction[j], fraction[j]);
  for (int32_t j = 0; j < kItems; ++j) cube[j] = mulRound(square[j], fraction[j]);
  for (int32_t j = 0; j < kItems; ++j) {
    const int16_t f = fraction[j], f2 = square[j], f3 = cube[j];
    // The sums wrap in between and end within -0.15 to 1 in Q15; halves of halves make Q14.
    const auto b = static_cast<int16_t>(static_cast<uint16_t>(2 * f2 - f - f3));
    const auto a = static_cast<int16_t>(f3 - f2);
    const auto before = static_cast<int16_t>(b >> 2);
    const auto after = static_cast<int16_t>(a >> 2);
    // (f + 4 f2 - 3 f3) / 2 = f / 2 + 2 (f2 - f3) + f3 / 2, each kept small: f2 - f3 is at most 4 / 27.
    const auto c = static_cast<int16_t>(4 * (f2 - f3));
    const auto d = static_cast<int16_t>(f3 >> 1);
    // Not below 0, and as much as 1.
    const auto next = static_cast<int16_t>(static_cast<uint16_t>((f >> 1) + (c >> 1) + d) >> 1);
    taps->before[j] = before;
    taps->after[j] = after;
    taps->next[j] = next;
    taps->here[j] = static_cast<int16_t>(16384 - before - next - after);
  }
}

template <int32_t Channels>
ALWAYS_INLINE void cubicRow(int16_t* __restrict out, const SampleRun& run) {
  constexpr int32_t kRead = kItems + 3 * Channels;
  alignas(64) int16_t rows[4][kItems + 32];
  for (int32_t i = 0; i < 4; ++i) {
    const uint8_t* __restrict from = run.rows[i];
    for (int32_t j = 0; j < kRead; ++j) rows[i][j] = centred(from[j]);
  }
  CubicTaps x, y;
  fillTaps<Channels>(&x, run.fx, run.dx);
  fillTaps<Channels>(&y, run.fy, run.dy);
  alignas(64) int16_t across[4][kItems];
  for (int32_t i = 0; i < 4; ++i) {
    const int16_t* __restrict r = rows[i];
    for (int32_t j = 0; j < kItems; ++j) {
      const int16_t left = add(mulRound(r[j], x.before[j]), mulRound(r[j + Channels], x.here[j]));
      const int16_t right = add(mulRound(r[j + 2 * Channels], x.next[j]), mulRound(r[j + 3 * Channels], x.after[j]));
      const int16_t sum = add(left, right);
      across[i][j] = add(sum, sum);
    }
  }
  for (int32_t j = 0; j < kItems; ++j) {
    const int16_t upper = add(mulRound(across[0][j], y.before[j]), mulRound(across[1][j], y.here[j]));
    const int16_t lower = add(mulRound(across[2][j], y.next[j]), mulRound(across[3][j], y.after[j]));
    out[j] = add(upper, lower);
  }
}

constexpr CpuRow<cubicRow<1>> kCubicRow1;
constexpr CpuRow<cubicRow<2>> kCubicRow2;

// Items from this one on, itself included, whose position has the same whole part; step less one pixel.
int32_t sameCell(int32_t fraction, int32_t drift, int32_t most) {
  if (drift == 0) return most;
  return std::min(most, drift > 0 ? (0x7fff - fraction) / drift + 1 : fraction / -drift + 1);
}

template <int32_t Channels>
void samplePiece(int16_t* out, const Image& plane, MeshLine line, int32_t count) {
  constexpr int32_t kRun = kItems / Channels;
  const auto sample = [](int16_t* to, const SampleRun& run) {
    if constexpr (Channels == 1) {
      kCubicRow1(to, run);
    } else {
      kCubicRow2(to, run);
    }
  };
  const int32_t driftX = line.dx - 0x8000;
  const int32_t driftY = line.dy;
  for (int32_t k = 0; k < count;) {
    const int32_t px = line.x + k * line.dx;
    const int32_t py = line.y + k * line.dy;
    const int32_t ix = px >> 15;
    const int32_t iy = py >> 15;
    const int32_t n = sameCell(py & 0x7fff, driftY, sameCell(px & 0x7fff, driftX, std::min(kRun, count - k)));
    SampleRun run;
    run.fx = static_cast<uint16_t>(px & 0x7fff);
    run.fy = static_cast<uint16_t>(py & 0x7fff);
    run.dx = static_cast<uint16_t>(driftX);
    run.dy = static_cast<uint16_t>(driftY);
    // Whole runs where the picture has the bytes: what is too much is written again by the next run.
    if (ix >= 1 && ix + kRun + 2 <= plane.width && iy >= 1 && iy + 2 < plane.height) {
      for (int32_t i = 0; i < 4; ++i) run.rows[i] = imageRow(&plane, iy - 1 + i) + (ix - 1) * Channels;
      sample(out + k * Channels, run);
    } else {
      uint8_t rows[4][kItems + 3 * Channels] = {};
      for (int32_t i = 0; i < 4; ++i) {
        const uint8_t* from = imageRow(&plane, clampInt(iy - 1 + i, 0, plane.height - 1));
        for (int32_t x = 0; x < n + 3; ++x) {
          std::memcpy(rows[i] + x * Channels, from + clampInt(ix - 1 + x, 0, plane.width - 1) * Channels, Channels);
        }
        run.rows[i] = rows[i];
      }
      sample(out + k * Channels, run);
    }
    k += n;
  }
}

}  // namespace

void sampleRow(int16_t* out, const Image& image, const Mesh& mesh, int32_t y, int32_t width) {
  const bool pairs = image.format == IMAGE_UINT88;
  for (int32_t i = 0; i * kMeshStep < width; ++i) {
    const int32_t at = i * kMeshStep;
    const int32_t count = std::min(kMeshStep, width - at);
    if (pairs) {
      samplePiece<2>(out + 2 * at, image, lumaLine(mesh, i, y), count);
    } else {
      samplePiece<1>(out + at, image, lumaLine(mesh, i, y), count);
    }
  }
}

void sampleChroma(int16_t* out, const Image& pairs, const Mesh& mesh, int32_t y, int32_t width) {
  constexpr int32_t kStep = kMeshStep / 2;
  for (int32_t i = 0; i * kStep < width; ++i) {
    const int32_t at = i * kStep;
    samplePiece<2>(out + 2 * at, pairs, chromaLine(mesh, i, y), std::min(kStep, width - at));
  }
}

void sampleWindowRow(int16_t* out, const Image& image, const Mesh& mesh, int32_t x, int32_t y, int32_t count,
                     bool chroma) {
  const int32_t step = chroma ? kMeshStep / 2 : kMeshStep;
  const int32_t i = x / step;
  MeshLine line = chroma ? chromaLine(mesh, i, y) : lumaLine(mesh, i, y);
  line.x += (x - i * step) * line.dx;
  line.y += (x - i * step) * line.dy;
  if (image.format == IMAGE_UINT88) {
    samplePiece<2>(out, image, line, count);
  } else {
    samplePiece<1>(out, image, line, count);
  }
}

}  // namespace fine
