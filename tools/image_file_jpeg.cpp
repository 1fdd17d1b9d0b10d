#include <algorithm>
#include <csetjmp>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string_view>
#include <utility>

#include "colour.h"
#include "image_file_kinds.h"

#include <jerror.h>
#include <jpeglib.h>

namespace tool {
namespace {

// What application segments begin with.
constexpr int kApp1 = JPEG_APP0 + 1;
constexpr int kApp2 = JPEG_APP0 + 2;
constexpr std::string_view kExifHeader("Exif\0\0", 6);
constexpr std::string_view kXmpHeader("http://ns.adobe.com/xap/1.0/\0", 29);
constexpr std::string_view kExtendedXmpHeader("http://ns.adobe.com/xmp/extension/\0", 35);
constexpr std::string_view kIccHeader("ICC_PROFILE\0", 12);
constexpr size_t kNameBytes = 32;  // of the name that an extended XMP goes by

// libjpeg reports through this and leaves by longjmp. Warnings are errors: they tell of damaged data.
struct Failure {
  jpeg_error_mgr manager;
  jmp_buf escape;
  char message[JMSG_LENGTH_MAX];
};

void leave(j_common_ptr info) {
  auto* failure = reinterpret_cast<Failure*>(info->err);
  info->err->format_message(info, failure->message);
  std::longjmp(failure->escape, 1);
}

jpeg_error_mgr* initFailure(Failure* failure) {
  jpeg_error_mgr* manager = jpeg_std_error(&failure->manager);
  manager->error_exit = leave;
  manager->emit_message = [](j_common_ptr info, int level) {
    if (level < 0) leave(info);
  };
  manager->output_message = [](j_common_ptr) {};
  return manager;
}

// Runs a stretch of libjpeg calls. body must not own anything: a failure jumps out of it.
template <typename Body>
void guarded(const std::string& name, Failure* failure, const char* what, const Body& body) {
  if (setjmp(failure->escape) == 0) {
    body();
    return;
  }
  if (failure->manager.msg_code == JERR_OUT_OF_MEMORY) throw std::bad_alloc();
  throw Error(name, std::string(what) + failure->message);
}

class Decompressor {
 public:
  Decompressor(const std::string& name, FileBytes bytes) : name_(name), bytes_(std::move(bytes)) {
    info_.err = initFailure(&failure_);
    run([&] {
      jpeg_create_decompress(&info_);
      jpeg_mem_src(&info_, bytes_.data(), static_cast<unsigned long>(bytes_.size()));
      jpeg_save_markers(&info_, kApp1, 0xFFFF);
      jpeg_save_markers(&info_, kApp2, 0xFFFF);
      jpeg_read_header(&info_, TRUE);
    });
    checkPictureSize(name, info_.image_width, info_.image_height);
    if (info_.jpeg_color_space == JCS_CMYK || info_.jpeg_color_space == JCS_YCCK) {
      throw Error(name, "CMYK JPEG is not supported");
    }
  }

  int32_t width() const { return static_cast<int32_t>(info_.image_width); }
  int32_t height() const { return static_cast<int32_t>(info_.image_height); }
  J_COLOR_SPACE colourSpace() const { return info_.jpeg_color_space; }

  bool is420() const {
    if (info_.jpeg_color_space != JCS_YCbCr || info_.num_components != 3) return false;
    for (int c = 0; c < 3; ++c) {
      const int factor = c == 0 ? 2 : 1;
      if (info_.comp_info[c].h_samp_factor != factor || info_.comp_info[c].v_samp_factor != factor) return false;
    }
    return true;
  }

  // Before the pixels: libjpeg forgets the markers at the end of them.
  Metadata metadata() {
    Metadata found;
    std::optional<std::string> xmp;
    std::vector<ExtendedXmpPart> extended;
    bool hasProfile = false;
    for (const jpeg_marker_struct* marker = info_.marker_list; marker != nullptr; marker = marker->next) {
      const Bytes segment(marker->data, marker->data + marker->data_length);
      const auto begins = [&](int kind, std::string_view header) {
        return marker->marker == kind && segment.size() >= header.size() &&
               std::memcmp(segment.data(), header.data(), header.size()) == 0;
      };
      if (begins(kApp1, kExifHeader) && found.exif.empty()) {
        found.exif.assign(segment.begin() + kExifHeader.size(), segment.end());
      } else if (begins(kApp1, kXmpHeader) && !xmp) {
        xmp.emplace(segment.begin() + kXmpHeader.size(), segment.end());
      } else if (begins(kApp1, kExtendedXmpHeader) && segment.size() >= kExtendedXmpHeader.size() + kNameBytes + 8) {
        const uint8_t* p = segment.data() + kExtendedXmpHeader.size();
        const auto number = [&](size_t at) {
          return uint32_t{p[at]} << 24 | uint32_t{p[at + 1]} << 16 | uint32_t{p[at + 2]} << 8 | p[at + 3];
        };
        extended.push_back({std::string(p, p + kNameBytes), number(kNameBytes), number(kNameBytes + 4),
                            Bytes(p + kNameBytes + 8, segment.data() + segment.size())});
      }
      hasProfile = hasProfile || begins(kApp2, kIccHeader);
    }
    if (xmp) takeXmp(std::move(*xmp), std::move(extended), &found);
    if (hasProfile) takeIcc(profile(), &found);
    return found;
  }

