#include "burst.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <limits>

#include "file_io.h"

namespace tool {
namespace {

// V before U: of the layouts that the engine works in without conversion, the one with the stricter colour difference.
constexpr char kFormat[] = "YVU420_SEMIPLANAR";
constexpr int32_t kAnyCount = std::numeric_limits<int32_t>::max();
constexpr double kAnyStrength = 1e6;

std::string hex(uint32_t status) {
  char text[16];
  std::snprintf(text, sizeof(text), "0x%08x", static_cast<unsigned>(status));
  return text;
}

void check(uint32_t status, const std::string& step) {
  if (status != ZELVAN_TESSALINE4_OK) throw Error("the library refused " + step, "status " + hex(status));
}

// Pictures as the engine takes them: rows of luma, then rows of V and U in turn, each padded to an even count of bytes,
// and an even count of luma rows.
class Shape {
 public:
  Shape(int32_t width, int32_t height)
      : width_(width),
        height_(height),
        pitch_((static_cast<size_t>(width) + 1) / 2 * 2),
        lumaBytes_(pitch_ * ((static_cast<size_t>(height) + 1) / 2 * 2)) {}

  // Of a picture, up to where another one may begin.
  size_t bytes() const { return (lumaBytes_ * 3 / 2 + 63) / 64 * 64; }
  Planes planes(uint8_t* memory) const {
    uint8_t* chroma = memory + lumaBytes_;
    return {width_, height_, memory, chroma + 1, chroma, pitch_, pitch_, 2};
  }
  // What the engine sees of the padding.
  static void pad(const Planes& planes) {
    const int32_t width = planes.width;
    if (width % 2 != 0) {
      for (int32_t y = 0; y < planes.height; ++y) planes.lumaRow(y)[width] = planes.lumaRow(y)[width - 1];
    }
    if (planes.height % 2 != 0) {
      std::memcpy(planes.lumaRow(planes.height), planes.lumaRow(planes.height - 1), planes.lumaPitch);
    }
  }
  static zelvan_ImageDataEx record(const Planes& planes) {
    const auto pitch = static_cast<int32_t>(planes.lumaPitch);
    return {planes.width, planes.height, planes.y, planes.v, nullptr, pitch, pitch, 0};
  }

