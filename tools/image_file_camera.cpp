#include <algorithm>
#include <array>
#include <cstring>
#include <string_view>

#include "exif.h"
#include "image_file_kinds.h"

#ifdef TESSALINE4_RAW
#include <libraw/libraw.h>
#endif

namespace tool {
namespace {

using namespace std::string_view_literals;

bool holdsAt(ByteView bytes, size_t at, std::string_view text) {
  return bytes.size() >= at + text.size() && std::memcmp(bytes.data() + at, text.data(), text.size()) == 0;
}

}  // namespace

bool isCameraRawName(const std::string& path) {
  static constexpr std::array kEndings = {"3fr"sv, "arw"sv, "cr2"sv, "cr3"sv, "crw"sv, "dcr"sv, "dng"sv,
                                          "erf"sv, "fff"sv, "gpr"sv, "iiq"sv, "kdc"sv, "mef"sv, "mos"sv,
                                          "mrw"sv, "nef"sv, "nrw"sv, "orf"sv, "pef"sv, "raf"sv, "rw2"sv,
                                          "rwl"sv, "sr2"sv, "srf"sv, "srw"sv, "x3f"sv};
  return std::find(kEndings.begin(), kEndings.end(), endingOf(path)) != kEndings.end();
}

bool startsCameraRaw(ByteView beginning) {
  static constexpr std::array kMagics = {
      "FUJIFILM"sv, "II\x1A\0\0\0HEAP"sv, "IIU\0"sv, "IIRO"sv, "IIRS"sv, "MMOR"sv, "\0MRM"sv, "FOVb"sv};
  const bool isCr3 = holdsAt(beginning, 4, "ftypcrx ");
  return isCr3 || std::any_of(kMagics.begin(), kMagics.end(),
                              [&](std::string_view magic) { return holdsAt(beginning, 0, magic); });
}

bool isCameraRaw(const std::string& name, ByteView file) {
  return startsCameraRaw(file) || (isTiff(file) && (isCameraRawName(name) || isTiffOfCamera(file)));
}

#ifdef TESSALINE4_RAW

namespace {

class CameraRawDecoder : public ImageDecoder {
 public:
  CameraRawDecoder(const std::string& name, const FileBytes& file) : ImageDecoder(name, 0, 0) {
    const std::unique_ptr<libraw_data_t, Close> raw(libraw_init(0));
    if (raw == nullptr) throw std::bad_alloc();
    libraw_set_dataerror_handler(raw.get(), nullptr, nullptr);  // it prints
    check(libraw_open_buffer(raw.get(), const_cast<uint8_t*>(file.data()), file.size()));
    const int failure = libraw_unpack_thumb(raw.get());
    if (failure == LIBRAW_UNSUFFICIENT_MEMORY) throw std::bad_alloc();
    const libraw_thumbnail_t& preview = raw->thumbnail;
    if (failure != LIBRAW_SUCCESS || preview.tformat != LIBRAW_THUMBNAIL_JPEG || preview.thumb == nullptr) {
      throw Error(name, "a raw file with no JPEG inside, which is what this tool takes of one: develop it first");
    }
    FileBytes jpeg;
    uint8_t* room = jpeg.room(preview.tlength);
    if (room == nullptr) throw std::bad_alloc();
    std::memcpy(room, preview.thumb, preview.tlength);
    jpeg.add(preview.tlength);
    inner_ = openJpeg(name + " (the JPEG inside it)", std::move(jpeg));
    width_ = inner_->width();
    height_ = inner_->height();
    checkPreviewSize(raw->sizes);
    metadata_ = inner_->takeMetadata();
    completeExif(file.view(), *raw);
    metadata_.origin = "the JPEG inside a raw file";
  }

  void decode(const Planes& planes) override { inner_->decode(planes); }
  RgbPicture decodeRgb() override { return inner_->decodeRgb(); }

 private:
  struct Close {
    void operator()(libraw_data_t* raw) const { libraw_close(raw); }
  };

  void check(int failure) const {
    if (failure == LIBRAW_SUCCESS) return;
    if (failure == LIBRAW_UNSUFFICIENT_MEMORY) throw std::bad_alloc();
    throw Error(name_, std::string("a raw file that libraw does not read: ") + libraw_strerror(failure));
  }

  // Cameras leave some rows and columns of the sensor out, and some store half of its pixels a side.
  void checkPreviewSize(const libraw_image_sizes_t& sensor) const {
    const int32_t width = sensor.width;
    const int32_t height = sensor.height;
    if (2 * std::min(width_, height_) < std::min(width, height) ||
        2 * std::max(width_, height_) < std::max(width, height)) {
      throw Error(name_, "a raw file whose JPEG is a thumbnail of " + std::to_string(width_) + "x" +
                             std::to_string(height_) + " beside a sensor of " + std::to_string(width) + "x" +
                             std::to_string(height) + ": develop it first");
    }
  }

  // What the JPEG tells stands, if it tells when it was taken. Otherwise the raw file speaks for it; it is not turned
  // unless the JPEG has been turned already.
  void completeExif(ByteView file, const libraw_data_t& raw) {
    const std::vector<uint8_t> own = metadata_.exif;
    if (exifShot(own).time) return;
    static constexpr std::array kOrientationOfFlip = {1, 2, 4, 3, 5, 8, 6, 7};
    int32_t orientation = kOrientationOfFlip[static_cast<size_t>(raw.sizes.flip) & 7];
    const bool isTurned = (width_ > height_) != (raw.sizes.width > raw.sizes.height);
    if (!own.empty()) {
      orientation = exifOrientation(own);
    } else if (orientation >= 5 && isTurned) {
      orientation = 1;
    }
    metadata_.exif = exifOriented(exifOfTiff(file), orientation);
    if (exifShot(metadata_.exif).time && exifOrientation(metadata_.exif) == orientation) return;
    ExifShot shot;
    shot.make = raw.idata.make;
    shot.model = raw.idata.model;
    // libraw took the camera's clock for local time.
    tm local = {};
    if (raw.other.timestamp > 0 && localtime_r(&raw.other.timestamp, &local) != nullptr) {
      shot.time = int64_t{timegm(&local)} * 1'000'000;
    }
    if (raw.other.shutter > 0) shot.exposureSeconds = double{raw.other.shutter};
    if (raw.other.iso_speed > 0) shot.iso = double{raw.other.iso_speed};
    metadata_.exif = exifOfShot(shot, orientation);
  }

  Decoder inner_;
};

}  // namespace

Decoder openCameraRaw(const std::string& name, FileBytes bytes) {
  return std::make_unique<CameraRawDecoder>(name, bytes);
}

#else

Decoder openCameraRaw(const std::string& name, FileBytes) {
  throw Error(name, "a raw file of a camera; this tool was built without libraw, which finds the JPEG inside");
}

#endif

}  // namespace tool
