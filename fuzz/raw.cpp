// Raw pixels: a layout in front of them. Mostly the bytes are made to fit the layout, since few inputs would.
#include "picture_files.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  constexpr const char* kFormats[] = {"nv21", "nv12", "i420", "yuyv"};
  constexpr const char* kOthers[] = {"", "yuv", "NV21", "rgb"};
  constexpr int32_t kSides[] = {0, -1, 1 << 14, 0x7FFFFFFF, -0x7FFFFFFF - 1, 65536};
  fuzz::Input input(data, size);
  tool::RawLayout layout;
  const bool known = !input.oneIn(8);
  const char* format = known ? input.pick(kFormats) : input.pick(kOthers);
  layout.format = format;
  layout.width = input.oneIn(8) ? input.pick(kSides) : input.between(1, 70);
  layout.height = input.oneIn(8) ? input.pick(kSides) : input.between(1, 70);
  const int32_t misfit = input.oneIn(8) ? input.between(-3, 3) : 0;
  fuzz::Bytes bytes = input.rest();
  const bool small = layout.width > 0 && layout.height > 0 && layout.width <= 70 && layout.height <= 70;
  if (small) {
    const auto w = static_cast<size_t>(layout.width);
    const auto h = static_cast<size_t>(layout.height);
    const size_t wanted = layout.format == "yuyv" ? (w + 1) / 2 * 4 * h : w * h + 2 * ((w + 1) / 2) * ((h + 1) / 2);
    const size_t held = bytes.size();
    bytes.resize(wanted);
    for (size_t i = held; held > 0 && i < wanted; ++i) bytes[i] = bytes[i % held];
    if (misfit < 0) bytes.resize(wanted - std::min<size_t>(wanted, static_cast<size_t>(-misfit)));
    if (misfit > 0) bytes.resize(wanted + static_cast<size_t>(misfit));
  }
  const fuzz::MemoryFile file(bytes);
  tool::Picture picture;
  const bool read = fuzz::succeeds([&] { picture = tool::readPicture(file.path(), layout); });
  if (small) REQUIRE(read == (known && misfit == 0));
  if (!read) return 0;
  fuzz::checkPicture(picture);
  for (const char* other : kFormats) {
    const std::string path = fuzz::folder() / "out." + other;
    tool::writePicture(path, picture);
    const tool::Picture again = tool::readPicture(path, tool::RawLayout{layout.width, layout.height, ""});
    REQUIRE(fuzz::samePlanes(again, picture));
    // Chroma of packed rows is averaged on the way in, and packed groups of odd widths have a pixel more.
    if (std::string(other) == format && layout.format != "yuyv") REQUIRE(fuzz::readAll(path) == bytes);
  }
  return 0;
}
