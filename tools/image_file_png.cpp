#include <algorithm>
#include <cstring>
#include <new>

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
std::vector<Chunk> chunksOf(const Bytes& bytes) {
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
Bytes without(const char* name, const Bytes& bytes, const std::vector<Chunk>& chunks) {
  Bytes out(bytes.begin(), bytes.begin() + kSignature);
  for (const Chunk& chunk : chunks) {
    if (!chunk.is(name)) out.insert(out.end(), chunk.frame, chunk.end());
  }
  return out;
}

void addChunk(const char* name, const Bytes& data, Bytes* out) {
  const auto addNumber = [&](size_t number) {
    for (int32_t shift = 24; shift >= 0; shift -= 8) out->push_back(static_cast<uint8_t>(number >> shift & 0xFF));
  };
  addNumber(data.size());
  const size_t named = out->size();
  out->insert(out->end(), name, name + 4);
  out->insert(out->end(), data.begin(), data.end());
  addNumber(crc32(0, out->data() + named, static_cast<uInt>(4 + data.size())));
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

// The file with metadata behind the first chunk. A profile takes the place of what else tells about colours.
Bytes withMetadata(const Bytes& bytes, const Metadata& metadata) {
  if (metadata.exif.empty() && metadata.xmp.empty() && metadata.icc.empty()) return bytes;
  Bytes out(bytes.begin(), bytes.begin() + kSignature);
  for (const Chunk& chunk : chunksOf(bytes)) {
    if (!metadata.icc.empty() && (chunk.is("sRGB") || chunk.is("gAMA") || chunk.is("cHRM"))) continue;
    out.insert(out.end(), chunk.frame, chunk.end());
    if (!chunk.is("IHDR")) continue;
    if (!metadata.icc.empty()) addChunk("iCCP", compressedProfile(metadata.icc), &out);
    if (!metadata.exif.empty()) addChunk("eXIf", metadata.exif, &out);
    if (!metadata.xmp.empty()) {
      Bytes text(kXmpKeyword, kXmpKeyword + sizeof(kXmpKeyword));
      text.insert(text.end(), 4, 0);  // not compressed, no language
      text.insert(text.end(), metadata.xmp.begin(), metadata.xmp.end());
      addChunk("iTXt", text, &out);
    }
  }
  return out;
}

}  // namespace

bool isPng(const Bytes& bytes) {
  return bytes.size() >= 8 && png_sig_cmp(bytes.data(), 0, 8) == 0;
}

RgbPicture decodePng(const std::string& name, const Bytes& bytes, Metadata* metadata) {
  const std::vector<Chunk> chunks = chunksOf(bytes);
  if (chunks.empty()) throw Error(name, "damaged PNG: it is cut off");
  if (metadata != nullptr) {
    *metadata = metadataOf(chunks);
    const bool hasGamma = std::any_of(chunks.begin(), chunks.end(), [](const Chunk& c) { return c.is("gAMA"); });
    if (!metadata->icc.empty() && hasGamma) return decodePng(name, without("gAMA", bytes, chunks));
  }
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

Bytes encodePng(const std::string& name, const RgbPicture& picture, const Metadata& metadata) {
  png_image image;
  std::memset(&image, 0, sizeof(image));
  image.version = PNG_IMAGE_VERSION;
  image.width = static_cast<png_uint_32>(picture.width);
  image.height = static_cast<png_uint_32>(picture.height);
  image.format = PNG_FORMAT_RGB;
  png_alloc_size_t size = PNG_IMAGE_PNG_SIZE_MAX(image);
  Bytes bytes(size);
  if (png_image_write_to_memory(&image, bytes.data(), &size, 0, picture.pixels.data(), 0, nullptr) == 0) {
    throw Error(name, std::string("PNG writing failed: ") + image.message);
  }
  bytes.resize(size);
  return withMetadata(bytes, metadata);
}

}  // namespace tool