 private:
  int32_t width_;
  int32_t height_;
  size_t pitch_;
  size_t lumaBytes_;
};

void apply(zelvan_Tessaline4* handle, const Settings& settings) {
  check(zelvan_Tessaline4_setImageFormat(handle, kFormat), "the image format");
  for (const Setting<int32_t>& s : intSettings()) {
    if (const auto& value = settings.*s.field) check(s.set(handle, *value), s.option);
  }
  for (const Setting<double>& s : doubleSettings()) {
    if (const auto& value = settings.*s.field) check(s.set(handle, *value), s.option);
  }
  if (settings.threads || settings.processorMask) {
    check(zelvan_Tessaline4_setCoreSetting(handle, settings.threads.value_or(-1), settings.processorMask.value_or(0)),
          "the core setting");
  }
  if (const auto& sigmas = settings.sharpnessSigmas) {
    check(zelvan_Tessaline4_setSharpnessEnhanceSigma_internal(handle, (*sigmas)[0], (*sigmas)[1]),
          "--sharpness-sigmas");
  }
  if (const auto& table = settings.lumaNrTable; !table.empty()) {
    check(zelvan_Tessaline4_setNoiseReductionLevels(handle, table.data(), static_cast<int32_t>(table.size()) - 1),
          "--luma-nr-table");
  }
  if (const auto& table = settings.chromaNrTable; !table.empty()) {
    check(zelvan_Tessaline4_setUvNoiseReductionThres(handle, table.data(), static_cast<int32_t>(table.size()) - 1),
          "--chroma-nr-table");
  }
}

FineMap fineMap(zelvan_Tessaline4* handle, const zelvan_FineInfo& info, int32_t index) {
  FineMap map = {info.mapWidth, info.mapHeight, {}};
  map.values.resize(static_cast<size_t>(map.width) * static_cast<size_t>(map.height));
  check(zelvan_Tessaline4_getFineMap(handle, index, map.values.data()), "to show a map");
  return map;
}

void addFineReport(zelvan_Tessaline4* handle, BurstResult* result) {
  zelvan_FineInfo info;
  if (zelvan_Tessaline4_getFineInfo(handle, &info) != ZELVAN_TESSALINE4_OK) return;  // the exact road
  FineReport& fine = result->fine.emplace();
  std::copy(std::begin(info.noise), std::end(info.noise), fine.noise.begin());
  fine.lumaStrength = info.lumaStrength;
  fine.chromaStrength = info.chromaStrength;
  fine.count = fineMap(handle, info, -1);
  for (size_t i = 0; i < result->frames.size(); ++i) {
    const auto index = static_cast<int32_t>(i);
    zelvan_FineFrameInfo frame;
    check(zelvan_Tessaline4_getFineFrameInfo(handle, index, &frame), "to report on a frame");
    result->frames[i].fine = FineFrameReport{frame.residual, frame.cornerSigma, frame.share};
    fine.weights.push_back(fineMap(handle, info, index));
  }
}

FrameReport frameReport(zelvan_Tessaline4* handle, size_t index) {
  zelvan_FrameInfo info;
  check(zelvan_Tessaline4_getFrameInfo(handle, static_cast<int32_t>(index), &info), "to report on a frame");
  FrameReport report;
  report.status = info.mergeStatus;
  report.score = info.score;
  report.order = info.order;
  report.trackFailure = info.trackFailure;
  std::copy(std::begin(info.motion), std::end(info.motion), report.motion.begin());
  return report;
}

}  // namespace

const std::vector<Setting<int32_t>>& intSettings() {
  static const std::vector<Setting<int32_t>> table = {
      {"--fine", "1: the fine mode, aligned below the pixel, settings by the noise; 0: the exact road", 0, 1,
       &Settings::fine, zelvan_Tessaline4_setFineMode},
      {"--frames-to-merge", "Merge at most so many frames, the sharpest", 1, static_cast<int32_t>(kMostFrames),
       &Settings::framesToMerge, zelvan_Tessaline4_setNumberOfMergeImages},
      {"--auto-scaling", "1: crop to what all frames show, and scale back to full size", 0, 1, &Settings::autoScaling,
       zelvan_Tessaline4_setAutoScaling},
      {"--auto-sorting", "1: the sharpest frame is the base, blurred ones are left out; 0: the first is the base", 0, 1,
       &Settings::autoSorting, zelvan_Tessaline4_setAutoSorting},
      {"--obj-blur-level", "Care against ghosts of moving objects; more of it merges less", 0, 7,
       &Settings::objBlurLevel, zelvan_Tessaline4_setObjBlurCorrectionLevel},
      {"--luma-nr-level", "Noise reduction of brightness", 0, 7, &Settings::lumaNrLevel,
       zelvan_Tessaline4_setLumaNoiseReductionLevel},
      {"--chroma-nr-level", "Noise reduction of colour", 0, 7, &Settings::chromaNrLevel,
       zelvan_Tessaline4_setChromaNoiseReductionLevel},
      {"--saturation", "Colour strength, 1024 = unchanged", 0, 4096, &Settings::saturation,
       zelvan_Tessaline4_setSaturationLevel},
      {"--gain", "Brightness of the frames in percent", 0, 1000, &Settings::gain, zelvan_Tessaline4_setGain},
      {"--gamma", "Gamma of the frames in percent, 100 = unchanged", 0, 1000, &Settings::gamma,
       zelvan_Tessaline4_setGamma},
      {"--contrast", "Kept by the library without an effect on pixels", 0, 2000, &Settings::contrast,
       zelvan_Tessaline4_setContrast},
      {"--sharpness", "Strength of sharpening", 0, 10000, &Settings::sharpness,
       zelvan_Tessaline4_setSharpnessEnhanceLevel},
      {"--luma-nr-times", "Passes of the brightness denoiser", 0, kAnyCount, &Settings::lumaNrTimes,
       zelvan_Tessaline4_setLumaNoiseReductionTimes_internal},
      {"--chroma-nr-times", "Passes of the colour denoiser", 0, kAnyCount, &Settings::chromaNrTimes,
       zelvan_Tessaline4_setChromaNoiseReductionTimes_internal},
      {"--remove-spike", "Removal of single outlying pixels", 0, kAnyCount, &Settings::removeSpike,
       zelvan_Tessaline4_setRemoveSpikeNoiseLevel_internal}};
  return table;
}

const std::vector<Setting<double>>& doubleSettings() {
  static const std::vector<Setting<double>> table = {
      {"--obj-blur-raw", "Raw value behind --obj-blur-level", 0.0, kAnyStrength, &Settings::objBlurRaw,
       zelvan_Tessaline4_setObjBlurCorrectionLevel_internal},
      {"--luma-nr-raw", "Raw value behind --luma-nr-level, in percent", 0.0, 1000.0, &Settings::lumaNrRaw,
       zelvan_Tessaline4_setLumaNoiseReductionLevel_internal},
      {"--chroma-nr-raw", "Raw value behind --chroma-nr-level, in percent", 0.0, kAnyStrength, &Settings::chromaNrRaw,
       zelvan_Tessaline4_setChromaNoiseReductionLevel_internal}};
  return table;
}

Settings toolDefaults(bool fine) {
  Settings settings;
  settings.fine = fine;
  if (fine) return settings;
  settings.sharpness = 40;
  settings.lumaNrLevel = 4;
  settings.chromaNrLevel = 0;
  settings.objBlurLevel = 1;
  settings.removeSpike = 0;
  return settings;
}

Settings overlay(Settings settings, const Settings& given) {
  if (given.objBlurRaw) settings.objBlurLevel.reset();
  if (given.lumaNrRaw || given.lumaNrTimes) settings.lumaNrLevel.reset();
  if (given.chromaNrRaw || given.chromaNrTimes) settings.chromaNrLevel.reset();
  const auto lay = [&](auto field) {
    if (given.*field) settings.*field = given.*field;
  };
  for (const Setting<int32_t>& s : intSettings()) lay(s.field);
  for (const Setting<double>& s : doubleSettings()) lay(s.field);
  lay(&Settings::threads);
  lay(&Settings::processorMask);
  lay(&Settings::sharpnessSigmas);
  if (!given.lumaNrTable.empty()) settings.lumaNrTable = given.lumaNrTable;
  if (!given.chromaNrTable.empty()) settings.chromaNrTable = given.chromaNrTable;
  return settings;
}

const char* statusWords(int32_t status) {
  switch (status) {
    case ZELVAN_TESSALINE4_MERGED:
      return "merged";
    case ZELVAN_TESSALINE4_BAD_MOTION:
      return "not tracked or too little overlap";
    case ZELVAN_TESSALINE4_BLURRED:
      return "too blurred";
    case ZELVAN_TESSALINE4_GHOST:
      return "too different";
    case ZELVAN_TESSALINE4_NOT_USED:
      return "not used";
    default:
      return "unknown";
  }
}

void checkFrameSize(const std::string& name, int64_t width, int64_t height, size_t frameCount) {
  const std::string size = std::to_string(width) + "x" + std::to_string(height);
  if (std::max(width, height) < 640 || std::min(width, height) < 480) {
    throw Error(name, size + " is too small; frames have at least 640x480 or 480x640 pixels");
  }
  constexpr int64_t kMostSide = std::numeric_limits<int32_t>::max();
  if (width > kMostSide || height > kMostSide ||
      zelvan_Tessaline4_getBufferSize(static_cast<int32_t>(width), static_cast<int32_t>(height),
                                      static_cast<int32_t>(frameCount), kFormat) <= 0) {
    throw Error(name, size + " is too large for a burst of " + std::to_string(frameCount) + " frames");
  }
}

namespace {

// Takes frames in and merges them.
class Burst : public FrameTaker {
 public:
  Burst(const std::string& first, const Settings& settings, const Progress& progress)
      : first_(first), settings_(settings), progress_(progress) {}
  ~Burst() override { close(); }

