#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "colour.h"
#include "exif.h"
#include "image_file_kinds.h"

#ifdef TESSALINE4_TIFF
#include <tiffio.h>
#endif

namespace tool {

bool isTiff(ByteView beginning) {
  if (beginning.size() < kTiffMagic) return false;
  // 43 instead of 42: offsets of 64 bits.
  for (const char* magic : {"II*\0", "MM\0*", "II+\0", "MM\0+"}) {
    if (std::memcmp(beginning.data(), magic, kTiffMagic) == 0) return true;
  }
  return false;
}

#ifdef TESSALINE4_TIFF

namespace {

// A strip or tile that is decoded in one piece: so much is never too much, and beyond it the picture must be large.
constexpr uint64_t kAnyChunk = uint64_t{16} << 20;
constexpr uint64_t kMostChunkPerPixel = 32;

constexpr uint16_t kLinearRaw = 34892;  // of DNG

class TiffDecoder : public ImageDecoder {
 public:
  TiffDecoder(const std::string& name, FileBytes bytes) : ImageDecoder(name, 0, 0), bytes_(std::move(bytes)) {
    open();
    uint32_t width = 0;
    uint32_t height = 0;
    TIFFGetField(file_.get(), TIFFTAG_IMAGEWIDTH, &width);
    TIFFGetField(file_.get(), TIFFTAG_IMAGELENGTH, &height);
    checkPictureSize(name, width, height);
    width_ = static_cast<int32_t>(width);
    height_ = static_cast<int32_t>(height);
    bits_ = number(TIFFTAG_BITSPERSAMPLE, 1);
    photometric_ = number(TIFFTAG_PHOTOMETRIC, 0xFFFF);
    checkKind();
    checkChunks();
    readMetadata();
  }

  void decode(const Planes& planes) override {
    if (holdsOurPlanes()) return decodePlanes(planes);
    std::vector<uint8_t> pair(6 * static_cast<size_t>(width_));
    uint8_t* lower = pair.data() + pair.size() / 2;
    eachRow([&](int32_t y, const uint32_t* pixels) {
      putRgb(pixels, y % 2 == 0 ? pair.data() : lower);
      const bool alone = y % 2 == 0 && y + 1 == height_;
      if (y % 2 != 0 || alone) putRgbRows(planes, y / 2 * 2, pair.data(), alone ? pair.data() : lower);
    });
  }

  RgbPicture decodeRgb() override {
    RgbPicture picture = {width_, height_, {}};
    picture.pixels.resize(3 * static_cast<size_t>(width_) * static_cast<size_t>(height_));
    eachRow([&](int32_t y, const uint32_t* pixels) {
      putRgb(pixels, picture.pixels.data() + 3 * static_cast<size_t>(width_) * static_cast<size_t>(y));
    });
    return picture;
  }

 private:
  struct Close {
    void operator()(TIFF* file) const { TIFFClose(file); }
  };
  struct FreeOptions {
    void operator()(TIFFOpenOptions* options) const { TIFFOpenOptionsFree(options); }
  };

  // What libtiff tells goes into message_ instead of onto standard error; the first is the cause of the others.
  static int keepMessage(TIFF*, void* self, const char*, const char* format, va_list values) {
    auto* message = static_cast<TiffDecoder*>(self)->message_;
    if (*message == '\0') std::vsnprintf(message, sizeof(message_), format, values);
    return 1;
  }
  // Samples that were made up for missing ones are a warning of the JPEG decoder alone.
  static int keepDamage(TIFF* file, void* self, const char* module, const char* format, va_list values) {
    if (module == nullptr || std::strcmp(module, "JPEGLib") != 0) return 1;
    return keepMessage(file, self, module, format, values);
  }

  [[noreturn]] void fail() const {
    const std::string reason = message_;
    for (const char* words : {"ut of memory", "No space for", "Failed to allocate"}) {
      if (reason.find(words) != std::string::npos) throw std::bad_alloc();
    }
    throw Error(name_, "damaged TIFF: " + (reason.empty() ? "it cannot be decoded" : reason));
  }

