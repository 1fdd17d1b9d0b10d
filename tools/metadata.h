// What a picture file tells beside its pixels, apart from the kind of file: EXIF, XMP and the ICC profile.
#ifndef TESSALINE4_TOOLS_METADATA_H_
#define TESSALINE4_TOOLS_METADATA_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace tool {

struct Metadata {
  std::vector<uint8_t> exif;  // see exif.h; not yet looked into
  std::string xmp;            // the packet, UTF-8
  // What a JPEG holds of XMP beside the packet, which names it by 32 digits.
  std::string extendedXmpName;
  std::vector<uint8_t> extendedXmp;
  std::vector<uint8_t> icc;  // of an RGB picture, whole
  std::string origin;        // of the pixels, where a file holds others that were not taken; in words for a report
  // Why what the file holds of it cannot be used: "its ICC profile is damaged". Empty without reason.
  std::string xmpDamage;
  std::string iccDamage;

  int32_t orientation() const;  // 1 to 8, 1 is upright
  void dropXmp();
  void dropIcc();
};

// A part of the extended XMP of a JPEG.
struct ExtendedXmpPart {
  std::string name;
  uint32_t wholeBytes;
  uint32_t offset;
  std::vector<uint8_t> bytes;
};

// These put what a file holds into metadata if it is sound, and the reason if it is not.
void takeIcc(std::vector<uint8_t> profile, Metadata* metadata);
void takeXmp(std::string packet, std::vector<ExtendedXmpPart> extended, Metadata* metadata);

// The most bytes of each that a kind of file holds.
struct MetadataRoom {
  size_t exif;
  size_t xmp;
  size_t extendedXmp;
  size_t icc;
};

// Makes metadata right for a picture of this size in a file with this room. What is damaged or does not fit goes, but
// an orientation stays if an EXIF block does. Returns a line for each thing that is lost.
std::vector<std::string> fitMetadata(Metadata* metadata, const MetadataRoom& room, int32_t width, int32_t height);

}  // namespace tool

#endif  // TESSALINE4_TOOLS_METADATA_H_
