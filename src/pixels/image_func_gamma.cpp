#include "base/integer.h"
#include "base/raw_double.h"
#include "parallel/bands.h"
#include "pixels/image_func.h"

namespace {

constexpr int32_t kCurvePoints = 33;

// Chroma in, one 2x2 block: offsets of the three channels with 3 fraction bits.
struct ChannelOffsets {
  int32_t red;
  int32_t green;
  int32_t blue;

  ChannelOffsets(uint8_t chromaU, uint8_t chromaV) {
    const int32_t u = (chromaU - 128) * 16;
    const int32_t v = (chromaV - 128) * 16;
    red = (v * 0x59ba + 0x4000) >> 15;
    green = (v * -0x2db2 + u * -0x1604 + 0x4000) >> 15;
    blue = (u * 0x7168 + 0x4000) >> 15;
  }
};

struct Channels {
  int32_t red;
  int32_t green;
  int32_t blue;
};

// A value of 0 to 255 for each value of a channel.
using Curve = uint8_t[256];

struct ChannelCurves {
  const uint8_t* red;
  const uint8_t* green;
  const uint8_t* blue;
};

inline Channels curvedChannels(const ChannelOffsets& t, int32_t luma, const ChannelCurves& curves) {
  const auto channel = [&](int32_t offset, const uint8_t* curve) {
    return curve[clampInt((offset + 8 * luma + 4) >> 3, 0, 255)];
  };
  return {channel(t.red, curves.red), channel(t.green, curves.green), channel(t.blue, curves.blue)};
}

// A result that went negative has wrapped through the 16-bit mask and saturates too.
constexpr uint8_t dropFraction(int32_t value) {
  return static_cast<uint8_t>(value < 0x800 ? value >> 3 : 255);
}

inline uint8_t lumaOf(const Channels& c) {
  return dropFraction(((c.green * 0x25910 + 0x4000) >> 15) + ((c.red * 0x13220 + 0x4000) >> 15) +
                      ((c.blue * 0x74b0 + 0x4000) >> 15) + 4);
}
inline uint8_t chromaVOf(const Channels& c) {
  return dropFraction(
      ((4 * c.red + 0x400 + ((c.green * -0x1ad00 + 0x4000) >> 15) + ((c.blue * -0x52f0 + 0x4000) >> 15)) & 0xffff) + 4);
}
inline uint8_t chromaUOf(const Channels& c) {
  return dropFraction(
      ((4 * c.blue + 0x400 + ((c.green * -0x152f0 + 0x4000) >> 15) + ((c.red * -0xad00 + 0x4000) >> 15)) & 0xffff) + 4);
}

struct CurveBand {
  Image* dst;
  const Image* src;
  ChannelCurves curves;
  int32_t byteOfU;
  int32_t begin;
  int32_t end;
};

Status curveBand(CurveBand* band) {
  const ChannelCurves& curves = band->curves;
  const int32_t width = band->dst->width;
  const int32_t height = band->dst->height;
  for (int32_t y = band->begin; y < band->end; y += 2) {
    const int32_t rows = y + 1 < height ? 2 : 1;
    const uint8_t* srcChroma = imageChromaRow(band->src, y >> 1);
    uint8_t* dstChroma = imageChromaRow(band->dst, y >> 1);
    for (int32_t x = 0; x < width; x += 2) {
      const ChannelOffsets offsets(srcChroma[x + band->byteOfU], srcChroma[x + 1 - band->byteOfU]);
      const Channels topLeft = curvedChannels(offsets, imageRow(band->src, y)[x], curves);
      for (int32_t r = 0; r < rows; ++r) {
        const uint8_t* src = imageRow(band->src, y + r);
        uint8_t* dst = imageRow(band->dst, y + r);
        for (int32_t i = x; i < x + 2 && i < width; ++i) dst[i] = lumaOf(curvedChannels(offsets, src[i], curves));
      }
      dstChroma[x + band->byteOfU] = chromaUOf(topLeft);
      dstChroma[x + 1 - band->byteOfU] = chromaVOf(topLeft);
    }
  }
  return ZELVAN_OK;
}

Status applyCurves(ParallelExecutor* executor, Image* dst, const Image* src, const ChannelCurves& curves) {
  const bool vu = src->format == IMAGE_YVU420_SEMIPLANAR;
  if (!vu && src->format != IMAGE_YUV420_SEMIPLANAR) return ZELVAN_ERROR_UNSUPPORTED;
  // Two slices a worker, as many as the queue holds.
  const int32_t n = ParallelExecutor_getNumberOfBands(executor);
  const int64_t height = dst->height;
  return forkBands<CurveBand, curveBand>(executor, n, [&](int32_t i) {
    const auto bound = [&](int32_t k) {
      const int32_t row = static_cast<int32_t>((height * k / n + 3) & ~3);
      return row < dst->height ? row : dst->height;
    };
    return CurveBand{dst, src, curves, vu ? 1 : 0, bound(i), bound(i + 1)};
  });
}

uint8_t cutToByte(double t) {
  return static_cast<uint8_t>(truncToInt32(t < 0.0 ? 0.0 : t > 255.0 ? 255.0 : t));
}

}  // namespace

Status Tessal4ImageFunc_gamma(ParallelExecutor* executor, Image* dst, const Image* src, const double* curve) {
  const double gain = curve[0];
  const double exponent = curve[1];
  const double offset = curve[2];
  uint8_t points[kCurvePoints];
  for (int32_t i = 0; i < kCurvePoints; ++i) {
    points[i] = cutToByte(offset + 255 * gain * RawDouble_incomplete_pow(i * 8 / 255.0, exponent));
  }
  Curve values;
  for (int32_t c = 0; c < 256; ++c) {
    values[c] = static_cast<uint8_t>(((8 - (c & 7)) * points[c >> 3] + (c & 7) * points[(c >> 3) + 1] + 4) >> 3);
  }
  return applyCurves(executor, dst, src, {values, values, values});
}

Status Tessal4ImageFunc_gammaRGB(ParallelExecutor* executor, Image* dst, const Image* src, const double* curves) {
  Curve values[3];
  for (int32_t channel = 0; channel < 3; ++channel) {
    const double* p = curves + 4 * channel;
    for (int32_t i = 0; i < 256; ++i) {
      values[channel][i] = cutToByte(255 * (p[0] * RawDouble_incomplete_pow(i / 255.0 + p[2], p[1]) + p[3]));
    }
  }
  return applyCurves(executor, dst, src, {values[0], values[1], values[2]});
}
