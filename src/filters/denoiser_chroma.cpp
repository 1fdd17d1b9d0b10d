#include "filters/denoiser_kernels.h"

namespace denoiser {

namespace {

constexpr int32_t kChromaReach = 18;
constexpr int32_t kRun = 128;  // pairs in work at a time

// A run of pairs. Its 16-bit lanes hold at most 21 samples of 255 in a sum, and 1056 in a limit.
struct PairRun {
  int16_t luma[kRun];
  int16_t centre0[kRun];
  int16_t centre1[kRun];
  int16_t lumaLimit[kRun];
  int16_t limit0[kRun];
  int16_t limit1[kRun];
  int16_t sum0[kRun];
  int16_t sum1[kRun];
  int16_t count[kRun];
};

// One position of a row: its luma and its chroma pair.
struct Position {
  const uint8_t* luma;
  const uint8_t* pair;
};

inline int16_t distance(int16_t a, int16_t b) {
  const auto d = static_cast<int16_t>(a - b);
  const auto e = static_cast<int16_t>(b - a);
  return d > e ? d : e;
}

// The unconditional samples but the left one.
inline void open(PairRun* __restrict run, const Position& centre, const uint8_t* __restrict up,
                 const uint8_t* __restrict down, const uint8_t* __restrict map, const ChromaPass& pass, int32_t count) {
  const uint8_t* __restrict luma = centre.luma;
  const uint8_t* __restrict pair = centre.pair;
  const int32_t strength0 = pass.strength0;
  const int32_t strength1 = pass.strength1;
  for (int32_t i = 0; i < count; ++i) {
    const int32_t limit = map[2 * i] + 10;
    run->luma[i] = luma[2 * i];
    run->centre0[i] = pair[2 * i];
    run->centre1[i] = pair[2 * i + 1];
    run->lumaLimit[i] = static_cast<int16_t>(limit >> 1);
    run->limit0[i] = static_cast<int16_t>((strength0 * limit + 32) >> 6);
    run->limit1[i] = static_cast<int16_t>((strength1 * limit + 32) >> 6);
    run->sum0[i] = static_cast<int16_t>(pair[2 * i] + pair[2 * i + 2] + up[2 * i] + down[2 * i]);
    run->sum1[i] = static_cast<int16_t>(pair[2 * i + 1] + pair[2 * i + 3] + up[2 * i + 1] + down[2 * i + 1]);
    run->count[i] = 5;
  }
}

inline void addTap(PairRun* __restrict run, const uint8_t* __restrict luma, const uint8_t* __restrict pair,
                   int32_t count) {
  for (int32_t i = 0; i < count; ++i) {
    const int16_t t0 = pair[2 * i];
    const int16_t t1 = pair[2 * i + 1];
    // Masks of all bits.
    const auto near0 = static_cast<int16_t>(-(distance(run->centre0[i], t0) < run->limit0[i]));
    const auto near1 = static_cast<int16_t>(-(distance(run->centre1[i], t1) < run->limit1[i]));
    const auto nearLuma = static_cast<int16_t>(-(distance(run->luma[i], luma[2 * i]) < run->lumaLimit[i]));
    const auto near = static_cast<int16_t>(nearLuma & near0 & near1);
    run->sum0[i] = static_cast<int16_t>(run->sum0[i] + (t0 & near));
    run->sum1[i] = static_cast<int16_t>(run->sum1[i] + (t1 & near));
    run->count[i] = static_cast<int16_t>(run->count[i] - near);
  }
}

// The samples left of a pair in its own row are those that the pass has written just before.
inline void close(const PairRun& run, const uint8_t* luma, uint8_t* pairs, const int32_t* leftTaps, int32_t count) {
  for (int32_t i = 0; i < count; ++i) {
    uint8_t* pair = pairs + 2 * i;
    int32_t sum0 = run.sum0[i] + pair[-2];
    int32_t sum1 = run.sum1[i] + pair[-1];
    int32_t n = run.count[i];
    for (int32_t k = 0; k < kChromaLeftTaps; ++k) {
      const int32_t dx = leftTaps[k];
      const int32_t near = (std::abs(run.luma[i] - luma[2 * i + dx]) < run.lumaLimit[i]) &
                           (std::abs(run.centre0[i] - pair[dx]) < run.limit0[i]) &
                           (std::abs(run.centre1[i] - pair[dx + 1]) < run.limit1[i]);
      sum0 += pair[dx] & -near;
      sum1 += pair[dx + 1] & -near;
      n += near;
    }
    pair[0] = meanOf(sum0, n);
    pair[1] = meanOf(sum1, n);
  }
}

}  // namespace

void chromaRowInplace(Image* image, const uint8_t* map, const ChromaPass& pass, int32_t left, int32_t right,
                      int32_t y) {
  const int32_t width = image->width;
  const int32_t height = image->height;
  uint8_t* pairs = imageChromaRow(image, y >> 1);
  const auto checked = [&](int32_t begin, int32_t end) {
    const Plane<true> luma(image);
    const PairPlane<true> chroma = {image->plane1, image->pitch1, width, height};
    for (int32_t x = begin; x < end; x += 2) {
      chromaMean(pairs + x, chroma, luma, x, y, map[x], pass.strength0, pass.strength1, pass.taps);
    }
  };
  const auto at = [&](int32_t x, int32_t row) {
    row = clampInt(row, 0, height - 1);
    return Position{imageRow(image, row) + x, imageChromaRow(image, row >> 1) + x};
  };

  const int32_t innerLeft = left > kChromaReach ? left : kChromaReach;
  const int32_t innerRight = right < width - kChromaReach ? right : width - kChromaReach;
  // In the first and the last chroma row the taps above or below fall back into the row itself.
  if (y < 2 || y + 2 >= height || innerLeft >= innerRight) return checked(left, right);
  checked(left, innerLeft);
  int32_t x = innerLeft;
  while (x < innerRight) {
    const int32_t rest = (innerRight - x + 1) / 2;
    const int32_t count = rest < kRun ? rest : kRun;
    PairRun run;
    open(&run, at(x, y), at(x, y - 2).pair, at(x, y + 2).pair, map + x, pass, count);
    int32_t leftTaps[kChromaLeftTaps];
    int32_t leftCount = 0;
    for (int32_t i = 0; i < kChromaTaps; ++i) {
      const Tap& tap = pass.taps[i];
      if (tap.dy == 0 && tap.dx < 0) {
        leftTaps[leftCount++] = tap.dx;
      } else {
        const Position p = at(x + tap.dx, y + tap.dy);
        addTap(&run, p.luma, p.pair, count);
      }
    }
    close(run, imageRow(image, y) + x, pairs + x, leftTaps, count);
    x += 2 * count;
  }
  checked(x, right);
}

}  // namespace denoiser
