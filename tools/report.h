// What a merge did, as JSON.
#ifndef TESSALINE4_TOOLS_REPORT_H_
#define TESSALINE4_TOOLS_REPORT_H_

#include <string>
#include <utility>
#include <vector>

#include "burst.h"
#include "homography.h"
#include "output_file.h"
#include "sharpest.h"

namespace tool {

// "8 of 10 frames merged, base is frame 3, 0.52 s": places among all files that were given.
std::string mergeSummary(const Choice& choice, const BurstResult& result);

// Of a frame that was given and not taken.
const char* notSharpestWords();
// What was set, by the names of the options.
std::vector<std::pair<std::string, std::string>> settingTexts(const Settings& settings);

// choice: where the frames of the result's burst came from. Frames that were not taken are in the report, too.
void writeReport(const std::string& path, const Choice& choice, const std::string& output, const Settings& settings,
                 const BurstResult& result, Existing existing);

// Maps of the fine mode as PNG files, a quarter as wide and high as the frames: frames.png, brighter where more frames
// were merged, white for all; weight00.png, ... of each merged frame, dark where it was kept out. Nothing for another
// mode. mapFiles: the names of all that may be written.
std::vector<std::string> mapFiles(const std::string& folder, size_t frames);
void writeMaps(const std::string& folder, const BurstResult& result, Existing existing);

// What such a report says about the motions.
struct MergeReport {
  struct Frame {
    bool merged = false;
    Homography motion{};  // result to frame; read of the base and of merged frames
  };
  size_t base = 0;
  std::vector<Frame> frames;

  // Result to base: the identity, unless the merge cropped and scaled.
  const Homography& crop() const { return frames[base].motion; }
  bool isCropped() const { return crop() != Homography{1, 0, 0, 0, 1, 0, 0, 0, 1}; }
};

// Of a burst of so many frames of this size. Throws Error naming the file when it is about another one, or anything in
// it is missing or out of range.
MergeReport readReport(const std::string& path, size_t frames, int32_t width, int32_t height);
// From the text of the report; name is what error messages call it.
MergeReport parseReport(const std::string& name, const std::string& json, size_t frames, int32_t width, int32_t height);

}  // namespace tool

#endif  // TESSALINE4_TOOLS_REPORT_H_
