// What the name of a format says about its planes: a reference that shares nothing with the table of the library.
#ifndef ZVT4_TESTS_IMAGE_LAYOUT_MODEL_H_
#define ZVT4_TESTS_IMAGE_LAYOUT_MODEL_H_

#include <cstdint>
#include <string>

struct LayoutModel {
  struct Plane {
    int32_t unitBytes = 0, unitWidth = 1, unitHeight = 1;
  };
  int32_t planes = 1, alignX = 1, alignY = 1;
  Plane plane[3];

  int64_t rowBytes(int32_t p, int64_t width) const {
    return (width + alignX - 1) / alignX * alignX / plane[p].unitWidth * plane[p].unitBytes;
  }
  int64_t rows(int32_t p, int64_t height) const {
    return plane[p].unitBytes == 0 ? 0 : (height + alignY - 1) / alignY * alignY / plane[p].unitHeight;
  }
};

inline LayoutModel layoutOf(const std::string& name) {
  const auto has = [&](const char* part) { return name.find(part) != std::string::npos; };
  LayoutModel m;
  if (has("422")) m.alignX = 2;
  if (has("420")) m.alignX = m.alignY = 2;
  if (has("YUV9")) m.alignX = m.alignY = 4;
  if (has("PLANAR") || has("YUV9")) {
    m.planes = has("SEMI") || has("YUV9") ? 2 : 3;
    m.plane[0].unitBytes = 1;
    for (int32_t p = 1; p < m.planes; ++p) m.plane[p] = {4 - m.planes, m.alignX, m.alignY};
    return m;
  }
  int32_t bits = 16;  // 565, the unpacked Bayer forms, UINT16, INT16, UINT88
  if (has("NONE")) bits = 0;
  if (name == "UINT8" || has("BAYER8")) bits = 8;
  if (name == "RGB888" || has("BGR888") || has("HSV") || has("444")) bits = 24;
  if (has("8888") || has("INT32") || has("FLOAT")) bits = 32;
  if (has("161616")) bits = 48;
  if (has("LAB")) bits = 96;
  if (has("M8L2")) {
    bits = 10;
    m.alignX = 4;
  }
  m.plane[0] = {bits * m.alignX / 8, m.alignX, 1};
  return m;
}

#endif  // ZVT4_TESTS_IMAGE_LAYOUT_MODEL_H_
