#include "fine/dct_shrink.h"

#include <algorithm>

#include "fine/lanes.h"

namespace fine {
namespace {

// cos(k pi / 16) / 2 and 1 / sqrt(8), Q15.
constexpr int16_t kC1 = 16069, kC2 = 15137, kC3 = 13623, kC4 = 11585, kC5 = 9102, kC6 = 6270, kC7 = 3196;
// sin^2((i + 0.5) pi / 8), Q15: item i and item i + 4 add up to 32768.
constexpr int16_t kWindow[8] = {1247, 10114, 22654, 31521, 31521, 22654, 10114, 1247};

// In scalars, not arrays: the vectorisers then see straight code.
struct Eight {
  int16_t v0, v1, v2, v3, v4, v5, v6, v7;
};

ALWAYS_INLINE Eight forward(const Eight& x) {
  const int16_t s0 = add(x.v0, x.v7), s1 = add(x.v1, x.v6), s2 = add(x.v2, x.v5), s3 = add(x.v3, x.v4);
  const int16_t d0 = sub(x.v0, x.v7), d1 = sub(x.v1, x.v6), d2 = sub(x.v2, x.v5), d3 = sub(x.v3, x.v4);
  const int16_t e0 = add(s0, s3), e1 = add(s1, s2), e2 = sub(s0, s3), e3 = sub(s1, s2);
  return {mulRound(add(e0, e1), kC4),
          add(add(mulRound(d0, kC1), mulRound(d1, kC3)), add(mulRound(d2, kC5), mulRound(d3, kC7))),
          add(mulRound(e2, kC2), mulRound(e3, kC6)),
          sub(sub(mulRound(d0, kC3), mulRound(d1, kC7)), add(mulRound(d2, kC1), mulRound(d3, kC5))),
          mulRound(sub(e0, e1), kC4),
          add(sub(mulRound(d0, kC5), mulRound(d1, kC1)), add(mulRound(d2, kC7), mulRound(d3, kC3))),
          sub(mulRound(e2, kC6), mulRound(e3, kC2)),
          sub(add(mulRound(d0, kC7), mulRound(d2, kC3)), add(mulRound(d1, kC5), mulRound(d3, kC1)))};
}

ALWAYS_INLINE Eight inverse(const Eight& f) {
  const int16_t p0 = mulRound(f.v0, kC4), p4 = mulRound(f.v4, kC4);
  const int16_t e0 = add(p0, p4), e1 = sub(p0, p4);
  const int16_t e2 = add(mulRound(f.v2, kC2), mulRound(f.v6, kC6));
  const int16_t e3 = sub(mulRound(f.v2, kC6), mulRound(f.v6, kC2));
  const int16_t s0 = add(e0, e2), s1 = add(e1, e3), s2 = sub(e1, e3), s3 = sub(e0, e2);
  const int16_t d0 = add(add(mulRound(f.v1, kC1), mulRound(f.v3, kC3)), add(mulRound(f.v5, kC5), mulRound(f.v7, kC7)));
  const int16_t d1 = sub(sub(mulRound(f.v1, kC3), mulRound(f.v3, kC7)), add(mulRound(f.v5, kC1), mulRound(f.v7, kC5)));
  const int16_t d2 = add(sub(mulRound(f.v1, kC5), mulRound(f.v3, kC1)), add(mulRound(f.v5, kC7), mulRound(f.v7, kC3)));
  const int16_t d3 = sub(add(mulRound(f.v1, kC7), mulRound(f.v5, kC3)), add(mulRound(f.v3, kC5), mulRound(f.v7, kC1)));
  return {add(s0, d0), add(s1, d1), add(s2, d2), add(s3, d3), sub(s3, d3), sub(s2, d2), sub(s1, d1), sub(s0, d0)};
}

// A row of blocks is worked through in strips of kStrip blocks. Every array of a strip has a size that is known here,
// and so has every loop: nothing is left for a vectoriser to prove.
constexpr int32_t kStrip = 32;             // blocks, and items of a phase
constexpr int32_t kColumns = 4 * kStrip;   // that a strip finishes
constexpr int32_t kReach = kColumns + 16;  // columns that its blocks read: 4 more, rounded up
constexpr int32_t kItems = kReach / 4;

// Sizes of coefficients are counted in 1/200 of the noise, up to 6.5 of it: 25 of them fit into 16 bits.
constexpr int32_t kUnit = 200;
constexpr int32_t kShift = 4;
constexpr int16_t kMostNoise = 800;  // in 1/8 level; what is above counts as that
// Sums of 25: from kLow on a coefficient is kept in part, kRise above it as it is.
constexpr int16_t kLow = 25 * kUnit * 13 / 10;
constexpr int16_t kRise = 4681, kSteep = 7;
static_assert(kRise * kSteep == 32767);
constexpr int16_t kBeside = 9830;  // Q15, what the blocks at both sides have to say

struct Strip {
  alignas(64) int16_t columns[8][kReach];
  alignas(64) int16_t phase[4][kItems];
  alignas(64) int16_t most[kStrip];         // of each block: at what coefficients are cut,
  alignas(64) int16_t by[kStrip];           // what makes units of them,
  alignas(64) int16_t low[kStrip];          // and kLow, or what is below all where there is no noise
  alignas(64) int16_t block[8][8][kStrip];  // coefficients
  alignas(64) int16_t size[8][8][kStrip];   // sums of the sizes of five across
  alignas(64) int16_t sums[kStrip + 2];     // of 5x5, of one frequency; the first and the last are beside the strip
  int16_t lastSums[8][8];                   // of the last block of the strip before
  alignas(64) int16_t early[4][kStrip];     // left halves of the blocks
  alignas(64) int16_t late[4][kStrip];      // right halves
  alignas(64) int16_t before[4][kStrip];    // right halves of the blocks before
  alignas(64) int16_t joined[8][kColumns];
  int16_t carry[8][4];  // the right half of the last block of the strip before
};

// Coefficients down the columns.
ALWAYS_INLINE void columns(Strip* __restrict s, const int16_t* __restrict in, int32_t stride) {
  const int16_t* r0 = in;
  const int16_t* r1 = r0 + stride;
  const int16_t* r2 = r1 + stride;
  const int16_t* r3 = r2 + stride;
  const int16_t* r4 = r3 + stride;
  const int16_t* r5 = r4 + stride;
  const int16_t* r6 = r5 + stride;
  const int16_t* r7 = r6 + stride;
  for (int32_t x = 0; x < kReach; ++x) {
    const Eight f = forward({r0[x], r1[x], r2[x], r3[x], r4[x], r5[x], r6[x], r7[x]});
    s->columns[0][x] = f.v0;
    s->columns[1][x] = f.v1;
    s->columns[2][x] = f.v2;
    s->columns[3][x] = f.v3;
    s->columns[4][x] = f.v4;
    s->columns[5][x] = f.v5;
    s->columns[6][x] = f.v6;
    s->columns[7][x] = f.v7;
  }
}

// What coefficients of the blocks are measured by.
ALWAYS_INLINE void measureBy(Strip* __restrict s, const int16_t* __restrict sigma, int16_t scale) {
  for (int32_t b = 0; b < kStrip; ++b) {
    const int32_t measured = mulRound(sigma[b], scale);
    const int32_t noise = measured < kMostNoise ? measured : kMostNoise;
    const int32_t none = noise == 0 ? 1 : 0;
    s->most[b] = static_cast<int16_t>((noise * 13) >> 1);
    s->by[b] = static_cast<int16_t>(
        static_cast<int32_t>(static_cast<float>(kUnit << kShift) / static_cast<float>(noise + none)));
    s->low[b] = static_cast<int16_t>(kLow - none * (kLow + kRise));
  }
}

ALWAYS_INLINE int16_t sizeOf(int16_t c, int16_t even, int16_t most, int16_t by) {
  const auto size = static_cast<int16_t>(c < 0 ? -c : c);
  return static_cast<int16_t>(static_cast<int16_t>(std::min(mulRound(size, even), most) * by) >> kShift);
}

// Row v of the coefficients of all blocks, and their sizes. Block b: items b and b + 1 of the phases.
ALWAYS_INLINE void across(Strip* __restrict s, int32_t v, const int16_t* __restrict even) {
  const int16_t* __restrict row = s->columns[v];
  for (int32_t b = 0; b < kItems; ++b) {
    s->phase[0][b] = row[4 * b];
    s->phase[1][b] = row[4 * b + 1];
    s->phase[2][b] = row[4 * b + 2];
    s->phase[3][b] = row[4 * b + 3];
  }
  for (int32_t b = 0; b < kStrip; ++b) {
    const Eight f = forward({s->phase[0][b], s->phase[1][b], s->phase[2][b], s->phase[3][b], s->phase[0][b + 1],
                             s->phase[1][b + 1], s->phase[2][b + 1], s->phase[3][b + 1]});
    s->block[v][0][b] = f.v0;
    s->block[v][1][b] = f.v1;
    s->block[v][2][b] = f.v2;
    s->block[v][3][b] = f.v3;
    s->block[v][4][b] = f.v4;
    s->block[v][5][b] = f.v5;
    s->block[v][6][b] = f.v6;
    s->block[v][7][b] = f.v7;
  }
  const int16_t e0 = even[0], e1 = even[1], e2 = even[2], e3 = even[3], e4 = even[4], e5 = even[5], e6 = even[6],
                e7 = even[7];
  const int16_t known = v == 0 ? 0 : -1;  // the mean says nothing of what its neighbours are
  for (int32_t b = 0; b < kStrip; ++b) {
    const int16_t most = s->most[b], by = s->by[b];
    const int16_t s1 = sizeOf(s->block[v][1][b], e1, most, by), s2 = sizeOf(s->block[v][2][b], e2, most, by);
    const int16_t s3 = sizeOf(s->block[v][3][b], e3, most, by), s4 = sizeOf(s->block[v][4][b], e4, most, by);
    const int16_t s5 = sizeOf(s->block[v][5][b], e5, most, by), s6 = sizeOf(s->block[v][6][b], e6, most, by);
    const int16_t s7 = sizeOf(s->block[v][7][b], e7, most, by);
    const auto s0 = static_cast<int16_t>((sizeOf(s->block[v][0][b], e0, most, by) & known) | (s1 & ~known));
    const int16_t left = add(add(s0, s1), s2), middle = add(add(s2, s3), s4), right = add(add(s5, s6), s7);
    s->size[v][0][b] = add(left, add(s0, s0));
    s->size[v][1][b] = add(left, add(s0, s3));
    s->size[v][2][b] = add(left, add(s3, s4));
    s->size[v][3][b] = add(middle, add(s1, s5));
    s->size[v][4][b] = add(middle, add(s5, s6));
    s->size[v][5][b] = add(right, add(s3, s4));
    s->size[v][6][b] = add(right, add(s4, s7));
    s->size[v][7][b] = add(right, add(s7, s7));
  }
}

// Shrinks row v. valid: blocks that are there.
ALWAYS_INLINE void shrinkRow(Strip* __restrict s, int32_t v, const int16_t* __restrict gain, int32_t valid,
                             bool first) {
  const int32_t v0 = std::max(v - 2, 0), v1 = std::max(v - 1, 0), v3 = std::min(v + 1, 7), v4 = std::min(v + 2, 7);
  for (int32_t u = 0; u < 8; ++u) {
    for (int32_t b = 0; b < kStrip; ++b) {
      const int16_t outer = add(s->size[v0][u][b], s->size[v4][u][b]);
      s->sums[b + 1] = add(add(outer, s->size[v][u][b]), add(s->size[v1][u][b], s->size[v3][u][b]));
    }
    s->sums[0] = first ? s->sums[1] : s->lastSums[v][u];
    s->lastSums[v][u] = s->sums[kStrip];
    s->sums[valid + 1] = s->sums[valid];
    if (u == 0 && v == 0) continue;  // means stay
    const int16_t g = gain[u];
    for (int32_t b = 0; b < kStrip; ++b) {
      const int16_t own = s->sums[b + 1];
      const auto beside = static_cast<int16_t>((s->sums[b] >> 1) + (s->sums[b + 2] >> 1));
      const int16_t size = add(own, mulRound(sub(beside, own), kBeside));
      const auto over = std::min(std::max(sub(size, s->low[b]), int16_t{0}), kRise);
      const int16_t kept = mulRound(s->block[v][u][b], static_cast<int16_t>(over * kSteep));
      s->block[v][u][b] = add(kept, mulRound(kept, g));
    }
  }
}

// Row v back across.
ALWAYS_INLINE void backAcross(Strip* __restrict s, int32_t v) {
  for (int32_t b = 0; b < kStrip; ++b) {
    const Eight x = inverse({s->block[v][0][b], s->block[v][1][b], s->block[v][2][b], s->block[v][3][b],
                             s->block[v][4][b], s->block[v][5][b], s->block[v][6][b], s->block[v][7][b]});
    s->early[0][b] = mulRound(x.v0, kWindow[0]);
    s->early[1][b] = mulRound(x.v1, kWindow[1]);
    s->early[2][b] = mulRound(x.v2, kWindow[2]);
    s->early[3][b] = mulRound(x.v3, kWindow[3]);
    s->late[0][b] = mulRound(x.v4, kWindow[4]);
    s->late[1][b] = mulRound(x.v5, kWindow[5]);
    s->late[2][b] = mulRound(x.v6, kWindow[6]);
    s->late[3][b] = mulRound(x.v7, kWindow[7]);
  }
}

ALWAYS_INLINE void join(Strip* __restrict s, int16_t* __restrict row) {
  for (int32_t b = 0; b < kStrip; ++b) {
    row[4 * b] = add(s->early[0][b], s->before[0][b]);
    row[4 * b + 1] = add(s->early[1][b], s->before[1][b]);
    row[4 * b + 2] = add(s->early[2][b], s->before[2][b]);
    row[4 * b + 3] = add(s->early[3][b], s->before[3][b]);
  }
}

// Back down the columns, in place, under the window.
ALWAYS_INLINE void back(Strip* __restrict s) {
  for (int32_t x = 0; x < kColumns; ++x) {
    const Eight y = inverse({s->joined[0][x], s->joined[1][x], s->joined[2][x], s->joined[3][x], s->joined[4][x],
                             s->joined[5][x], s->joined[6][x], s->joined[7][x]});
    s->joined[0][x] = mulRound(y.v0, kWindow[0]);
    s->joined[1][x] = mulRound(y.v1, kWindow[1]);
    s->joined[2][x] = mulRound(y.v2, kWindow[2]);
    s->joined[3][x] = mulRound(y.v3, kWindow[3]);
    s->joined[4][x] = mulRound(y.v4, kWindow[4]);
    s->joined[5][x] = mulRound(y.v5, kWindow[5]);
    s->joined[6][x] = mulRound(y.v6, kWindow[6]);
    s->joined[7][x] = mulRound(y.v7, kWindow[7]);
  }
}

ALWAYS_INLINE void addRow(int16_t* __restrict out, const int16_t* __restrict row, int32_t count) {
  for (int32_t x = 0; x < count; ++x) out[x] = add(out[x], row[x]);
}

ALWAYS_INLINE void shrinkBody(int16_t* out, const int16_t* in, const int16_t* sigma, const ShrinkTable& table,
                              int32_t width) {
  const int32_t stride = dctStride(width);
  const int32_t items = stride / 4;
  const int32_t blocks = items - 1;
  Strip s;
  for (int32_t k = 0; k < 8; ++k) std::fill_n(s.carry[k], 4, int16_t{0});
  for (int32_t first = 0; first < items; first += kStrip) {
    // Blocks beyond the last are worked on as well; what they give counts for nothing.
    const int32_t valid = std::clamp(blocks - first, 0, kStrip);
    columns(&s, in + 4 * first, stride);
    measureBy(&s, sigma + first, table.noise);
    for (int32_t k = 0; k < 8; ++k) across(&s, k, table.even[k]);
    for (int32_t k = 0; k < 8; ++k) {
      shrinkRow(&s, k, table.gain[k], valid, first == 0);
      backAcross(&s, k);
      for (int32_t i = 0; i < 4; ++i) {
        std::fill(s.early[i] + valid, s.early[i] + kStrip, int16_t{0});
        std::fill(s.late[i] + valid, s.late[i] + kStrip, int16_t{0});
        s.before[i][0] = s.carry[k][i];
        std::copy(s.late[i], s.late[i] + kStrip - 1, s.before[i] + 1);
        s.carry[k][i] = s.late[i][kStrip - 1];
      }
      join(&s, s.joined[k]);
    }
    back(&s);
    const int32_t count = std::min(kColumns, stride - 4 * first);
    for (int32_t k = 0; k < 8; ++k) addRow(out + k * stride + 4 * first, s.joined[k], count);
  }
}

constexpr CpuRow<shrinkBody> kShrink;

}  // namespace

void shrinkBlocks(int16_t* out, const int16_t* in, const int16_t* sigma, const ShrinkTable& table, int32_t width) {
  kShrink(out, in, sigma, table, width);
}

}  // namespace fine
