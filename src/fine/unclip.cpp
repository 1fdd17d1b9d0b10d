#include "fine/unclip.h"

#include <algorithm>

#include "base/integer.h"
#include "base/raw_double.h"
#include "parallel/pel_kernel.h"

namespace fine {
namespace {

constexpr int32_t kRun = 32;  // neighbours that are counted together
constexpr int32_t kMostRuns = 16384;
constexpr uint32_t kLeastCount = 200;   // of a level and its neighbours
constexpr double kMostDeviation = 1.4;  // of the noise that is measured
constexpr int32_t kReach = 64;          // levels from an end that can change
constexpr int32_t kChunk = 64;

// By the share of cut samples, falling: t / g(t), 0 where the place is white or beyond, and g(t).
constexpr struct {
  double cut, ratio, mean;
} kNormal[] = {
    {1.0, 0.0, 0.0},          {0.9772, 0.0, 0.0085},    {0.8413, 0.0, 0.0833},    {0.6915, 0.0, 0.1978},
    {0.5, 0.0, 0.3989},       {0.4013, 0.4661, 0.5364}, {0.3085, 0.7165, 0.6978}, {0.2266, 0.8511, 0.8812},
    {0.1587, 0.9231, 1.0833}, {0.0668, 0.9808, 1.5293}, {0.0228, 0.9958, 2.0084}, {0.0062, 0.9992, 2.5020},
    {0.0, 1.0, 3.0},
};

// What is missing at distance d from the end.
double missing(double cut, double distance, double mostDeviation) {
  int32_t i = 1;
  while (cut < kNormal[i].cut) ++i;
  const auto& a = kNormal[i - 1];
  const auto& b = kNormal[i];
  const double t = (a.cut - cut) / (a.cut - b.cut);
  const double ratio = a.ratio + (b.ratio - a.ratio) * t;
  const double mean = a.mean + (b.mean - a.mean) * t;
  return std::min(distance, mostDeviation * mean) * (1.0 - ratio);
}

double mostDeviation(const NoiseCurve& noise, int32_t from, int32_t to) {
  double most = 0.0;
  for (int32_t bin = from; bin <= to; ++bin) most = std::max(most, double{noise.variance[bin]});
  return most > 0.0 ? kMostDeviation * RawDouble_sqrt(most) : 0.0;
}

// Share of cut samples about a level; 0 where too few are known.
double cutShare(const uint32_t* cut, const uint32_t* shown, int32_t level) {
  uint32_t n = 0, k = 0;
  for (int32_t v = std::max(level - 1, 0); v <= std::min(level + 1, 255); ++v) {
    const uint32_t weight = v == level ? 2 : 1;
    n += weight * shown[v];
    k += weight * cut[v];
  }
  return n < 4 * kLeastCount ? 0.0 : static_cast<double>(k) / n;
}

struct TableJob {
  Image* image;
  const uint8_t* table;
  uint8_t dark;   // levels up to here change,
  uint8_t light;  // and from here on
};

bool touched(const uint8_t* row, int32_t count, uint8_t dark, uint8_t light) {
  uint8_t least = 255, most = 0;
  for (int32_t x = 0; x < count; ++x) {
    least = std::min(least, row[x]);
    most = std::max(most, row[x]);
  }
  return least <= dark || most >= light;
}

Status tableRow(TableJob* job, int32_t y, const PelContext*) {
  uint8_t* row = imageRow(job->image, y);
  for (int32_t left = 0; left < job->image->width; left += kChunk) {
    const int32_t count = std::min(kChunk, job->image->width - left);
    if (!touched(row + left, count, job->dark, job->light)) continue;
    for (int32_t x = left; x < left + count; ++x) row[x] = job->table[row[x]];
  }
  return ZELVAN_OK;
}

}  // namespace

void countClipped(ClipCounts* counts, const Image& merged, const Image& base, const Mesh& mesh) {
  *counts = {};
  int32_t down = 1;
  while ((merged.width / kRun / 4 + 1) * (merged.height / down) > kMostRuns) ++down;
  for (int32_t y = down / 2; y < merged.height; y += down) {
    const uint8_t* row = imageRow(&merged, y);
    for (int32_t left = y % 4 * kRun; left + kRun <= merged.width; left += 4 * kRun) {
      const MeshNode at = meshPosition(mesh, left, y);
      const int32_t shift = ((at.x + (1 << 14)) >> 15) - left;
      const int32_t from = (at.y + (1 << 14)) >> 15;
      if (from < 0 || from >= base.height || left + shift < 0 || left + shift + kRun > base.width) continue;
      const uint8_t* single = imageRow(&base, from) + shift;
      for (int32_t x = left; x < left + kRun; ++x) {
        ++counts->shown[row[x]];
        if (single[x] == 0) ++counts->black[row[x]];
        if (single[x] == 255) ++counts->white[row[x]];
      }
    }
  }
}

bool fillClipTable(uint8_t table[256], const ClipCounts& counts, const NoiseCurve& noise) {
  const double mostDark = mostDeviation(noise, 0, 5);
  const double mostLight = mostDeviation(noise, kNoiseBins - 6, kNoiseBins - 1);
  for (int32_t v = 0; v < 256; ++v) table[v] = static_cast<uint8_t>(v);
  bool changes = false;
  for (int32_t d = kReach; d >= 0; --d) {
    const double dark = missing(cutShare(counts.black, counts.shown, d), d, mostDark);
    const double light = missing(cutShare(counts.white, counts.shown, 255 - d), d, mostLight);
    table[d] = static_cast<uint8_t>(truncToInt32(d - dark + 0.5));
    table[255 - d] = static_cast<uint8_t>(truncToInt32(255 - d + light + 0.5));
    if (d < kReach) {
      table[d] = std::min(table[d], table[d + 1]);
      table[255 - d] = std::max(table[255 - d], table[254 - d]);
    }
    changes = changes || table[d] != d || table[255 - d] != 255 - d;
  }
  return changes;
}

Status unclip(Pel* pel, Image* merged, const Image& base, const Mesh& mesh, const NoiseCurve& noise) {
  ClipCounts counts;
  uint8_t table[256];
  countClipped(&counts, *merged, base, mesh);
  if (!fillClipTable(table, counts, noise)) return ZELVAN_OK;
  TableJob job = {merged, table, 0, 255};
  for (int32_t d = 0; d <= kReach; ++d) {
    if (table[d] != d) job.dark = static_cast<uint8_t>(d);
    if (table[255 - d] != 255 - d) job.light = static_cast<uint8_t>(255 - d);
  }
  static constexpr PelKernel kKernel = pelIndexed<TableJob, tableRow>();
  return executeToEnd(pel, &kKernel, &job, merged->height);
}

}  // namespace fine
