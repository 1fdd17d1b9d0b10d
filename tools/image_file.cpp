#include "image_file.h"

#include <unistd.h>

#include <algorithm>
#include <map>

#include "colour.h"
#include "file_io.h"
#include "image_file_kinds.h"
#include "picture_extent.h"
#include "read_ahead.h"
#include "sharpest.h"

namespace tool {
namespace {

enum class Kind { kJpeg, kPng, kHeif, kTiff, kCameraRaw, kY4m, kRaw };

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

// By content; raw pixels have none that tells.
Kind kindOf(const std::string& path, const FileBytes& file) {
  const ByteView bytes = file.view();
  const auto found = endings().find(endingOf(path));
  const bool named = found != endings().end();
  if (isJpeg(bytes)) return Kind::kJpeg;
  if (isPng(bytes)) return Kind::kPng;
  if (isHeif(bytes)) return Kind::kHeif;
  if (isCameraRaw(path, bytes)) return Kind::kCameraRaw;
  if (isTiff(bytes)) return Kind::kTiff;
  if (isY4m(bytes)) return Kind::kY4m;
  if (bytes.empty()) throw Error(displayName(path), "is empty");
  if (named && found->second.kind == Kind::kRaw) throw Error(path, "raw pixels: the size must be told (--size WxH)");
  throw Error(displayName(path),
              "not a JPEG, PNG, TIFF, HEIC, AVIF, camera's raw or Y4M file (bare pixels need --size and --format)");
}

RawLayout layoutFor(const std::string& path, const RawLayout& raw) {
  if (!raw.format.empty()) return raw;
  const auto found = endings().find(endingOf(path));
  if (found == endings().end() || found->second.kind != Kind::kRaw) {
    throw Error(path, "raw pixels: the format must be told (--format)");
  }
  return {raw.width, raw.height, found->second.rawFormat};
}

Decoder openImage(const std::string& path, const std::optional<RawLayout>& raw, const SizeCheck& check) {
  const std::string name = displayName(path);
  if (isRaw(path, raw)) {
    const RawLayout layout = layoutFor(path, *raw);
    rawBytes(name, layout);
    if (check) check(name, layout.width, layout.height);
    return openRaw(InputFile(path), layout);
  }
  InputFile file(path);
  FileBytes bytes = file.read(PictureExtent(name, check));
  Decoder decoder;
  switch (kindOf(path, bytes)) {
    case Kind::kJpeg:
      decoder = openJpeg(name, std::move(bytes));
      break;
    case Kind::kPng:
      decoder = openPng(name, std::move(bytes));
      break;
    case Kind::kHeif:
      decoder = openHeif(name, std::move(bytes));
      break;
    case Kind::kCameraRaw:
      decoder = openCameraRaw(name, std::move(bytes));
      break;
    case Kind::kTiff:
      decoder = openTiff(name, std::move(bytes));
      break;
    default:
      decoder = openY4m(std::move(file), std::move(bytes));
  }
  if (check) check(name, decoder->width(), decoder->height());
  return decoder;
}

// An endless stream must end somewhere; a minute of video at 15 frames a second is not a burst any more.
constexpr size_t kMostOfStream = 1000;

std::string tooMany(size_t most) {
  return "more than " + std::to_string(most) + " frames";
}

// Files of bare pixels hold no metadata, and nobody expects it there; but without some the picture looks different.
std::vector<std::string> fitTo(Kind kind, const ConstPlanes& picture, Metadata* metadata) {
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

class PictureTaker : public FrameTaker {
 public:
  void begin(int32_t width, int32_t height, size_t count) override {
    for (size_t i = 0; i < count; ++i) frames_.emplace_back(width, height);
  }
  Planes room(size_t index) override { return frames_[index].planes(); }
  void take(size_t index, Metadata metadata) override { frames_[index].metadata = std::move(metadata); }
  std::vector<Picture> frames() { return std::move(frames_); }

 private:
  std::vector<Picture> frames_;
};

// Holds no more frames than are taken, and the one that is looked at.
void readStream(ImageDecoder* stream, const FrameList& list, FrameTaker* taker) {
  const size_t most = list.choice == nullptr ? list.most : kMostOfStream;
  std::vector<Picture> frames;
  StreamChoice choice;
  Picture frame;
  for (size_t i = 0; stream->more(); ++i) {
    if (i == most) throw Error(stream->name(), tooMany(most));
    if (frame.width == 0) frame = Picture(stream->width(), stream->height());
    stream->decode(frame.planes());
    frames.push_back(std::exchange(frame, {}));
    choice.taken.push_back(i);
    if (i < list.most) continue;
    for (size_t k = choice.sharpness.size(); k <= i; ++k)
      choice.sharpness.push_back(sharpnessOf(frames[k - i + list.most]));
    const auto worst = std::min_element(choice.taken.rbegin(), choice.taken.rend(),
                                        [&](size_t a, size_t b) { return choice.sharpness[a] < choice.sharpness[b]; });
    const auto place = choice.taken.rend() - worst - 1;
    frame = std::move(frames[static_cast<size_t>(place)]);
    frames.erase(frames.begin() + place);
    choice.taken.erase(choice.taken.begin() + place);
  }
  frame = {};
  taker->begin(stream->width(), stream->height(), frames.size());
  for (size_t i = 0; i < frames.size(); ++i) {
    copyPlanes(std::exchange(frames[i], {}).planes(), taker->room(i));
    taker->take(i, {});
  }
  if (list.choice != nullptr && !choice.sharpness.empty()) *list.choice = std::move(choice);
}

Picture decodePicture(ImageDecoder* decoder) {
  Picture picture(decoder->width(), decoder->height());
  picture.metadata = decoder->takeMetadata();
  decoder->more();
  decoder->decode(picture.planes());
  if (decoder->isStream() && decoder->more()) throw Error(decoder->name(), tooMany(1));
  return picture;
}

}  // namespace

void checkPictureSize(const std::string& name, int64_t width, int64_t height) {
  if (width < 1 || height < 1 || width > kMostPixels || height > kMostPixels || width * height > kMostPixels) {
    throw Error(name, "a size of " + std::to_string(width) + "x" + std::to_string(height) + " is out of range");
  }
}

void readFrames(const FrameList& list, FrameTaker* taker) {
  const std::vector<std::string>& paths = list.paths;
  if (paths.size() > list.most) {
    throw Error(displayName(paths[list.most]), "one frame too many; " + std::to_string(list.most) + " is the limit");
  }
  int32_t firstWidth = 0;
  int32_t firstHeight = 0;
  const SizeCheck checkSize = [&](const std::string& name, int64_t width, int64_t height) {
    if (firstWidth != 0 && (width != firstWidth || height != firstHeight)) {
      throw Error(name, sizeText(width, height) + ", but " + displayName(paths[0]) + " is " +
                            sizeText(firstWidth, firstHeight) + "; all frames must have one size");
    }
    if (list.check) list.check(name, width, height);
  };
  const auto open = [&](size_t index) {
    Decoder decoder = openImage(paths[index], list.raw, checkSize);
    if (decoder->isStream() && paths.size() > 1) throw Error(decoder->name(), "a Y4M stream must be the only input");
    return decoder;
  };
  std::vector<Metadata> metadata(paths.size());
  const auto decode = [&](size_t index, Decoder decoder) {
    metadata[index] = decoder->takeMetadata();
    decoder->decode(taker->room(index));
  };
  const bool isStream = orOutOfMemory(displayName(paths.at(0)), [&] {
    Decoder first = open(0);
    if (first->isStream()) {
      readStream(first.get(), list, taker);
      return true;
    }
    firstWidth = first->width();
    firstHeight = first->height();
    taker->begin(firstWidth, firstHeight, paths.size());
    decode(0, std::move(first));
    return false;
  });
  if (isStream) return;
  // Two that read from one pipe at the same time would mix their bytes.
  const bool anyOrder = std::all_of(paths.begin(), paths.end(), isRegularFile);
  ReadAhead ahead(1, paths.size(), list.readAhead, anyOrder,
                  [&](size_t index) { orOutOfMemory(displayName(paths[index]), [&] { decode(index, open(index)); }); });
  for (size_t i = 0; i < paths.size(); ++i) {
    if (i > 0) ahead.wait(i);
    taker->take(i, std::move(metadata[i]));
  }
}

std::vector<Picture> readFrames(const FrameList& list) {
  PictureTaker taker;
  readFrames(list, &taker);
  return taker.frames();
}

Picture readPicture(const std::string& path, const std::optional<RawLayout>& raw) {
  return orOutOfMemory(displayName(path), [&] { return decodePicture(openImage(path, raw, nullptr).get()); });
}

RgbPicture readRgb(const std::string& path) {
  return orOutOfMemory(displayName(path), [&] { return openImage(path, std::nullopt, nullptr)->decodeRgb(); });
}

RgbPicture ImageDecoder::decodeRgb() {
  return toRgb(decodePicture(this));
}

std::vector<std::string> writePicture(const std::string& path, const ConstPlanes& picture, const Metadata& given,
                                      const WriteOptions& options) {
  const std::string name = outputName(path);
  return orOutOfMemory(name, [&] {
    const Ending& ending = outputEnding(path, options);
    Metadata metadata = given;
    std::vector<std::string> losses = fitTo(ending.kind, picture, &metadata);
    const auto write = [&](const auto& content) { writeFile(path, content, options.existing); };
    switch (ending.kind) {
      case Kind::kJpeg:
        write(encodeJpeg(name, picture, metadata, options.jpegQuality).view());
        break;
      case Kind::kPng: {
        RgbRows rows(picture);
        write(encodePng(
                  name, picture.width, picture.height, [&](int32_t y) { return rows(y); }, metadata)
                  .view());
        break;
      }
      case Kind::kY4m:
        write([&](const Sink& sink) { writeY4mFrames({picture}, sink); });
        break;
      default:
        write([&](const Sink& sink) { writeRaw(picture, ending.rawFormat, sink); });
    }
    return losses;
  });
}

void writeY4m(const std::string& path, const std::vector<Picture>& frames) {
  writeFile(path, [&](const Sink& sink) {
    std::vector<ConstPlanes> planes;
    for (const Picture& frame : frames) planes.push_back(frame.planes());
    writeY4mFrames(planes, sink);
  });
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
