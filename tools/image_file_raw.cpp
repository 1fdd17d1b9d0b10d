#include <algorithm>

#include "image_file_kinds.h"

namespace tool {
namespace {

struct Sizes {
  size_t luma;
  size_t chroma;  // of one plane
  size_t yuyv;
};

Sizes sizesOf(int32_t width, int32_t height) {
  const auto w = static_cast<size_t>(width);
  const auto h = static_cast<size_t>(height);
  return {w * h, (w + 1) / 2 * ((h + 1) / 2), (w + 1) / 2 * 4 * h};
}

Picture fromYuyv(const Bytes& bytes, int32_t width, int32_t height) {
  Picture picture(width, height);
  const size_t rowBytes = 4 * static_cast<size_t>(picture.chromaWidth());
  auto luma = picture.y.begin();
  for (int32_t y = 0; y < height; ++y) {
    const uint8_t* row = bytes.data() + rowBytes * static_cast<size_t>(y);
    for (int32_t x = 0; x < width; ++x) *luma++ = row[2 * x];
  }
  size_t at = 0;
  for (int32_t y = 0; y < height; y += 2) {
    const uint8_t* upper = bytes.data() + rowBytes * static_cast<size_t>(y);
    const uint8_t* lower = y + 1 < height ? upper + rowBytes : upper;
    for (int32_t x = 0; x < picture.chromaWidth(); ++x, ++at) {
      picture.u[at] = static_cast<uint8_t>((upper[4 * x + 1] + lower[4 * x + 1] + 1) / 2);
      picture.v[at] = static_cast<uint8_t>((upper[4 * x + 3] + lower[4 * x + 3] + 1) / 2);
    }
  }
  return picture;
}

Bytes toYuyv(const Picture& picture) {
  Bytes bytes;
  bytes.reserve(sizesOf(picture.width, picture.height).yuyv);
  for (int32_t y = 0; y < picture.height; ++y) {
    const uint8_t* luma = picture.y.data() + static_cast<size_t>(y) * static_cast<size_t>(picture.width);
    const size_t chroma = static_cast<size_t>(y / 2) * static_cast<size_t>(picture.chromaWidth());
    for (int32_t x = 0; x < picture.width; x += 2) {
      const size_t at = chroma + static_cast<size_t>(x / 2);
      bytes.insert(bytes.end(), {luma[x], picture.u[at], luma[std::min(x + 1, picture.width - 1)], picture.v[at]});
    }
  }
  return bytes;
}

}  // namespace

bool isRawFormat(const std::string& format) {
  return format == "nv21" || format == "nv12" || format == "i420" || format == "yuyv";
}

size_t rawBytes(const std::string& name, const RawLayout& layout) {
  if (!isRawFormat(layout.format)) throw Error(name, "unknown raw format '" + layout.format + "'");
  checkPictureSize(name, layout.width, layout.height);
  const Sizes sizes = sizesOf(layout.width, layout.height);
  return layout.format == "yuyv" ? sizes.yuyv : sizes.luma + 2 * sizes.chroma;
}

Picture decodeRaw(const std::string& name, const Bytes& bytes, const RawLayout& layout) {
  const size_t wanted = rawBytes(name, layout);
  const Sizes sizes = sizesOf(layout.width, layout.height);
  if (bytes.size() != wanted) {
    const std::string held = bytes.size() > wanted ? "more bytes" : std::to_string(bytes.size()) + " bytes";
    throw Error(name, held + ", but " + layout.format + " of " + std::to_string(layout.width) + "x" +
                          std::to_string(layout.height) + " has " + std::to_string(wanted));
  }
  if (layout.format == "yuyv") return fromYuyv(bytes, layout.width, layout.height);
  Picture picture(layout.width, layout.height);
  const uint8_t* chroma = bytes.data() + sizes.luma;
  std::copy(bytes.data(), chroma, picture.y.begin());
  if (layout.format == "i420") {
    std::copy(chroma, chroma + sizes.chroma, picture.u.begin());
    std::copy(chroma + sizes.chroma, chroma + 2 * sizes.chroma, picture.v.begin());
    return picture;
  }
  Bytes& first = layout.format == "nv12" ? picture.u : picture.v;
  Bytes& second = layout.format == "nv12" ? picture.v : picture.u;
  for (size_t i = 0; i < sizes.chroma; ++i) {
    first[i] = chroma[2 * i];
    second[i] = chroma[2 * i + 1];
  }
  return picture;
}

Bytes encodeRaw(const Picture& picture, const std::string& format) {
  if (format == "yuyv") return toYuyv(picture);
  Bytes bytes = picture.y;
  bytes.reserve(picture.y.size() + picture.u.size() + picture.v.size());
  if (format == "i420") {
    bytes.insert(bytes.end(), picture.u.begin(), picture.u.end());
    bytes.insert(bytes.end(), picture.v.begin(), picture.v.end());
    return bytes;
  }
  const Bytes& first = format == "nv12" ? picture.u : picture.v;
  const Bytes& second = format == "nv12" ? picture.v : picture.u;
  for (size_t i = 0; i < first.size(); ++i) bytes.insert(bytes.end(), {first[i], second[i]});
  return bytes;
}

}  // namespace tool
