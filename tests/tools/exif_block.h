// EXIF blocks to put into files, and a look into those that come back.
#ifndef TESSALINE4_TESTS_TOOLS_EXIF_BLOCK_H_
#define TESSALINE4_TESTS_TOOLS_EXIF_BLOCK_H_

#include <libexif/exif-data.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
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
    data->data = static_cast<unsigned char*>(std::calloc(data->size, 1));
  }
  unsigned char* saved = nullptr;
  unsigned size = 0;
  exif_data_save_data(data.get(), &saved, &size);
  const std::vector<uint8_t> block(saved, saved + size);
  std::free(saved);
  return block;
}

inline ExifOwner parseExif(const std::vector<uint8_t>& block) {
  return ExifOwner(exif_data_new_from_data(block.data(), static_cast<unsigned>(block.size())));
}

// A number of a parsed block; -1 when it is not there.
inline int64_t exifNumber(ExifData* data, ExifTag tag) {
  const ExifEntry* entry = exif_data_get_entry(data, tag);
  if (entry == nullptr) return -1;
  const ExifByteOrder order = exif_data_get_byte_order(data);
  return entry->format == EXIF_FORMAT_SHORT ? int64_t{exif_get_short(entry->data, order)}
                                            : int64_t{exif_get_long(entry->data, order)};
}

}  // namespace tool

#endif  // TESSALINE4_TESTS_TOOLS_EXIF_BLOCK_H_
