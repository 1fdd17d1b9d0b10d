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

class ExifMaker {
 public:
  explicit ExifMaker(ExifByteOrder order) : order_(order), data_(exif_data_new()) {
    exif_data_set_byte_order(data_.get(), order);
  }
  unsigned char* add(ExifIfd ifd, ExifTag tag, ExifFormat format, size_t components, size_t bytes) {
    ExifEntry* entry = exif_entry_new();
    exif_content_add_entry(data_->ifd[ifd], entry);
    entry->tag = tag;
    entry->format = format;
    entry->components = components;
    entry->size = static_cast<unsigned>(bytes);
    entry->data = static_cast<unsigned char*>(std::calloc(bytes, 1));
    exif_entry_unref(entry);
    return entry->data;
  }
  void add(ExifIfd ifd, ExifTag tag, const std::string& text) {
    if (!text.empty())
      std::memcpy(add(ifd, tag, EXIF_FORMAT_ASCII, text.size() + 1, text.size() + 1), text.c_str(), text.size());
  }
  void addShort(ExifIfd ifd, ExifTag tag, int32_t number) {
    exif_set_short(add(ifd, tag, EXIF_FORMAT_SHORT, 1, 2), order_, static_cast<ExifShort>(number));
  }
  void addLong(ExifIfd ifd, ExifTag tag, uint32_t number) {
    exif_set_long(add(ifd, tag, EXIF_FORMAT_LONG, 1, 4), order_, number);
  }
  void addThumbnail() {
    data_->size = 1000;
    data_->data = static_cast<unsigned char*>(std::malloc(data_->size));
    std::memset(data_->data, 0xAB, data_->size);
  }
  std::vector<uint8_t> block() const {
    unsigned char* saved = nullptr;
    unsigned size = 0;
    exif_data_save_data(data_.get(), &saved, &size);
    const std::vector<uint8_t> block(saved + 6, saved + size);  // behind "Exif\0\0"
    std::free(saved);
    return block;
  }

 private:
  ExifByteOrder order_;
  ExifOwner data_;
};

// Orientation, the dimensions of another picture and, if wanted, a thumbnail.
inline std::vector<uint8_t> makeExif(int32_t orientation, bool thumbnail) {
  ExifMaker maker(EXIF_BYTE_ORDER_MOTOROLA);
  maker.addShort(EXIF_IFD_0, EXIF_TAG_ORIENTATION, orientation);
  maker.addLong(EXIF_IFD_EXIF, EXIF_TAG_PIXEL_X_DIMENSION, 4000);
  maker.addLong(EXIF_IFD_EXIF, EXIF_TAG_PIXEL_Y_DIMENSION, 3000);
  if (thumbnail) maker.addThumbnail();
  return maker.block();
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
  ExifMaker maker(order);
  maker.add(EXIF_IFD_0, EXIF_TAG_MAKE, "Maker ");
  maker.add(EXIF_IFD_0, EXIF_TAG_MODEL, tags.model);
  maker.add(EXIF_IFD_EXIF, EXIF_TAG_DATE_TIME_ORIGINAL, tags.time);
  maker.add(EXIF_IFD_EXIF, EXIF_TAG_SUB_SEC_TIME_ORIGINAL, tags.subSeconds);
  exif_set_rational(maker.add(EXIF_IFD_EXIF, EXIF_TAG_EXPOSURE_TIME, EXIF_FORMAT_RATIONAL, 1, 8), order,
                    {tags.exposure[0], tags.exposure[1]});
  maker.addShort(EXIF_IFD_EXIF, EXIF_TAG_ISO_SPEED_RATINGS, tags.iso);
  return maker.block();
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
