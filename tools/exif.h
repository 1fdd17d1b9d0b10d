// EXIF blocks: a TIFF header ("II*\0" or "MM\0*"), directories of tags, and the values they point to, all by offsets
// from the first byte (CIPA DC-008, "Exchangeable image file format").
#ifndef TESSALINE4_TOOLS_EXIF_H_
#define TESSALINE4_TOOLS_EXIF_H_

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace tool {

// The orientation tag: 1 to 8; 1, which is upright, where there is none or another number.
int32_t exifOrientation(const std::vector<uint8_t>& exif);
// How a picture was taken, as far as the block tells it.
struct ExifShot {
  std::string make;  // without padding; empty where there is none
  std::string model;
  // DateTimeOriginal with SubSecTimeOriginal: microseconds since 1970, as if the camera stood in Greenwich.
  std::optional<int64_t> time;
  bool wholeSeconds = true;  // no SubSecTimeOriginal
  std::optional<double> exposureSeconds;
  std::optional<double> iso;
};
ExifShot exifShot(const std::vector<uint8_t>& exif);

// The block of a TIFF file of 32-bit offsets: what its first directory tells of the photo, with the EXIF and GPS
// directories, in a block of its own. Makers' notes stay behind, since they point into the file. Empty when it has
// none.
std::vector<uint8_t> exifOfTiff(std::span<const uint8_t> file);

// A block that tells an orientation and nothing else.
std::vector<uint8_t> exifWithOrientation(int32_t orientation);

// What shot tells and the orientation, as a block of big-endian numbers.
std::vector<uint8_t> exifOfShot(const ExifShot& shot, int32_t orientation);
// Whether a TIFF file of 32-bit offsets is a camera's raw file: a DNG, a CR2, or one with the samples of a sensor in
// any of its first directories.
bool isTiffOfCamera(std::span<const uint8_t> file);

// The block with another orientation, if it holds one: 1 for a picture that has been turned upright.
std::vector<uint8_t> exifOriented(const std::vector<uint8_t>& exif, int32_t orientation);

// The block made right for a new picture of this size: pixel dimensions that it holds are the new ones, and the
// thumbnail, which shows the old picture, is gone. Every other byte stays where it is, since makers' notes point into
// the block by offsets that only their maker knows. Empty when a directory or value reaches out of the block.
std::optional<std::vector<uint8_t>> exifForSize(const std::vector<uint8_t>& exif, int32_t width, int32_t height);

}  // namespace tool

#endif  // TESSALINE4_TOOLS_EXIF_H_
