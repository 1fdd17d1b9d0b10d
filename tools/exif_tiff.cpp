#include <algorithm>

#include "exif.h"

namespace tool {
namespace {

using Bytes = std::vector<uint8_t>;
using View = std::span<const uint8_t>;

constexpr uint16_t kExifDirectory = 0x8769;
constexpr uint16_t kGpsDirectory = 0x8825;
constexpr uint16_t kMakerNote = 0x927C;
constexpr uint16_t kInteroperabilityDirectory = 0xA005;
constexpr uint16_t kLong = 4;
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

}  // namespace

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
