#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>

#include "exif.h"

namespace tool {
namespace {

using Bytes = std::vector<uint8_t>;
using View = std::span<const uint8_t>;

constexpr uint16_t kExifDirectory = 0x8769;
constexpr uint16_t kGpsDirectory = 0x8825;
constexpr uint16_t kMakerNote = 0x927C;
constexpr uint16_t kInteroperabilityDirectory = 0xA005;
constexpr uint16_t kText = 2;
constexpr uint16_t kShort = 3;
constexpr uint16_t kLong = 4;
constexpr uint16_t kRational = 5;
constexpr size_t kMostBytes = size_t{1} << 20;
// Description, make, model, orientation, resolution, software, time, artist, copyright.
constexpr uint16_t kMainTags[] = {0x010E, 0x010F, 0x0110, 0x0112, 0x011A, 0x011B,
                                  0x0128, 0x0131, 0x0132, 0x013B, 0x8298};

struct Value {
  uint16_t tag;
  uint16_t type;
  uint32_t count;
  View bytes;
};

// A file of offsets of 32 bits. What reaches out of it is absent.
class TiffView {
 public:
  explicit TiffView(View file) : file_(file) {
    if (file.size() < 8) return;
    little_ = file[0] == 'I';
    good_ = file[0] == file[1] && (little_ || file[0] == 'M') && number(2, 2) == 42;
  }

  bool isGood() const { return good_; }
  bool isLittle() const { return little_; }
  uint32_t number(size_t at, size_t count) const {
    uint32_t value = 0;
    for (size_t i = 0; i < count; ++i) value = value << 8 | file_[at + (little_ ? count - 1 - i : i)];
    return value;
  }

  // Where the directory behind this one lies; 0 without one.
  size_t next(size_t at) const {
    if (!holds(at, 2)) return 0;
    const size_t link = at + 2 + 12 * number(at, 2);
    return holds(link, 4) ? number(link, 4) : 0;
  }

  std::vector<Value> directory(size_t at) const {
    constexpr size_t kTypeBytes[] = {0, 1, 1, 2, 4, 8, 1, 1, 2, 4, 8, 4, 8, 4};
    std::vector<Value> values;
    if (!holds(at, 2)) return values;
    const size_t count = number(at, 2);
    if (!holds(at + 2, 12 * count)) return values;
    for (size_t entry = at + 2; entry < at + 2 + 12 * count; entry += 12) {
      Value value = {static_cast<uint16_t>(number(entry, 2)),
                     static_cast<uint16_t>(number(entry + 2, 2)),
                     number(entry + 4, 4),
                     {}};
      if (value.type >= std::size(kTypeBytes)) continue;
      const uint64_t length = uint64_t{value.count} * kTypeBytes[value.type];
      const size_t from = length <= 4 ? entry + 8 : number(entry + 8, 4);
      if (length == 0 || length > kMostBytes || !holds(from, static_cast<size_t>(length))) continue;
      value.bytes = file_.subspan(from, static_cast<size_t>(length));
      values.push_back(value);
    }
    return values;
  }

 private:
  bool holds(size_t at, size_t length) const { return at <= file_.size() && length <= file_.size() - at; }

  View file_;
  bool good_ = false;
  bool little_ = false;
};

class Writer {
 public:
  explicit Writer(bool little) : little_(little) {
    bytes_.assign(2, little ? 'I' : 'M');
    put(42, 2);
    put(8, 4);
  }

  // Returns where the directory lies. Values that would make the block larger than any sensible one are left out.
  size_t add(std::vector<Value> values) {
    size_t room = bytes_.size() < kMostBytes ? kMostBytes - bytes_.size() : 0;
    std::erase_if(values, [&](const Value& value) {
      const size_t needed = 12 + value.bytes.size() + 1;
      const bool fits = needed <= room;
      if (fits) room -= needed;
      return !fits;
    });
    const size_t at = bytes_.size();
    size_t behind = at + 2 + 12 * values.size() + 4;
    put(static_cast<uint32_t>(values.size()), 2);
    for (const Value& value : values) {
      put(value.tag, 2);
      put(value.type, 2);
      put(value.count, 4);
      if (value.bytes.size() > 4) {
        put(static_cast<uint32_t>(behind), 4);
        behind += (value.bytes.size() + 1) / 2 * 2;
      } else {
        append(value.bytes, 4);
      }
    }
    put(0, 4);
    for (const Value& value : values) {
      if (value.bytes.size() > 4) append(value.bytes, (value.bytes.size() + 1) / 2 * 2);
    }
    return at;
  }