  // Interleaved pixels of all components at full size: calls with rows y and y + 1, y even. The last row may stand
  // alone; it comes twice then.
  template <typename Use>
  void rowPairs(J_COLOR_SPACE space, const Use& use) {
    info_.out_color_space = space;
    // Repeated chroma samples average back to what the file holds; smooth ones are for looking at.
    info_.do_fancy_upsampling = space == JCS_RGB ? TRUE : FALSE;
    run([&] { jpeg_start_decompress(&info_); });
    const size_t rowBytes = static_cast<size_t>(info_.output_width) * static_cast<size_t>(info_.output_components);
    Bytes pair(2 * rowBytes);
    for (int32_t y = 0; y < height(); y += 2) {
      const int32_t count = std::min(height() - y, 2);
      for (int32_t i = 0; i < count; ++i) {
        run([&] {
          JSAMPROW row = pair.data() + rowBytes * static_cast<size_t>(i);
          jpeg_read_scanlines(&info_, &row, 1);
        });
      }
      use(y, pair.data(), pair.data() + (count == 2 ? rowBytes : 0));
    }
    run([&] { jpeg_finish_decompress(&info_); });
  }

  void planes(const Planes& to) {
    info_.raw_data_out = TRUE;
    info_.out_color_space = JCS_YCbCr;
    info_.do_fancy_upsampling = FALSE;
    run([&] { jpeg_start_decompress(&info_); });
    // libjpeg writes whole blocks: one row of them at a time goes through a strip, and the picture's part is copied.
    Bytes strips[3];
    JSAMPROW rows[3][2 * DCTSIZE];
    JSAMPARRAY arrays[3];
    for (int c = 0; c < 3; ++c) {
      const int count = (c == 0 ? 2 : 1) * DCTSIZE;
      const size_t pitch = (static_cast<size_t>(info_.comp_info[c].width_in_blocks) + 2) * DCTSIZE;
      strips[c].resize(pitch * static_cast<size_t>(count));
      for (int i = 0; i < count; ++i) rows[c][i] = strips[c].data() + pitch * static_cast<size_t>(i);
      arrays[c] = rows[c];
    }
    const auto width = static_cast<size_t>(to.width);
    const auto chromaWidth = static_cast<size_t>(to.chromaWidth());
    for (int32_t top = 0; top < to.height; top += 2 * DCTSIZE) {
      run([&] { jpeg_read_raw_data(&info_, arrays, 2 * DCTSIZE); });
      for (int32_t y = top; y < std::min(top + 2 * DCTSIZE, to.height); ++y) {
        std::memcpy(to.lumaRow(y), rows[0][y - top], width);
        if (y % 2 != 0) continue;
        copySamples(rows[1][(y - top) / 2], 1, to.uRow(y / 2), to.step, chromaWidth);
        copySamples(rows[2][(y - top) / 2], 1, to.vRow(y / 2), to.step, chromaWidth);
      }
    }
    run([&] { jpeg_finish_decompress(&info_); });
  }

 private:
  // Put together from its segments; empty when some are missing or doubled.
  Bytes profile() {
    struct Free {
      void operator()(JOCTET* bytes) const { std::free(bytes); }
    };
    JOCTET* bytes = nullptr;
    unsigned length = 0;
    const auto warn = std::exchange(failure_.manager.emit_message, [](j_common_ptr, int) {});
    run([&] { jpeg_read_icc_profile(&info_, &bytes, &length); });
    failure_.manager.emit_message = warn;
    const std::unique_ptr<JOCTET, Free> owner(bytes);
    return bytes == nullptr ? Bytes() : Bytes(bytes, bytes + length);
  }

  // Released also when the constructor throws.
  struct Info : jpeg_decompress_struct {
    Info() : jpeg_decompress_struct() {}
    ~Info() { jpeg_destroy_decompress(this); }
    Info(const Info&) = delete;
    Info& operator=(const Info&) = delete;
  };

  template <typename Body>
  void run(const Body& body) {
    guarded(name_, &failure_, "damaged or not a JPEG: ", body);
  }

