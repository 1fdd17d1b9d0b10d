// PNG files, as they come and with the checksums of their chunks made right.
#include <zlib.h>

#include "picture_files.h"

namespace {

constexpr size_t kSignature = 8;
constexpr size_t kFrame = 12;  // length, name and checksum of a chunk

uint32_t wordAt(const fuzz::Bytes& bytes, size_t at) {
  return uint32_t{bytes[at]} << 24 | uint32_t{bytes[at + 1]} << 16 | uint32_t{bytes[at + 2]} << 8 | bytes[at + 3];
}

// Whether any header declares a large picture.
bool isLarge(const fuzz::Bytes& bytes) {
  for (size_t i = 0; i + kFrame <= bytes.size(); ++i) {
    if (std::memcmp(bytes.data() + i, "IHDR", 4) != 0) continue;
    const uint64_t width = wordAt(bytes, i + 4);
    const uint64_t height = wordAt(bytes, i + 8);
    if (width != 0 && height > fuzz::kMostPixels / width) return true;
  }
  return false;
}

fuzz::Bytes withChecksums(fuzz::Bytes bytes) {
  for (size_t at = kSignature; at + kFrame <= bytes.size();) {
    const size_t length = wordAt(bytes, at);
    if (bytes.size() - at - kFrame < length) break;
    const auto sum = static_cast<uint32_t>(crc32(0, bytes.data() + at + 4, static_cast<uInt>(length) + 4));
    for (size_t i = 0; i < 4; ++i) bytes[at + 8 + length + i] = static_cast<uint8_t>(sum >> (24 - 8 * i));
    at += kFrame + length;
  }
  return bytes;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const fuzz::Bytes bytes(data, data + size);
  if (isLarge(bytes)) return 0;
  fuzz::readAndRewrite(bytes);
  const fuzz::Bytes mended = withChecksums(bytes);
  if (mended != bytes) fuzz::readAndRewrite(mended);
  return 0;
}
