#include <bit>
#include <cstring>

#include "base/cpu_level.h"
#include "filters/denoiser_kernels.h"

namespace denoiser {

namespace {

constexpr int32_t kChromaReach = 18;
constexpr int32_t kRun = 16;                      // pairs of a row in work at a time
constexpr int32_t kLanes = 8;                     // rows in work at a time
constexpr int32_t kLeftReach = kChromaReach / 2;  // pairs

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

// Two bytes at once: a chroma pair, or a luma of the pairs' grid with the one beside it. Plain 16-bit lanes, which need
// no shuffles, and whole vectors where every second byte is looked at.
struct Bytes {
  int16_t first;
  int16_t second;
};
static_assert(std::endian::native == std::endian::little);
ALWAYS_INLINE Bytes bytesAt(const uint8_t* at) {
  uint16_t word;
  std::memcpy(&word, at, sizeof word);
  return {static_cast<int16_t>(word & 255), static_cast<int16_t>(word >> 8)};
}

ALWAYS_INLINE int16_t distance(int16_t a, int16_t b) {
  const auto d = static_cast<int16_t>(a - b);
  const auto e = static_cast<int16_t>(b - a);
  return d > e ? d : e;
}

// The unconditional samples but the left one.
ALWAYS_INLINE void open(PairRun* __restrict run, const Position& centre, const uint8_t* __restrict up,
                        const uint8_t* __restrict down, const uint8_t* __restrict map, const ChromaPass& pass,
                        int32_t count) {
  const uint8_t* __restrict luma = centre.luma;
  const uint8_t* __restrict pair = centre.pair;
  const int32_t strength0 = pass.strength0;
  const int32_t strength1 = pass.strength1;
  for (int32_t i = 0; i < count; ++i) {
    const int32_t limit = bytesAt(map + 2 * i).first + 10;
    const Bytes here = bytesAt(pair + 2 * i);
    const Bytes right = bytesAt(pair + 2 * i + 2);
    const Bytes above = bytesAt(up + 2 * i);
    const Bytes below = bytesAt(down + 2 * i);
    run->luma[i] = bytesAt(luma + 2 * i).first;
    run->centre0[i] = here.first;
    run->centre1[i] = here.second;
    run->lumaLimit[i] = static_cast<int16_t>(limit >> 1);
    run->limit0[i] = static_cast<int16_t>((strength0 * limit + 32) >> 6);
    run->limit1[i] = static_cast<int16_t>((strength1 * limit + 32) >> 6);
    run->sum0[i] = static_cast<int16_t>(here.first + right.first + above.first + below.first);
    run->sum1[i] = static_cast<int16_t>(here.second + right.second + above.second + below.second);
    run->count[i] = 5;
  }
}

// The conditional samples, as many as a pass has beside those straight left of the pair.
constexpr int32_t kOtherTaps = kChromaTaps - kChromaLeftTaps;

// Where the samples of the taps stand, from a pair and from its luma.
struct TapOffsets {
  ptrdiff_t luma[kOtherTaps];
  ptrdiff_t pair[kOtherTaps];
};

template <int32_t Count>
ALWAYS_INLINE void addTap(PairRun* __restrict run, const uint8_t* __restrict luma, const uint8_t* __restrict pair,
                          int32_t any) {
  const int32_t count = Count > 0 ? Count : any;
  for (int32_t i = 0; i < count; ++i) {
    const auto [t0, t1] = bytesAt(pair + 2 * i);
    // Masks of all bits.
    const auto near0 = static_cast<int16_t>(-(distance(run->centre0[i], t0) < run->limit0[i]));
    const auto near1 = static_cast<int16_t>(-(distance(run->centre1[i], t1) < run->limit1[i]));
    const auto nearLuma =
        static_cast<int16_t>(-(distance(run->luma[i], bytesAt(luma + 2 * i).first) < run->lumaLimit[i]));
    const auto near = static_cast<int16_t>(nearLuma & near0 & near1);
    run->sum0[i] = static_cast<int16_t>(run->sum0[i] + (t0 & near));
    run->sum1[i] = static_cast<int16_t>(run->sum1[i] + (t1 & near));
    run->count[i] = static_cast<int16_t>(run->count[i] - near);
  }
}

// A whole run has no loops for what is left over.
ALWAYS_INLINE void addTapsBody(PairRun* __restrict run, const Position& centre, const TapOffsets& offsets,
                               int32_t count) {
  for (int32_t t = 0; t < kOtherTaps; ++t) {
    const uint8_t* luma = centre.luma + offsets.luma[t];
    const uint8_t* pair = centre.pair + offsets.pair[t];
    if (count == kRun) {
      addTap<kRun>(run, luma, pair, count);
    } else {
      addTap<0>(run, luma, pair, count);
    }
  }
}
constexpr CpuRow<addTapsBody> addTaps;

// Fields of a pair that wait for the samples on its left.
enum Field : int32_t {
  LOW_A,  // a left tap counts where its two bytes are above LOW and below HIGH; where its luma is not near, LOW is
  LOW_B,  // above all bytes
  HIGH0,
  LOW1,
  HIGH1,
  SUM0,
  SUM1,
  COUNT,
  RECIPROCAL,  // of COUNT, and what one and a second left tap add to it
  ONE_MORE,
  TWO_MORE,
  FIELDS
};

struct Wave {
  int16_t rows[FIELDS][kLanes][2 * kRun];  // a run from entry skip on; the rest is not looked at
  int32_t skip[kLanes];
  // Filtered pairs, those in front of the run included.
  uint16_t past0[kLeftReach + kRun][kLanes];
  uint16_t past1[kLeftReach + kRun][kLanes];
};

struct LaneFields {
  int16_t of[FIELDS][kRun][kLanes];
};

// 32768 / n for n from 5 to 23: the fraction of the quotient is 0 or at least 1 / 23 away from a whole number.
ALWAYS_INLINE int16_t reciprocal(int16_t n) {
  return static_cast<int16_t>(static_cast<int32_t>(32768.0f / static_cast<float>(n)));
}

ALWAYS_INLINE void fillFields(Wave* wave, int32_t lane, const PairRun& run, const uint8_t* const* leftLuma,
                              int32_t count) {
  constexpr int16_t kNever = 256;
  const auto field = [&](Field f) { return wave->rows[f][lane]; };
  int16_t* __restrict low0[kChromaLeftTaps] = {field(LOW_A), field(LOW_B)};
  for (int32_t k = 0; k < kChromaLeftTaps; ++k) {
    const uint8_t* __restrict luma = leftLuma[k];
    int16_t* __restrict low = low0[k];
    for (int32_t i = 0; i < count; ++i) {
      const bool near = distance(run.luma[i], bytesAt(luma + 2 * i).first) < run.lumaLimit[i];
      low[i] = near ? static_cast<int16_t>(run.centre0[i] - run.limit0[i]) : kNever;
    }
  }
  int16_t* __restrict high0 = field(HIGH0);
  int16_t* __restrict low1 = field(LOW1);
  int16_t* __restrict high1 = field(HIGH1);
  for (int32_t i = 0; i < count; ++i) {
    high0[i] = static_cast<int16_t>(run.centre0[i] + run.limit0[i]);
    low1[i] = static_cast<int16_t>(run.centre1[i] - run.limit1[i]);
    high1[i] = static_cast<int16_t>(run.centre1[i] + run.limit1[i]);
  }
  int16_t* __restrict sum0 = field(SUM0);
  int16_t* __restrict sum1 = field(SUM1);
  int16_t* __restrict counts = field(COUNT);
  int16_t* __restrict first = field(RECIPROCAL);
  int16_t* __restrict oneMore = field(ONE_MORE);
  int16_t* __restrict twoMore = field(TWO_MORE);
  for (int32_t i = 0; i < count; ++i) {
    const int16_t n = run.count[i];
    const int16_t r0 = reciprocal(n);
    const int16_t r1 = reciprocal(static_cast<int16_t>(n + 1));
    const int16_t r2 = reciprocal(static_cast<int16_t>(n + 2));
    sum0[i] = run.sum0[i];
    sum1[i] = run.sum1[i];
    counts[i] = n;
    first[i] = r0;
    oneMore[i] = static_cast<int16_t>(r1 - r0);
    twoMore[i] = static_cast<int16_t>(r2 - r1);
  }
}

// From runs of rows to runs of lanes.
ALWAYS_INLINE void transpose(LaneFields* __restrict to, const Wave* __restrict wave, int32_t field) {
  static_assert(kLanes == 8);
  const int16_t* row[kLanes];
  for (int32_t r = 0; r < kLanes; ++r) row[r] = wave->rows[field][r] + wave->skip[r];
  int16_t* __restrict lanes = to->of[field][0];
  for (int32_t i = 0; i < kRun; ++i) {
    lanes[8 * i] = row[0][i];
    lanes[8 * i + 1] = row[1][i];
    lanes[8 * i + 2] = row[2][i];
    lanes[8 * i + 3] = row[3][i];
    lanes[8 * i + 4] = row[4][i];
    lanes[8 * i + 5] = row[5][i];
    lanes[8 * i + 6] = row[6][i];
    lanes[8 * i + 7] = row[7][i];
  }
}

// The mean is at most 255: with n samples of 255 it is (255 n + n / 2) (32768 / n) >> 15. As the upper half of a 16-bit
// product: (2 (sum + n / 2)) (32768 / n) >> 16, where 2 x (21 x 255 + 10) fits.
ALWAYS_INLINE uint16_t meanByReciprocal(int16_t sum, int16_t half, int16_t reciprocal) {
  const auto twice = static_cast<uint16_t>(2 * (sum + half));
  return static_cast<uint16_t>((uint32_t{twice} * static_cast<uint16_t>(reciprocal)) >> 16);
}

// The samples left of a pair in its own row are those that the pass has written just before: pair after pair, but of
// all rows at once.
ALWAYS_INLINE void closeLanes(Wave* __restrict wave, const LaneFields& fields, int32_t leftA, int32_t leftB) {
  for (int32_t i = 0; i < kRun; ++i) {
    const int32_t at = kLeftReach + i;
    const uint16_t* a0 = wave->past0[at - leftA];
    const uint16_t* a1 = wave->past1[at - leftA];
    const uint16_t* b0 = wave->past0[at - leftB];
    const uint16_t* b1 = wave->past1[at - leftB];
    const uint16_t* before0 = wave->past0[at - 1];
    const uint16_t* before1 = wave->past1[at - 1];
    const auto field = [&](Field f) { return fields.of[f][i]; };
    uint16_t mean0[kLanes];
    uint16_t mean1[kLanes];
    for (int32_t r = 0; r < kLanes; ++r) {
      const auto tA0 = static_cast<int16_t>(a0[r]);
      const auto tA1 = static_cast<int16_t>(a1[r]);
      const auto tB0 = static_cast<int16_t>(b0[r]);
      const auto tB1 = static_cast<int16_t>(b1[r]);
      const int16_t high0 = field(HIGH0)[r];
      const int16_t low1 = field(LOW1)[r];
      const int16_t high1 = field(HIGH1)[r];
      // Masks of all bits.
      const auto nearA =
          static_cast<int16_t>(-((tA0 > field(LOW_A)[r]) & (tA0 < high0) & (tA1 > low1) & (tA1 < high1)));
      const auto nearB =
          static_cast<int16_t>(-((tB0 > field(LOW_B)[r]) & (tB0 < high0) & (tB1 > low1) & (tB1 < high1)));
      const auto half = static_cast<int16_t>(static_cast<int16_t>(field(COUNT)[r] - nearA - nearB) >> 1);
      const auto by = static_cast<int16_t>(field(RECIPROCAL)[r] + (field(ONE_MORE)[r] & (nearA | nearB)) +
                                           (field(TWO_MORE)[r] & nearA & nearB));
      const auto sum0 = static_cast<int16_t>(field(SUM0)[r] + (tA0 & nearA) + (tB0 & nearB) + before0[r]);
      const auto sum1 = static_cast<int16_t>(field(SUM1)[r] + (tA1 & nearA) + (tB1 & nearB) + before1[r]);
      mean0[r] = meanByReciprocal(sum0, half, by);
      mean1[r] = meanByReciprocal(sum1, half, by);
    }
    std::memcpy(wave->past0[at], mean0, sizeof mean0);
    std::memcpy(wave->past1[at], mean1, sizeof mean1);
  }
}

// Pairs of the rows y, y + 2, .., whose columns from left to right have all their taps inside the image. In front of
// them and behind them, up to begin and end, a row goes pair by pair.
struct ChromaRows {
  Image* image;
  const Image* map;
  const ChromaPass* pass;
  int32_t begin;
  int32_t left;
  int32_t right;
  int32_t end;