  void open() {
    const std::unique_ptr<TIFFOpenOptions, FreeOptions> options(TIFFOpenOptionsAlloc());
    if (options == nullptr) throw std::bad_alloc();
    TIFFOpenOptionsSetMaxSingleMemAlloc(options.get(), tmsize_t{1} << 30);
    TIFFOpenOptionsSetErrorHandlerExtR(options.get(), keepMessage, this);
    TIFFOpenOptionsSetWarningHandlerExtR(options.get(), keepDamage, this);
    // The header is read, all else looked up in memory.
    const auto read = [](thandle_t self, void* to, tmsize_t count) {
      auto* decoder = static_cast<TiffDecoder*>(self);
      const ByteView bytes = decoder->bytes_.view();
      const auto at = static_cast<size_t>(std::min<uint64_t>(decoder->at_, bytes.size()));
      const size_t got = std::min(static_cast<size_t>(count), bytes.size() - at);
      std::copy_n(bytes.data() + at, got, static_cast<uint8_t*>(to));
      decoder->at_ = at + got;
      return static_cast<tmsize_t>(got);
    };
    const auto seek = [](thandle_t self, toff_t at, int from) {
      auto* decoder = static_cast<TiffDecoder*>(self);
      if (from == SEEK_CUR) at += decoder->at_;
      if (from == SEEK_END) at += decoder->bytes_.size();
      return decoder->at_ = at;
    };
    const auto write = [](thandle_t, void*, tmsize_t) { return tmsize_t{0}; };
    file_.reset(TIFFClientOpenExt(
        "TIFF", "r", this, read, write, seek, [](thandle_t) { return 0; },
        [](thandle_t self) { return static_cast<toff_t>(static_cast<TiffDecoder*>(self)->bytes_.size()); },
        [](thandle_t self, void** bytes, toff_t* size) {
          const FileBytes& held = static_cast<TiffDecoder*>(self)->bytes_;
          *bytes = const_cast<uint8_t*>(held.data());
          *size = held.size();
          return 1;
        },
        [](thandle_t, void*, toff_t) {}, options.get()));
    if (file_ == nullptr) fail();
  }

  uint16_t number(uint32_t tag, uint16_t otherwise) const {
    uint16_t value = 0;
    return TIFFGetFieldDefaulted(file_.get(), tag, &value) == 1 ? value : otherwise;
  }

  void checkKind() {
    if (bits_ > 16) throw Error(name_, "a TIFF of " + std::to_string(bits_) + " bits a sample; at most 16 are read");
    if (number(TIFFTAG_SAMPLEFORMAT, SAMPLEFORMAT_UINT) > SAMPLEFORMAT_UINT) {
      throw Error(name_, "a TIFF of signed or floating samples, which are not read");
    }
    if (photometric_ == PHOTOMETRIC_CFA || photometric_ == kLinearRaw) {
      throw Error(name_, "raw samples of a sensor, which this tool does not develop");
    }
    if (photometric_ > PHOTOMETRIC_PALETTE && photometric_ != PHOTOMETRIC_YCBCR) {
      throw Error(name_, "a TIFF that holds neither grey, RGB, a palette nor YCbCr");
    }
    if (number(TIFFTAG_COMPRESSION, COMPRESSION_NONE) == COMPRESSION_OJPEG) {
      throw Error(name_, "a TIFF with JPEG of the old kind, which is not read");
    }
    char reason[1024] = "";
    if (TIFFRGBAImageOK(file_.get(), reason) == 0)
      throw Error(name_, std::string("a TIFF that is not read: ") + reason);
    // Small copies of the picture may stand behind it.
    constexpr int32_t kMostDirectories = 64;
    for (int32_t i = 0; i < kMostDirectories && TIFFReadDirectory(file_.get()) == 1; ++i) {
      uint32_t kind = 0;
      TIFFGetFieldDefaulted(file_.get(), TIFFTAG_SUBFILETYPE, &kind);
      if ((kind & (FILETYPE_REDUCEDIMAGE | FILETYPE_MASK)) == 0) {
        throw Error(name_, "a TIFF of several pages; only those of one are read");
      }
    }
    if (TIFFSetDirectory(file_.get(), 0) == 0) fail();
    message_[0] = '\0';  // what is wrong behind the first page spoils nothing
  }

  // libtiff takes memory for a whole strip or tile, which need not be as small as the picture.
  void checkChunks() const {
    const uint64_t bytes = TIFFIsTiled(file_.get()) != 0 ? TIFFTileSize64(file_.get()) : TIFFStripSize64(file_.get());
    const uint64_t pixels = static_cast<uint64_t>(width_) * static_cast<uint64_t>(height_);
    if (bytes == 0 || bytes > kAnyChunk + kMostChunkPerPixel * pixels) {
      throw Error(name_, "damaged TIFF: its strips or tiles are out of range");
    }
  }

