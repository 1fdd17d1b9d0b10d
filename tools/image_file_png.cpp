#include <algorithm>
#include <csetjmp>
#include <cstdio>
#include <cstring>
#include <new>

#include "colour.h"
#include "image_file_kinds.h"

#include <png.h>
#include <zlib.h>

namespace tool {
namespace {

constexpr size_t kSignature = 8;
constexpr size_t kFrame = 12;  // length, name and checksum of a chunk
constexpr char kXmpKeyword[] = "XML:com.adobe.xmp";

struct Chunk {
  const uint8_t* frame;  // where its length stands
  size_t length;         // of data()

  const uint8_t* data() const { return frame + 8; }
  const uint8_t* end() const { return frame + kFrame + length; }
  bool is(const char* name) const { return std::memcmp(frame + 4, name, 4) == 0; }
  bool isSound() const {
    const uint8_t* sum = data() + length;
    return crc32(0, frame + 4, static_cast<uInt>(4 + length)) == numberAt(sum);
  }
  static uint32_t numberAt(const uint8_t* p) {
    return uint32_t{p[0]} << 24 | uint32_t{p[1]} << 16 | uint32_t{p[2]} << 8 | p[3];
  }
};

// All chunks up to the closing one; empty when that is missing.
std::vector<Chunk> chunksOf(ByteView bytes) {
  std::vector<Chunk> chunks;
  for (size_t at = kSignature; bytes.size() - at >= kFrame; at += kFrame + chunks.back().length) {
    const uint8_t* frame = bytes.data() + at;
    chunks.push_back({frame, Chunk::numberAt(frame)});
    const size_t rest = bytes.size() - at - kFrame;
    if (chunks.back().is("IEND")) {
      chunks.back().length = std::min(chunks.back().length, rest);
      return chunks;
    }
    if (rest < chunks.back().length) break;
  }
  return {};
}

// A zlib stream, or empty when it is damaged or grows beyond what any profile or packet has.
Bytes inflated(const uint8_t* data, size_t length) {
  constexpr size_t kMost = size_t{1} << 25;
  struct Stream : z_stream {
    Stream() : z_stream() {}
    ~Stream() { inflateEnd(this); }
  } stream;
  if (inflateInit(&stream) != Z_OK) throw std::bad_alloc();
  stream.next_in = const_cast<uint8_t*>(data);
  stream.avail_in = static_cast<uInt>(length);
  Bytes out;
  int status = Z_OK;
  while (status == Z_OK && out.size() <= kMost) {
    uint8_t part[1 << 14];
    stream.next_out = part;
    stream.avail_out = sizeof(part);
    status = inflate(&stream, Z_NO_FLUSH);
    out.insert(out.end(), part, stream.next_out);
  }
  return status == Z_STREAM_END && out.size() <= kMost ? out : Bytes();
}

// name\0 method profile
void takeProfile(const Chunk& chunk, Metadata* metadata) {
  const auto* zero = static_cast<const uint8_t*>(std::memchr(chunk.data(), 0, chunk.length));
  const uint8_t* end = chunk.data() + chunk.length;
  const bool shaped = chunk.isSound() && zero != nullptr && end - zero > 2 && zero[1] == 0;
  takeIcc(shaped ? inflated(zero + 2, static_cast<size_t>(end - zero - 2)) : Bytes(), metadata);
}

// keyword\0 compressed method language\0 translated\0 text
void takeText(const Chunk& chunk, Metadata* metadata) {
  const uint8_t* p = chunk.data();
  const uint8_t* end = p + chunk.length;
  if (chunk.length < sizeof(kXmpKeyword) || std::memcmp(p, kXmpKeyword, sizeof(kXmpKeyword)) != 0) return;
  p += sizeof(kXmpKeyword);
  Bytes text;
  if (chunk.isSound() && end - p > 2) {
    const bool compressed = p[0] == 1;
    p += 2;
    for (int32_t strings = 0; strings < 2 && p != nullptr; ++strings) {
      p = static_cast<const uint8_t*>(std::memchr(p, 0, static_cast<size_t>(end - p)));
      if (p != nullptr) ++p;
    }
    if (p != nullptr) text = compressed ? inflated(p, static_cast<size_t>(end - p)) : Bytes(p, end);
  }
  takeXmp(std::string(text.begin(), text.end()), {}, metadata);
}

Metadata metadataOf(const std::vector<Chunk>& chunks) {
  Metadata metadata;
  for (const Chunk& chunk : chunks) {
    if (chunk.is("eXIf") && metadata.exif.empty()) {
      // A block that cannot be read is one that the reader of the file cannot use.
      metadata.exif = chunk.isSound() ? Bytes(chunk.data(), chunk.data() + chunk.length) : Bytes(1);
    } else if (chunk.is("iCCP") && metadata.icc.empty()) {
      takeProfile(chunk, &metadata);
    } else if (chunk.is("iTXt") && metadata.xmp.empty()) {
      takeText(chunk, &metadata);
    }
  }
  return metadata;
}

// The file without its chunks of a name.
Bytes without(const char* name, ByteView bytes, const std::vector<Chunk>& chunks) {
  Bytes out(bytes.begin(), bytes.begin() + kSignature);
  for (const Chunk& chunk : chunks) {
    if (!chunk.is(name)) out.insert(out.end(), chunk.frame, chunk.end());
  }
  return out;
}

Bytes compressedProfile(const Bytes& icc) {
  constexpr char kName[] = "ICC profile";
  Bytes data(kName, kName + sizeof(kName));
  data.push_back(0);  // deflate, the one method there is
  const size_t head = data.size();
  uLongf length = compressBound(icc.size());
  data.resize(head + length);
  if (compress(data.data() + head, &length, icc.data(), icc.size()) != Z_OK) throw std::bad_alloc();
  data.resize(head + length);
  return data;
}

// libpng reports through this and leaves by longjmp.
struct Failure {
  jmp_buf escape;
  char message[128];
};

[[noreturn]] void leave(png_structp png, png_const_charp message) {
  auto* failure = static_cast<Failure*>(png_get_error_ptr(png));
  std::snprintf(failure->message, sizeof(failure->message), "%s", message);
  std::longjmp(failure->escape, 1);
}

// Runs a stretch of libpng calls. body must not own anything: a failure jumps out of it.
template <typename Body>
void guarded(const std::string& name, Failure* failure, const char* what, const Body& body) {
  if (setjmp(failure->escape) == 0) {
    body();
    return;
  }
  const std::string reason = failure->message;
  if (reason.find("memory") != std::string::npos) throw std::bad_alloc();
  throw Error(name, what + reason);
}

// Reads what needs no conversion: 8-bit RGB from the top down, without transparency or a gamma.
class RowReader {
 public:
  RowReader(const std::string& name, ByteView bytes) : name_(name), bytes_(bytes) {
    png_ = png_create_read_struct(PNG_LIBPNG_VER_STRING, &failure_, leave, [](png_structp, png_const_charp) {});
    if (png_ != nullptr) info_ = png_create_info_struct(png_);
    if (info_ == nullptr) {
      png_destroy_read_struct(&png_, nullptr, nullptr);
      throw std::bad_alloc();
    }
  }
  ~RowReader() { png_destroy_read_struct(&png_, &info_, nullptr); }
  RowReader(const RowReader&) = delete;
  RowReader& operator=(const RowReader&) = delete;

