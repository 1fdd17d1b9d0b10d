// EXIF, ICC and XMP segments on their way through the tool: blocks of any content are put into a small JPEG and a small
// PNG, which are read and written. What the first result carries is what a second one made from it carries.
//
// An input is a list of blocks: a kind byte, two bytes of length, content.
#include <zlib.h>

#include "picture_files.h"

namespace {

using fuzz::Bytes;

enum Kind { kExif, kIcc, kXmp, kComment, kKinds };

struct Block {
  Kind kind;
  Bytes content;
};

void append(Bytes* to, const Bytes& from) {
  to->insert(to->end(), from.begin(), from.end());
}
Bytes bytesOf(const char* text, size_t size) {
  return Bytes(text, text + size);
}

Bytes jpegWith(const Bytes& jpeg, const std::vector<Block>& blocks) {
  Bytes out(jpeg.begin(), jpeg.begin() + 2);
  for (const Block& block : blocks) {
    constexpr char kExifName[] = "Exif\0";
    constexpr char kIccName[] = "ICC_PROFILE";
    constexpr char kXmpName[] = "http://ns.adobe.com/xap/1.0/";
    Bytes content;
    uint8_t marker = 0xE1;
    if (block.kind == kExif) content = bytesOf(kExifName, sizeof(kExifName));
    if (block.kind == kIcc) {
      // The number of the part and their count come with the content.
      content = bytesOf(kIccName, sizeof(kIccName));
      marker = 0xE2;
    }
    if (block.kind == kXmp) content = bytesOf(kXmpName, sizeof(kXmpName));
    if (block.kind == kComment) marker = 0xFE;
    append(&content, block.content);
    const size_t length = std::min<size_t>(content.size() + 2, 0xFFFF);
    content.resize(length - 2);
    append(&out, {0xFF, marker, static_cast<uint8_t>(length >> 8), static_cast<uint8_t>(length)});
    append(&out, content);
  }
  out.insert(out.end(), jpeg.begin() + 2, jpeg.end());
  return out;
}

Bytes pngWith(const Bytes& png, const std::vector<Block>& blocks) {
  constexpr size_t kBehindHeader = 8 + 12 + 13;
  Bytes out(png.begin(), png.begin() + kBehindHeader);
  for (const Block& block : blocks) {
    constexpr char kIccName[] = "profile\0";  // and the compression method
    constexpr char kXmpName[] = "XML:com.adobe.xmp\0\0\0\0";
    const char* name = "tEXt";
    Bytes content;
    if (block.kind == kExif) {
      name = "eXIf";
      content = block.content;
    } else if (block.kind == kIcc) {
      name = "iCCP";
      content = bytesOf(kIccName, sizeof(kIccName));
      const Bytes profile(block.content.begin() + std::min<std::ptrdiff_t>(2, std::ssize(block.content)),
                          block.content.end());
      Bytes packed(compressBound(profile.size()));
      uLongf size = packed.size();
      REQUIRE(compress(packed.data(), &size, profile.data(), profile.size()) == Z_OK);
      packed.resize(size);
      append(&content, packed);
    } else if (block.kind == kXmp) {
      name = "iTXt";
      content = bytesOf(kXmpName, sizeof(kXmpName));
      append(&content, block.content);
    } else {
      content = block.content;
    }
    Bytes chunk = bytesOf(name, 4);
    append(&chunk, content);
    const auto sum = static_cast<uint32_t>(crc32(0, chunk.data(), static_cast<uInt>(chunk.size())));
    for (int shift = 24; shift >= 0; shift -= 8) out.push_back(static_cast<uint8_t>(content.size() >> shift));
    append(&out, chunk);
    for (int shift = 24; shift >= 0; shift -= 8) out.push_back(static_cast<uint8_t>(sum >> shift));
  }
  out.insert(out.end(), png.begin() + kBehindHeader, png.end());
  return out;
}

// What stands in front of the pixels of a file that the tool wrote, the JFIF header and the PNG's own header aside.
Bytes carried(const Bytes& file) {
  Bytes out;
  if (file[0] == 0xFF) {
    for (size_t at = 2; at + 4 <= file.size() && file[at] == 0xFF;) {
      const size_t length = size_t{file[at + 2]} << 8 | file[at + 3];
      REQUIRE(at + 2 + length <= file.size());
      if ((file[at + 1] & 0xF0) == 0xE0 && file[at + 1] != 0xE0) {
        out.insert(out.end(), file.begin() + static_cast<std::ptrdiff_t>(at),
                   file.begin() + static_cast<std::ptrdiff_t>(at + 2 + length));
      }
      if (file[at + 1] == 0xDA) break;
      at += 2 + length;
    }
    return out;
  }
  for (size_t at = 8; at + 12 <= file.size();) {
    const size_t length =
        size_t{file[at]} << 24 | size_t{file[at + 1]} << 16 | size_t{file[at + 2]} << 8 | file[at + 3];
    REQUIRE(at + 12 + length <= file.size());
    const std::string name(file.begin() + static_cast<std::ptrdiff_t>(at + 4),
                           file.begin() + static_cast<std::ptrdiff_t>(at + 8));
    if (name == "eXIf" || name == "iCCP" || name == "iTXt") {
      out.insert(out.end(), file.begin() + static_cast<std::ptrdiff_t>(at),
                 file.begin() + static_cast<std::ptrdiff_t>(at + 12 + length));
    }
    at += 12 + length;
  }
  return out;
}

const tool::Picture& plainPicture() {
  static const tool::Picture picture = [] {
    tool::Picture p(16, 16);
    std::fill(p.y.begin(), p.y.end(), uint8_t{100});
    return p;
  }();
  return picture;
}

const Bytes& plainFile(const std::string& name) {
  static const auto make = [](const std::string& ending) {
    const std::string path = fuzz::folder() / "plain." + ending;
    tool::writePicture(path, plainPicture());
    return fuzz::readAll(path);
  };
  static const Bytes jpeg = make("jpg");
  static const Bytes png = make("png");
  return name == "jpg" ? jpeg : png;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz::Input input(data, size);
  std::vector<Block> blocks;
  while (!input.empty() && blocks.size() < 8) {
    const auto kind = static_cast<Kind>(input.byte() % kKinds);
    const size_t high = input.byte();
    const size_t length = high << 8 | input.byte();
    blocks.push_back({kind, input.take(length)});
  }
  for (const auto& file : {jpegWith(plainFile("jpg"), blocks), pngWith(plainFile("png"), blocks)}) {
    const fuzz::MemoryFile source(file);
    tool::Picture picture;
    // A block may be too damaged for the reader of the file.
    if (!fuzz::succeeds([&] { picture = tool::readPicture(source.path()); })) continue;
    REQUIRE(picture.width == 16 && picture.height == 16);
    for (const char* ending : {".jpg", ".png"}) {
      // No content of a block makes a result that cannot be written or read back.
      const std::string first = fuzz::folder() / "first" + ending;
      const std::string second = fuzz::folder() / "second" + ending;
      REQUIRE(fuzz::succeeds([&] { tool::writePicture(first, picture); }));
      tool::Picture again;
      REQUIRE(fuzz::succeeds([&] { again = tool::readPicture(first); }));
      REQUIRE(fuzz::succeeds([&] { tool::writePicture(second, again); }));
      REQUIRE(carried(fuzz::readAll(first)) == carried(fuzz::readAll(second)));
    }
  }
  return 0;
}
