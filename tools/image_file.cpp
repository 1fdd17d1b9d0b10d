#include "image_file.h"

#include <map>

#include "file_io.h"
#include "image_file_kinds.h"

namespace tool {
namespace {

enum class Kind { kJpeg, kPng, kY4m, kRaw };

struct Ending {
  Kind kind;
  const char* rawFormat;
};

const std::map<std::string, Ending>& endings() {
  static const std::map<std::string, Ending> table = {
      {"jpg", {Kind::kJpeg, ""}},     {"jpeg", {Kind::kJpeg, ""}},    {"png", {Kind::kPng, ""}},
      {"y4m", {Kind::kY4m, ""}},      {"nv21", {Kind::kRaw, "nv21"}}, {"nv12", {Kind::kRaw, "nv12"}},
      {"i420", {Kind::kRaw, "i420"}}, {"yuv", {Kind::kRaw, "i420"}},  {"yuyv", {Kind::kRaw, "yuyv"}}};
  return table;
}

const Ending& outputEnding(const std::string& path) {
  const auto found = endings().find(endingOf(path));
  if (found == endings().end()) {
    throw Error(path, "unknown ending; known are .jpg .jpeg .png .y4m .nv21 .nv12 .i420 .yuv .yuyv");
  }
  return found->second;
}

// By content, except that raw pixels may look like anything: with a layout, what has no ending of another kind is raw.
Kind kindOf(const std::string& path, const Bytes& bytes, const std::optional<RawLayout>& raw) {
  const auto found = endings().find(endingOf(path));
  const bool named = found != endings().end();
  if (raw && path != "-" && (!named || found->second.kind == Kind::kRaw)) return Kind::kRaw;
  if (isJpeg(bytes)) return Kind::kJpeg;
  if (isPng(bytes)) return Kind::kPng;
  if (isY4m(bytes)) return Kind::kY4m;
  if (bytes.empty()) throw Error(displayName(path), "is empty");
  if (named && found->second.kind == Kind::kRaw) throw Error(path, "raw pixels: the size must be told (--size WxH)");
  throw Error(displayName(path), "not a JPEG, PNG or Y4M file (raw pixels need --size and --format)");
}

RawLayout layoutFor(const std::string& path, const RawLayout& raw) {
  if (!raw.format.empty()) return raw;
  const auto found = endings().find(endingOf(path));
  if (found == endings().end() || found->second.kind != Kind::kRaw) {
    throw Error(path, "raw pixels: the format must be told (--format)");
  }
  return {raw.width, raw.height, found->second.rawFormat};
}

Picture decode(const std::string& path, const Bytes& bytes, Kind kind, const std::optional<RawLayout>& raw) {
  const std::string name = displayName(path);
  switch (kind) {
    case Kind::kJpeg:
      return decodeJpeg(name, bytes);
    case Kind::kPng: {
      Metadata metadata;
      Picture picture = toYuv420(decodePng(name, bytes, &metadata));
      picture.metadata = std::move(metadata);
      return picture;
    }
    case Kind::kY4m:
      return std::move(decodeY4m(name, bytes, 1).front());
    default:
      return decodeRaw(name, bytes, layoutFor(path, *raw));
  }
}

// Files of bare pixels hold no metadata, and nobody expects it there; but without some the picture looks different.
std::vector<std::string> fitTo(Kind kind, const Picture& picture, Metadata* metadata) {
  if (kind == Kind::kJpeg) return fitMetadata(metadata, kJpegRoom, picture.width, picture.height);
  if (kind == Kind::kPng) return fitMetadata(metadata, kPngRoom, picture.width, picture.height);
  std::vector<std::string> losses;
  if (metadata->orientation() != 1) {
    losses.push_back("its orientation has no place in the result, which shows the pixels as they lie");
  }
  if (!metadata->icc.empty()) losses.push_back("its ICC profile has no place in the result; it is left out");
  return losses;
}

std::string sizeText(const Picture& picture) {
  return std::to_string(picture.width) + "x" + std::to_string(picture.height);
}

}  // namespace

void checkPictureSize(const std::string& name, int64_t width, int64_t height) {
  if (width < 1 || height < 1 || width > kMostPixels || height > kMostPixels || width * height > kMostPixels) {
    throw Error(name, "a size of " + std::to_string(width) + "x" + std::to_string(height) + " is out of range");
  }
}

std::vector<Picture> readFrames(const std::vector<std::string>& paths, const std::optional<RawLayout>& raw,
                                size_t most) {
  if (paths.size() > most) {
    throw Error(displayName(paths[most]), "one frame too many; " + std::to_string(most) + " is the limit");
  }
  std::vector<Picture> frames;
  for (const std::string& path : paths) {
    const Bytes bytes = readFile(path, [most](const Bytes& beginning) { return y4mBytesWanted(beginning, most); });
    const Kind kind = kindOf(path, bytes, raw);
    if (kind == Kind::kY4m) {
      if (paths.size() > 1) throw Error(displayName(path), "a Y4M stream must be the only input");
      return decodeY4m(displayName(path), bytes, most);
    }
    frames.push_back(decode(path, bytes, kind, raw));
    if (frames.back().width != frames[0].width || frames.back().height != frames[0].height) {
      throw Error(displayName(path), sizeText(frames.back()) + ", but " + displayName(paths[0]) + " is " +
                                         sizeText(frames[0]) + "; all frames must have one size");
    }
  }
  return frames;
}

Picture readPicture(const std::string& path, const std::optional<RawLayout>& raw) {
  const Bytes bytes = readFile(path);
  return decode(path, bytes, kindOf(path, bytes, raw), raw);
}

RgbPicture readRgb(const std::string& path) {
  const Bytes bytes = readFile(path);
  switch (const Kind kind = kindOf(path, bytes, std::nullopt)) {
    case Kind::kJpeg:
      return decodeJpegRgb(displayName(path), bytes);
    case Kind::kPng:
      return decodePng(displayName(path), bytes);
    default:
      return toRgb(decode(path, bytes, kind, std::nullopt));
  }
}

std::vector<std::string> writePicture(const std::string& path, const Picture& picture, int jpegQuality) {
  const Ending& ending = outputEnding(path);
  Metadata metadata = picture.metadata;
  std::vector<std::string> losses = fitTo(ending.kind, picture, &metadata);
  switch (ending.kind) {
    case Kind::kJpeg:
      writeFile(path, encodeJpeg(path, picture, metadata, jpegQuality));
      break;
    case Kind::kPng:
      writeFile(path, encodePng(path, toRgb(picture), metadata));
      break;
    case Kind::kY4m:
      writeFile(path, encodeY4m({picture}));
      break;
    case Kind::kRaw:
      writeFile(path, encodeRaw(picture, ending.rawFormat));
      break;
  }
  return losses;
}

void writeY4m(const std::string& path, const std::vector<Picture>& frames) {
  writeFile(path, encodeY4m(frames));
}

void checkWritable(const std::string& path) {
  outputEnding(path);
  checkFileWritable(path);
}

}  // namespace tool
