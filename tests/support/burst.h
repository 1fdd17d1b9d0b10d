// Small bursts of a procedural scene for tests of the public road: smooth colour, edges and fine texture, shifted from
// frame to frame, with reproducible noise.
#ifndef ZVT4_TESTS_SUPPORT_BURST_H_
#define ZVT4_TESTS_SUPPORT_BURST_H_

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "api/zelvan_tessaline4.h"

namespace test {

// Value noise: smooth between random lattice values.
inline double valueNoise(double x, double y, uint32_t seed) {
  const auto lattice = [seed](int32_t i, int32_t j) {
    uint32_t h = static_cast<uint32_t>(i) * 0x9E3779B1u ^ static_cast<uint32_t>(j) * 0x85EBCA77u ^ seed * 0xC2B2AE3Du;
    h = (h ^ (h >> 15)) * 0x2C1B3C6Du;
    h = (h ^ (h >> 12)) * 0x297A2D39u;
    return static_cast<double>((h ^ (h >> 15)) & 0xFFFF) / 65535.0;
  };
  const double fx = std::floor(x), fy = std::floor(y);
  const int32_t i = static_cast<int32_t>(fx), j = static_cast<int32_t>(fy);
  const auto ease = [](double t) { return t * t * (3 - 2 * t); };
  const double u = ease(x - fx), v = ease(y - fy), top = lattice(i, j) * (1 - u) + lattice(i + 1, j) * u;
  const double bottom = lattice(i, j + 1) * (1 - u) + lattice(i + 1, j + 1) * u;
  return top * (1 - v) + bottom * v;
}

inline double sceneLuma(double x, double y) {
  double value =
      40 + 90 * valueNoise(x / 90, y / 90, 1) + 60 * valueNoise(x / 17, y / 17, 2) + 50 * valueNoise(x / 6, y / 6, 3);
  if (valueNoise(x / 60, y / 60, 4) > 0.55) value = 255 - value;
  return value;
}
inline double sceneChroma(double x, double y, uint32_t channel) {
  return 128 + 70 * (valueNoise(x / 70, y / 70, 10 + channel) - 0.5);
}

// One frame in a densely packed buffer of its format.
struct Frame {
  std::vector<uint8_t> bytes;
  zelvan_ImageData data = {};
};

// Layout of a format that the library accepts, computed here on its own.
inline Frame makeFrame(const std::string& format, int32_t width, int32_t height) {
  const size_t w = static_cast<size_t>(width + 1) / 2 * 2, h = static_cast<size_t>(height + 1) / 2 * 2;
  Frame frame;
  frame.bytes.assign(format == "YUV422_YUYV" ? w * static_cast<size_t>(height) * 2 : w * h * 3 / 2, 0);
  // The result of a packed burst is converted in its own buffer, which the semi-planar form must fit as well.
  frame.bytes.resize(std::max(frame.bytes.size(), w * h * 3 / 2));
  frame.data.width = width;
  frame.data.height = height;
  frame.data.plane0 = frame.bytes.data();
  frame.data.plane1 = frame.bytes.data() + w * h;
  frame.data.plane2 = frame.bytes.data() + w * h * 5 / 4;
  return frame;
}

inline void fillFrame(Frame* frame, const std::string& format, double shiftX, double shiftY, double noise,
                      uint32_t seed) {
  std::mt19937 random(seed);
  std::normal_distribution<double> normal(0.0, noise > 0 ? noise : 1.0);
  const auto byteOf = [&](double v) {
    return static_cast<uint8_t>(std::clamp(v + (noise > 0 ? normal(random) : 0.0) + 0.5, 0.0, 255.0));
  };
  const int32_t width = frame->data.width, height = frame->data.height;
  const size_t pitch = static_cast<size_t>(width + 1) / 2 * 2, rows = static_cast<size_t>(height + 1) / 2 * 2;
  uint8_t* out = frame->bytes.data();
  const bool packed = format == "YUV422_YUYV";
  for (size_t y = 0; y < (packed ? static_cast<size_t>(height) : rows); ++y) {
    for (size_t x = 0; x < pitch; ++x) {
      const double sx = static_cast<double>(x) + shiftX, sy = static_cast<double>(y) + shiftY;
      const uint8_t luma = byteOf(sceneLuma(sx, sy));
      if (packed) {
        out[y * pitch * 2 + 2 * x] = luma;
        out[y * pitch * 2 + 2 * x + 1] = byteOf(sceneChroma(sx, sy, x & 1));
        continue;
      }
      out[y * pitch + x] = luma;
      if ((x & 1) != 0 || (y & 1) != 0) continue;
      const uint8_t u = byteOf(sceneChroma(sx, sy, 0));
      const uint8_t v = byteOf(sceneChroma(sx, sy, 1));
      if (format == "YUV420_PLANAR") {
        out[pitch * rows + y / 2 * pitch / 2 + x / 2] = u;
        out[pitch * rows * 5 / 4 + y / 2 * pitch / 2 + x / 2] = v;
      } else {
        const bool vFirst = format == "YVU420_SEMIPLANAR";
        out[pitch * rows + y / 2 * pitch + x] = vFirst ? v : u;
        out[pitch * rows + y / 2 * pitch + x + 1] = vFirst ? u : v;
      }
    }
  }
}

inline std::vector<Frame> makeBurst(const std::string& format, int32_t width, int32_t height, int32_t count,
                                    double noise = 6.0) {
  std::vector<Frame> frames;
  for (int32_t i = 0; i < count; ++i) {
    frames.push_back(makeFrame(format, width, height));
    fillFrame(&frames.back(), format, 1.3 * i, -0.8 * i, noise, 100u + static_cast<uint32_t>(i));
  }
  return frames;
}

// A frame's record points into its own bytes; copies must be re-pointed.
inline std::vector<Frame> copyBurst(const std::vector<Frame>& from) {
  std::vector<Frame> frames = from;
  for (size_t i = 0; i < frames.size(); ++i) {
    uint8_t* base = frames[i].bytes.data();
    const auto* old = static_cast<const uint8_t*>(from[i].data.plane0);
    frames[i].data.plane1 = base + (static_cast<const uint8_t*>(from[i].data.plane1) - old);
    frames[i].data.plane2 = base + (static_cast<const uint8_t*>(from[i].data.plane2) - old);
    frames[i].data.plane0 = base;
  }
  return frames;
}

}  // namespace test

#endif  // ZVT4_TESTS_SUPPORT_BURST_H_