  void readMetadata() {
    metadata_.exif = exifOfTiff(bytes_.view());
    const uint16_t orientation = number(TIFFTAG_ORIENTATION, 1);
    if (metadata_.exif.empty() && orientation >= 2 && orientation <= 8) {
      metadata_.exif = exifWithOrientation(orientation);
    }
    uint32_t count = 0;
    void* bytes = nullptr;
    if (TIFFGetField(file_.get(), TIFFTAG_XMLPACKET, &count, &bytes) == 1 && bytes != nullptr) {
      std::string packet(static_cast<const char*>(bytes), count);
      packet.resize(packet.find_last_not_of('\0') + 1);
      takeXmp(std::move(packet), {}, &metadata_);
    }
    if (TIFFGetField(file_.get(), TIFFTAG_ICCPROFILE, &count, &bytes) == 1 && bytes != nullptr) {
      const auto* from = static_cast<const uint8_t*>(bytes);
      takeIcc({from, from + count}, &metadata_);
    }
  }

  // Rows of a strip or tile.
  uint32_t chunkRows() const {
    uint32_t rows = 0;
    TIFFGetFieldDefaulted(file_.get(), TIFFIsTiled(file_.get()) != 0 ? TIFFTAG_TILELENGTH : TIFFTAG_ROWSPERSTRIP,
                          &rows);
    return std::clamp<uint32_t>(rows, 1, static_cast<uint32_t>(height_));
  }

  // 4:2:0 of full range and BT.601, in strips or tiles of whole pairs of rows. JPEG goes through RGB.
  bool holdsOurPlanes() const {
    if (number(TIFFTAG_COMPRESSION, COMPRESSION_NONE) == COMPRESSION_JPEG) return false;
    if (photometric_ != PHOTOMETRIC_YCBCR || bits_ != 8 || number(TIFFTAG_SAMPLESPERPIXEL, 1) != 3 ||
        number(TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG) != PLANARCONFIG_CONTIG) {
      return false;
    }
    uint16_t across = 0;
    uint16_t down = 0;
    float* range = nullptr;
    float* weights = nullptr;
    TIFFGetFieldDefaulted(file_.get(), TIFFTAG_YCBCRSUBSAMPLING, &across, &down);
    if (TIFFGetFieldDefaulted(file_.get(), TIFFTAG_REFERENCEBLACKWHITE, &range) != 1 ||
        TIFFGetFieldDefaulted(file_.get(), TIFFTAG_YCBCRCOEFFICIENTS, &weights) != 1) {
      return false;
    }
    constexpr float kRange[] = {0, 255, 128, 255, 128, 255};
    const bool ours = weights[0] > 0.298F && weights[0] < 0.3F && weights[2] > 0.113F && weights[2] < 0.115F;
    const uint32_t rows = chunkRows();
    return ours && across == 2 && down == 2 && std::equal(std::begin(kRange), std::end(kRange), range) &&
           (rows % 2 == 0 || rows == static_cast<uint32_t>(height_));
  }

  // A strip or tile holds, for each 2x2 pixels in reading order, their four luma samples, Cb and Cr.
  void decodePlanes(const Planes& planes) {
    TIFF* file = file_.get();
    const bool tiled = TIFFIsTiled(file) != 0;
    uint32_t chunkWidth = static_cast<uint32_t>(width_);
    uint32_t rows = chunkRows();
    if (tiled) {
      TIFFGetField(file, TIFFTAG_TILEWIDTH, &chunkWidth);
      TIFFGetField(file, TIFFTAG_TILELENGTH, &rows);
      // No tile has odd sides; the rows of such a one would not be found where they are looked for.
      if (chunkWidth == 0 || chunkWidth % 2 != 0 || rows % 2 != 0)
        throw Error(name_, "damaged TIFF: tiles of odd size");
    }
    const uint64_t rowBytes = (uint64_t{chunkWidth} + 1) / 2 * 6;
    std::vector<uint8_t> chunk(static_cast<size_t>(tiled ? TIFFTileSize64(file) : TIFFVStripSize64(file, rows)));
    for (uint32_t top = 0; top < static_cast<uint32_t>(height_); top += rows) {
      const uint32_t pairs = (std::min(rows, static_cast<uint32_t>(height_) - top) + 1) / 2;
      for (uint32_t left = 0; left < static_cast<uint32_t>(width_); left += chunkWidth) {
        const auto room = static_cast<tmsize_t>(chunk.size());
        const uint64_t got = static_cast<uint64_t>(
            tiled ? TIFFReadEncodedTile(file, TIFFComputeTile(file, left, top, 0, 0), chunk.data(), room)
                  : TIFFReadEncodedStrip(file, TIFFComputeStrip(file, top, 0), chunk.data(), room));
        if (*message_ != '\0' || got > chunk.size() || got < rowBytes * pairs) fail();
        for (uint32_t i = 0; i < pairs; ++i) {
          putBlocks(chunk.data() + rowBytes * i, planes, static_cast<int32_t>(top / 2 + i), static_cast<int32_t>(left),
                    static_cast<int32_t>(std::min(chunkWidth, static_cast<uint32_t>(width_) - left)));
        }
      }
    }
  }

