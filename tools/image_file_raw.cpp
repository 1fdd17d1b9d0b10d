#include <algorithm>

#include "image_file_kinds.h"
#include "packed_planes.h"

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

// Whether memory holds the picture as a file of the format does, in one piece.
template <typename Byte>
bool liesAs(const std::string& format, const PlanesOf<Byte>& planes) {
  if (format != "nv21" && format != "nv12") return false;
  const Byte* pairs = format == "nv21" ? planes.v : planes.u;
  const auto width = static_cast<size_t>(planes.width);
  return planes.step == 2 && std::max(planes.u, planes.v) == pairs + 1 && planes.lumaPitch == width &&
         planes.chromaPitch == 2 * static_cast<size_t>(planes.chromaWidth()) &&
         pairs == planes.y + width * static_cast<size_t>(planes.height);
}

class RawDecoder : public ImageDecoder {
 public:
  RawDecoder(InputFile file, const RawLayout& layout)
      : ImageDecoder(file.name(), layout.width, layout.height),
        format_(layout.format),
        wanted_(rawBytes(name_, layout)),
        file_(std::move(file)) {}

  void decode(const Planes& planes) override {
    const Take take = [this](uint8_t* to, size_t count) {
      const size_t got = file_.read(to, count);
      taken_ += got;
      if (got < count) failLength(std::to_string(taken_) + " bytes");
    };
    if (liesAs(format_, planes)) {
      take(planes.y, wanted_);
    } else if (format_ == "yuyv") {
      takeYuyv(take, planes);
    } else if (format_ == "i420") {
      takePlanar(take, planes);
    } else {
      takeLuma(take, planes);
      takePairs(take, planes);
    }
    uint8_t more;
    if (file_.read(&more, 1) != 0) failLength("more bytes");
  }

 private:
  [[noreturn]] void failLength(const std::string& held) {
    throw Error(name_, held + ", but " + format_ + " of " + std::to_string(width_) + "x" + std::to_string(height_) +
                           " has " + std::to_string(wanted_));
  }

  void takePairs(const Take& take, const Planes& planes) const {
    const size_t u = format_ == "nv12" ? 0 : 1;
    const auto width = static_cast<size_t>(planes.chromaWidth());
    takeRows(take, 2 * width, planes.chromaHeight(), [&](int32_t row, const uint8_t* bytes) {
      copySamples(bytes + u, 2, planes.uRow(row), planes.step, width);
      copySamples(bytes + 1 - u, 2, planes.vRow(row), planes.step, width);
    });
  }

  static void takeYuyv(const Take& take, const Planes& planes) {
    const auto pairs = static_cast<size_t>(planes.chromaWidth());
    Bytes upper(4 * pairs);
    takeRows(take, 4 * pairs, planes.height, [&](int32_t row, const uint8_t* bytes) {
      copySamples(bytes, 2, planes.lumaRow(row), 1, static_cast<size_t>(planes.width));
      if (row % 2 == 0) std::copy_n(bytes, upper.size(), upper.begin());
      if (row % 2 == 0 && row + 1 < planes.height) return;
      uint8_t* u = planes.uRow(row / 2);
      uint8_t* v = planes.vRow(row / 2);
      for (size_t x = 0; x < pairs; ++x, u += planes.step, v += planes.step) {
        *u = static_cast<uint8_t>((upper[4 * x + 1] + bytes[4 * x + 1] + 1) / 2);
        *v = static_cast<uint8_t>((upper[4 * x + 3] + bytes[4 * x + 3] + 1) / 2);
      }
    });
  }

  std::string format_;
  size_t wanted_;
  size_t taken_ = 0;
  InputFile file_;
};

void writeYuyv(const ConstPlanes& picture, StagedRows* out) {
  const auto pairs = static_cast<size_t>(picture.chromaWidth());
  for (int32_t y = 0; y < picture.height; ++y) {
    const uint8_t* luma = picture.lumaRow(y);
    uint8_t* to = out->room(4 * pairs);
    copySamples(luma, 1, to, 2, static_cast<size_t>(picture.width));
    if (picture.width % 2 != 0) to[4 * pairs - 2] = luma[picture.width - 1];
    copySamples(picture.uRow(y / 2), picture.step, to + 1, 4, pairs);
    copySamples(picture.vRow(y / 2), picture.step, to + 3, 4, pairs);
  }
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

Decoder openRaw(InputFile file, const RawLayout& layout) {
  return std::make_unique<RawDecoder>(std::move(file), layout);
}

void writeRaw(const ConstPlanes& picture, const std::string& format, const Sink& sink) {
  const Sizes sizes = sizesOf(picture.width, picture.height);
  if (liesAs(format, picture)) return sink({picture.y, sizes.luma + 2 * sizes.chroma});
  StagedRows out(sink);
  if (format == "yuyv") {
    writeYuyv(picture, &out);
  } else if (format == "i420") {
    out.addPlanar(picture);
  } else {
    out.addLuma(picture);
    const size_t u = format == "nv12" ? 0 : 1;
    const auto width = static_cast<size_t>(picture.chromaWidth());
    for (int32_t y = 0; y < picture.chromaHeight(); ++y) {
      uint8_t* to = out.room(2 * width);
      copySamples(picture.uRow(y), picture.step, to + u, 2, width);
      copySamples(picture.vRow(y), picture.step, to + 1 - u, 2, width);
    }
  }
  out.flush();
}

}  // namespace tool
