// What every kind of picture file can do: tell what it holds, then put its samples where they are wanted.
#ifndef TESSALINE4_TOOLS_IMAGE_DECODER_H_
#define TESSALINE4_TOOLS_IMAGE_DECODER_H_

#include <cstdint>
#include <string>
#include <utility>

#include "picture.h"
#include "planes.h"

namespace tool {

// An open file. Its maker reads as far as size and metadata; all functions throw Error naming the file.
class ImageDecoder {
 public:
  virtual ~ImageDecoder() = default;
  ImageDecoder(const ImageDecoder&) = delete;
  ImageDecoder& operator=(const ImageDecoder&) = delete;

  const std::string& name() const { return name_; }
  int32_t width() const { return width_; }
  int32_t height() const { return height_; }
  Metadata takeMetadata() { return std::move(metadata_); }

  // Whether it may hold any number of frames. more() then tells if there is another one for decode().
  virtual bool isStream() const { return false; }
  virtual bool more() { return true; }
  // The next frame's samples, by rows. planes are of the size that width() and height() tell. A still picture has one.
  virtual void decode(const Planes& planes) = 0;
  // Instead of decode(): without the detour through 4:2:0 where the file holds RGB.
  virtual RgbPicture decodeRgb();

 protected:
  ImageDecoder(std::string name, int32_t width, int32_t height)
      : name_(std::move(name)), width_(width), height_(height) {}

  std::string name_;
  int32_t width_;
  int32_t height_;
  Metadata metadata_;
};

}  // namespace tool

#endif  // TESSALINE4_TOOLS_IMAGE_DECODER_H_
