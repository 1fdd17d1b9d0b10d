#include <algorithm>

#include "colour.h"
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

void putRgbRows(const Planes& to, int32_t y, const uint8_t* upper, const uint8_t* lower) {
  const int32_t width = to.width;
  for (int32_t row = y; row < std::min(y + 2, to.height); ++row) {
    const uint8_t* p = row == y ? upper : lower;
    uint8_t* luma = to.lumaRow(row);
    for (int32_t x = 0; x < width; ++x, p += 3) {
      luma[x] = static_cast<uint8_t>((kY[0] * p[0] + kY[1] * p[1] + kY[2] * p[2] + 32768) >> 16);
    }
  }
  uint8_t* toU = to.uRow(y / 2);
  uint8_t* toV = to.vRow(y / 2);
  for (int32_t x = 0; x < width; x += 2, toU += to.step, toV += to.step) {
    const int32_t left = 3 * x;
    const int32_t right = x + 1 < width ? left + 3 : left;
    int32_t u = (128 << 18) + (1 << 17);
    int32_t v = u;
    for (int32_t c = 0; c < 3; ++c) {
      const int32_t sum = upper[left + c] + upper[right + c] + lower[left + c] + lower[right + c];
      u += kU[c] * sum;
      v += kV[c] * sum;
    }
    *toU = clampByte(u >> 18);
    *toV = clampByte(v >> 18);
  }
}

Picture toYuv420(const RgbPicture& rgb) {
  Picture picture(rgb.width, rgb.height);
  const size_t rowBytes = 3 * static_cast<size_t>(rgb.width);
  for (int32_t y = 0; y < rgb.height; y += 2) {
    const uint8_t* upper = rgb.pixels.data() + rowBytes * static_cast<size_t>(y);
    putRgbRows(picture.planes(), y, upper, y + 1 < rgb.height ? upper + rowBytes : upper);
  }
  return picture;
}

RgbRows::RgbRows(const ConstPlanes& planes)
    : planes_(planes),
      blendU_(static_cast<size_t>(planes.chromaWidth())),
      blendV_(static_cast<size_t>(planes.chromaWidth())),
      row_(3 * static_cast<size_t>(planes.width)) {}

// Chroma lies in the middle of four pixels: each takes 9/16 of the nearest sample, 3/16 of the two beside it and 1/16
// of the one across.
const uint8_t* RgbRows::operator()(int32_t y) {
  const int32_t cw = planes_.chromaWidth();
  const int32_t other = std::clamp(y / 2 + (y % 2 != 0 ? 1 : -1), 0, planes_.chromaHeight() - 1);
  const auto blend = [&](const uint8_t* near, const uint8_t* far, std::vector<int32_t>* out) {
    for (size_t i = 0; i < out->size(); ++i) {
      (*out)[i] = 3 * near[planes_.step * i] + far[planes_.step * i] - 4 * 128;
    }
  };
  blend(planes_.uRow(y / 2), planes_.uRow(other), &blendU_);
  blend(planes_.vRow(y / 2), planes_.vRow(other), &blendV_);
  const uint8_t* lumaRow = planes_.lumaRow(y);
  uint8_t* out = row_.data();
  for (int32_t x = 0; x < planes_.width; ++x, out += 3) {
    const auto cx = static_cast<size_t>(x / 2);
    const auto side = static_cast<size_t>(std::clamp(x / 2 + (x % 2 != 0 ? 1 : -1), 0, cw - 1));
    const int32_t u = 3 * blendU_[cx] + blendU_[side];  // 16 times the value
    const int32_t v = 3 * blendV_[cx] + blendV_[side];
    const int32_t luma = (int32_t{lumaRow[x]} << 20) + (1 << 19);
    out[0] = clampByte((luma + kRv * v) >> 20);
    out[1] = clampByte((luma + kGu * u + kGv * v) >> 20);
    out[2] = clampByte((luma + kBu * u) >> 20);
  }
  return row_.data();
}

RgbPicture toRgb(const Picture& picture) {
  RgbPicture rgb{picture.width, picture.height, {}};
  const size_t rowBytes = 3 * static_cast<size_t>(picture.width);
  rgb.pixels.reserve(rowBytes * static_cast<size_t>(picture.height));
  RgbRows rows(picture.planes());
  for (int32_t y = 0; y < picture.height; ++y) {
    const uint8_t* row = rows(y);
    rgb.pixels.insert(rgb.pixels.end(), row, row + rowBytes);
  }
  return rgb;
}

}  // namespace tool