  static void putBlocks(const uint8_t* blocks, const Planes& planes, int32_t chromaRow, int32_t left, int32_t width) {
    const auto count = static_cast<size_t>(width);
    const auto chroma = static_cast<size_t>(left / 2) * planes.step;
    for (int32_t i = 0; i < 2 && 2 * chromaRow + i < planes.height; ++i) {
      uint8_t* luma = planes.lumaRow(2 * chromaRow + i) + left;
      copySamples(blocks + 2 * i, 6, luma, 2, (count + 1) / 2);
      copySamples(blocks + 2 * i + 1, 6, luma + 1, 2, count / 2);
    }
    copySamples(blocks + 4, 6, planes.uRow(chromaRow) + chroma, planes.step, (count + 1) / 2);
    copySamples(blocks + 5, 6, planes.vRow(chromaRow) + chroma, planes.step, (count + 1) / 2);
  }

  void putRgb(const uint32_t* pixels, uint8_t* to) const {
    for (int32_t x = 0; x < width_; ++x, to += 3) {
      to[0] = static_cast<uint8_t>(TIFFGetR(pixels[x]));
      to[1] = static_cast<uint8_t>(TIFFGetG(pixels[x]));
      to[2] = static_cast<uint8_t>(TIFFGetB(pixels[x]));
    }
  }

  // In place of libtiff's own, which cuts the lower 8 bits off. Skews are in pixels.
  static void putDeepGrey(TIFFRGBAImage* image, uint32_t* to, uint32_t, uint32_t, uint32_t width, uint32_t rows,
                          int32_t fromSkew, int32_t toSkew, unsigned char* from) {
    const auto step = static_cast<ptrdiff_t>(2 * image->samplesperpixel);
    for (; rows > 0; --rows, to += toSkew, from += fromSkew * step) {
      for (uint32_t x = 0; x < width; ++x, ++to, from += step) {
        uint16_t sample;
        std::memcpy(&sample, from, sizeof(sample));
        const uint32_t level = (uint32_t{sample} + 128) / 257;
        const uint32_t grey = image->photometric == PHOTOMETRIC_MINISWHITE ? 255 - level : level;
        *to = 0xFF000000U | grey * 0x10101U;
      }
    }
  }

  // All rows from the top down as they are stored, converted by libtiff: 16 bits are rounded to 8, and alpha lies over
  // black.
  template <typename Use>
  void eachRow(const Use& use) {
    struct Image : TIFFRGBAImage {
      ~Image() { TIFFRGBAImageEnd(this); }
    };
    char reason[1024] = "";
    TIFFRGBAImage begun;
    if (TIFFRGBAImageBegin(&begun, file_.get(), 1, reason) == 0) {
      if (*message_ != '\0') fail();
      throw Error(name_, std::string("a TIFF that is not read: ") + reason);
    }
    Image image;
    static_cast<TIFFRGBAImage&>(image) = begun;
    image.req_orientation = image.orientation;  // as they lie
    if (bits_ == 16 && photometric_ <= PHOTOMETRIC_MINISBLACK && image.isContig != 0) image.put.contig = putDeepGrey;
    // Whole strips or rows of tiles, so that none is decoded twice.
    const auto height = static_cast<uint32_t>(height_);
    const uint32_t rows = chunkRows();
    const uint32_t atOnce = std::min(height, (63 + rows) / rows * rows);
    const auto pitch = static_cast<size_t>(width_);
    const auto piece = std::make_unique_for_overwrite<uint32_t[]>(pitch * atOnce);
    for (uint32_t top = 0; top < height; top += atOnce) {
      const uint32_t count = std::min(atOnce, height - top);
      image.row_offset = static_cast<int>(top);
      const int good = TIFFRGBAImageGet(&image, piece.get(), static_cast<uint32_t>(width_), count);
      if (good == 0 || *message_ != '\0') fail();
      for (uint32_t i = 0; i < count; ++i) use(static_cast<int32_t>(top + i), piece.get() + pitch * i);
    }
  }

  FileBytes bytes_;
  uint64_t at_ = 0;  // of reading
  char message_[256] = "";
  std::unique_ptr<TIFF, Close> file_;
  uint16_t bits_ = 0;
  uint16_t photometric_ = 0;
};

}  // namespace

Decoder openTiff(const std::string& name, FileBytes bytes) {
  return std::make_unique<TiffDecoder>(name, std::move(bytes));
}

#else

Decoder openTiff(const std::string& name, FileBytes) {
  throw Error(name, "a TIFF file; this tool was built without libtiff, which reads them");
}

#endif

}  // namespace tool
