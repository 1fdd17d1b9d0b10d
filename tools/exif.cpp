#include "exif.h"

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdio>

namespace tool {
namespace {

using Bytes = std::vector<uint8_t>;

constexpr size_t kHeader = 8;
constexpr uint16_t kImageWidth = 0x0100;
constexpr uint16_t kImageLength = 0x0101;
constexpr uint16_t kStripOffsets = 0x0111;
constexpr uint16_t kMake = 0x010F;
constexpr uint16_t kModel = 0x0110;
constexpr uint16_t kOrientation = 0x0112;
constexpr uint16_t kStripByteCounts = 0x0117;
constexpr uint16_t kThumbnailOffset = 0x0201;
constexpr uint16_t kThumbnailBytes = 0x0202;
constexpr uint16_t kExposureTime = 0x829A;
constexpr uint16_t kExifDirectory = 0x8769;
constexpr uint16_t kGpsDirectory = 0x8825;
constexpr uint16_t kIso = 0x8827;
constexpr uint16_t kTimeOriginal = 0x9003;
constexpr uint16_t kSubSecondsOriginal = 0x9291;
constexpr uint16_t kPixelWidth = 0xA002;
constexpr uint16_t kPixelHeight = 0xA003;
constexpr uint16_t kInteroperabilityDirectory = 0xA005;

constexpr uint16_t kText = 2;
constexpr uint16_t kShort = 3;
constexpr uint16_t kLong = 4;
constexpr uint16_t kRational = 5;
constexpr uint16_t kDirectory = 13;

struct Range {
  size_t begin;
  size_t end;
};

struct Entry {
  size_t at;  // of its 12 bytes
  uint16_t tag;
  uint16_t type;
  uint32_t count;
};

struct Directory {
  bool whole = false;  // its table lies in the block
  size_t linkAt = 0;   // where the offset of the next directory stands
  std::vector<Entry> entries;
};

// Bytes of one value of a type; 0 for types that are not known.
size_t typeBytes(uint16_t type) {
  constexpr size_t kBytes[] = {0, 1, 1, 2, 4, 8, 1, 1, 2, 4, 8, 4, 8, 4};
  return type < std::size(kBytes) ? kBytes[type] : 0;
}

// Access to a block that may hold anything: offsets out of it read as absent.
class Block {
 public:
  explicit Block(Bytes bytes) : bytes_(std::move(bytes)) {
    if (!holds(0, kHeader)) return;
    littleEndian_ = bytes_[0] == 'I';
    good_ = bytes_[0] == bytes_[1] && (littleEndian_ || bytes_[0] == 'M') && shortAt(2) == 42;
  }

  Directory first() const { return good_ ? directory(longAt(4)) : Directory(); }

  Directory directory(size_t at) const {
    Directory found;
    if (!holds(at, 2)) return found;
    const size_t count = shortAt(at);
    found.linkAt = at + 2 + 12 * count;
    found.whole = holds(at, 2 + 12 * count);  // some writers leave the link of the last directory out
    for (size_t i = 0; found.whole && i < count; ++i) {
      const size_t entry = at + 2 + 12 * i;
      found.entries.push_back({entry, shortAt(entry), shortAt(entry + 2), longAt(entry + 4)});
    }
    return found;
  }

  // The one number of an entry.
  std::optional<uint32_t> number(const Directory& directory, uint16_t tag) const {
    for (const Entry& e : directory.entries) {
      if (e.tag != tag) continue;
      if (e.count != 1 || (e.type != kShort && e.type != kLong && e.type != kDirectory)) return std::nullopt;
      return e.type == kShort ? shortAt(e.at + 8) : longAt(e.at + 8);
    }
    return std::nullopt;
  }

  // Without the zero at its end and padding; empty where there is none.
  std::string text(const Directory& directory, uint16_t tag) const {
    for (const Entry& e : directory.entries) {
      if (e.tag != tag || e.type != kText) continue;
      const size_t at = e.count <= 4 ? e.at + 8 : longAt(e.at + 8);
      if (!holds(at, e.count)) return {};
      std::string found(reinterpret_cast<const char*>(bytes_.data()) + at, e.count);
      found.resize(std::min(found.find('\0'), found.size()));
      found.resize(found.find_last_not_of(' ') + 1);
      return found;
    }
    return {};
  }

