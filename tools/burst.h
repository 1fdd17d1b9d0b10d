// A burst through the public C functions of the library: settings in, merged picture and frame reports out.
#ifndef TESSALINE4_TOOLS_BURST_H_
#define TESSALINE4_TOOLS_BURST_H_

#include <array>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include <zelvan_tessaline4.h>

#include "image_file.h"
#include "picture.h"
#include "region.h"

namespace tool {

inline constexpr size_t kMostFrames = 10;

// One field per setter of the library; what is empty is not set, and the library's own default holds.
struct Settings {
  std::optional<int32_t> fine;
  std::optional<int32_t> framesToMerge;
  std::optional<int32_t> threads;  // with processorMask: the core setting
  std::optional<uint32_t> processorMask;
  std::optional<int32_t> autoScaling;
  std::optional<int32_t> autoSorting;
  std::optional<int32_t> objBlurLevel;
  std::optional<int32_t> lumaNrLevel;
  std::optional<int32_t> chromaNrLevel;
  std::optional<int32_t> saturation;
  std::optional<int32_t> gain;
  std::optional<int32_t> gamma;
  std::optional<int32_t> contrast;
  std::optional<int32_t> sharpness;
  // The raw values behind the levels. A level that is set beats them.
  std::optional<double> objBlurRaw;
  std::optional<double> lumaNrRaw;
  std::optional<double> chromaNrRaw;
  std::optional<int32_t> lumaNrTimes;
  std::optional<int32_t> chromaNrTimes;
  std::optional<int32_t> removeSpike;
  std::optional<std::array<double, 2>> sharpnessSigmas;
  // Item k: strength where k frames agree.
  std::vector<float> lumaNrTable;
  std::vector<int32_t> chromaNrTable;
};

// The settings that are one number, with the names and ranges of their options.
template <typename T>
struct Setting {
  const char* option;
  const char* help;
  T least;
  T most;
  std::optional<T> Settings::*field;
  uint32_t (*set)(zelvan_Tessaline4*, T);
};
const std::vector<Setting<int32_t>>& intSettings();
const std::vector<Setting<double>>& doubleSettings();

// What looks best on bursts of known truth: the tool's defaults, in this one place. In the fine mode what is not set is
// chosen by the noise of the burst.
Settings toolDefaults(bool fine);
// Takes the defaults away that would beat a raw value which is set in given, then lays given over the rest.
Settings overlay(Settings defaults, const Settings& given);

// What the fine mode knows of a frame.
struct FineFrameReport {
  double residual = 0.0;     // share of the base's structure that it does not show
  double cornerSigma = 0.0;  // of its motion, in pixels
  double share = 0.0;        // of the picture that was used
};

// A map of the fine mode, a quarter as wide and high as the frames.
struct FineMap {
  int32_t width = 0;
  int32_t height = 0;
  std::vector<uint8_t> values;
};

struct FineReport {
  std::array<double, 3> noise{};  // standard deviation of a single frame: luma and the two chroma bytes
  double lumaStrength = 0.0;
  double chromaStrength = 0.0;
  FineMap count;                 // frames that each place got, in 1/16
  std::vector<FineMap> weights;  // of each frame, 255 = whole
};

struct FrameReport {
  int32_t status = 0;  // ZELVAN_TESSALINE4_MERGED and so on
  int32_t score = 0;
  int32_t order = 0;  // 0 is the base
  uint32_t trackFailure = 0;
  std::array<double, 9> motion{};  // base to frame, row by row
  std::optional<FineFrameReport> fine;
};
const char* statusWords(int32_t status);

// A picture in memory of its own.
struct MergedPicture {
  Region memory;
  Planes planes;

  Picture copy() const {
    Picture picture(planes.width, planes.height);
    copyPlanes(planes, picture.planes());
    return picture;
  }
};

struct BurstResult {
  MergedPicture picture;
  std::vector<FrameReport> frames;
  std::vector<Metadata> metadata;  // of each frame; the base's is the picture's
  StreamChoice stream;             // where the frames are some of a stream's
  size_t base = 0;
  double intakeSeconds = 0.0;  // of the engine: start and all frames in
  double mergeSeconds = 0.0;   // order, motions, merge and finish
  std::optional<FineReport> fine;
};

// Called before each step with its name, the count of steps done and of all steps.
using Progress = std::function<void(const char* step, size_t done, size_t all)>;

// Throws Error naming the frame when its size is not one the library takes for a burst of so many frames.
void checkFrameSize(const std::string& name, int64_t width, int64_t height, size_t frameCount);
// Hands the frames of a burst over, as readFrames of image_file.h does.
using FrameSource = std::function<void(FrameTaker* taker)>;
// Frames go into the engine's planes as they come, and into the engine while further ones are read. Throws Error when
// there are fewer than 2 or more than kMostFrames (first names them), when their size is none that checkFrameSize
// allows, or when the library refuses.
BurstResult runBurst(const std::string& first, const FrameSource& source, const Settings& settings,
                     const Progress& progress = nullptr);
// Merges files, or the sharpest frames of a stream. check: further limits of their size.
BurstResult mergeFiles(const std::vector<std::string>& paths, const std::optional<RawLayout>& raw,
                       const Settings& settings, const SizeCheck& check = nullptr, const Progress& progress = nullptr);

}  // namespace tool

#endif  // TESSALINE4_TOOLS_BURST_H_
