#include <algorithm>

#include "image_file.h"

namespace tool {
namespace {

uint8_t clampByte(int32_t value) {
  return static_cast<uint8_t>(std::clamp(value, 0, 255));
}

// Full-range BT.601 in 16 bits of fraction; the rows sum to 65536, 0 and 0.
constexpr int32_t kY[3] = {19595, 38470, 7471};
constexpr int32_t kU[3] = {-11059, -21709, 32768};
constexpr int32_t kV[3] = {32768, -27439, -5329};
constexpr int32_t kRv = 91881;
constexpr int32_t kGu = -22554;
constexpr int32_t kGv = -46802;
constexpr int32_t kBu = 116130;

}  // namespace

Picture toYuv420(const RgbPicture& rgb) {
  Picture picture(rgb.width, rgb.height);
  const size_t rowBytes = 3 * static_cast<size_t>(rgb.width);
  for (size_t i = 0; i < picture.y.size(); ++i) {
    const uint8_t* p = rgb.pixels.data() + 3 * i;
    picture.y[i] = static_cast<uint8_t>((kY[0] * p[0] + kY[1] * p[1] + kY[2] * p[2] + 32768) >> 16);
  }
  size_t at = 0;
  for (int32_t y = 0; y < rgb.height; y += 2) {
    const uint8_t* upper = rgb.pixels.data() + rowBytes * static_cast<size_t>(y);
    const uint8_t* lower = y + 1 < rgb.height ? upper + rowBytes : upper;
    for (int32_t x = 0; x < rgb.width; x += 2, ++at) {
      const int32_t left = 3 * x;
      const int32_t right = x + 1 < rgb.width ? left + 3 : left;
      int32_t u = (128 << 18) + (1 << 17);
      int32_t v = u;
      for (int32_t c = 0; c < 3; ++c) {
        const int32_t sum = upper[left + c] + upper[right + c] + lower[left + c] + lower[right + c];
        u += kU[c] * sum;
        v += kV[c] * sum;
      }
      picture.u[at] = clampByte(u >> 18);
      picture.v[at] = clampByte(v >> 18);
    }
  }
  return picture;
}

// Chroma lies in the middle of four pixels: each takes 9/16 of the nearest sample, 3/16 of the two beside it and 1/16
// of the one across.
RgbPicture toRgb(const Picture& picture) {
  RgbPicture rgb{picture.width, picture.height, std::vector<uint8_t>(3 * picture.y.size())};
  const int32_t cw = picture.chromaWidth();
  const int32_t ch = picture.chromaHeight();
  std::vector<int32_t> blendU(static_cast<size_t>(cw));
  std::vector<int32_t> blendV(blendU);
  for (int32_t y = 0; y < picture.height; ++y) {
    const size_t near = static_cast<size_t>(y / 2) * static_cast<size_t>(cw);
    const size_t far =
        static_cast<size_t>(std::clamp(y / 2 + (y % 2 != 0 ? 1 : -1), 0, ch - 1)) * static_cast<size_t>(cw);
    for (size_t i = 0; i < blendU.size(); ++i) {
      blendU[i] = 3 * picture.u[near + i] + picture.u[far + i] - 4 * 128;
      blendV[i] = 3 * picture.v[near + i] + picture.v[far + i] - 4 * 128;
    }
    const size_t row = static_cast<size_t>(y) * static_cast<size_t>(picture.width);
    for (int32_t x = 0; x < picture.width; ++x) {
      const auto cx = static_cast<size_t>(x / 2);
      const auto side = static_cast<size_t>(std::clamp(x / 2 + (x % 2 != 0 ? 1 : -1), 0, cw - 1));
      const int32_t u = 3 * blendU[cx] + blendU[side];  // 16 times the value
      const int32_t v = 3 * blendV[cx] + blendV[side];
      const int32_t luma = (int32_t{picture.y[row + static_cast<size_t>(x)]} << 20) + (1 << 19);
      uint8_t* out = rgb.pixels.data() + 3 * (row + static_cast<size_t>(x));
      out[0] = clampByte((luma + kRv * v) >> 20);
      out[1] = clampByte((luma + kGu * u + kGv * v) >> 20);
      out[2] = clampByte((luma + kBu * u) >> 20);
    }
  }
  return rgb;
}

}  // namespace tool
