#include <cstring>

#include "image_file_kinds.h"

#include <png.h>

namespace tool {
namespace {

// Whether the chunks run up to the closing one, which libpng leaves unread.
bool hasEnd(const Bytes& bytes) {
  constexpr size_t kFrame = 12;  // length, name and checksum of a chunk
  for (size_t at = 8; bytes.size() - at >= kFrame;) {
    const uint8_t* p = bytes.data() + at;
    if (std::memcmp(p + 4, "IEND", 4) == 0) return true;
    const size_t length = size_t{p[0]} << 24 | size_t{p[1]} << 16 | size_t{p[2]} << 8 | p[3];
    if (bytes.size() - at - kFrame < length) return false;
    at += kFrame + length;
  }
  return false;
}

}  // namespace

bool isPng(const Bytes& bytes) {
  return bytes.size() >= 8 && png_sig_cmp(bytes.data(), 0, 8) == 0;
}

RgbPicture decodePng(const std::string& name, const Bytes& bytes) {
  if (!hasEnd(bytes)) throw Error(name, "damaged PNG: it is cut off");
  png_image image;
  std::memset(&image, 0, sizeof(image));
  image.version = PNG_IMAGE_VERSION;
  const auto fail = [&] {
    const std::string reason = image.message;
    png_image_free(&image);
    if (reason.find("memory") != std::string::npos) throw std::bad_alloc();
    throw Error(name, "damaged PNG: " + reason);
  };
  if (png_image_begin_read_from_memory(&image, bytes.data(), bytes.size()) == 0) fail();
  image.format = PNG_FORMAT_RGB;
  // Samples of 16 bits are taken for the same curve as those of 8 bits.
  image.flags |= PNG_IMAGE_FLAG_16BIT_sRGB;
  RgbPicture picture;
  try {
    checkPictureSize(name, image.width, image.height);
    picture.pixels.resize(PNG_IMAGE_SIZE(image));
  } catch (...) {
    png_image_free(&image);
    throw;
  }
  picture.width = static_cast<int32_t>(image.width);
  picture.height = static_cast<int32_t>(image.height);
  const png_color black = {0, 0, 0};
  if (png_image_finish_read(&image, &black, picture.pixels.data(), 0, nullptr) == 0) fail();
  return picture;
}

Bytes encodePng(const std::string& name, const RgbPicture& picture) {
  png_image image;
  std::memset(&image, 0, sizeof(image));
  image.version = PNG_IMAGE_VERSION;
  image.width = static_cast<png_uint_32>(picture.width);
  image.height = static_cast<png_uint_32>(picture.height);
  image.format = PNG_FORMAT_RGB;
  png_alloc_size_t size = PNG_IMAGE_PNG_SIZE_MAX(image);
  Bytes bytes(size);
  if (png_image_write_to_memory(&image, bytes.data(), &size, 0, picture.pixels.data(), 0, nullptr) == 0) {
    throw Error(name, std::string("PNG writing failed: ") + image.message);
  }
  bytes.resize(size);
  return bytes;
}

}  // namespace tool
