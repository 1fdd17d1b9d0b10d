#include "exif.h"

#include <libexif/exif-data.h>

#include <cstdlib>
#include <memory>

namespace tool {
namespace {

struct Release {
  void operator()(ExifData* data) const { exif_data_unref(data); }
  void operator()(unsigned char* bytes) const { std::free(bytes); }
};

// Overwrites a number that is there, in the width it is stored in.
void setNumber(ExifData* data, ExifIfd ifd, ExifTag tag, int32_t value) {
  ExifEntry* entry = exif_content_get_entry(data->ifd[ifd], tag);
  if (entry == nullptr || entry->components != 1) return;
  const ExifByteOrder order = exif_data_get_byte_order(data);
  if (entry->format == EXIF_FORMAT_SHORT) exif_set_short(entry->data, order, static_cast<ExifShort>(value));
  if (entry->format == EXIF_FORMAT_LONG) exif_set_long(entry->data, order, static_cast<ExifLong>(value));
}

void dropThumbnail(ExifData* data) {
  std::free(data->data);  // libexif allocates it with the C allocator
  data->data = nullptr;
  data->size = 0;
  ExifContent* thumbnail = data->ifd[EXIF_IFD_1];
  while (thumbnail->count > 0) exif_content_remove_entry(thumbnail, thumbnail->entries[0]);
}

}  // namespace

std::vector<uint8_t> exifForSize(const std::vector<uint8_t>& exif, int32_t width, int32_t height) {
  constexpr size_t kMostBytes = 65533;  // of a marker segment
  if (exif.empty()) return {};
  const std::unique_ptr<ExifData, Release> data(exif_data_new());
  if (data == nullptr) return {};
  for (const ExifDataOption option : {EXIF_DATA_OPTION_IGNORE_UNKNOWN_TAGS, EXIF_DATA_OPTION_FOLLOW_SPECIFICATION}) {
    exif_data_unset_option(data.get(), option);
  }
  exif_data_set_option(data.get(), EXIF_DATA_OPTION_DONT_CHANGE_MAKER_NOTE);
  exif_data_load_data(data.get(), exif.data(), static_cast<unsigned>(exif.size()));
  unsigned entries = 0;
  for (const ExifContent* content : data->ifd) entries += content->count;
  if (entries == 0) return {};

  setNumber(data.get(), EXIF_IFD_0, EXIF_TAG_IMAGE_WIDTH, width);
  setNumber(data.get(), EXIF_IFD_0, EXIF_TAG_IMAGE_LENGTH, height);
  setNumber(data.get(), EXIF_IFD_EXIF, EXIF_TAG_PIXEL_X_DIMENSION, width);
  setNumber(data.get(), EXIF_IFD_EXIF, EXIF_TAG_PIXEL_Y_DIMENSION, height);
  dropThumbnail(data.get());
  unsigned char* saved = nullptr;
  unsigned size = 0;
  exif_data_save_data(data.get(), &saved, &size);
  const std::unique_ptr<unsigned char, Release> owner(saved);
  if (saved == nullptr || size > kMostBytes) return {};
  return std::vector<uint8_t>(saved, saved + size);
}

}  // namespace tool
