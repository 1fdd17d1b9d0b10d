#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstring>
#include <sstream>

#include "image_file_kinds.h"

namespace tool {
namespace {

constexpr char kMagic[] = "YUV4MPEG2";

struct Header {
  int32_t width = 0;
  int32_t height = 0;
  bool full = false;
};

// Reads a line and moves past it.
std::string takeLine(const std::string& name, const Bytes& bytes, size_t* at) {
  const size_t length = y4mLineLength(bytes, *at);
  if (length == 0) throw Error(name, "damaged Y4M: a header line has no end");
  const auto begin = bytes.begin() + static_cast<std::ptrdiff_t>(*at);
  *at += length;
  return std::string(begin, begin + static_cast<std::ptrdiff_t>(length) - 1);
}

int32_t takeNumber(const std::string& name, const std::string& word) {
  int32_t value = 0;
  const char* end = word.data() + word.size();
  const auto result = std::from_chars(word.data() + 1, end, value);
  if (result.ec != std::errc() || result.ptr != end) throw Error(name, "damaged Y4M: bad size '" + word + "'");
  return value;
}

Header parseHeader(const std::string& name, const std::string& line) {
  Header header;
  std::istringstream words(line);
  std::string word;
  words >> word;  // the magic
  while (words >> word) {
    switch (word[0]) {
      case 'W':
        header.width = takeNumber(name, word);
        break;
      case 'H':
        header.height = takeNumber(name, word);
        break;
      case 'C':
        if (word != "C420jpeg" && word != "C420" && word != "C420mpeg2" && word != "C420paldv") {
          throw Error(name, "Y4M chroma '" + word + "' is not supported, only 8-bit 4:2:0");
        }
        break;
      case 'I':
        if (word != "Ip" && word != "I?") throw Error(name, "interlaced Y4M is not supported");
        break;
      case 'X':
        if (word == "XCOLORRANGE=FULL") header.full = true;
        break;
      default:
        break;  // frame rate and aspect ratio
    }
  }
  if (header.width == 0 || header.height == 0) throw Error(name, "damaged Y4M: no size in the header");
  checkPictureSize(name, header.width, header.height);
  return header;
}

// Levels with span steps between black and white, stretched to 255 steps; zero moves to widenedZero.
std::array<uint8_t, 256> widening(double zero, double span, double widenedZero) {
  std::array<uint8_t, 256> table;
  for (int i = 0; i < 256; ++i) {
    const double value = std::floor((i - zero) * 255.0 / span + widenedZero + 0.5);
    table[static_cast<size_t>(i)] = static_cast<uint8_t>(std::clamp(value, 0.0, 255.0));
  }
  return table;
}

void widen(Picture* picture) {
  static const std::array<uint8_t, 256> luma = widening(16.0, 219.0, 0.0);
  static const std::array<uint8_t, 256> chroma = widening(128.0, 224.0, 128.0);
  for (uint8_t& sample : picture->y) sample = luma[sample];
  for (Bytes* plane : {&picture->u, &picture->v}) {
    for (uint8_t& sample : *plane) sample = chroma[sample];
  }
}

}  // namespace

bool isY4m(const Bytes& bytes) {
  constexpr size_t kLength = sizeof(kMagic) - 1;
  return bytes.size() > kLength && std::memcmp(bytes.data(), kMagic, kLength) == 0 &&
         (bytes[kLength] == ' ' || bytes[kLength] == '\n');
}

size_t y4mLineLength(const Bytes& bytes, size_t at) {
  const auto begin = bytes.begin() + static_cast<std::ptrdiff_t>(at);
  const auto limit = begin + static_cast<std::ptrdiff_t>(std::min(bytes.size() - at, kMostY4mLine));
  const auto end = std::find(begin, limit, '\n');
  return end == limit ? 0 : static_cast<size_t>(end - begin) + 1;
}

std::pair<int32_t, int32_t> y4mFrameSize(const std::string& name, const Bytes& beginning) {
  size_t at = 0;
  const Header header = parseHeader(name, takeLine(name, beginning, &at));
  return {header.width, header.height};
}

std::vector<Picture> decodeY4m(const std::string& name, const Bytes& bytes, size_t most) {
  size_t at = 0;
  const Header header = parseHeader(name, takeLine(name, bytes, &at));
  std::vector<Picture> frames;
  while (at < bytes.size()) {
    if (frames.size() == most) throw Error(name, "more than " + std::to_string(most) + " frames");
    const bool begins = std::memcmp(bytes.data() + at, "FRAME", std::min<size_t>(bytes.size() - at, 5)) == 0;
    const std::string line = begins ? takeLine(name, bytes, &at) : "";
    if (line != "FRAME" && line.rfind("FRAME ", 0) != 0) throw Error(name, "damaged Y4M: no FRAME where one must be");
    Picture picture(header.width, header.height);
    for (Bytes* plane : {&picture.y, &picture.u, &picture.v}) {
      if (bytes.size() - at < plane->size()) {
        throw Error(name, "damaged Y4M: frame " + std::to_string(frames.size() + 1) + " is cut off");
      }
      std::copy_n(bytes.begin() + static_cast<std::ptrdiff_t>(at), plane->size(), plane->begin());
      at += plane->size();
    }
    if (!header.full) widen(&picture);
    frames.push_back(std::move(picture));
  }
  if (frames.empty()) throw Error(name, "a Y4M stream without frames");
  return frames;
}

Bytes encodeY4m(const std::vector<Picture>& frames) {
  std::ostringstream header;
  header << kMagic << " W" << frames.at(0).width << " H" << frames[0].height
         << " F25:1 Ip A1:1 C420jpeg XCOLORRANGE=FULL\n";
  const std::string text = header.str();
  const std::string mark = "FRAME\n";
  Bytes bytes(text.begin(), text.end());
  for (const Picture& frame : frames) {
    bytes.insert(bytes.end(), mark.begin(), mark.end());
    for (const Bytes* plane : {&frame.y, &frame.u, &frame.v}) bytes.insert(bytes.end(), plane->begin(), plane->end());
  }
  return bytes;
}

}  // namespace tool
