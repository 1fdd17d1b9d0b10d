// EXIF blocks, profiles and packets to put into files, and a look into those that come back.
#ifndef TESSALINE4_TESTS_TOOLS_METADATA_BLOCKS_H_
#define TESSALINE4_TESTS_TOOLS_METADATA_BLOCKS_H_

#include <libexif/exif-data.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

namespace tool {

struct ExifRelease {
  void operator()(ExifData* data) const { exif_data_unref(data); }
};
using ExifOwner = std::unique_ptr<ExifData, ExifRelease>;

// Orientation, the dimensions of another picture and, if wanted, a thumbnail.
inline std::vector<uint8_t> makeExif(int32_t orientation, bool thumbnail) {
  const ExifOwner data(exif_data_new());
  exif_data_set_byte_order(data.get(), EXIF_BYTE_ORDER_MOTOROLA);
  const auto add = [&](ExifIfd ifd, ExifTag tag) {
    ExifEntry* entry = exif_entry_new();
    exif_content_add_entry(data->ifd[ifd], entry);
    exif_entry_initialize(entry, tag);
    exif_entry_unref(entry);
    return exif_content_get_entry(data->ifd[ifd], tag);
  };
  exif_set_short(add(EXIF_IFD_0, EXIF_TAG_ORIENTATION)->data, EXIF_BYTE_ORDER_MOTOROLA,
                 static_cast<ExifShort>(orientation));
  exif_set_long(add(EXIF_IFD_EXIF, EXIF_TAG_PIXEL_X_DIMENSION)->data, EXIF_BYTE_ORDER_MOTOROLA, 4000);
  exif_set_long(add(EXIF_IFD_EXIF, EXIF_TAG_PIXEL_Y_DIMENSION)->data, EXIF_BYTE_ORDER_MOTOROLA, 3000);
  if (thumbnail) {
    data->size = 1000;
    data->data = static_cast<unsigned char*>(std::malloc(data->size));
    std::memset(data->data, 0xAB, data->size);
  }
  unsigned char* saved = nullptr;
  unsigned size = 0;
  exif_data_save_data(data.get(), &saved, &size);
  const std::vector<uint8_t> block(saved + 6, saved + size);  // behind "Exif\0\0"
  std::free(saved);
  return block;
}

// What a camera tells of a shot: its model, the time as EXIF writes it with digits of a second (none: empty), the
// exposure as a ratio of seconds, and ISO.
struct ShotTags {
  std::string time;
  std::string subSeconds;
  std::string model = "Camera";
  uint32_t exposure[2] = {1, 100};
  uint16_t iso = 100;
};

inline std::vector<uint8_t> makeShotExif(const ShotTags& tags, ExifByteOrder order = EXIF_BYTE_ORDER_INTEL) {
  const ExifOwner data(exif_data_new());
  exif_data_set_byte_order(data.get(), order);
  const auto add = [&](ExifIfd ifd, ExifTag tag, ExifFormat format, unsigned components, unsigned bytes) {
    ExifEntry* entry = exif_entry_new();
    exif_content_add_entry(data->ifd[ifd], entry);
    entry->tag = tag;
    entry->format = format;
    entry->components = components;
    entry->size = bytes;
    entry->data = static_cast<unsigned char*>(std::calloc(bytes, 1));
    exif_entry_unref(entry);
    return entry->data;
  };
  const auto addText = [&](ExifIfd ifd, ExifTag tag, const std::string& text) {
    if (text.empty()) return;
    const auto bytes = static_cast<unsigned>(text.size() + 1);
    std::memcpy(add(ifd, tag, EXIF_FORMAT_ASCII, bytes, bytes), text.c_str(), bytes);
  };
  addText(EXIF_IFD_0, EXIF_TAG_MAKE, "Maker ");
  addText(EXIF_IFD_0, EXIF_TAG_MODEL, tags.model);
  addText(EXIF_IFD_EXIF, EXIF_TAG_DATE_TIME_ORIGINAL, tags.time);
  addText(EXIF_IFD_EXIF, EXIF_TAG_SUB_SEC_TIME_ORIGINAL, tags.subSeconds);
  exif_set_rational(add(EXIF_IFD_EXIF, EXIF_TAG_EXPOSURE_TIME, EXIF_FORMAT_RATIONAL, 1, 8), order,
                    {tags.exposure[0], tags.exposure[1]});
  exif_set_short(add(EXIF_IFD_EXIF, EXIF_TAG_ISO_SPEED_RATINGS, EXIF_FORMAT_SHORT, 1, 2), order, tags.iso);
  unsigned char* saved = nullptr;
  unsigned size = 0;
  exif_data_save_data(data.get(), &saved, &size);
  const std::vector<uint8_t> block(saved + 6, saved + size);
  std::free(saved);
  return block;
}

inline ExifOwner parseExif(const std::vector<uint8_t>& block) {
  std::vector<uint8_t> segment = {'E', 'x', 'i', 'f', 0, 0};
  segment.insert(segment.end(), block.begin(), block.end());
  return ExifOwner(exif_data_new_from_data(segment.data(), static_cast<unsigned>(segment.size())));
}

// A number of a parsed block; -1 when it is not there.
inline int64_t exifNumber(ExifData* data, ExifTag tag) {
  const ExifEntry* entry = exif_data_get_entry(data, tag);
  if (entry == nullptr) return -1;
  const ExifByteOrder order = exif_data_get_byte_order(data);
  return entry->format == EXIF_FORMAT_SHORT ? int64_t{exif_get_short(entry->data, order)}
                                            : int64_t{exif_get_long(entry->data, order)};
}

// A profile of so many bytes, at least 144, with one tag.
inline std::vector<uint8_t> makeIcc(size_t size, const char* space = "RGB ") {
  std::vector<uint8_t> profile(size);
  const auto put = [&](size_t at, size_t number) {
    for (size_t i = 0; i < 4; ++i) profile[at + i] = static_cast<uint8_t>(number >> (24 - 8 * i));
  };
  for (size_t i = 144; i < size; ++i) profile[i] = static_cast<uint8_t>(i * i >> 5);
  put(0, size);
  std::memcpy(&profile[12], "mntr", 4);
  std::memcpy(&profile[16], space, 4);
  std::memcpy(&profile[20], "XYZ ", 4);
  std::memcpy(&profile[36], "acsp", 4);
  put(128, 1);
  std::memcpy(&profile[132], "desc", 4);
  put(136, 144);
  put(140, size - 144);
  return profile;
}

inline const std::string kExtensionName = "0123456789ABCDEF0123456789ABCDEF";

// A packet that says this, and that there is more.
inline std::string makeXmp(const std::string& says, bool extended) {
  const std::string note = " xmpNote:HasExtendedXMP=\"" + kExtensionName + "\"";
  return "<x:xmpmeta><rdf:RDF xmlns:rdf=\"http://www.w3.org/1999/02/22-rdf-syntax-ns#\"><rdf:Description says=\"" +
         says + "\"" + (extended ? note : "") + "/></rdf:RDF></x:xmpmeta>";
}

}  // namespace tool

#endif  // TESSALINE4_TESTS_TOOLS_METADATA_BLOCKS_H_