  void begin() {
    run([&] {
      png_set_read_fn(png_, &bytes_, [](png_structp png, png_bytep to, size_t count) {
        auto* rest = static_cast<ByteView*>(png_get_io_ptr(png));
        if (count > rest->size()) png_error(png, "read beyond end of data");
        std::memcpy(to, rest->data(), count);
        *rest = rest->subspan(count);
      });
      png_set_benign_errors(png_, 1);
      png_read_info(png_, info_);
    });
  }
  void read(uint8_t* row) {
    run([&] { png_read_row(png_, row, nullptr); });
  }

 private:
  template <typename Body>
  void run(const Body& body) {
    guarded(name_, &failure_, "damaged PNG: ", body);
  }

  std::string name_;
  ByteView bytes_;
  Failure failure_;
  png_structp png_ = nullptr;
  png_infop info_ = nullptr;
};

// By way of libpng's conversions, which take the whole picture.
RgbPicture decodeWhole(const std::string& name, ByteView bytes) {
  png_image image;
  std::memset(&image, 0, sizeof(image));
  image.version = PNG_IMAGE_VERSION;
  const auto fail = [&] {
    const std::string reason = image.message;
    png_image_free(&image);
    if (reason.find("memory") != std::string::npos) throw std::bad_alloc();
    throw Error(name, "damaged PNG: " + reason);
  };
  if (png_image_begin_read_from_memory(&image, bytes.data(), bytes.size()) == 0) fail();
  image.format = PNG_FORMAT_RGB;
  // Samples of 16 bits are taken for the same curve as those of 8 bits.
  image.flags |= PNG_IMAGE_FLAG_16BIT_sRGB;
  RgbPicture picture;
  try {
    checkPictureSize(name, image.width, image.height);
    picture.pixels.resize(PNG_IMAGE_SIZE(image));
  } catch (...) {
    png_image_free(&image);
    throw;
  }
  picture.width = static_cast<int32_t>(image.width);
  picture.height = static_cast<int32_t>(image.height);
  const png_color black = {0, 0, 0};
  if (png_image_finish_read(&image, &black, picture.pixels.data(), 0, nullptr) == 0) fail();
  return picture;
}

// Width and height of the first chunk. libpng finds out what else is wrong with it.
std::pair<int32_t, int32_t> sizeOf(const std::string& name, const Chunk& header) {
  if (!header.is("IHDR") || header.length < 13) throw Error(name, "damaged PNG: it begins with no header");
  const uint32_t width = Chunk::numberAt(header.data());
  const uint32_t height = Chunk::numberAt(header.data() + 4);
  checkPictureSize(name, width, height);
  return {static_cast<int32_t>(width), static_cast<int32_t>(height)};
}

class PngDecoder : public ImageDecoder {
 public:
  PngDecoder(const std::string& name, FileBytes bytes, std::vector<Chunk> chunks, std::pair<int32_t, int32_t> size)
      : ImageDecoder(name, size.first, size.second), bytes_(std::move(bytes)), chunks_(std::move(chunks)) {
    metadata_ = metadataOf(chunks_);
    hasProfile_ = !metadata_.icc.empty();
  }

