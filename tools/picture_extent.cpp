#include "picture_extent.h"

#include <algorithm>
#include <cstring>

namespace tool {
namespace {

// Beside pixels: profiles, previews, notes of the camera.
constexpr size_t kMostExtra = size_t{64} << 20;
// Coded pixels, generously: 8 bytes a pixel before compression at most, which may double them.
constexpr size_t kMostPerPixel = 16;
constexpr size_t kMostHeif = size_t{1} << 28;
// Up to four samples of 16 bits a pixel.
constexpr size_t kMostTiff = kMostExtra + 8 * size_t{kMostPixels};
constexpr size_t kPngSignature = 8;

// Whether the bytes that are there agree with the beginning of text.
bool agrees(ByteView read, size_t at, const char* text, size_t length) {
  const size_t count = std::min(length, read.size() - std::min(at, read.size()));
  return count == 0 || std::memcmp(read.data() + at, text, count) == 0;
}

uint32_t bigEndian(const uint8_t* p, size_t count) {
  uint32_t value = 0;
  for (size_t i = 0; i < count; ++i) value = value << 8 | p[i];
  return value;
}

}  // namespace

size_t PictureExtent::operator()(ByteView read) {
  if (kind_ == Kind::kUnknown) {
    if (const size_t wanted = detect(read); kind_ == Kind::kUnknown) return wanted;
  }
  if (kind_ == Kind::kY4m) return kY4mMagic - std::min(read.size(), kY4mMagic);
  if (kind_ == Kind::kHeif) {
    if (read.size() < kHeifMagic) return kHeifMagic - read.size();
    if (startsCameraRaw(read)) {
      kind_ = Kind::kCameraRaw;
      return (*this)(read);
    }
    if (!isHeif(read)) return 0;
    if (read.size() >= kMostHeif) throw Error(name_, "damaged: longer than any HEIC or AVIF picture");
    return kMostHeif - read.size();
  }
  if (kind_ == Kind::kTiff || kind_ == Kind::kCameraRaw) {
    if (kind_ == Kind::kCameraRaw && read.size() < kCameraRawMagic) return kCameraRawMagic - read.size();
    if (!isTiff(read) && !startsCameraRaw(read)) return 0;
    if (read.size() >= kMostTiff) throw Error(name_, "damaged: longer than any TIFF or raw picture");
    return kMostTiff - read.size();
  }
  if (kind_ == Kind::kJpeg ? endsJpeg(read) : endsPng(read)) return 0;
  if (std::max(at_, read.size()) >= limit_) throw Error(name_, "damaged: it goes on past any picture of its size");
  return limit_ - read.size();
}

size_t PictureExtent::detect(ByteView read) {
  struct Beginning {
    Kind kind;
    const char* text;
    size_t length;
  };
  static const Beginning beginnings[] = {{Kind::kJpeg, "\xFF\xD8\xFF", 3},
                                         {Kind::kPng, "\x89PNG\r\n\x1A\n", kPngSignature},
                                         // The length of a box: this one is short.
                                         {Kind::kHeif, "\0\0\0", 3},
                                         {Kind::kTiff, "II*\0", kTiffMagic},
                                         {Kind::kTiff, "MM\0*", kTiffMagic},
                                         {Kind::kTiff, "II+\0", kTiffMagic},
                                         {Kind::kTiff, "MM\0+", kTiffMagic},
                                         {Kind::kCameraRaw, "FUJIFILM", 8},
                                         {Kind::kCameraRaw, "II\x1A\0", 4},
                                         {Kind::kCameraRaw, "IIU\0", 4},
                                         {Kind::kCameraRaw, "IIRO", 4},
                                         {Kind::kCameraRaw, "IIRS", 4},
                                         {Kind::kCameraRaw, "MMOR", 4},
                                         {Kind::kCameraRaw, "\0MRM", 4},
                                         {Kind::kCameraRaw, "FOVb", 4},
                                         {Kind::kY4m, "YUV4MPEG2", 9}};
  for (const Beginning& beginning : beginnings) {
    if (!agrees(read, 0, beginning.text, beginning.length)) continue;
    if (read.size() < beginning.length) return beginning.length - read.size();
    kind_ = beginning.kind;
    at_ = kind_ == Kind::kPng ? kPngSignature : 0;
    limit_ = kMostExtra;
  }
  return 0;
}

void PictureExtent::takeSize(int64_t width, int64_t height) {
  checkPictureSize(name_, width, height);
  if (check_) check_(name_, width, height);
  limit_ = kMostExtra + kMostPerPixel * static_cast<size_t>(width * height);
}

// The two walks return whether the picture is over, for good or because it is damaged.
bool PictureExtent::endsJpeg(ByteView read) {
  for (;;) {
    const auto held = [&](size_t count) { return read.size() >= count && read.size() - count >= at_; };
    if (inScan_ && at_ < read.size()) {
      const void* mark = std::memchr(read.data() + at_, 0xFF, read.size() - at_);
      at_ = mark == nullptr ? read.size() : static_cast<size_t>(static_cast<const uint8_t*>(mark) - read.data());
    }
    if (!held(2)) return false;
    const uint8_t* p = read.data() + at_;
    if (p[0] != 0xFF) return true;
    const uint8_t code = p[1];
    if (code == 0xFF) {  // fill
      ++at_;
    } else if (code == 0xD9) {
      return true;
    } else if (code == 0x01 || (code >= 0xD0 && code <= 0xD7) || (code == 0xD8 && at_ == 0) || (code == 0 && inScan_)) {
      at_ += 2;
    } else {
      inScan_ = false;
      if (code == 0 || code == 0xD8) return true;
      if (!held(4)) return false;
      const size_t length = bigEndian(p + 2, 2);
      const bool isFrame = code >= 0xC0 && code <= 0xCF && code != 0xC4 && code != 0xC8 && code != 0xCC;
      if (length < (isFrame ? 7 : 2)) return true;
      if (isFrame) {
        if (!held(9)) return false;
        takeSize(bigEndian(p + 7, 2), bigEndian(p + 5, 2));
      }
      inScan_ = code == 0xDA;
      at_ += 2 + length;
    }
  }
}

bool PictureExtent::endsPng(ByteView read) {
  for (;;) {
    const auto held = [&](size_t count) { return read.size() >= count && read.size() - count >= at_; };
    if (!held(8)) return false;
    const uint8_t* p = read.data() + at_;
    const size_t length = bigEndian(p, 4);
    const bool first = at_ == kPngSignature;
    const bool isNamed = std::all_of(p + 4, p + 8, [](uint8_t c) { return (c | 0x20) >= 'a' && (c | 0x20) <= 'z'; });
    if (!isNamed || length > 0x7FFFFFFF || first != (std::memcmp(p + 4, "IHDR", 4) == 0) || (first && length != 13))
      return true;
    if (first) {
      if (!held(16)) return false;
      takeSize(bigEndian(p + 8, 4), bigEndian(p + 12, 4));
    }
    const bool last = std::memcmp(p + 4, "IEND", 4) == 0;
    if (last) return length != 0 || held(12);
    at_ += 12 + length;
  }
}

}  // namespace tool