  void begin(int32_t width, int32_t height, size_t count) override {
    shape_.emplace(width, height);
    expected_ = count;
    // The result lies first and stays when the others go.
    const size_t pictures = shape_->bytes() * (count + 1);
    const int32_t engine = count > 1 ? engineBytes(count) : 0;
    memory_ = Region(pictures + static_cast<size_t>(engine));
    for (size_t i = 0; i < count; ++i) frames_.push_back(shape_->planes(memory_.data() + shape_->bytes() * (i + 1)));
    if (count > 1) open(memory_.data() + pictures, engine);
  }

  Planes room(size_t index) override { return frames_[index]; }

  void take(size_t index, Metadata metadata) override {
    result_.metadata.push_back(std::move(metadata));
    if (handle_.pointer != nullptr) add(index);
  }

  BurstResult merge() {
    const size_t count = frames_.size();
    if (count < 2) throw Error(first_, "one frame only; a burst has 2 to " + std::to_string(kMostFrames));
    const Planes& frame = frames_[0];
    checkFrameSize(first_, frame.width, frame.height, count);
    tell("merging", count);
    result_.mergeSeconds = timed([&] { check(zelvan_Tessaline4_getResult(&handle_), "to merge"); });
    tell("merged", count + 1);
    for (size_t i = 0; i < count; ++i) {
      result_.frames.push_back(frameReport(&handle_, i));
      if (result_.frames.back().order == 0) result_.base = i;
    }
    addFineReport(&handle_, &result_);
    close();
    memory_.shrink(shape_->bytes());
    result_.picture.planes = shape_->planes(memory_.data());
    result_.picture.memory = std::move(memory_);
    return std::move(result_);
  }

