#include "frame_storage.h"

#include <algorithm>

#include "image_file_kinds.h"
#include "output_file.h"

namespace tool {
namespace {

RgbPicture rgbOfPlanes(const Picture& picture) {
  RgbPicture rgb{picture.width, picture.height, {}};
  rgb.pixels.reserve(3 * picture.y.size());
  for (size_t i = 0; i < picture.y.size(); ++i) {
    const size_t x = i % static_cast<size_t>(picture.width);
    const size_t y = i / static_cast<size_t>(picture.width);
    const size_t pair = y / 2 * static_cast<size_t>(picture.chromaWidth()) + x / 2;
    const double u = picture.u[pair] - 128.0;
    const double v = picture.v[pair] - 128.0;
    for (const double offset : {1.402 * v, -0.344136 * u - 0.714136 * v, 1.772 * u}) {
      rgb.pixels.push_back(static_cast<uint8_t>(std::clamp(picture.y[i] + offset + 0.5, 0.0, 255.0)));
    }
  }
  return rgb;
}

}  // namespace

const std::vector<std::string>& frameFormats() {
  static const std::vector<std::string> formats = {"png", "jpg", "nv21"};
  return formats;
}

void writeFrame(const std::string& path, const Picture& frame, const FrameStorage& storage) {
  if (storage.format == "png") {
    const RgbPicture rgb = rgbOfPlanes(frame);
    const size_t rowBytes = 3 * static_cast<size_t>(rgb.width);
    const auto row = [&](int32_t y) { return rgb.pixels.data() + rowBytes * static_cast<size_t>(y); };
    writeFile(path, encodePng(path, rgb.width, rgb.height, row).view());
  } else {
    WriteOptions options;
    options.jpegQuality = storage.jpegQuality;
    writePicture(path, frame, options);
  }
}

Picture asStored(const Picture& frame, const FrameStorage& storage) {
  if (storage.format == "png") return toYuv420(rgbOfPlanes(frame));
  if (storage.format != "jpg") return frame;
  Picture stored(frame.width, frame.height);
  openJpeg("frame", encodeJpeg("frame", frame.planes(), {}, storage.jpegQuality))->decode(stored.planes());
  return stored;
}

}  // namespace tool
