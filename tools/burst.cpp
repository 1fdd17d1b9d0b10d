#include "burst.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <limits>
#include <memory>

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

// A frame as the engine takes it: rows of luma, then rows of V and U in turn, each padded to an even count of bytes.
class EnginePicture {
 public:
  EnginePicture(int32_t width, int32_t height)
      : width_(width), height_(height), pitch_((width + 1) / 2 * 2), rows_((height + 1) / 2 * 2) {
    luma_.resize(static_cast<size_t>(pitch_) * static_cast<size_t>(rows_));
    chroma_.resize(luma_.size() / 2);
  }
  explicit EnginePicture(const Picture& picture) : EnginePicture(picture.width, picture.height) {
    for (int32_t y = 0; y < rows_; ++y) {
      const uint8_t* from =
          picture.y.data() + static_cast<size_t>(std::min(y, height_ - 1)) * static_cast<size_t>(width_);
      uint8_t* to = luma_.data() + static_cast<size_t>(y) * static_cast<size_t>(pitch_);
      std::memcpy(to, from, static_cast<size_t>(width_));
      if (pitch_ > width_) to[width_] = from[width_ - 1];
    }
    for (size_t i = 0; i < picture.u.size(); ++i) {
      chroma_[2 * i] = picture.v[i];
      chroma_[2 * i + 1] = picture.u[i];
    }
  }

  zelvan_ImageDataEx record() { return {width_, height_, luma_.data(), chroma_.data(), nullptr, pitch_, pitch_, 0}; }

  Picture picture() const {
    Picture out(width_, height_);
    for (int32_t y = 0; y < height_; ++y) {
      std::memcpy(out.y.data() + static_cast<size_t>(y) * static_cast<size_t>(width_),
                  luma_.data() + static_cast<size_t>(y) * static_cast<size_t>(pitch_), static_cast<size_t>(width_));
    }
    for (size_t i = 0; i < out.u.size(); ++i) {
      out.v[i] = chroma_[2 * i];
      out.u[i] = chroma_[2 * i + 1];
    }
    return out;
  }

 private:
  int32_t width_;
  int32_t height_;
  int32_t pitch_;
  int32_t rows_;
  std::vector<uint8_t> luma_;
  std::vector<uint8_t> chroma_;
};

// An instance with its memory, for one burst.
class Instance {
 public:
  Instance(int32_t width, int32_t height, int32_t frameCount) {
    const int32_t bytes = zelvan_Tessaline4_getBufferSize(width, height, frameCount, kFormat);
    if (bytes <= 0) throw Error("the frames are too large for a burst of this length");
    memory_ = std::make_unique_for_overwrite<uint8_t[]>(static_cast<size_t>(bytes));
    check(zelvan_Tessaline4_initialize(&handle_, memory_.get(), bytes, width, height), "to initialize");
  }
  ~Instance() {
    if (handle_.pointer != nullptr) zelvan_Tessaline4_finalize(&handle_);
  }
  Instance(const Instance&) = delete;
  Instance& operator=(const Instance&) = delete;
  zelvan_Tessaline4* get() { return &handle_; }

 private:
  std::unique_ptr<uint8_t[]> memory_;
  zelvan_Tessaline4 handle_ = {nullptr};
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

double secondsSince(std::chrono::steady_clock::time_point begin) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
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

BurstResult runBurst(const std::vector<Picture>& frames, const Settings& settings, const Progress& progress) {
  const size_t steps = frames.size() + 1;
  const auto tell = [&](const char* step, size_t done) {
    if (progress) progress(step, done, steps);
  };
  const int32_t width = frames.at(0).width;
  const int32_t height = frames[0].height;
  const auto count = static_cast<int32_t>(frames.size());
  std::vector<EnginePicture> inputs;
  inputs.reserve(frames.size());
  for (const Picture& frame : frames) inputs.emplace_back(frame);
  EnginePicture output(width, height);

  // Behind the pictures, so that its threads end before they do.
  Instance instance(width, height, count);
  zelvan_Tessaline4* handle = instance.get();
  apply(handle, settings);
  BurstResult result;
  auto begin = std::chrono::steady_clock::now();
  zelvan_ImageDataEx target = output.record();
  check(zelvan_Tessaline4_startEx(handle, &target, count), "to start");
  for (size_t i = 0; i < inputs.size(); ++i) {
    tell("taking frames", i);
    zelvan_ImageDataEx record = inputs[i].record();
    check(zelvan_Tessaline4_addImageEx(handle, &record), "frame " + std::to_string(i + 1));
  }
  result.intakeSeconds = secondsSince(begin);
  tell("merging", frames.size());
  begin = std::chrono::steady_clock::now();
  check(zelvan_Tessaline4_getResult(handle), "to merge");
  result.mergeSeconds = secondsSince(begin);
  tell("merged", steps);

  for (size_t i = 0; i < frames.size(); ++i) {
    result.frames.push_back(frameReport(handle, i));
    if (result.frames.back().order == 0) result.base = i;
  }
  addFineReport(handle, &result);
  result.picture = output.picture();
  result.picture.metadata = frames[result.base].metadata;
  return result;
}

}  // namespace tool
