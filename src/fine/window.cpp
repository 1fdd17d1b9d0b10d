#include "fine/window.h"

#include "base/cpu_level.h"

namespace fine {
namespace {

// A row of the window on its way, fractions in 1/256, and all its samples, then residuals.
struct Scratch {
  alignas(64) uint16_t fx[kMostWindow];
  alignas(64) uint16_t fy[kMostWindow];
  alignas(64) uint16_t upper[kMostWindow];
  alignas(64) uint16_t lower[kMostWindow];
  alignas(64) int16_t difference8[kMostWindow];  // lower - upper, 8 times: at most 32640
  alignas(64) int16_t fy32[kMostWindow];
  alignas(64) int16_t samples[kMostWindow * kMostWindow];
};

template <int32_t Size>
ALWAYS_INLINE void fillFractions(uint16_t* __restrict out, int32_t p, const uint16_t* __restrict ramp) {
  const auto low = static_cast<uint16_t>(p);
  for (int32_t i = 0; i < Size; ++i) {
    const auto at = static_cast<uint16_t>(low + ramp[i]);
    out[i] = static_cast<uint16_t>(at >> 8);
  }
}

template <int32_t Size>
ALWAYS_INLINE void across(uint16_t* __restrict out, const uint8_t* __restrict in, const uint16_t* __restrict fx) {
  for (int32_t i = 0; i < Size; ++i) {
    const uint16_t x = fx[i];
    const auto rest = static_cast<uint16_t>(256 - x);
    const auto sum = static_cast<uint16_t>(in[i] * rest + in[i + 1] * x);
    out[i] = static_cast<uint16_t>(sum >> 4);
  }
}

// A share of a difference, rounded down. Both come from arrays, not from the loop that makes them: seeing how they are
// made, g++ 12 takes the upper half of their product as unsigned, which is wrong.
ALWAYS_INLINE int16_t shareOf(int16_t difference8, int16_t fy32) {
  return static_cast<int16_t>((int32_t{difference8} * fy32) >> 16);
}

struct SampleRun {
  const uint8_t* upper;  // of sample 0, were the run to begin there
  ptrdiff_t pitch;
  int32_t begin;
  int32_t end;
};

// Samples of a run and whatever follows it to the end of the row, which later runs write over.
template <int32_t Size>
ALWAYS_INLINE void sampleWhole(int16_t* __restrict out, Scratch* __restrict row, const SampleRun& run) {
  across<Size>(row->upper, run.upper, row->fx);
  across<Size>(row->lower, run.upper + run.pitch, row->fx);
  const auto begin = static_cast<int16_t>(run.begin);
  for (int32_t i = 0; i < Size; ++i) {
    row->difference8[i] = static_cast<int16_t>((row->lower[i] - row->upper[i]) * 8);
    row->fy32[i] = static_cast<int16_t>(row->fy[i] * 32);
  }
  for (int32_t i = 0; i < Size; ++i) {
    const auto s = static_cast<int16_t>(row->upper[i] + shareOf(row->difference8[i], row->fy32[i]));
    out[i] = static_cast<int16_t>(i) >= begin ? s : out[i];
  }
}

// The run alone, where a whole row would read beyond the frame.
ALWAYS_INLINE void sampleRun(int16_t* __restrict out, const Scratch& row, const SampleRun& run) {
  for (int32_t i = run.begin; i < run.end; ++i) {
    const uint8_t* const upper = run.upper + i;
    const uint8_t* const lower = upper + run.pitch;
    const int32_t x = row.fx[i];
    const int32_t u = (upper[0] * (256 - x) + upper[1] * x) >> 4;
    const int32_t l = (lower[0] * (256 - x) + lower[1] * x) >> 4;
    out[i] = static_cast<int16_t>(u + (((l - u) * row.fy[i]) >> 8));
  }
}

struct Lattice {
  int32_t x0;
  int32_t y0;
  const int32_t* step;
};

template <int32_t Size>
ALWAYS_INLINE void sampleWindow(Scratch* __restrict scratch, const Image& frame, const Lattice& lattice) {
  const int32_t stepX = lattice.step[0];
  const int32_t stepY = lattice.step[2];
  alignas(64) uint16_t rampX[Size], rampY[Size];
  for (int32_t i = 0; i < Size; ++i) {
    rampX[i] = static_cast<uint16_t>(static_cast<uint16_t>(i) * static_cast<uint16_t>(stepX));
    rampY[i] = static_cast<uint16_t>(static_cast<uint16_t>(i) * static_cast<uint16_t>(stepY));
  }
  for (int32_t j = 0; j < Size; ++j) {
    int16_t* const out = scratch->samples + j * Size;
    const int32_t px = lattice.x0 + j * lattice.step[1];
    const int32_t py = lattice.y0 + j * lattice.step[3];
    fillFractions<Size>(scratch->fx, px, rampX);
    fillFractions<Size>(scratch->fy, py, rampY);
    for (int32_t begin = 0; begin < Size;) {
      // As far as the samples go on from pixel to pixel in one row of the frame: in most rows to the end.
      const int32_t x = ((px + begin * stepX) >> 16) - begin;
      const int32_t y = (py + begin * stepY) >> 16;
      int32_t end = Size;
      if ((px + (Size - 1) * stepX) >> 16 != x + Size - 1 || (py + (Size - 1) * stepY) >> 16 != y) {
        end = begin + 1;
        while ((px + end * stepX) >> 16 == x + end && (py + end * stepY) >> 16 == y) ++end;
      }
      const SampleRun run = {frame.plane0 + ptrdiff_t{y} * frame.pitch0 + x, frame.pitch0, begin, end};
      if (x >= 0 && x + Size < frame.width) {
        sampleWhole<Size>(out, scratch, run);
      } else {
        sampleRun(out, *scratch, run);
      }
      begin = end;
    }
  }
}

// Pieces of at most 256 squares of 4080 each.
template <int32_t Items>
ALWAYS_INLINE int64_t squares(const int16_t* __restrict in, int32_t pieces) {
  int64_t total = 0;
  for (int32_t piece = 0; piece < pieces; ++piece, in += Items) {
    uint32_t sum = 0;
    for (int32_t i = 0; i < Items; ++i) sum += static_cast<uint32_t>(in[i] * in[i]);
    total += sum;
  }
  return total;
}

template <int32_t Size>
ALWAYS_INLINE void sumWindow(WindowSums* __restrict total, Scratch* __restrict scratch, const Window& window,
                             const Image& frame, const Lattice& lattice) {
  sampleWindow<Size>(scratch, frame, lattice);
  int16_t* const residuals = scratch->samples;
  constexpr int32_t kItems = Size * Size;
  int32_t r = 0, rx = 0, ry = 0;  // at most 1024 x 4080 x 255
  for (int32_t i = 0; i < kItems; ++i) {
    const auto d = static_cast<int16_t>(residuals[i] - window.value[i]);
    residuals[i] = d;
    r += d;
    rx += d * window.gx[i];
    ry += d * window.gy[i];
  }
  total->r = r;
  total->rx = rx;
  total->ry = ry;
  total->rr = squares<256>(residuals, kItems / 256) + squares<kItems % 256>(residuals + kItems / 256 * 256, 1);
}

template <int32_t Size>
ALWAYS_INLINE void fillRows(Window* __restrict window, const uint8_t* __restrict from, ptrdiff_t pitch) {
  for (int32_t j = 0; j < Size; ++j, from += pitch) {
    const uint8_t* __restrict up = from - pitch;
    const uint8_t* __restrict below = from + pitch;
    int16_t* __restrict value = window->value + j * Size;
    int16_t* __restrict gx = window->gx + j * Size;
    int16_t* __restrict gy = window->gy + j * Size;
    for (int32_t i = 0; i < Size; ++i) {
      value[i] = static_cast<int16_t>(from[i] * 16);
      gx[i] = static_cast<int16_t>(from[i + 1] - from[i - 1]);
      gy[i] = static_cast<int16_t>(below[i] - up[i]);
    }
  }
}

constexpr CpuRow<sumWindow<16>> kSum16;
constexpr CpuRow<sumWindow<24>> kSum24;
constexpr CpuRow<sumWindow<32>> kSum32;
constexpr CpuRow<fillRows<16>> kFill16;
constexpr CpuRow<fillRows<24>> kFill24;
constexpr CpuRow<fillRows<32>> kFill32;

}  // namespace

void fillWindow(Window* window, const Image& base, int32_t left, int32_t top, int32_t size) {
  window->size = size;
  const uint8_t* const from = imageRow(&base, top) + left;
  switch (size) {
    case 16:
      kFill16(window, from, base.pitch0);
      break;
    case 24:
      kFill24(window, from, base.pitch0);
      break;
    default:
      kFill32(window, from, base.pitch0);
      break;
  }
}

WindowSums residualSums(const Window& window, const Image& frame, int32_t x0, int32_t y0, const int32_t* step) {
  WindowSums total;
  Scratch scratch;
  const Lattice lattice = {x0, y0, step};
  switch (window.size) {
    case 16:
      kSum16(&total, &scratch, window, frame, lattice);
      break;
    case 24:
      kSum24(&total, &scratch, window, frame, lattice);
      break;
    default:
      kSum32(&total, &scratch, window, frame, lattice);
      break;
  }
  return total;
}

}  // namespace fine