  // Above 0.
  std::optional<double> ratio(const Directory& directory, uint16_t tag) const {
    for (const Entry& e : directory.entries) {
      if (e.tag != tag || e.type != kRational || e.count != 1) continue;
      const size_t at = longAt(e.at + 8);
      if (!holds(at, 8) || longAt(at) == 0 || longAt(at + 4) == 0) return std::nullopt;
      return static_cast<double>(longAt(at)) / longAt(at + 4);
    }
    return std::nullopt;
  }

  // Overwrites a number that is there.
  void setNumber(const Directory& directory, uint16_t tag, int32_t value) {
    for (const Entry& e : directory.entries) {
      if (e.tag != tag || e.count != 1 || (e.type != kShort && e.type != kLong)) continue;
      if (e.type == kShort && value > 0xFFFF) putShort(e.at + 2, kLong);
      if (e.type == kShort && value <= 0xFFFF) {
        putShort(e.at + 8, static_cast<uint16_t>(value));
      } else {
        putLong(e.at + 8, static_cast<uint32_t>(value));
      }
    }
  }

  // Takes note of the bytes of a directory and its values. False when some are not in the block, or the directory lies
  // where something else does: writing into one would change the other.
  bool use(const Directory& directory) {
    if (!directory.whole) return false;
    const Range table = {directory.linkAt - 12 * directory.entries.size() - 2, directory.linkAt};
    if (isUsed(table)) return false;
    used_.push_back(table);
    for (const Entry& e : directory.entries) {
      const uint64_t length = uint64_t{e.count} * typeBytes(e.type);
      if (length <= 4) continue;
      const size_t at = longAt(e.at + 8);
      if (length > bytes_.size() || !holds(at, static_cast<size_t>(length))) return false;
      used_.push_back({at, at + static_cast<size_t>(length)});
    }
    return true;
  }

  // Cuts the chain of directories behind this one, and takes the thumbnail away that the next one describes.
  void endAfter(const Directory& directory) {
    if (!holds(directory.linkAt, 4)) return;
    const Directory next = this->directory(longAt(directory.linkAt));
    putLong(directory.linkAt, 0);
    std::vector<Range> thumbnails;
    for (const auto& [offsetTag, bytesTag] :
         {std::pair{kThumbnailOffset, kThumbnailBytes}, {kStripOffsets, kStripByteCounts}}) {
      const auto at = number(next, offsetTag);
      const auto length = number(next, bytesTag);
      if (at && length && holds(*at, *length)) thumbnails.push_back({*at, size_t{*at} + *length});
    }
    for (const Range& thumbnail : thumbnails) erase(thumbnail);
  }

  Bytes take() { return std::move(bytes_); }

 private:
  bool holds(size_t at, size_t length) const { return at <= bytes_.size() && length <= bytes_.size() - at; }
  uint16_t shortAt(size_t at) const {
    const uint8_t* p = bytes_.data() + at;
    return static_cast<uint16_t>(littleEndian_ ? p[1] << 8 | p[0] : p[0] << 8 | p[1]);
  }
  uint32_t longAt(size_t at) const {
    const uint32_t first = shortAt(at);
    const uint32_t second = shortAt(at + 2);
    return littleEndian_ ? second << 16 | first : first << 16 | second;
  }
  void putShort(size_t at, uint16_t value) {
    bytes_[at + (littleEndian_ ? 0 : 1)] = static_cast<uint8_t>(value & 0xFF);
    bytes_[at + (littleEndian_ ? 1 : 0)] = static_cast<uint8_t>(value >> 8);
  }
  void putLong(size_t at, uint32_t value) {
    putShort(at + (littleEndian_ ? 0 : 2), static_cast<uint16_t>(value & 0xFFFF));
    putShort(at + (littleEndian_ ? 2 : 0), static_cast<uint16_t>(value >> 16));
  }

  bool isUsed(Range range) const {
    return std::any_of(used_.begin(), used_.end(),
                       [&](const Range& used) { return range.begin < used.end && used.begin < range.end; });
  }

