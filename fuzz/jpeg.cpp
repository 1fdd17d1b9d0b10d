// JPEG files.
#include "picture_files.h"

namespace {

// Whether any frame header, or what looks like one, declares a large picture.
bool isLarge(const fuzz::Bytes& bytes) {
  for (size_t i = 0; i + 9 < bytes.size(); ++i) {
    if (bytes[i] != 0xFF || (bytes[i + 1] & 0xF0) != 0xC0) continue;
    const uint64_t height = uint64_t{bytes[i + 5]} << 8 | bytes[i + 6];
    const uint64_t width = uint64_t{bytes[i + 7]} << 8 | bytes[i + 8];
    if (width * height > fuzz::kMostPixels) return true;
  }
  return false;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const fuzz::Bytes bytes(data, data + size);
  if (!isLarge(bytes)) fuzz::readAndRewrite(bytes);
  return 0;
}