  std::string name_;
  FileBytes bytes_;
  Failure failure_;
  Info info_;
};

// Rows y and y + 1 of interleaved YCbCr at full size; chroma is averaged to half size, where the last column and row
// count twice at odd sizes.
void putYccRows(const Planes& to, int32_t y, const uint8_t* upper, const uint8_t* lower) {
  const int32_t w = to.width;
  copySamples(upper, 3, to.lumaRow(y), 1, static_cast<size_t>(w));
  if (y + 1 < to.height) copySamples(lower, 3, to.lumaRow(y + 1), 1, static_cast<size_t>(w));
  uint8_t* u = to.uRow(y / 2);
  uint8_t* v = to.vRow(y / 2);
  for (int32_t x = 0; x < w; x += 2, u += to.step, v += to.step) {
    const int32_t x0 = 3 * x;
    const int32_t x1 = x + 1 < w ? x0 + 3 : x0;
    const auto mean = [&](int32_t c) {
      return static_cast<uint8_t>((upper[x0 + c] + upper[x1 + c] + lower[x0 + c] + lower[x1 + c] + 2) / 4);
    };
    *u = mean(1);
    *v = mean(2);
  }
}

class JpegDecoder : public ImageDecoder {
 public:
  JpegDecoder(const std::string& name, std::unique_ptr<Decompressor> jpeg)
      : ImageDecoder(name, jpeg->width(), jpeg->height()), jpeg_(std::move(jpeg)) {
    metadata_ = jpeg_->metadata();
  }

  void decode(const Planes& planes) override {
    if (jpeg_->is420()) {
      jpeg_->planes(planes);
    } else if (jpeg_->colourSpace() == JCS_GRAYSCALE) {
      jpeg_->rowPairs(JCS_GRAYSCALE, [&](int32_t y, const uint8_t* upper, const uint8_t* lower) {
        const auto width = static_cast<size_t>(planes.width);
        std::memcpy(planes.lumaRow(y), upper, width);
        if (lower != upper) std::memcpy(planes.lumaRow(y + 1), lower, width);
      });
      clearChroma(planes);
    } else if (jpeg_->colourSpace() == JCS_YCbCr) {
      jpeg_->rowPairs(JCS_YCbCr, [&](int32_t y, const uint8_t* upper, const uint8_t* lower) {
        putYccRows(planes, y, upper, lower);
      });
    } else {
      jpeg_->rowPairs(
          JCS_RGB, [&](int32_t y, const uint8_t* upper, const uint8_t* lower) { putRgbRows(planes, y, upper, lower); });
    }
  }

  RgbPicture decodeRgb() override {
    RgbPicture rgb{width_, height_, {}};
    const size_t rowBytes = 3 * static_cast<size_t>(width_);
    rgb.pixels.reserve(rowBytes * static_cast<size_t>(height_));
    jpeg_->rowPairs(JCS_RGB, [&](int32_t, const uint8_t* upper, const uint8_t* lower) {
      rgb.pixels.insert(rgb.pixels.end(), upper, upper + rowBytes);
      if (lower != upper) rgb.pixels.insert(rgb.pixels.end(), lower, lower + rowBytes);
    });
    return rgb;
  }