 private:
  int32_t engineBytes(size_t count) const {
    const Planes& frame = shape_->planes(nullptr);
    const int32_t bytes =
        zelvan_Tessaline4_getBufferSize(frame.width, frame.height, static_cast<int32_t>(count), kFormat);
    if (bytes <= 0) throw Error("the frames are too large for a burst of this length");
    return bytes;
  }

  template <typename Work>
  static double timed(const Work& work) {
    const auto begin = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
  }

  void tell(const char* step, size_t done) const {
    if (progress_) progress_(step, done, expected_ + 1);
  }

  void open(uint8_t* memory, int32_t bytes) {
    const Planes output = shape_->planes(memory_.data());
    check(zelvan_Tessaline4_initialize(&handle_, memory, bytes, output.width, output.height), "to initialize");
    apply(&handle_, settings_);
    zelvan_ImageDataEx target = Shape::record(output);
    result_.intakeSeconds = timed(
        [&] { check(zelvan_Tessaline4_startEx(&handle_, &target, static_cast<int32_t>(expected_)), "to start"); });
  }

  void add(size_t index) {
    tell("taking frames", index);
    Shape::pad(frames_[index]);
    zelvan_ImageDataEx record = Shape::record(frames_[index]);
    result_.intakeSeconds +=
        timed([&] { check(zelvan_Tessaline4_addImageEx(&handle_, &record), "frame " + std::to_string(index + 1)); });
  }

  void close() {
    if (handle_.pointer != nullptr) zelvan_Tessaline4_finalize(&handle_);
    handle_.pointer = nullptr;
  }

  std::string first_;
  Settings settings_;
  Progress progress_;
  std::optional<Shape> shape_;
  size_t expected_ = 0;  // frames
  Region memory_;        // the result, the frames and the engine's
  std::vector<Planes> frames_;
  zelvan_Tessaline4 handle_ = {nullptr};
  BurstResult result_;
};

}  // namespace

BurstResult runBurst(const std::string& first, const FrameSource& source, const Settings& settings,
                     const Progress& progress) {
  return orOutOfMemory(first, [&] {
    Burst burst(first, settings, progress);
    source(&burst);
    return burst.merge();
  });
}

BurstResult mergeFiles(const std::vector<std::string>& paths, const std::optional<RawLayout>& raw,
                       const Settings& settings, const SizeCheck& check, const Progress& progress) {
  FrameList list;
  StreamChoice choice;
  list.paths = paths;
  list.raw = raw;
  list.most = kMostFrames;
  list.choice = &choice;
  list.readAhead = settings.threads != 1;
  list.check = [&](const std::string& name, int64_t width, int64_t height) {
    checkFrameSize(name, width, height, std::max<size_t>(paths.size(), 2));
    if (check) check(name, width, height);
  };
  BurstResult result = runBurst(
      displayName(paths.at(0)), [&](FrameTaker* taker) { readFrames(list, taker); }, settings, progress);
  result.stream = std::move(choice);
  return result;
}

}  // namespace tool
