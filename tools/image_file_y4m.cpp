#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstring>
#include <sstream>
#include <string_view>

#include "image_file_kinds.h"
#include "packed_planes.h"

namespace tool {
namespace {

constexpr char kMagic[] = "YUV4MPEG2";

struct Header {
  int32_t width = 0;
  int32_t height = 0;
  bool full = false;
};

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

void widen(const Planes& planes) {
  static const std::array<uint8_t, 256> luma = widening(16.0, 219.0, 0.0);
  static const std::array<uint8_t, 256> chroma = widening(128.0, 224.0, 128.0);
  for (int32_t y = 0; y < planes.height; ++y) {
    uint8_t* row = planes.lumaRow(y);
    for (int32_t x = 0; x < planes.width; ++x) row[x] = luma[row[x]];
  }
  for (int32_t y = 0; y < planes.chromaHeight(); ++y) {
    for (uint8_t* row : {planes.uRow(y), planes.vRow(y)}) {
      for (int32_t x = 0; x < planes.chromaWidth(); ++x, row += planes.step) *row = chroma[*row];
    }
  }
}

// Never takes a byte that can belong to a frame behind those that are asked for.
class Y4mDecoder : public ImageDecoder {
 public:
  Y4mDecoder(InputFile file, const FileBytes& beginning)
      : ImageDecoder(file.name(), 0, 0),
        file_(std::move(file)),
        held_(beginning.view().begin(), beginning.view().end()) {
    const Header header = parseHeader(name_, takeLine());
    width_ = header.width;
    height_ = header.height;
    full_ = header.full;
  }

  bool isStream() const override { return true; }

  bool more() override {
    const bool found = hold(1);
    if (!found && frames_ == 0) throw Error(name_, "a Y4M stream without frames");
    return found;
  }

  void decode(const Planes& planes) override {
    constexpr std::string_view kMark = "FRAME";
    hold(kMark.size());
    const bool begins = std::memcmp(held_.data(), kMark.data(), std::min(held_.size(), kMark.size())) == 0;
    const std::string line = begins ? takeLine() : "";
    if (line != "FRAME" && line.rfind("FRAME ", 0) != 0) throw Error(name_, "damaged Y4M: no FRAME where one must be");
    ++frames_;
    takePlanar(
        [this](uint8_t* to, size_t count) {
          if (file_.read(to, count) == count) return;
          throw Error(name_, "damaged Y4M: frame " + std::to_string(frames_) + " is cut off");
        },
        planes);
    if (!full_) widen(planes);
  }

 private:
  static constexpr size_t kMostLine = 4096;

  // Whether so many bytes are there.
  bool hold(size_t count) {
    const size_t held = held_.size();
    if (held < count) {
      held_.resize(count);
      held_.resize(held + file_.read(held_.data() + held, count - held));
    }
    return held_.size() >= count;
  }

  // Reads a line and moves past it; comes without its end.
  std::string takeLine() {
    size_t looked = 0;
    for (;;) {
      const auto limit = held_.begin() + static_cast<std::ptrdiff_t>(std::min(held_.size(), kMostLine));
      const auto end = std::find(held_.begin() + static_cast<std::ptrdiff_t>(looked), limit, '\n');
      if (end != limit) {
        const std::string line(held_.begin(), end);
        held_.erase(held_.begin(), end + 1);
        return line;
      }
      looked = held_.size();
      // Byte by byte: what stands behind the line's end goes elsewhere.
      if (looked >= kMostLine || !hold(looked + 1)) throw Error(name_, "damaged Y4M: a header line has no end");
    }
  }

  InputFile file_;
  Bytes held_;  // of a line
  bool full_ = false;
  size_t frames_ = 0;
};

}  // namespace

bool isY4m(ByteView beginning) {
  constexpr size_t kLength = kY4mMagic - 1;
  return beginning.size() > kLength && std::memcmp(beginning.data(), kMagic, kLength) == 0 &&
         (beginning[kLength] == ' ' || beginning[kLength] == '\n');
}

Decoder openY4m(InputFile file, FileBytes beginning) {
  return std::make_unique<Y4mDecoder>(std::move(file), beginning);
}

void writeY4mFrames(const std::vector<ConstPlanes>& frames, const Sink& sink) {
  std::ostringstream header;
  header << kMagic << " W" << frames.at(0).width << " H" << frames[0].height
         << " F25:1 Ip A1:1 C420jpeg XCOLORRANGE=FULL\n";
  StagedRows out(sink);
  const auto addText = [&](const std::string& text) { std::copy(text.begin(), text.end(), out.room(text.size())); };
  addText(header.str());
  for (const ConstPlanes& frame : frames) {
    addText("FRAME\n");
    out.addPlanar(frame);
  }
  out.flush();
}

}  // namespace tool