  void decode(const Planes& planes) override {
    // A profile tells more than a gamma does.
    const bool dropsGamma = hasProfile_ && has("gAMA");
    const Bytes kept = dropsGamma ? without("gAMA", bytes_.view(), chunks_) : Bytes();
    const ByteView bytes = dropsGamma ? ByteView(kept) : bytes_.view();
    if (isPlain() && (dropsGamma || !has("gAMA"))) return decodeRows(bytes, planes);
    const RgbPicture rgb = decodeWhole(name_, bytes);
    copyPlanes(toYuv420(rgb).planes(), planes);
  }

  RgbPicture decodeRgb() override { return decodeWhole(name_, bytes_.view()); }

 private:
  bool has(const char* name) const {
    return std::any_of(chunks_.begin(), chunks_.end(), [&](const Chunk& c) { return c.is(name); });
  }
  bool isPlain() const {
    const uint8_t* header = chunks_[0].data();
    return header[8] == 8 && header[9] == PNG_COLOR_TYPE_RGB && header[12] == PNG_INTERLACE_NONE && !has("tRNS");
  }
  void decodeRows(ByteView bytes, const Planes& planes) const {
    RowReader reader(name_, bytes);
    reader.begin();
    const size_t rowBytes = 3 * static_cast<size_t>(width_);
    Bytes pair(2 * rowBytes);
    for (int32_t y = 0; y < height_; y += 2) {
      const bool alone = y + 1 == height_;
      reader.read(pair.data());
      if (!alone) reader.read(pair.data() + rowBytes);
      putRgbRows(planes, y, pair.data(), pair.data() + (alone ? 0 : rowBytes));
    }
  }