 private:
  std::unique_ptr<Decompressor> jpeg_;
};

// The segments that come before the pixels, but for the profile.
std::vector<Bytes> app1Segments(const Metadata& metadata) {
  std::vector<Bytes> segments;
  const auto add = [&](std::string_view header, const auto& content) {
    Bytes& segment = segments.emplace_back(header.size() + content.size());
    std::copy(content.begin(), content.end(), std::copy(header.begin(), header.end(), segment.begin()));
  };
  if (!metadata.exif.empty()) add(kExifHeader, metadata.exif);
  if (!metadata.xmp.empty()) add(kXmpHeader, metadata.xmp);
  constexpr size_t kPart = 65400;
  const Bytes& extended = metadata.extendedXmp;
  for (size_t at = 0; at < extended.size(); at += kPart) {
    Bytes content(metadata.extendedXmpName.begin(), metadata.extendedXmpName.end());
    for (const size_t number : {extended.size(), at}) {
      for (int32_t shift = 24; shift >= 0; shift -= 8) content.push_back(static_cast<uint8_t>(number >> shift & 0xFF));
    }
    const size_t length = extended.size() - at < kPart ? extended.size() - at : kPart;
    content.insert(content.end(), extended.data() + at, extended.data() + at + length);
    add(kExtendedXmpHeader, content);
  }
  return segments;
}

}  // namespace

bool isJpeg(ByteView beginning) {
  return beginning.size() >= 3 && beginning[0] == 0xFF && beginning[1] == 0xD8 && beginning[2] == 0xFF;
}

Decoder openJpeg(const std::string& name, FileBytes bytes) {
  return std::make_unique<JpegDecoder>(name, std::make_unique<Decompressor>(name, std::move(bytes)));
}

void checkJpegSize(const std::string& name, int64_t width, int64_t height) {
  if (std::max(width, height) > JPEG_MAX_DIMENSION) {
    throw Error(name, "no JPEG is wider or higher than " + std::to_string(JPEG_MAX_DIMENSION) + " pixels");
  }
}

FileBytes encodeJpeg(const std::string& name, const ConstPlanes& picture, const Metadata& metadata, int quality) {
  checkJpegSize(name, picture.width, picture.height);
  const std::vector<Bytes> segments = app1Segments(metadata);
  // A row of blocks, grown to whole ones by repeating the last column and row.
  const size_t paddedWidth = (static_cast<size_t>(picture.width) + 15) / 16 * 16;
  Bytes strip(paddedWidth * 2 * DCTSIZE * 3 / 2);
  JSAMPROW rows[3][2 * DCTSIZE];
  JSAMPARRAY arrays[3] = {rows[0], rows[1], rows[2]};
  for (size_t i = 0; i < 2 * DCTSIZE; ++i) rows[0][i] = strip.data() + paddedWidth * i;
  for (size_t i = 0; i < DCTSIZE; ++i) {
    rows[1][i] = strip.data() + paddedWidth * 2 * DCTSIZE + paddedWidth / 2 * i;
    rows[2][i] = rows[1][i] + paddedWidth / 2 * DCTSIZE;
  }
  const auto fill = [](const uint8_t* from, size_t step, size_t width, uint8_t* to, size_t padded) {
    copySamples(from, step, to, 1, width);
    std::memset(to + width, to[width - 1], padded - width);
  };
  const auto fillStrip = [&](int32_t top) {
    const auto width = static_cast<size_t>(picture.width);
    const auto chromaWidth = static_cast<size_t>(picture.chromaWidth());
    for (int32_t i = 0; i < 2 * DCTSIZE; ++i) {
      fill(picture.lumaRow(std::min(top + i, picture.height - 1)), 1, width, rows[0][i], paddedWidth);
    }
    for (int32_t i = 0; i < DCTSIZE; ++i) {
      const int32_t y = std::min(top / 2 + i, picture.chromaHeight() - 1);
      fill(picture.uRow(y), picture.step, chromaWidth, rows[1][i], paddedWidth / 2);
      fill(picture.vRow(y), picture.step, chromaWidth, rows[2][i], paddedWidth / 2);
    }
  };

  Failure failure;
  jpeg_compress_struct info;
  std::memset(&info, 0, sizeof(info));
  info.err = initFailure(&failure);
  struct Output {
    unsigned char* bytes = nullptr;
    unsigned long size = 0;
    jpeg_compress_struct* info;
    ~Output() {
      jpeg_destroy_compress(info);
      std::free(bytes);
    }
  } output;
  output.info = &info;
  guarded(name, &failure, "JPEG writing failed: ", [&] {
    jpeg_create_compress(&info);
    jpeg_mem_dest(&info, &output.bytes, &output.size);
    info.image_width = static_cast<JDIMENSION>(picture.width);
    info.image_height = static_cast<JDIMENSION>(picture.height);
    info.input_components = 3;
    info.in_color_space = JCS_YCbCr;
    jpeg_set_defaults(&info);
    jpeg_set_quality(&info, quality, TRUE);
    info.raw_data_in = TRUE;
    info.optimize_coding = TRUE;
    for (int c = 0; c < 3; ++c) {
      info.comp_info[c].h_samp_factor = c == 0 ? 2 : 1;
      info.comp_info[c].v_samp_factor = c == 0 ? 2 : 1;
    }
    // An EXIF block has to come first in the file.
    info.write_JFIF_header = metadata.exif.empty() ? TRUE : FALSE;
    jpeg_start_compress(&info, TRUE);
    for (const Bytes& segment : segments) {
      jpeg_write_marker(&info, kApp1, segment.data(), static_cast<unsigned>(segment.size()));
    }
    const Bytes& icc = metadata.icc;
    if (!icc.empty()) jpeg_write_icc_profile(&info, icc.data(), static_cast<unsigned>(icc.size()));
    for (int32_t top = 0; top < picture.height; top += 2 * DCTSIZE) {
      fillStrip(top);
      jpeg_write_raw_data(&info, arrays, 2 * DCTSIZE);
    }
    jpeg_finish_compress(&info);
  });
  return FileBytes(std::exchange(output.bytes, nullptr), output.size);
}

}  // namespace tool
