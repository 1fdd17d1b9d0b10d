#include "turn.h"

#include <cstddef>
#include <vector>

namespace tool {
namespace {

std::vector<uint8_t> turnedPlane(const std::vector<uint8_t>& plane, int32_t width, int32_t height, size_t channels,
                                 int32_t orientation) {
  std::vector<uint8_t> out(plane.size());
  const Homography from = turnedToStored(orientation, width, height);
  // Whole numbers, all of them.
  const auto at = [&](size_t i) { return static_cast<ptrdiff_t>(from[i]); };
  const int32_t outWidth = turnsSides(orientation) ? height : width;
  const int32_t outHeight = turnsSides(orientation) ? width : height;
  size_t to = 0;
  for (ptrdiff_t y = 0; y < outHeight; ++y) {
    for (ptrdiff_t x = 0; x < outWidth; ++x) {
      const ptrdiff_t storedX = at(0) * x + at(1) * y + at(2);
      const ptrdiff_t storedY = at(3) * x + at(4) * y + at(5);
      const uint8_t* sample = plane.data() + static_cast<size_t>(storedY * width + storedX) * channels;
      for (size_t c = 0; c < channels; ++c) out[to++] = sample[c];
    }
  }
  return out;
}

}  // namespace

Homography turnedToStored(int32_t orientation, int32_t width, int32_t height) {
  const double right = width - 1;
  const double low = height - 1;
  switch (orientation) {
    case 2:
      return {-1, 0, right, 0, 1, 0, 0, 0, 1};
    case 3:
      return {-1, 0, right, 0, -1, low, 0, 0, 1};
    case 4:
      return {1, 0, 0, 0, -1, low, 0, 0, 1};
    case 5:
      return {0, 1, 0, 1, 0, 0, 0, 0, 1};
    case 6:
      return {0, 1, 0, -1, 0, low, 0, 0, 1};
    case 7:
      return {0, -1, right, -1, 0, low, 0, 0, 1};
    case 8:
      return {0, -1, right, 1, 0, 0, 0, 0, 1};
    default:
      return {1, 0, 0, 0, 1, 0, 0, 0, 1};
  }
}

Picture turned(const Picture& stored, int32_t orientation) {
  Picture out;
  out.width = turnsSides(orientation) ? stored.height : stored.width;
  out.height = turnsSides(orientation) ? stored.width : stored.height;
  out.y = turnedPlane(stored.y, stored.width, stored.height, 1, orientation);
  out.u = turnedPlane(stored.u, stored.chromaWidth(), stored.chromaHeight(), 1, orientation);
  out.v = turnedPlane(stored.v, stored.chromaWidth(), stored.chromaHeight(), 1, orientation);
  return out;
}

RgbPicture turned(const RgbPicture& stored, int32_t orientation) {
  return {turnsSides(orientation) ? stored.height : stored.width,
          turnsSides(orientation) ? stored.width : stored.height,
          turnedPlane(stored.pixels, stored.width, stored.height, 3, orientation)};
}

}  // namespace tool