  // With taps clamped to the image.
  void checked(int32_t y, int32_t from, int32_t to) const {
    const Plane<true> luma(image);
    const PairPlane<true> chroma = {image->plane1, image->pitch1, image->width, image->height};
    uint8_t* pairs = imageChromaRow(image, y >> 1);
    const uint8_t* strengths = imageRow(map, y);
    for (int32_t x = from; x < to; x += 2) {
      chromaMean(pairs + x, chroma, luma, x, y, strengths[x], pass->strength0, pass->strength1, pass->taps);
    }
  }
};

// The taps of a pass, those straight left of the pair apart, for rows round y. Where rows are clamped they are those of
// row y alone.
struct SplitTaps {
  int32_t left[kChromaLeftTaps];
  TapOffsets others;

  SplitTaps(const Tap* taps, const Image* image, int32_t y) {
    int32_t leftCount = 0;
    int32_t otherCount = 0;
    for (int32_t i = 0; i < kChromaTaps; ++i) {
      const Tap& tap = taps[i];
      if (tap.dy == 0 && tap.dx < 0) {
        left[leftCount++] = -tap.dx;
        continue;
      }
      const int32_t row = clampInt(y + tap.dy, 0, image->height - 1);
      others.luma[otherCount] = static_cast<ptrdiff_t>(row - y) * image->pitch0 + tap.dx;
      others.pair[otherCount++] = static_cast<ptrdiff_t>((row >> 1) - (y >> 1)) * image->pitch1 + tap.dx;
    }
  }
};

// What does not depend on the filtered pairs of its own row, for the pairs from x on of row y.
ALWAYS_INLINE void openLane(Wave* wave, int32_t lane, const ChromaRows& rows, const SplitTaps& taps, int32_t x,
                            int32_t y, int32_t count) {
  const Image* image = rows.image;
  const auto at = [&](int32_t dx, int32_t dy) {
    const int32_t row = clampInt(y + dy, 0, image->height - 1);
    return Position{imageRow(image, row) + x + dx, imageChromaRow(image, row >> 1) + x + dx};
  };
  const uint8_t* const leftLuma[kChromaLeftTaps] = {at(-taps.left[0], 0).luma, at(-taps.left[1], 0).luma};
  // First touched here or by the lowest taps: for the rows that come next.
  __builtin_prefetch(imageRow(rows.map, clampInt(y + 2 * kLanes, 0, image->height - 1)) + x);
  const Position below = at(0, 2 * kLanes + kChromaReach);
  __builtin_prefetch(below.luma);
  __builtin_prefetch(below.pair);
  PairRun run;
  open(&run, at(0, 0), at(0, -2).pair, at(0, 2).pair, imageRow(rows.map, y) + x, *rows.pass, count);
  addTaps(&run, at(0, 0), taps.others, count);
  fillFields(wave, lane, run, leftLuma, count);
}

// Rows y, y + 2, .. as a wave: every row follows the one above it at a distance of a run and a pair. No tap goes
// further to the side than up or down, so that all that a run needs of the rows above is filtered, and all that it
// needs of the rows below is not.
ALWAYS_INLINE void chromaWaveBody(const ChromaRows& rows, int32_t y, int32_t lanes) {
  const SplitTaps taps(rows.pass->taps, rows.image, y);
  const int32_t pairs = (rows.right - rows.left + 1) / 2;
  const int32_t behind = rows.left + 2 * pairs;
  Wave wave = {};
  LaneFields fields;
  const int32_t steps = lanes - 1 + (pairs + lanes - 1 + kRun - 1) / kRun;
  for (int32_t step = 0; step < steps; ++step) {
    int32_t begin[kLanes];
    int32_t count[kLanes];
    for (int32_t r = 0; r < lanes; ++r) {
      const int32_t from = (step - r) * kRun - r;
      begin[r] = clampInt(from, 0, pairs);
      count[r] = step < r ? 0 : clampInt(from + kRun, 0, pairs) - begin[r];
      if (step == r) rows.checked(y + 2 * r, rows.begin, rows.left);
      if (count[r] == 0) continue;
      // Whole runs need no loops for what is left over. Those at the ends of a row take pairs along that are not asked
      // for.
      const int32_t row = y + 2 * r;
      if (pairs >= kRun) {
        const int32_t start = begin[r] < pairs - kRun ? begin[r] : pairs - kRun;
        wave.skip[r] = begin[r] - start;
        openLane(&wave, r, rows, taps, rows.left + 2 * start, row, kRun);
      } else {
        openLane(&wave, r, rows, taps, rows.left, row, pairs);
        wave.skip[r] = begin[r];
      }
      const uint8_t* past = imageChromaRow(rows.image, row >> 1) + rows.left + 2 * (begin[r] - kLeftReach);
      for (int32_t i = 0; i < kLeftReach; ++i) {
        wave.past0[i][r] = past[2 * i];
        wave.past1[i][r] = past[2 * i + 1];
      }
    }
    for (int32_t f = 0; f < FIELDS; ++f) transpose(&fields, &wave, f);
    closeLanes(&wave, fields, taps.left[0] / 2, taps.left[1] / 2);
    for (int32_t r = 0; r < lanes; ++r) {
      if (count[r] == 0) continue;
      uint8_t* pair = imageChromaRow(rows.image, y / 2 + r) + rows.left + 2 * begin[r];
      for (int32_t i = 0; i < count[r]; ++i) {
        pair[2 * i] = static_cast<uint8_t>(wave.past0[kLeftReach + i][r]);
        pair[2 * i + 1] = static_cast<uint8_t>(wave.past1[kLeftReach + i][r]);
      }
      if (begin[r] + count[r] == pairs) rows.checked(y + 2 * r, behind, rows.end);
    }
  }
}
constexpr CpuRow<chromaWaveBody> chromaWave;

}  // namespace

void chromaTileInplace(Image* image, const Image* map, const ChromaPass& pass, int32_t left, int32_t right, int32_t top,
                       int32_t bottom) {
  const int32_t height = image->height;
  const int32_t inner = image->width - kChromaReach - 1;  // a tap takes the luma beside its own along
  const ChromaRows rows = {
      image, map, &pass, left, left > kChromaReach ? left : kChromaReach, right < inner ? right : inner, right};
  int32_t lanes = 1;
  for (int32_t y = top; y < bottom; y += 2 * lanes) {
    lanes = 1;
    if (y < 2 || y + 2 >= height || rows.left >= rows.right) {
      // In the first and the last row the taps above or below fall back into the row itself.
      rows.checked(y, left, right);
      continue;
    }
    // Taps that are clamped to the first or last row go further to the side than up or down.
    if (y >= kChromaReach) {
      const int32_t most = (bottom - y + 1) / 2;
      while (lanes < most && lanes < kLanes && y + 2 * lanes + kChromaReach < height) ++lanes;
    }
    chromaWave(rows, y, lanes);
  }
}

}  // namespace denoiser
