#include "image_file.h"

#include <unistd.h>

#include <map>

#include "file_io.h"
#include "image_file_kinds.h"
#include "picture_extent.h"

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

const Ending& outputEnding(const std::string& path, const WriteOptions& options) {
  const auto found = endings().find(options.format.empty() && path != "-" ? endingOf(path) : options.format);
  if (found != endings().end()) return found->second;
  if (path == "-") throw Error(outputName(path), "its kind must be told (--output-format)");
  throw Error(path, "unknown ending; known are .jpg .jpeg .png .y4m .nv21 .nv12 .i420 .yuv .yuyv");
}

// Raw pixels may look like anything: with a layout, what has no ending of another kind is raw.
bool isRaw(const std::string& path, const std::optional<RawLayout>& raw) {
  const auto found = endings().find(endingOf(path));
  return raw && path != "-" && (found == endings().end() || found->second.kind == Kind::kRaw);
}

// By content, where it is not raw.
Kind kindOf(const std::string& path, const Bytes& bytes, const std::optional<RawLayout>& raw) {
  if (isRaw(path, raw)) return Kind::kRaw;
  const auto found = endings().find(endingOf(path));
  const bool named = found != endings().end();
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

// As far as it can be a picture.
Bytes readPictureFile(const std::string& path, const std::optional<RawLayout>& raw, size_t mostFrames,
                      const SizeCheck& check) {
  const std::string name = displayName(path);
  if (!isRaw(path, raw)) return readFile(path, PictureExtent(name, mostFrames, check));
  const RawLayout layout = layoutFor(path, *raw);
  const size_t wanted = rawBytes(name, layout);
  if (check) check(name, layout.width, layout.height);
  return readFile(path, [wanted](const Bytes& read) { return wanted + 1 - read.size(); });
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

std::string sizeText(int64_t width, int64_t height) {
  return std::to_string(width) + "x" + std::to_string(height);
}

Bytes encode(const std::string& name, const Picture& picture, const Metadata& metadata, const Ending& ending,
             int jpegQuality) {
  switch (ending.kind) {
    case Kind::kJpeg:
      return encodeJpeg(name, picture, metadata, jpegQuality);
    case Kind::kPng:
      return encodePng(name, toRgb(picture), metadata);
    case Kind::kY4m:
      return encodeY4m({picture});
    default:
      return encodeRaw(picture, ending.rawFormat);
  }
}

}  // namespace

void checkPictureSize(const std::string& name, int64_t width, int64_t height) {
  if (width < 1 || height < 1 || width > kMostPixels || height > kMostPixels || width * height > kMostPixels) {
    throw Error(name, "a size of " + std::to_string(width) + "x" + std::to_string(height) + " is out of range");
  }
}

std::vector<Picture> readFrames(const std::vector<std::string>& paths, const std::optional<RawLayout>& raw, size_t most,
                                const SizeCheck& check) {
  if (paths.size() > most) {
    throw Error(displayName(paths[most]), "one frame too many; " + std::to_string(most) + " is the limit");
  }
  std::vector<Picture> frames;
  const SizeCheck checkSize = [&](const std::string& name, int64_t width, int64_t height) {
    if (!frames.empty() && (width != frames[0].width || height != frames[0].height)) {
      throw Error(name, sizeText(width, height) + ", but " + displayName(paths[0]) + " is " +
                            sizeText(frames[0].width, frames[0].height) + "; all frames must have one size");
    }
    if (check) check(name, width, height);
  };
  for (const std::string& path : paths) {
    const std::string name = displayName(path);
    const bool isStream = orOutOfMemory(name, [&] {
      const Bytes bytes = readPictureFile(path, raw, most, checkSize);
      const Kind kind = kindOf(path, bytes, raw);
      if (kind == Kind::kY4m) {
        if (paths.size() > 1) throw Error(name, "a Y4M stream must be the only input");
        frames = decodeY4m(name, bytes, most);
        return true;
      }
      Picture frame = decode(path, bytes, kind, raw);
      checkSize(name, frame.width, frame.height);
      frames.push_back(std::move(frame));
      return false;
    });
    if (isStream) break;
  }
  return frames;
}

Picture readPicture(const std::string& path, const std::optional<RawLayout>& raw) {
  return orOutOfMemory(displayName(path), [&] {
    const Bytes bytes = readPictureFile(path, raw, 1, nullptr);
    return decode(path, bytes, kindOf(path, bytes, raw), raw);
  });
}

RgbPicture readRgb(const std::string& path) {
  return orOutOfMemory(displayName(path), [&] {
    const Bytes bytes = readPictureFile(path, std::nullopt, 1, nullptr);
    switch (const Kind kind = kindOf(path, bytes, std::nullopt)) {
      case Kind::kJpeg:
        return decodeJpegRgb(displayName(path), bytes);
      case Kind::kPng:
        return decodePng(displayName(path), bytes);
      default:
        return toRgb(decode(path, bytes, kind, std::nullopt));
    }
  });
}

std::vector<std::string> writePicture(const std::string& path, const Picture& picture, const WriteOptions& options) {
  const std::string name = outputName(path);
  return orOutOfMemory(name, [&] {
    const Ending& ending = outputEnding(path, options);
    Metadata metadata = picture.metadata;
    std::vector<std::string> losses = fitTo(ending.kind, picture, &metadata);
    writeFile(path, encode(name, picture, metadata, ending, options.jpegQuality), options.existing);
    return losses;
  });
}

void writeY4m(const std::string& path, const std::vector<Picture>& frames) {
  writeFile(path, encodeY4m(frames));
}

void checkWritable(const std::string& path, const WriteOptions& options) {
  outputEnding(path, options);
  checkFileWritable(path, options.existing);
  if (path == "-" && isatty(STDOUT_FILENO) != 0) throw Error(outputName(path), "a terminal shows no pictures");
}

void checkWritableSize(const std::string& path, const WriteOptions& options, int64_t width, int64_t height) {
  if (outputEnding(path, options).kind == Kind::kJpeg) checkJpegSize(outputName(path), width, height);
}

const std::vector<std::string>& writableFormats() {
  static const std::vector<std::string> names = [] {
    std::vector<std::string> all;
    for (const auto& [name, ending] : endings()) all.push_back(name);
    return all;
  }();
  return names;
}

}  // namespace tool
