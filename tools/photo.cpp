#include "photo.h"

#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <fstream>
#include <string_view>

#include "exif.h"
#include "file_io.h"
#include "image_file_kinds.h"
#include "picture_extent.h"

namespace tool {
namespace {

constexpr size_t kFirstLook = size_t{1} << 16;
constexpr size_t kLongestHead = size_t{1} << 26;

struct Head {
  int64_t width = 0;
  int64_t height = 0;
  Bytes exif;
};

uint32_t bigEndian(const Bytes& bytes, size_t at, size_t count) {
  uint32_t value = 0;
  for (size_t i = 0; i < count; ++i) value = value << 8 | bytes[at + i];
  return value;
}

// Both walks return whether the head is over, for good or because it is damaged; otherwise it goes on past the bytes.
bool walkJpeg(const Bytes& bytes, Head* head) {
  constexpr std::string_view kExifHeader("Exif\0\0", 6);
  size_t at = 2;
  while (bytes.size() - std::min(at, bytes.size()) >= 4) {
    if (bytes[at] != 0xFF) return true;
    const uint8_t code = bytes[at + 1];
    if (code == 0xFF || code == 0x01) {  // fill, or a marker without a length
      at += code == 0xFF ? 1 : 2;
      continue;
    }
    const size_t length = bigEndian(bytes, at + 2, 2);
    if (code == 0xDA || code == 0xD9 || length < 2) return true;
    if (bytes.size() - at < 2 + length) return false;
    const uint8_t* content = bytes.data() + at + 4;
    const bool isFrame = code >= 0xC0 && code <= 0xCF && code != 0xC4 && code != 0xC8 && code != 0xCC;
    if (isFrame && length >= 8) {
      head->height = bigEndian(bytes, at + 5, 2);
      head->width = bigEndian(bytes, at + 7, 2);
    } else if (code == 0xE1 && head->exif.empty() && length - 2 > kExifHeader.size() &&
               std::memcmp(content, kExifHeader.data(), kExifHeader.size()) == 0) {
      head->exif.assign(content + kExifHeader.size(), content + length - 2);
    }
    at += 2 + length;
  }
  return false;
}

bool walkPng(const Bytes& bytes, Head* head) {
  constexpr size_t kAround = 12;  // length, kind and check sum
  size_t at = 8;
  while (bytes.size() - std::min(at, bytes.size()) >= kAround) {
    const size_t length = bigEndian(bytes, at, 4);
    const std::string_view kind(reinterpret_cast<const char*>(bytes.data()) + at + 4, 4);
    if (kind == "IDAT" || kind == "IEND") return true;
    if (length > kLongestHead) return true;
    if (bytes.size() - at - kAround < length) return false;
    if (kind == "IHDR" && length >= 8) {
      head->width = bigEndian(bytes, at + 8, 4);
      head->height = bigEndian(bytes, at + 12, 4);
    } else if (kind == "eXIf") {
      head->exif.assign(bytes.begin() + static_cast<ptrdiff_t>(at + 8),
                        bytes.begin() + static_cast<ptrdiff_t>(at + 8 + length));
    }
    at += kAround + length;
  }
  return false;
}

// Of kinds whose parts lie anywhere in the file.
template <typename Open>
Head headOfWhole(const std::string& path, const Open& open) {
  const Decoder decoder = open(path, InputFile(path).read(PictureExtent(path, nullptr)));
  return {decoder->width(), decoder->height(), decoder->takeMetadata().exif};
}

Decoder openTiffOrRaw(const std::string& path, FileBytes bytes) {
  return isCameraRaw(path, bytes.view()) ? openCameraRaw(path, std::move(bytes)) : openTiff(path, std::move(bytes));
}

Head readHead(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) throw Error(path, std::string("cannot be read: ") + std::strerror(errno));
  Bytes bytes;
  for (size_t wanted = kFirstLook;; wanted *= 4) {
    const size_t held = bytes.size();
    bytes.resize(wanted);
    file.read(reinterpret_cast<char*>(bytes.data()) + held, static_cast<std::streamsize>(wanted - held));
    bytes.resize(held + static_cast<size_t>(file.gcount()));
    if (file.bad()) throw Error(path, std::string("cannot be read: ") + std::strerror(errno));
    Head head;
    if (isHeif(bytes)) return headOfWhole(path, openHeif);
    if (startsCameraRaw(bytes) || isTiff(bytes)) return headOfWhole(path, openTiffOrRaw);
    if (bytes.empty()) throw Error(path, "is empty");
    if (!isJpeg(bytes) && !isPng(bytes)) throw Error(path, "is no picture of a known kind");
    const bool over = isJpeg(bytes) ? walkJpeg(bytes, &head) : walkPng(bytes, &head);
    if (!over && file && wanted < kLongestHead) continue;
    if (head.width == 0) throw Error(path, "damaged: its size stands nowhere");
    checkPictureSize(path, head.width, head.height);
    return head;
  }
}

// Of the file's last change, in local time.
int64_t fileTime(const std::string& path) {
  struct stat info;
  if (stat(path.c_str(), &info) != 0) throw Error(path, std::string("cannot be read: ") + std::strerror(errno));
  tm local = {};
  localtime_r(&info.st_mtim.tv_sec, &local);
  return int64_t{timegm(&local)} * 1'000'000 + info.st_mtim.tv_nsec / 1000;
}

}  // namespace

bool isPhotoName(const std::string& path) {
  static constexpr std::array<std::string_view, 8> kEndings = {"jpg",  "jpeg", "png", "heic",
                                                               "heif", "avif", "tif", "tiff"};
  return isCameraRawName(path) || std::find(kEndings.begin(), kEndings.end(), endingOf(path)) != kEndings.end();
}

Photo readPhoto(const std::string& path) {
  const Head head = readHead(path);
  ExifShot shot = exifShot(head.exif);
  Photo photo;
  photo.path = path;
  photo.time = shot.time ? *shot.time : fileTime(path);
  photo.wholeSeconds = shot.time && shot.wholeSeconds;
  photo.make = std::move(shot.make);
  photo.model = std::move(shot.model);
  photo.width = static_cast<int32_t>(head.width);
  photo.height = static_cast<int32_t>(head.height);
  photo.exposureSeconds = shot.exposureSeconds;
  photo.iso = shot.iso;
  return photo;
}

}  // namespace tool