  // Unless something that stays lies there, too.
  void erase(Range gone) {
    if (gone.end > bytes_.size() || isUsed(gone)) return;
    if (gone.end == bytes_.size()) {
      bytes_.resize(gone.begin);
    } else {
      std::fill(bytes_.begin() + static_cast<ptrdiff_t>(gone.begin), bytes_.begin() + static_cast<ptrdiff_t>(gone.end),
                uint8_t{0});
    }
  }

  Bytes bytes_;
  bool good_ = false;
  bool littleEndian_ = false;
  std::vector<Range> used_ = {{0, kHeader}};
};

// Of "2024:05:31 12:30:59", in microseconds.
std::optional<int64_t> parseTime(const std::string& text, const std::string& subSeconds) {
  int year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0;
  if (std::sscanf(text.c_str(), "%4d:%2d:%2d %2d:%2d:%2d", &year, &month, &day, &hour, &minute, &second) != 6 ||
      year < 1 || month < 1 || month > 12 || day < 1 || day > 31 || hour < 0 || hour > 23 || minute < 0 ||
      minute > 59 || second < 0 || second > 60) {
    return std::nullopt;
  }
  const std::chrono::sys_days date = std::chrono::year(year) / std::chrono::month(static_cast<unsigned>(month)) /
                                     std::chrono::day(static_cast<unsigned>(day));
  int64_t time = (int64_t{date.time_since_epoch().count()} * 24 + hour) * 60 + minute;
  time = (time * 60 + second) * 1'000'000;
  int64_t part = 100'000;
  for (const char digit : subSeconds) {
    if (digit < '0' || digit > '9') break;
    time += part * (digit - '0');
    part /= 10;
  }
  return time;
}

}  // namespace

ExifShot exifShot(const Bytes& exif) {
  const Block block(exif);
  const Directory main = block.first();
  ExifShot shot;
  shot.make = block.text(main, kMake);
  shot.model = block.text(main, kModel);
  const auto at = block.number(main, kExifDirectory);
  if (!at) return shot;
  const Directory photo = block.directory(*at);
  const std::string subSeconds = block.text(photo, kSubSecondsOriginal);
  shot.time = parseTime(block.text(photo, kTimeOriginal), subSeconds);
  shot.wholeSeconds = subSeconds.empty() || subSeconds[0] < '0' || subSeconds[0] > '9';
  shot.exposureSeconds = block.ratio(photo, kExposureTime);
  if (const auto iso = block.number(photo, kIso); iso && *iso > 0) shot.iso = *iso;
  return shot;
}

int32_t exifOrientation(const Bytes& exif) {
  const Block block(exif);
  const uint32_t orientation = block.number(block.first(), kOrientation).value_or(1);
  return orientation >= 1 && orientation <= 8 ? static_cast<int32_t>(orientation) : 1;
}

Bytes exifWithOrientation(int32_t orientation) {
  return {'M',  'M',  0, 42, 0, 0, 0, 8,                                              // the directory follows
          0,    1,                                                                    // one entry
          0x01, 0x12, 0, 3,  0, 0, 0, 1, 0, static_cast<uint8_t>(orientation), 0, 0,  // one short
          0,    0,    0, 0};                                                          // and no other directory
}

Bytes exifOriented(const Bytes& exif, int32_t orientation) {
  Block block(exif);
  block.setNumber(block.first(), kOrientation, orientation);
  return block.take();
}

std::optional<Bytes> exifForSize(const Bytes& exif, int32_t width, int32_t height) {
  Block block(exif);
  const Directory main = block.first();
  if (!block.use(main)) return std::nullopt;
  Directory photo;
  if (const auto at = block.number(main, kExifDirectory)) {
    photo = block.directory(*at);
    if (!block.use(photo)) return std::nullopt;
  }
  for (const auto& at : {block.number(main, kGpsDirectory), block.number(photo, kInteroperabilityDirectory)}) {
    if (at && !block.use(block.directory(*at))) return std::nullopt;
  }
  block.setNumber(main, kImageWidth, width);
  block.setNumber(main, kImageLength, height);
  block.setNumber(photo, kPixelWidth, width);
  block.setNumber(photo, kPixelHeight, height);
  block.endAfter(main);
  return block.take();
}

}  // namespace tool
