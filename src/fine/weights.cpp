#include "fine/weights.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "base/integer.h"
#include "base/raw_double.h"
#include "base/scoped.h"

namespace fine {
namespace {

constexpr float kNear = 1.7f;
constexpr float kFar = 3.6f;
constexpr float kSlip = 0.14f;         // share of a step that a difference may reach
constexpr float kQuantisation = 0.1f;  // variance of the bytes of the level
constexpr double kFrameKept = 0.8;     // variance of a frame's sample by that of its pixels

struct Compare {
  const WeightInput* in;
  const Image* base;
  const Image* colour;
  int32_t width;
  int32_t height;
  int16_t* luma;  // of the frame on the base's grid
  int16_t* pairs;
};

bool covered(const Compare& c, const MeshNode& p) {
  const int32_t x = p.x >> 15;
  const int32_t y = p.y >> 15;
  return x >= 1 && y >= 1 && x < c.width - 2 && y < c.height - 2;
}

// A line y = x + gain x + offset by iterated weights.
void fitDrift(Drift* drift, const Compare& c) {
  for (int32_t channel = 0; channel < 3; ++channel) {
    double gain = 0.0, offset = 0.0;
    for (int32_t round = 0; round < 4; ++round) {
      // Wide at first, then near the noise.
      const double limit = round == 0 ? 40.0 : round == 1 ? 12.0 : 6.0;
      double n = 0, sx = 0, sy = 0, sxx = 0, sxy = 0;
      for (int32_t y = 2; y < c.height - 2; y += 2) {
        for (int32_t x = 2; x < c.width - 2; x += 2) {
          if (!covered(c, meshPosition(*c.in->mapMesh, x, y))) continue;
          const int32_t at = y * c.width + x;
          const double from = (channel == 0 ? c.luma[at] : c.pairs[2 * at + channel - 1]) / 64.0;
          const double to =
              (channel == 0 ? imageRow(c.base, y)[x] : imageRow(c.colour, y)[2 * x + channel - 1]) - 128.0;
          const double e = to - from - gain * from - offset;
          const double size = e < 0 ? -e : e;
          if (size > 3 * limit) continue;
          const double w = size < limit ? 1.0 : limit / size;
          n += w;
          sx += w * from;
          sy += w * (to - from);
          sxx += w * from * from;
          sxy += w * from * (to - from);
        }
      }
      if (n < 100) break;
      // A prior holds the gain where there is no range of brightness.
      const double variance = sxx - sx * sx / n + n * 4.0;
      gain = (sxy - sx * sy / n) / variance;
      offset = (sy - gain * sx) / n;
    }
    gain = gain < -0.3 ? -0.3 : gain > 0.3 ? 0.3 : gain;
    offset = offset < -40 ? -40 : offset > 40 ? 40 : offset;
    drift->gain[channel] = static_cast<int16_t>(RawDouble_floor(gain * 32768.0 + 0.5));
    drift->offset[channel] = static_cast<int16_t>(RawDouble_floor(offset * 64.0 + 0.5));
  }
}

int16_t corrected(int16_t s, const Drift& drift, int32_t channel) {
  return static_cast<int16_t>(s + ((s * drift.gain[channel] + 16384) >> 15) + drift.offset[channel]);
}

// The largest step to a neighbour, in levels.
int32_t steepness(const Image& image, int32_t x, int32_t y, int32_t channels, int32_t channel) {
  const int32_t left = std::max(0, x - 1);
  const int32_t right = std::min(image.width - 1, x + 1);
  const uint8_t* row = imageRow(&image, y);
  const uint8_t* up = imageRow(&image, std::max(0, y - 1));
  const uint8_t* down = imageRow(&image, std::min(image.height - 1, y + 1));
  const int32_t v = row[x * channels + channel];
  return std::max(std::max(std::abs(row[left * channels + channel] - v), std::abs(row[right * channels + channel] - v)),
                  std::max(std::abs(up[x * channels + channel] - v), std::abs(down[x * channels + channel] - v)));
}

// Mean of the three ratios; outside the frame a number beyond all limits.
void ratioRow(float* out, const Compare& c, const Drift& drift, const float* expected, int32_t y, float slip) {
  const uint8_t* base = imageRow(c.base, y);
  const uint8_t* colour = imageRow(c.colour, y);
  for (int32_t x = 0; x < c.width; ++x) {
    const int32_t at = y * c.width + x;
    const float* e = expected + 3 * base[x];
    const float g = slip * static_cast<float>(steepness(*c.base, x, y, 1, 0));
    const float dy = static_cast<float>(corrected(c.luma[at], drift, 0) - (base[x] - 128) * 64) * (1.0f / 64);
    float sum = dy * dy / (e[0] + g * g);
    for (int32_t k = 0; k < 2; ++k) {
      const float gc = slip * static_cast<float>(steepness(*c.colour, x, y, 2, k));
      const float d =
          static_cast<float>(corrected(c.pairs[2 * at + k], drift, 1 + k) - (colour[2 * x + k] - 128) * 64) *
          (1.0f / 64);
      sum += d * d / (e[1 + k] + gc * gc + 0.1f * g * g);
    }
    // What is far off is far off: one pixel shall not outvote 25.
    out[x] = std::min(sum * (1.0f / 3), 40.0f);
  }
}

// out = sum of the five rows and columns round each pixel / 25, edges repeated.
void box5(float* out, const float* in, float* line, int32_t width, int32_t height) {
  for (int32_t y = 0; y < height; ++y) {
    for (int32_t x = 0; x < width; ++x) line[x] = 0.0f;
    for (int32_t j = -2; j <= 2; ++j) {
      const float* row = in + clampInt(y + j, 0, height - 1) * width;
      for (int32_t x = 0; x < width; ++x) line[x] += row[x];
    }
    float* to = out + y * width;
    for (int32_t x = 0; x < width; ++x) {
      float sum = 0.0f;
      for (int32_t i = -2; i <= 2; ++i) sum += line[clampInt(x + i, 0, width - 1)];
      to[x] = sum * 0.04f;
    }
  }
}

// Least of the 3x3 neighbours, then their mean.
void soften(Image* map, uint8_t* scratch) {
  const int32_t w = map->width;
  const int32_t h = map->height;
  for (int32_t y = 0; y < h; ++y) {
    const uint8_t* rows[3] = {imageRow(map, std::max(0, y - 1)), imageRow(map, y),
                              imageRow(map, std::min(h - 1, y + 1))};
    for (int32_t x = 0; x < w; ++x) {
      uint8_t least = 255;
      for (const uint8_t* row : rows) {
        for (int32_t i = -1; i <= 1; ++i) least = std::min(least, row[clampInt(x + i, 0, w - 1)]);
      }
      scratch[y * w + x] = least;
    }
  }
  for (int32_t y = 0; y < h; ++y) {
    uint8_t* to = imageRow(map, y);
    for (int32_t x = 0; x < w; ++x) {
      int32_t sum = 4;
      for (int32_t j = -1; j <= 1; ++j) {
        const uint8_t* row = scratch + clampInt(y + j, 0, h - 1) * w;
        for (int32_t i = -1; i <= 1; ++i) sum += row[clampInt(x + i, 0, w - 1)];
      }
      // Never above what the place itself allows: a hole of the map stays a hole.
      to[x] = std::min(static_cast<uint8_t>(sum / 9), scratch[y * w + x]);
    }
  }
}

}  // namespace

Status makeWeights(Image* map, Drift* drift, float* share, Env* env, const WeightInput& input) {
  const Image& base = *input.baseLuma;
  Compare c = {&input, &base, input.baseColour, base.width, base.height, nullptr, nullptr};
  const size_t area = static_cast<size_t>(c.width) * static_cast<size_t>(c.height);
  const ScopedBlock<int16_t> luma(env, area + kSampleSlack);
  const ScopedBlock<int16_t> pairs(env, 2 * (area + kSampleSlack));
  const ScopedBlock<float> ratios(env, area);
  const ScopedBlock<float> means(env, area + static_cast<size_t>(c.width));
  if (!luma || !pairs || !ratios || !means) return ZELVAN_ERROR_NOMEM;
  c.luma = luma.data();
  c.pairs = pairs.data();
  for (int32_t y = 0; y < c.height; ++y) {
    sampleRow(c.luma + y * c.width, *input.samplers, true, input.frame->level[kMapLevel], *input.mapMesh, y, c.width);
    sampleRow(c.pairs + 2 * y * c.width, *input.samplers, true, input.frame->colour, *input.mapMesh, y, c.width);
  }
  fitDrift(drift, c);

  const auto strictness = static_cast<float>(input.strictness);
  float expected[256 * 3];
  for (int32_t v = 0; v < 256; ++v) {
    for (int32_t k = 0; k < 3; ++k) {
      expected[3 * v + k] = input.noise->map[k].at(v) * static_cast<float>(1.0 + kFrameKept) + kQuantisation;
    }
  }
  for (int32_t y = 0; y < c.height; ++y) ratioRow(ratios.data() + y * c.width, c, *drift, expected, y, kSlip);
  box5(means.data(), ratios.data(), means.data() + area, c.width, c.height);

  const float near = 1.0f + (kNear - 1.0f) / strictness;
  const float far = 1.0f + (kFar - 1.0f) / strictness;
  int64_t sum = 0;
  int64_t seen = 0;
  for (int32_t y = 0; y < c.height; ++y) {
    uint8_t* row = imageRow(map, y);
    for (int32_t x = 0; x < c.width; ++x) {
      const float t =
          (far - means[static_cast<size_t>(y) * static_cast<size_t>(c.width) + static_cast<size_t>(x)]) / (far - near);
      const bool shown = covered(c, meshPosition(*input.mapMesh, x, y));
      row[x] = !shown ? 0 : static_cast<uint8_t>(t <= 0.0f ? 0.0f : t >= 1.0f ? 255.0f : 255.0f * t);
      seen += shown;
    }
  }
  soften(map, reinterpret_cast<uint8_t*>(ratios.data()));
  for (int32_t y = 0; y < c.height; ++y) {
    const uint8_t* row = imageRow(map, y);
    for (int32_t x = 0; x < c.width; ++x) sum += row[x];
  }
  *share = seen > 0 ? static_cast<float>(sum) / (255.0f * static_cast<float>(seen)) : 0.0f;
  return ZELVAN_OK;
}

}  // namespace fine
