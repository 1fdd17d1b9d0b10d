#include "scene.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace tool {
namespace {

using Colour = std::array<double, 3>;

uint32_t hash(uint32_t a, uint32_t b, uint32_t seed) {
  uint32_t h = a * 0x9E3779B1u ^ b * 0x85EBCA77u ^ seed * 0xC2B2AE3Du;
  h = (h ^ (h >> 15)) * 0x2C1B3C6Du;
  h = (h ^ (h >> 12)) * 0x297A2D39u;
  return h ^ (h >> 15);
}
// 0 to 1.
double chance(int32_t a, int32_t b, uint32_t seed) {
  return (hash(static_cast<uint32_t>(a), static_cast<uint32_t>(b), seed) & 0xFFFF) / 65535.0;
}

// Smooth between random values on a lattice.
double noise(double x, double y, uint32_t seed) {
  const double fx = std::floor(x);
  const double fy = std::floor(y);
  const auto i = static_cast<int32_t>(fx);
  const auto j = static_cast<int32_t>(fy);
  const auto ease = [](double t) { return t * t * (3 - 2 * t); };
  const double u = ease(x - fx);
  const double v = ease(y - fy);
  const double top = chance(i, j, seed) * (1 - u) + chance(i + 1, j, seed) * u;
  const double bottom = chance(i, j + 1, seed) * (1 - u) + chance(i + 1, j + 1, seed) * u;
  return top * (1 - v) + bottom * v;
}

// Octaves of noise, each half as strong and half as wide.
double cloud(double x, double y, uint32_t seed, int32_t octaves) {
  double sum = 0;
  double weight = 0.5;
  for (int32_t i = 0; i < octaves; ++i, weight /= 2, x *= 2, y *= 2) sum += weight * noise(x, y, seed + 17 * i);
  return sum;
}

Colour mix(const Colour& a, const Colour& b, double t) {
  return {a[0] + (b[0] - a[0]) * t, a[1] + (b[1] - a[1]) * t, a[2] + (b[2] - a[2]) * t};
}
Colour scaled(const Colour& c, double s) {
  return {c[0] * s, c[1] * s, c[2] * s};
}

constexpr Colour kWalls[] = {{196, 120, 92}, {214, 196, 160}, {150, 158, 170}, {178, 98, 78}, {120, 138, 120}};

// Coordinates are in units of a hundredth of the height.
Colour sky(double x, double y, uint32_t seed) {
  const Colour blue = mix({92, 146, 214}, {206, 222, 236}, std::clamp(y / 45, 0.0, 1.0));
  return mix(blue, {244, 244, 240}, std::clamp((cloud(x / 22, y / 9, seed + 3, 5) - 0.5) * 3, 0.0, 0.9));
}

// A row of houses of different width, height and slant; each with bricks and windows.
bool house(double x, double y, uint32_t seed, Colour* out) {
  constexpr double kWidth = 21;
  const double slant = 0.06 * (noise(x / 60, 0.5, seed + 8) - 0.5);
  const double along = x + slant * (y - 60);
  const auto index = static_cast<int32_t>(std::floor(along / kWidth));
  const double u = along - index * kWidth;
  const double roof =
      16 + 24 * chance(index, 1, seed) + (chance(index, 2, seed) < 0.5 ? std::fabs(u - kWidth / 2) * 0.7 : 0);
  if (y < roof || y > 72) return false;
  Colour wall = kWalls[hash(static_cast<uint32_t>(index), 3, seed) % 5];
  // Bricks.
  const double course = y / 1.1;
  const double brick = u / 2.4 + (static_cast<int32_t>(std::floor(course)) & 1) * 0.5;
  const bool mortar = course - std::floor(course) < 0.14 || brick - std::floor(brick) < 0.07;
  wall = scaled(wall, mortar ? 1.15
                             : 0.82 + 0.3 * chance(static_cast<int32_t>(std::floor(brick)) + 50 * index,
                                                   static_cast<int32_t>(std::floor(course)), seed + 4));
  // Windows with a cross bar and a reflection of the sky.
  const double wu = std::fmod(u - 1.5, 6.0);
  const double wv = std::fmod(y - roof - 4, 9.0);
  if (u > 1.5 && y > roof + 4 && wu > 1 && wu < 4.6 && wv > 1 && wv < 6.4 && y < 66) {
    const bool frame =
        wu < 1.3 || wu > 4.3 || wv < 1.3 || wv > 6.1 || std::fabs(wu - 2.8) < 0.13 || std::fabs(wv - 3.4) < 0.13;
    wall = frame ? Colour{236, 234, 226} : mix({34, 40, 56}, {150, 176, 200}, std::clamp((wu - wv + 3) / 8, 0.0, 1.0));
  }
  *out = wall;
  return true;
}

// Small print on a bill: rows of letter-like marks.
bool bill(double x, double y, uint32_t seed, double left, Colour* out) {
  const double u = x - left;
  const double v = y - 52 - 0.12 * u;
  if (u < 0 || u > 13 || v < 0 || v > 17) return false;
  *out = {246, 242, 228};
  if (v < 4) {
    *out = mix({200, 36, 44}, {244, 190, 40}, u / 13);
    return true;
  }
  const double line = (v - 4.5) / 0.95;
  const double letter = (u - 0.6) / 0.55;
  const double inLine = line - std::floor(line);
  const double inLetter = letter - std::floor(letter);
  if (u < 0.6 || u > 12.4 || inLine > 0.62 || inLetter > 0.74) return true;
  const auto mark = hash(static_cast<uint32_t>(std::floor(letter)), static_cast<uint32_t>(std::floor(line)), seed);
  const int32_t cell = static_cast<int32_t>(inLetter / 0.26) + 3 * static_cast<int32_t>(inLine / 0.22);
  if ((mark & 0xF000) != 0 && ((mark >> cell) & 1) != 0) *out = {40, 38, 44};
  return true;
}

Colour ground(double x, double y, uint32_t seed) {
  // Paving in perspective.
  const double depth = 14 / (y - 66);
  const double u = (x - 65) * depth / 3;
  const double v = 30 * depth;
  const bool joint = u - std::floor(u) < 0.05 || v - std::floor(v) < 0.06;
  const double tile = chance(static_cast<int32_t>(std::floor(u)), static_cast<int32_t>(std::floor(v)), seed + 5);
  return scaled({168, 160, 150}, (joint ? 0.55 : 0.75 + 0.3 * tile) * (0.9 + 0.25 * cloud(x / 2, y / 2, seed + 6, 4)));
}

// Leaves: fine, high contrast, green.
bool foliage(double x, double y, uint32_t seed, Colour* out) {
  const double dx = (x - 112) / 26;
  const double dy = (y - 38) / 30;
  if (dx * dx + dy * dy > 0.75 + 0.6 * (cloud(x / 7, y / 7, seed + 9, 4) - 0.4)) return false;
  const double leaf = cloud(x / 1.6, y / 1.6, seed + 10, 4);
  if (leaf < 0.36) return false;
  *out = mix({22, 48, 18}, {142, 176, 66}, std::clamp((leaf - 0.38) * 4.5, 0.0, 1.0));
  return true;
}

Colour pixel(double x, double y, uint32_t seed) {
  Colour colour = y > 70 ? ground(x, y, seed) : sky(x, y, seed);
  house(x, y, seed, &colour);
  for (const double left : {8.0, 58.0}) bill(x, y, seed + 11, left, &colour);
  // Balloons: smooth shading of strong colour.
  constexpr Colour kBalloons[] = {{216, 40, 48}, {40, 92, 200}, {246, 200, 30}, {40, 160, 84}};
  for (int32_t i = 0; i < 4; ++i) {
    const double cx = 24 + 17 * i + 8 * chance(i, 20, seed);
    const double cy = 14 + 9 * chance(i, 21, seed);
    const double dx = (x - cx) / 4.6;
    const double dy = (y - cy) / 5.4;
    const double d = dx * dx + dy * dy;
    if (d < 1) {
      const double light = std::max(0.0, 1 - ((dx + 0.35) * (dx + 0.35) + (dy + 0.4) * (dy + 0.4)) * 1.4);
      colour = mix(scaled(kBalloons[i], 0.55 + 0.45 * std::sqrt(1 - d)), {255, 255, 255}, light * light * 0.7);
    }
  }
  foliage(x, y, seed, &colour);
  return colour;
}

}  // namespace

RgbPicture drawScene(int32_t width, int32_t height, uint32_t seed) {
  RgbPicture picture{width, height, std::vector<uint8_t>(3 * static_cast<size_t>(width) * static_cast<size_t>(height))};
  const double unit = 100.0 / height;
  uint8_t* out = picture.pixels.data();
  for (int32_t y = 0; y < height; ++y) {
    for (int32_t x = 0; x < width; ++x) {
      const Colour colour = pixel((x + 0.5) * unit, (y + 0.5) * unit, seed);
      for (double c : colour) *out++ = static_cast<uint8_t>(std::clamp(c, 0.0, 255.0) + 0.5);
    }
  }
  return picture;
}

}  // namespace tool
