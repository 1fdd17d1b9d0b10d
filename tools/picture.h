// What all commands of the tool share: a picture in memory and the one kind of error.
#ifndef TESSALINE4_TOOLS_PICTURE_H_
#define TESSALINE4_TOOLS_PICTURE_H_

#include <cstdint>
#include <new>
#include <stdexcept>
#include <string>
#include <vector>

#include "metadata.h"
#include "planes.h"

namespace tool {

// A failure that the user reads: one line that names the file and the reason.
class Error : public std::runtime_error {
 public:
  explicit Error(const std::string& what) : std::runtime_error(what) {}
  Error(const std::string& file, const std::string& reason) : std::runtime_error(file + ": " + reason) {}
};

// No picture has more: the library counts bytes in 32 bits.
inline constexpr int64_t kMostPixels = int64_t{1} << 27;

// Runs body; memory that it does not get is an Error that names the file.
template <typename Body>
auto orOutOfMemory(const std::string& file, const Body& body) -> decltype(body()) {
  try {
    return body();
  } catch (const std::bad_alloc&) {
    throw Error(file, "out of memory");
  }
}

// 4:2:0, 8 bits, full-range BT.601, densely packed. u and v have (width + 1) / 2 x (height + 1) / 2 samples, each at
// the centre of its 2x2 luma samples.
struct Picture {
  int32_t width = 0;
  int32_t height = 0;
  std::vector<uint8_t> y;
  std::vector<uint8_t> u;
  std::vector<uint8_t> v;
  Metadata metadata;  // of the file it came from

  Picture() = default;
  Picture(int32_t w, int32_t h)
      : width(w),
        height(h),
        y(static_cast<size_t>(w) * static_cast<size_t>(h)),
        u(static_cast<size_t>(chromaWidth()) * static_cast<size_t>(chromaHeight()), 128),
        v(u) {}
  int32_t chromaWidth() const { return (width + 1) / 2; }
  int32_t chromaHeight() const { return (height + 1) / 2; }
  Planes planes() { return of<uint8_t>(y.data(), u.data(), v.data()); }
  ConstPlanes planes() const { return of<const uint8_t>(y.data(), u.data(), v.data()); }

 private:
  template <typename Byte>
  PlanesOf<Byte> of(Byte* luma, Byte* first, Byte* second) const {
    return {width, height, luma, first, second, static_cast<size_t>(width), static_cast<size_t>(chromaWidth()), 1};
  }
};

// 8-bit interleaved RGB.
struct RgbPicture {
  int32_t width = 0;
  int32_t height = 0;
  std::vector<uint8_t> pixels;
};

}  // namespace tool

#endif  // TESSALINE4_TOOLS_PICTURE_H_
