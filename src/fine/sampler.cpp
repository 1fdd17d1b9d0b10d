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

// Items from this one on, itself included, whose position has the same whole part; step less one pixel.
ALWAYS_INLINE int32_t sameCell(int32_t fraction, int32_t drift, int32_t most) {
  if (drift == 0) return most;
  return std::min(most, drift > 0 ? (0x7fff - fraction) / drift + 1 : fraction / -drift + 1);
}

// Four rows of so many pixels from (x, y) on, the picture's edge going on beyond it.
template <int32_t Channels>
ALWAYS_INLINE void copyInside(uint8_t (*copy)[kItems + 3 * Channels + 32], const Image& plane, int32_t x, int32_t y,
                              int32_t count) {
  for (int32_t j = 0; j < 4; ++j) {
    const uint8_t* from = plane.plane0 + ptrdiff_t{clampInt(y + j, 0, plane.height - 1)} * plane.pitch0;
    std::fill_n(copy[j], sizeof(copy[j]), uint8_t{0});
    for (int32_t i = 0; i < count; ++i) {
      std::memcpy(copy[j] + i * Channels, from + clampInt(x + i, 0, plane.width - 1) * Channels, Channels);
    }
  }
}

// Samples of a row, count in all, in cells of cell samples each.
template <int32_t Channels>
ALWAYS_INLINE void sampleCells(int16_t* __restrict out, const Image& plane, const MeshRow& row, int32_t cell,
                               int32_t count) {
  constexpr int32_t kRun = kItems / Channels;
  for (int32_t begin = 0; begin < count; begin += cell) {
    const int32_t i = begin / cell;
    const int32_t end = std::min(begin + cell, count);
    const int32_t stepX = row.step[2 * i];
    const int32_t stepY = row.step[2 * i + 1];
    const int32_t driftX = stepX - 0x8000;
    for (int32_t k = begin; k < end;) {
      const int32_t px = row.at[2 * i] + (k - begin) * stepX;
      const int32_t py = row.at[2 * i + 1] + (k - begin) * stepY;
      const int32_t ix = px >> 15;
      const int32_t iy = py >> 15;
      SampleRun run;
      run.fx = static_cast<uint16_t>(px & 0x7fff);
      run.fy = static_cast<uint16_t>(py & 0x7fff);
      run.dx = static_cast<uint16_t>(driftX);
      run.dy = static_cast<uint16_t>(stepY);
      int32_t n = std::min(kRun, end - k);
      // Most often the run's last sample lies in the same pixel row, as far from its first as it would unscaled.
      if ((((run.fx + (n - 1) * driftX) | (run.fy + (n - 1) * stepY)) & ~0x7fff) != 0) {
        n = sameCell(run.fy, stepY, sameCell(run.fx, driftX, n));
      }
      uint8_t copy[4][kItems + 3 * Channels + 32];
      // Whole runs where the picture has the bytes: what is too much is written again by the next run.
      if (ix >= 1 && ix + kRun + 2 <= plane.width && iy >= 1 && iy + 2 < plane.height) {
        const uint8_t* from = plane.plane0 + ptrdiff_t{iy - 1} * plane.pitch0 + (ix - 1) * Channels;
        for (int32_t j = 0; j < 4; ++j) run.rows[j] = from + ptrdiff_t{j} * plane.pitch0;
      } else {
        copyInside<Channels>(copy, plane, ix - 1, iy - 1, n + 3);
        for (int32_t j = 0; j < 4; ++j) run.rows[j] = copy[j];
      }
      cubicRow<Channels>(out + k * Channels, run);
      k += n;
    }
  }
}
constexpr CpuRow<sampleCells<1>> kSampleCells1;
constexpr CpuRow<sampleCells<2>> kSampleCells2;

void sampleLines(int16_t* out, const Image& image, const MeshRow& row, int32_t cell, int32_t count) {
  if (image.format == IMAGE_UINT88) {
    kSampleCells2(out, image, row, cell, count);
  } else {
    kSampleCells1(out, image, row, cell, count);
  }
}

// A row of the result, of count samples: lumaLines or chromaLines.
template <auto Lines, int32_t Cell>
void sampleWholeRow(int16_t* out, const Image& image, const Mesh& mesh, int32_t y, int32_t count) {
  constexpr int32_t kMost = kMeshRowCells * Cell;
  const int32_t channels = image.format == IMAGE_UINT88 ? 2 : 1;
  for (int32_t begin = 0; begin < count; begin += kMost) {
    const int32_t here = std::min(kMost, count - begin);
    MeshRow row;
    Lines(&row, mesh, begin / Cell, (here + Cell - 1) / Cell, y);
    sampleLines(out + begin * channels, image, row, Cell, here);
  }
}

}  // namespace

void sampleRow(int16_t* out, const Image& image, const Mesh& mesh, int32_t y, int32_t width) {
  sampleWholeRow<lumaLines, kMeshStep>(out, image, mesh, y, width);
}

void sampleChroma(int16_t* out, const Image& pairs, const Mesh& mesh, int32_t y, int32_t width) {
  sampleWholeRow<chromaLines, kMeshStep / 2>(out, pairs, mesh, y, width);
}

void sampleWindowRow(int16_t* out, const Image& image, const Mesh& mesh, int32_t x, int32_t y, int32_t count,
                     bool chroma) {
  const int32_t step = chroma ? kMeshStep / 2 : kMeshStep;
  const int32_t i = x / step;
  MeshRow row;
  (chroma ? chromaLines : lumaLines)(&row, mesh, i, 1, y);
  for (int32_t k = 0; k < 2; ++k) row.at[k] += (x - i * step) * row.step[k];
  sampleLines(out, image, row, step, count);
}

}  // namespace fine