  // The number of an entry of a directory.
  void link(size_t directory, uint16_t tag, size_t target) {
    const auto at = [&](size_t entry, size_t i) -> uint8_t& { return bytes_[entry + (little_ ? i : 1 - i)]; };
    for (size_t entry = directory + 2;; entry += 12) {
      if ((at(entry, 0) | at(entry, 1) << 8) != tag) continue;
      for (size_t i = 0; i < 4; ++i) {
        bytes_[entry + 8 + (little_ ? i : 3 - i)] = static_cast<uint8_t>(target >> (8 * i));
      }
      return;
    }
  }

  Bytes take() { return std::move(bytes_); }

 private:
  void put(uint32_t value, size_t count) {
    for (size_t i = 0; i < count; ++i) {
      bytes_.push_back(static_cast<uint8_t>(value >> (8 * (little_ ? i : count - 1 - i))));
    }
  }
  void append(View from, size_t length) {
    bytes_.insert(bytes_.end(), from.begin(), from.end());
    bytes_.resize(bytes_.size() + length - from.size());
  }

  bool little_;
  Bytes bytes_;
};

Bytes bigEndian(uint32_t value, size_t count) {
  Bytes bytes;
  while (count-- > 0) bytes.push_back(static_cast<uint8_t>(value >> (8 * count)));
  return bytes;
}

}  // namespace

Bytes exifOfShot(const ExifShot& shot, int32_t orientation) {
  std::vector<Bytes> held;  // what the values show
  const auto add = [&](std::vector<Value>* to, uint16_t tag, uint16_t type, uint32_t count, Bytes bytes) {
    held.push_back(std::move(bytes));
    to->push_back({tag, type, count, held.back()});
  };
  const auto addText = [&](std::vector<Value>* to, uint16_t tag, const std::string& text) {
    Bytes bytes(text.begin(), text.end());
    bytes.push_back(0);
    const auto count = static_cast<uint32_t>(bytes.size());
    add(to, tag, kText, count, std::move(bytes));
  };
  std::vector<Value> main;
  std::vector<Value> photo;
  if (!shot.make.empty()) addText(&main, 0x010F, shot.make);
  if (!shot.model.empty()) addText(&main, 0x0110, shot.model);
  add(&main, 0x0112, kShort, 1, bigEndian(static_cast<uint32_t>(orientation), 2));
  if (shot.exposureSeconds) {
    const bool isShort = *shot.exposureSeconds < 1;
    static constexpr double kMost = 4e9;
    const auto whole = [](double x) { return static_cast<uint32_t>(std::min(std::round(x), kMost)); };
    Bytes ratio = bigEndian(isShort ? 10 : whole(*shot.exposureSeconds * 1000), 4);
    const Bytes below = bigEndian(isShort ? whole(10 / *shot.exposureSeconds) : 1000, 4);
    ratio.insert(ratio.end(), below.begin(), below.end());
    add(&photo, 0x829A, kRational, 1, std::move(ratio));
  }
  if (shot.iso) add(&photo, 0x8827, kLong, 1, bigEndian(static_cast<uint32_t>(std::min(*shot.iso, 1e9)), 4));
  if (shot.time) {
    namespace chrono = std::chrono;
    const chrono::sys_time<chrono::seconds> time(chrono::seconds(*shot.time / 1'000'000));
    const auto day = chrono::floor<chrono::days>(time);
    const chrono::year_month_day date(day);
    const chrono::hh_mm_ss clock(time - day);
    char text[64];
    std::snprintf(text, sizeof(text), "%04d:%02u:%02u %02d:%02d:%02d", static_cast<int>(date.year()),
                  static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()),
                  static_cast<int>(clock.hours().count()), static_cast<int>(clock.minutes().count()),
                  static_cast<int>(clock.seconds().count()));
    addText(&photo, 0x9003, text);
  }
  const Bytes nowhere = bigEndian(0, 4);
  if (!photo.empty()) main.push_back({kExifDirectory, kLong, 1, nowhere});
  Writer writer(false);
  const size_t first = writer.add(std::move(main));
  if (!photo.empty()) writer.link(first, kExifDirectory, writer.add(std::move(photo)));
  return writer.take();
}

