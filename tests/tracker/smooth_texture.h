// A procedural picture without edges, known between the pixels too: the truth for tracking by parts of a pixel.
#ifndef ZVT4_TESTS_TRACKER_SMOOTH_TEXTURE_H_
#define ZVT4_TESTS_TRACKER_SMOOTH_TEXTURE_H_

#include <cmath>

#include "support/test_image.h"

inline double textureAt(double x, double y) {
  return 128.0 + 40.0 * std::sin(0.61 * x + 0.23 * y) + 35.0 * std::sin(0.17 * x - 0.52 * y + 1.0) +
         25.0 * std::sin(0.09 * x * std::cos(0.031 * y) + 0.45 * y);
}

// image(x, y) = texture(x - shiftX, y - shiftY): what is at p without a shift is at p + shift here.
inline void drawTexture(TestImage* image, double shiftX, double shiftY, double offset = 0.0) {
  for (int32_t y = 0; y < image->height; ++y) {
    for (int32_t x = 0; x < image->width; ++x) {
      image->row(0, y)[x] = static_cast<uint8_t>(std::lround(textureAt(x - shiftX, y - shiftY) + offset));
    }
  }
}

#endif  // ZVT4_TESTS_TRACKER_SMOOTH_TEXTURE_H_
