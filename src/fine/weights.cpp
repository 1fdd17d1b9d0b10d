#include "fine/weights.h"

#include <algorithm>
#include <cstdlib>

#include "base/cpu_level.h"
#include "base/integer.h"
#include "base/scoped.h"
#include "fine/lanes.h"
#include "parallel/pel_rows.h"

namespace fine {
namespace {

constexpr float kNear = 1.7f;
constexpr float kFar = 3.6f;
constexpr float kLeaning = 9.0f;  // mean difference squared by its expectation: from here on the weight falls
constexpr float kLeaningFar = 18.0f;
constexpr float kSystematic = 0.16f;   // variance of a mean difference that is no noise
constexpr float kSlip = 0.14f;         // share of a step that a difference may reach
constexpr float kQuantisation = 0.1f;  // variance of the bytes of the level

using Byte = uint8_t;

ALWAYS_INLINE void coverBody(Byte* __restrict to, const MeshNode& from, const MeshNode& step, const MeshNode& end,
                             int32_t count) {
  for (int32_t k = 0; k < count; ++k) {
    const int32_t px = from.x + k * step.x;
    const int32_t py = from.y + k * step.y;
    to[k] = px >= 0x8000 && py >= 0x8000 && px < end.x && py < end.y ? 255 : 0;
  }
}
constexpr CpuRow<coverBody> kCover;

void coverRow(Byte* out, const Mesh& mesh, int32_t y, int32_t width, int32_t height) {
  const MeshNode end = {(width - 2) << 15, (height - 2) << 15};
  const int32_t cells = mesh.across - 1;
  for (int32_t i = 0; i < cells; i += kMeshRowCells) {
    const int32_t here = std::min(kMeshRowCells, cells - i);
    MeshRow row;
    lumaLines(&row, mesh, i, here, y);
    for (int32_t k = 0; k < here; ++k) {
      const int32_t x = (i + k) * kMeshStep;
      kCover(out + x, {row.at[2 * k], row.at[2 * k + 1]}, {row.step[2 * k], row.step[2 * k + 1]}, end,
             std::min(kMeshStep, width - x));
    }
  }
}

// Steps to the four neighbours: the largest. Channels interleaved bytes, of which one counts.
template <int32_t Channels>
void steepRow(Byte* __restrict out, const Image& image, int32_t y, int32_t channel) {
  const Byte* __restrict row = imageRow(&image, y) + channel;
  const Byte* __restrict up = imageRow(&image, std::max(0, y - 1)) + channel;
  const Byte* __restrict down = imageRow(&image, std::min(image.height - 1, y + 1)) + channel;
  const auto at = [&](int32_t x, int32_t left, int32_t right) {
    const int32_t v = row[x * Channels];
    const int32_t across = std::max(std::abs(row[left * Channels] - v), std::abs(row[right * Channels] - v));
    const int32_t along = std::max(std::abs(up[x * Channels] - v), std::abs(down[x * Channels] - v));
    return static_cast<Byte>(std::max(across, along));
  };
  const int32_t last = image.width - 1;
  for (int32_t x = 1; x < last; ++x) out[x] = at(x, x - 1, x + 1);
  out[0] = at(0, 0, std::min(1, last));
  out[last] = at(last, std::max(0, last - 1), last);
}

struct PrepareJob {
  const WeightBase* base;
  float* planes;
  const float* expected;  // 256 of luma, then of the chroma bytes
};

void prepareRows(const PrepareJob& job, int32_t begin, int32_t end) {
  const Image& luma = *job.base->luma;
  const int32_t width = luma.width;
  const size_t area = static_cast<size_t>(width) * static_cast<size_t>(luma.height);
  constexpr int32_t kPiece = 256;
  for (int32_t y = begin; y < end; ++y) {
    // The steps of a row are kept in the row of the first plane until they are used.
    float* const out = job.planes + static_cast<size_t>(y) * static_cast<size_t>(width);
    auto* const steps = reinterpret_cast<Byte*>(out + 2 * area);
    for (int32_t channel = 0; channel < 3; ++channel) {
      if (channel == 0) {
        steepRow<1>(steps, luma, y, 0);
      } else {
        steepRow<2>(steps + channel * width, *job.base->colour, y, channel - 1);
      }
    }
    const Byte* row = imageRow(&luma, y);
    // From the right, since the last plane's row still holds the steps.
    for (int32_t channel = 0; channel < 2; ++channel) {
      float* __restrict to = out + static_cast<size_t>(channel) * area;
      const float* expected = job.expected + 256 * channel;
      for (int32_t x = 0; x < width; ++x) {
        const float g = kSlip * static_cast<float>(steps[x]);
        const float c = kSlip * static_cast<float>(steps[channel * width + x]);
        to[x] = channel == 0 ? 1.0f / (expected[row[x]] + g * g) : 1.0f / (expected[row[x]] + c * c + 0.1f * g * g);
      }
    }
    Byte luminance[kPiece], chroma[kPiece];
    float* to = out + 2 * area;
    const float* expected = job.expected + 512;
    for (int32_t x1 = width; x1 > 0; x1 -= std::min(x1, kPiece)) {
      const int32_t x0 = x1 - std::min(x1, kPiece);
      std::copy(steps + x0, steps + x1, luminance);
      std::copy(steps + 2 * width + x0, steps + 2 * width + x1, chroma);
      // What is written lies at four times the place of what is still to be read.
      for (int32_t x = x0; x < x1; ++x) {
        const float g = kSlip * static_cast<float>(luminance[x - x0]);
        const float c = kSlip * static_cast<float>(chroma[x - x0]);
        to[x] = 1.0f / (expected[row[x]] + c * c + 0.1f * g * g);
      }
    }
  }
}

// What the square of a sum of difference x certainty over 5x5 is to be multiplied with: 1 / its expectation.
void prepareLeaning(const PrepareJob& job, int32_t begin, int32_t end) {
  const Image& luma = *job.base->luma;
  const int32_t width = luma.width;
  const size_t area = static_cast<size_t>(width) * static_cast<size_t>(luma.height);
  constexpr int32_t kPiece = 256;
  float line[kPiece + 4];
  for (int32_t channel = 0; channel < 3; ++channel) {
    const float* plane = job.base->certainty[channel];
    const float patches = job.base->coherence[channel];
    for (int32_t y = begin; y < end; ++y) {
      const float* rows[5];
      for (int32_t j = 0; j < 5; ++j) {
        rows[j] = plane + static_cast<ptrdiff_t>(clampInt(y + j - 2, 0, luma.height - 1)) * width;
      }
      const auto sumAt = [&](int32_t x) { return rows[0][x] + rows[1][x] + rows[2][x] + rows[3][x] + rows[4][x]; };
      float* out = job.planes + static_cast<size_t>(3 + channel) * area + static_cast<ptrdiff_t>(y) * width;
      for (int32_t x0 = 0; x0 < width; x0 += kPiece) {
        const int32_t count = std::min(kPiece, width - x0);
        const int32_t right = std::min(count + 2, width - x0);
        for (int32_t i = x0 > 0 ? -2 : 0; i < right; ++i) line[i + 2] = sumAt(x0 + i);
        if (x0 == 0) line[0] = line[1] = line[2];
        for (int32_t i = right; i < count + 2; ++i) line[i + 2] = line[i + 1];
        for (int32_t i = 0; i < count; ++i) {
          const float sum = line[i] + line[i + 1] + line[i + 2] + line[i + 3] + line[i + 4];
          out[x0 + i] = 1.0f / (sum * (patches + kSystematic * sum));
        }
      }
    }
  }
}

// Lines of a row: mean of the three ratios, and for each channel difference x certainty.
enum Line : int32_t { RATIO, LEANING, kLines = LEANING + 3 };

// Of a frame's sample, its drift undone, to a byte of the base: 1/64 levels.
ALWAYS_INLINE int16_t difference(int16_t s, Byte base, int16_t gain, int16_t offset) {
  return static_cast<int16_t>(s + mulRound(s, gain) + offset - (base - 128) * 64);
}

struct CompareRow {
  float* out[kLines];
  const float* certainty[3];
  const int16_t* luma;  // of the frame
  const int16_t* pairs;
  const Byte* baseLuma;
  const Byte* baseColour;
  const Byte* covered;
  int32_t width;
};

ALWAYS_INLINE void compareBody(const CompareRow& row, const Drift& drift) {
  // In pieces over arrays: what is interleaved comes apart, and the lanes of 16 bits stay such.
  constexpr int32_t kPiece = 64;
  for (int32_t begin = 0; begin < row.width; begin += kPiece) {
    const int32_t count = std::min(kPiece, row.width - begin);
    alignas(64) int16_t d[3][kPiece];
    alignas(64) float inside[kPiece], sum[kPiece];
    {
      const int16_t* __restrict s = row.luma + begin;
      const Byte* __restrict from = row.baseLuma + begin;
      for (int32_t x = 0; x < count; ++x) d[0][x] = difference(s[x], from[x], drift.gain[0], drift.offset[0]);
    }
    const int16_t* __restrict pairs = row.pairs + 2 * begin;
    const Byte* __restrict colour = row.baseColour + 2 * begin;
    for (int32_t x = 0; x < count; ++x) {
      d[1][x] = difference(pairs[2 * x], colour[2 * x], drift.gain[1], drift.offset[1]);
      d[2][x] = difference(pairs[2 * x + 1], colour[2 * x + 1], drift.gain[2], drift.offset[2]);
    }
    // Beyond the frame nothing speaks for or against it.
    const Byte* __restrict covered = row.covered + begin;
    for (int32_t x = 0; x < count; ++x) inside[x] = static_cast<float>(covered[x]) * (1.0f / (255 * 64));
    for (int32_t channel = 0; channel < 3; ++channel) {
      const float* __restrict certainty = row.certainty[channel] + begin;
      float* __restrict weighted = row.out[LEANING + channel] + begin;
      for (int32_t x = 0; x < count; ++x) {
        const auto v = static_cast<float>(d[channel][x]);
        weighted[x] = v * certainty[x] * inside[x];
        sum[x] = channel == 0 ? v * weighted[x] : sum[x] + v * weighted[x];
      }
    }
    float* __restrict ratio = row.out[RATIO] + begin;
    for (int32_t x = 0; x < count; ++x) {
      const float all = sum[x] * (1.0f / (3 * 64)) + (1.0f - 64.0f * inside[x]);
      ratio[x] = all < 40.0f ? all : 40.0f;  // what is far off is far off: one pixel shall not outvote 25
    }
  }
}
constexpr CpuRow<compareBody> kCompareRow;

void compareRow(float* const* out, const WeightBase& base, const LaidFrame& laid, const Drift& drift, int32_t y) {
  const int32_t width = laid.baseLuma->width;
  const size_t at = static_cast<size_t>(y) * static_cast<size_t>(width);
  CompareRow row = {{},
                    {base.certainty[0] + at, base.certainty[1] + at, base.certainty[2] + at},
                    laid.luma + at,
                    laid.pairs + 2 * at,
                    imageRow(laid.baseLuma, y),
                    imageRow(laid.baseColour, y),
                    laid.covered + at,
                    width};
  std::copy(out, out + kLines, row.out);
  kCompareRow(row, drift);
}

// Rows j - radius to j + radius round a row, edges repeated.
template <typename T, int32_t Radius>
struct Rows {
  const T* row[2 * Radius + 1];
  template <typename At>
  Rows(int32_t y, int32_t height, const At& at) {
    for (int32_t j = -Radius; j <= Radius; ++j) row[j + Radius] = at(clampInt(y + j, 0, height - 1));
  }
};

// Repeats both ends of a line that has room for two items on each side.
template <typename T>
ALWAYS_INLINE void padLine(T* line, int32_t width) {
  line[-2] = line[-1] = line[0];
  line[width] = line[width + 1] = line[width - 1];
}

// Sums over 5x5, edges repeated. line: room for two items on each side.
ALWAYS_INLINE void boxBody(float* __restrict out, const Rows<float, 2>& r, float* __restrict line, int32_t width) {
  const float* __restrict a = r.row[0];
  const float* __restrict b = r.row[1];
  const float* __restrict c = r.row[2];
  const float* __restrict d = r.row[3];
  const float* __restrict e = r.row[4];
  for (int32_t x = 0; x < width; ++x) line[x] = a[x] + b[x] + c[x] + d[x] + e[x];
  padLine(line, width);
  for (int32_t x = 0; x < width; ++x) out[x] = line[x - 2] + line[x - 1] + line[x] + line[x + 1] + line[x + 2];
}
constexpr CpuRow<boxBody> kBoxRow;

struct Limits {
  float far;  // mean ratio of weight zero
  float scale;
  float leaningFar;
  float leaningScale;
};

// The weight of a row from the sums of its lines: the lesser of what both tests say.
ALWAYS_INLINE void weightBody(Byte* __restrict out, const float* const* sums, const WeightBase& base,
                              const Byte* __restrict covered, int32_t y, int32_t width, const Limits& limits) {
  const size_t at = static_cast<size_t>(y) * static_cast<size_t>(width);
  const float* __restrict ratio = sums[RATIO];
  const float* __restrict ly = sums[LEANING];
  const float* __restrict lu = sums[LEANING + 1];
  const float* __restrict lv = sums[LEANING + 2];
  const float* __restrict ey = base.leaning[0] + at;
  const float* __restrict eu = base.leaning[1] + at;
  const float* __restrict ev = base.leaning[2] + at;
  for (int32_t x = 0; x < width; ++x) {
    const float ty = ly[x] * ly[x] * ey[x];
    const float tu = lu[x] * lu[x] * eu[x];
    const float tv = lv[x] * lv[x] * ev[x];
    const float chroma = tu > tv ? tu : tv;
    const float leaning = (limits.leaningFar - (ty > chroma ? ty : chroma)) * limits.leaningScale;
    const float spread = (limits.far - ratio[x] * 0.04f) * limits.scale;
    const float t = leaning < spread ? leaning : spread;
    const float weight = t < 0.0f ? 0.0f : t > 1.0f ? 255.0f : 255.0f * t;
    // What lies beyond the frame must not take from its neighbours: it goes last.
    out[x] = static_cast<Byte>(static_cast<int32_t>(weight)) | static_cast<Byte>(~covered[x]);
  }
}
constexpr CpuRow<weightBody> kWeightRow;

// Least of the 3x3 neighbours, nothing beyond the frame.
ALWAYS_INLINE void leastBody(Byte* __restrict out, const Rows<Byte, 1>& r, Byte* __restrict line,
                             const Byte* __restrict covered, int32_t width) {
  const Byte* __restrict a = r.row[0];
  const Byte* __restrict b = r.row[1];
  const Byte* __restrict c = r.row[2];
  for (int32_t x = 0; x < width; ++x) line[x] = std::min(std::min(a[x], b[x]), c[x]);
  padLine(line, width);
  for (int32_t x = 0; x < width; ++x) out[x] = std::min(std::min(line[x - 1], line[x]), line[x + 1]) & covered[x];
}
constexpr CpuRow<leastBody> kLeastRow;

// Mean of the 3x3 neighbours, but never above the place itself: a hole of the map stays a hole.
ALWAYS_INLINE void softBody(Byte* __restrict out, const Rows<Byte, 1>& r, uint16_t* __restrict line, int32_t width) {
  const Byte* __restrict a = r.row[0];
  const Byte* __restrict b = r.row[1];
  const Byte* __restrict c = r.row[2];
  for (int32_t x = 0; x < width; ++x) line[x] = static_cast<uint16_t>(a[x] + b[x] + c[x]);
  padLine(line, width);
  for (int32_t x = 0; x < width; ++x) {
    const auto sum = static_cast<uint16_t>(line[x - 1] + line[x] + line[x + 1] + 4);
    // 7282 / 65536 is a ninth: exact for sums up to 2299.
    out[x] = std::min(static_cast<Byte>((uint32_t{sum} * 7282) >> 16), b[x]);
  }
}
constexpr CpuRow<softBody> kSoftRow;

}  // namespace

Status prepareWeights(WeightBase* base, float* planes, Pel* pel, const Image& luma, const Image& colour,
                      const Noise& noise) {
  const size_t area = static_cast<size_t>(luma.width) * static_cast<size_t>(luma.height);
  *base = {&luma,
           &colour,
           {planes, planes + area, planes + 2 * area},
           {planes + 3 * area, planes + 4 * area, planes + 5 * area},
           {},
           {}};
  float expected[3 * 256];
  for (int32_t k = 0; k < 3; ++k) {
    base->coherence[k] = noise.coherence[k];
    for (int32_t v = 0; v < 256; ++v) {
      expected[256 * k + v] = noise.map[k].at(v) * static_cast<float>(1.0 + kFrameKept) + kQuantisation;
      base->noise[k] += noise.map[k].at(v) * (1.0f / 256);
    }
  }
  const PrepareJob job = {base, planes, expected};
  const Status status = executeRows<PrepareJob, prepareRows>(pel, job, luma.height);
  return status != ZELVAN_OK ? status : executeRows<PrepareJob, prepareLeaning>(pel, job, luma.height);
}

Status makeWeights(Image* map, Drift* drift, float* share, Env* env, const WeightInput& input) {
  const int32_t width = input.base->luma->width;
  const int32_t height = input.base->luma->height;
  const size_t area = static_cast<size_t>(width) * static_cast<size_t>(height);
  const ScopedBlock<int16_t> luma(env, area + kSampleSlack);
  const ScopedBlock<int16_t> pairs(env, 2 * (area + kSampleSlack));
  const ScopedBlock<Byte> covered(env, area);
  const ScopedBlock<Byte> least(env, area);
  // Of the five rows round a row all lines, then their sums, then scratch for one.
  const size_t padded = static_cast<size_t>(width) + 4;
  const ScopedBlock<float> lines(env, (6 * kLines + 1) * padded);
  if (!luma || !pairs || !covered || !least || !lines) return ZELVAN_ERROR_NOMEM;
  const LaidFrame laid = {input.base->luma, input.base->colour, luma.data(), pairs.data(), covered.data()};
  const auto rowOf = [&](auto* plane, int32_t y) {
    return plane + static_cast<size_t>(y) * static_cast<size_t>(width);
  };
  for (int32_t y = 0; y < height; ++y) {
    sampleRow(rowOf(laid.luma, y), input.frame->level[kMapLevel], *input.mapMesh, y, width);
    sampleRow(laid.pairs + 2 * static_cast<size_t>(y) * static_cast<size_t>(width), input.frame->colour, *input.mapMesh,
              y, width);
    coverRow(rowOf(laid.covered, y), *input.mapMesh, y, width, height);
  }
  {
    const ScopedBlock<float> squares(env, kDriftScratch);
    if (!squares) return ZELVAN_ERROR_NOMEM;
    fitDrift(drift, laid, input.base->noise, squares.data());
  }

  const double strictness = input.strictness > 0.01 ? input.strictness : 0.01;
  const auto limitsOf = [&](float near, float far) {
    return std::pair{static_cast<float>(1.0 + (far - 1.0) / strictness),
                     static_cast<float>(strictness / (double{far} - double{near}))};
  };
  const auto [far, scale] = limitsOf(kNear, kFar);
  const auto [leaningFar, leaningScale] = limitsOf(kLeaning, kLeaningFar);
  const Limits limits = {far, scale, leaningFar, leaningScale};
  const auto lineOf = [&](int32_t slot, int32_t i) {
    return lines.data() + static_cast<size_t>(slot * kLines + i) * padded + 2;
  };
  float* sums[kLines];
  for (int32_t i = 0; i < kLines; ++i) sums[i] = lineOf(5, i);
  float* line = lineOf(6, 0);
  for (int32_t y = 0; y < height + 2; ++y) {
    if (y < height) {
      float* out[kLines];
      for (int32_t i = 0; i < kLines; ++i) out[i] = lineOf(y % 5, i);
      compareRow(out, *input.base, laid, *drift, y);
    }
    if (y < 2) continue;
    for (int32_t i = 0; i < kLines; ++i) {
      kBoxRow(sums[i], Rows<float, 2>(y - 2, height, [&](int32_t j) { return lineOf(j % 5, i); }), line, width);
    }
    kWeightRow(imageRow(map, y - 2), sums, *input.base, rowOf(laid.covered, y - 2), y - 2, width, limits);
  }
  Byte* byteLine = reinterpret_cast<Byte*>(line);
  for (int32_t y = 0; y < height; ++y) {
    kLeastRow(rowOf(least.data(), y), Rows<Byte, 1>(y, height, [&](int32_t j) { return imageRow(map, j); }), byteLine,
              rowOf(laid.covered, y), width);
  }
  int64_t sum = 0;
  int64_t seen = 0;
  for (int32_t y = 0; y < height; ++y) {
    kSoftRow(imageRow(map, y), Rows<Byte, 1>(y, height, [&](int32_t j) { return rowOf(least.data(), j); }),
             reinterpret_cast<uint16_t*>(line), width);
    const Byte* row = imageRow(map, y);
    const Byte* inside = rowOf(laid.covered, y);
    int32_t rowSum = 0, rowSeen = 0;
    for (int32_t x = 0; x < width; ++x) {
      rowSum += row[x];
      rowSeen += inside[x];
    }
    sum += rowSum;
    seen += rowSeen;
  }
  *share = seen > 0 ? static_cast<float>(sum) / static_cast<float>(seen) : 0.0f;
  return ZELVAN_OK;
}

}  // namespace fine
