// What a photo tells about itself without its pixels.
#ifndef TESSALINE4_TOOLS_PHOTO_H_
#define TESSALINE4_TOOLS_PHOTO_H_

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace tool {

struct Photo {
  std::string path;
  // Microseconds on the clock of the camera, as if it stood in Greenwich: EXIF names no zone that could be relied on.
  int64_t time = 0;
  bool wholeSeconds = false;  // the clock told no parts of a second
  std::string make;
  std::string model;
  int32_t width = 0;  // as stored, before any turning
  int32_t height = 0;
  std::optional<double> exposureSeconds;
  std::optional<double> iso;
};

// Whether the ending is that of a kind of picture that a camera writes.
bool isPhotoName(const std::string& path);
// Reads the head of the file. Without a time in its EXIF the photo has that of the file, in local time. Throws Error
// when it is no picture, or its size stands nowhere.
Photo readPhoto(const std::string& path);

}  // namespace tool

#endif  // TESSALINE4_TOOLS_PHOTO_H_
