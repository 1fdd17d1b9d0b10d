// TIFF files.
#include "image_file_kinds.h"
#include "picture_files.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const fuzz::Bytes bytes(data, data + size);
  bool isLarge = true;
  fuzz::succeeds([&] {
    const fuzz::MemoryFile file(bytes);
    const tool::Decoder decoder =
        tool::openTiff("input", tool::readFile(file.path(), [&](tool::ByteView read) { return size - read.size(); }));
    isLarge = static_cast<uint64_t>(decoder->width()) * static_cast<uint64_t>(decoder->height()) > fuzz::kMostPixels;
  });
  if (!isLarge) fuzz::readAndRewrite(bytes);
  return 0;
}