bool isTiffOfCamera(View file) {
  constexpr uint16_t kPhotometric = 0x0106;
  constexpr uint16_t kSubDirectories = 0x014A;
  constexpr uint16_t kDngVersion = 0xC612;
  constexpr uint32_t kColourFilters = 32803;
  constexpr uint32_t kLinearRaw = 34892;
  constexpr size_t kMostDirectories = 16;
  const TiffView tiff(file);
  if (!tiff.isGood()) return false;
  if (file.size() >= 10 && file[8] == 'C' && file[9] == 'R') return true;
  std::vector<size_t> places;
  const auto note = [&](size_t place) {
    if (place != 0 && places.size() < kMostDirectories) places.push_back(place);
  };
  note(tiff.number(4, 4));
  for (size_t i = 0; i < places.size(); ++i) {
    for (const Value& value : tiff.directory(places[i])) {
      const auto numberAt = [&](size_t at, size_t count) {
        return tiff.number(static_cast<size_t>(value.bytes.data() - file.data()) + at, count);
      };
      if (value.tag == kDngVersion) return true;
      if (value.tag == kPhotometric && value.type == kShort) {
        const uint32_t kind = numberAt(0, 2);
        if (kind == kColourFilters || kind == kLinearRaw) return true;
      }
      if (value.tag != kSubDirectories) continue;
      for (size_t at = 0; at + 4 <= value.bytes.size(); at += 4) note(numberAt(at, 4));
    }
    note(tiff.next(places[i]));
  }
  return false;
}

Bytes exifOfTiff(View file) {
  const TiffView tiff(file);
  if (!tiff.isGood()) return {};
  constexpr uint8_t kNowhere[4] = {};
  std::vector<Value> main;
  std::vector<std::pair<uint16_t, std::vector<Value>>> others;
  for (const Value& value : tiff.directory(tiff.number(4, 4))) {
    const bool isLink = value.tag == kExifDirectory || value.tag == kGpsDirectory;
    if (!isLink && std::find(std::begin(kMainTags), std::end(kMainTags), value.tag) == std::end(kMainTags)) continue;
    if (isLink) {
      const bool isTwice =
          std::any_of(others.begin(), others.end(), [&](const auto& o) { return o.first == value.tag; });
      if (value.bytes.size() != 4 || isTwice) continue;
      std::vector<Value> values = tiff.directory(tiff.number(static_cast<size_t>(value.bytes.data() - file.data()), 4));
      std::erase_if(values, [](const Value& v) { return v.tag == kMakerNote || v.tag == kInteroperabilityDirectory; });
      if (values.empty()) continue;
      others.emplace_back(value.tag, std::move(values));
      main.push_back({value.tag, kLong, 1, kNowhere});
    } else {
      main.push_back(value);
    }
  }
  if (main.empty()) return {};
  // The links come first to be sure of a place; readers want the entries in order of their tags.
  std::stable_partition(main.begin(), main.end(), [&](const Value& v) { return v.bytes.data() == kNowhere; });
  size_t room = kMostBytes / 2;
  std::erase_if(main, [&](const Value& value) {
    const bool fits = value.bytes.size() + 13 <= room;
    if (fits) room -= value.bytes.size() + 13;
    return !fits;
  });
  std::stable_sort(main.begin(), main.end(), [](const Value& a, const Value& b) { return a.tag < b.tag; });
  Writer writer(tiff.isLittle());
  const size_t first = writer.add(std::move(main));
  for (auto& [tag, values] : others) writer.link(first, tag, writer.add(std::move(values)));
  return writer.take();
}

}  // namespace tool