  FileBytes bytes_;
  std::vector<Chunk> chunks_;
  bool hasProfile_ = false;
};

class Writer {
 public:
  explicit Writer(const std::string& name) : name_(name) {
    png_ = png_create_write_struct(PNG_LIBPNG_VER_STRING, &failure_, leave, [](png_structp, png_const_charp) {});
    if (png_ != nullptr) info_ = png_create_info_struct(png_);
    if (info_ == nullptr) {
      png_destroy_write_struct(&png_, nullptr);
      throw std::bad_alloc();
    }
    const auto add = [](png_structp png, png_bytep from, size_t count) {
      auto* bytes = static_cast<FileBytes*>(png_get_io_ptr(png));
      uint8_t* to = bytes->room(count);
      if (to == nullptr) png_error(png, "out of memory");
      std::memcpy(to, from, count);
      bytes->add(count);
    };
    png_set_write_fn(png_, &bytes_, add, [](png_structp) {});
  }
  ~Writer() { png_destroy_write_struct(&png_, &info_); }
  Writer(const Writer&) = delete;
  Writer& operator=(const Writer&) = delete;

  void begin(int32_t width, int32_t height) {
    run([&] {
      png_set_IHDR(png_, info_, static_cast<png_uint_32>(width), static_cast<png_uint_32>(height), 8,
                   PNG_COLOR_TYPE_RGB, PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_BASE, PNG_FILTER_TYPE_BASE);
      png_write_info(png_, info_);
    });
  }
  void chunk(const char* name, const Bytes& data) {
    run([&] { png_write_chunk(png_, reinterpret_cast<png_const_bytep>(name), data.data(), data.size()); });
  }
  void row(const uint8_t* pixels) {
    run([&] { png_write_row(png_, pixels); });
  }
  FileBytes end() {
    run([&] { png_write_end(png_, info_); });
    return std::move(bytes_);
  }

 private:
  template <typename Body>
  void run(const Body& body) {
    guarded(name_, &failure_, "PNG writing failed: ", body);
  }

  std::string name_;
  FileBytes bytes_;
  Failure failure_;
  png_structp png_ = nullptr;
  png_infop info_ = nullptr;
};

}  // namespace

bool isPng(ByteView beginning) {
  return beginning.size() >= kSignature && png_sig_cmp(beginning.data(), 0, kSignature) == 0;
}

Decoder openPng(const std::string& name, FileBytes bytes) {
  std::vector<Chunk> chunks = chunksOf(bytes.view());
  if (chunks.empty()) throw Error(name, "damaged PNG: it is cut off");
  const auto size = sizeOf(name, chunks[0]);
  return std::make_unique<PngDecoder>(name, std::move(bytes), std::move(chunks), size);
}

FileBytes encodePng(const std::string& name, int32_t width, int32_t height, const RowSource& rows,
                    const Metadata& metadata) {
  Writer png(name);
  png.begin(width, height);
  // A profile takes the place of what else tells about colours.
  if (!metadata.icc.empty()) png.chunk("iCCP", compressedProfile(metadata.icc));
  if (!metadata.exif.empty()) png.chunk("eXIf", metadata.exif);
  if (!metadata.xmp.empty()) {
    Bytes text(sizeof(kXmpKeyword) + 4 + metadata.xmp.size());  // not compressed, no language
    std::copy_n(kXmpKeyword, sizeof(kXmpKeyword), text.begin());
    std::copy(metadata.xmp.begin(), metadata.xmp.end(), text.end() - static_cast<std::ptrdiff_t>(metadata.xmp.size()));
    png.chunk("iTXt", text);
  }
  if (metadata.icc.empty()) png.chunk("sRGB", {0});  // perceptual
  for (int32_t y = 0; y < height; ++y) png.row(rows(y));
  return png.end();
}

}  // namespace tool
