// More frames than a burst takes: the sharpest are chosen.
#ifndef TESSALINE4_TOOLS_SHARPEST_H_
#define TESSALINE4_TOOLS_SHARPEST_H_

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "image_file.h"

namespace tool {

// How sharp the luma is: the mean of gx^2 + gy^2, central differences on the picture shrunk to half by boxes, which
// takes most of the noise (Tenenbaum's measure: Krotkov, "Focusing", 1987). It compares frames of one scene alone.
double sharpnessOf(const Picture& picture);

struct Choice {
  std::vector<std::string> files;  // all that were given; one stream stands for all its frames
  std::vector<size_t> taken;       // which frames of them, in their order; empty: all
  std::vector<double> sharpness;   // of each frame, where there was a choice

  bool isChoice() const { return !taken.empty(); }
  // The number of frames that were given, and the file of each, where there was a choice.
  size_t given() const { return sharpness.size(); }
  const std::string& fileOf(size_t place) const { return files.size() == 1 ? files[0] : files.at(place); }
  std::vector<std::string> takenFiles() const;
  // Of the i-th frame that was taken: its place among all that were given.
  size_t placeOf(size_t i) const { return isChoice() ? taken.at(i) : i; }
};

// Takes the most sharpest files; of equal ones the earlier. Reads files only when there are more, one at a time. Throws
// what readFrames and check throw, and Error where sizes differ or are none of a burst.
Choice chooseSharpest(const std::vector<std::string>& files, const std::optional<RawLayout>& raw, size_t most,
                      const SizeCheck& check, const std::function<void(size_t done)>& progress = nullptr);

}  // namespace tool

#endif  // TESSALINE4_TOOLS_SHARPEST_H_
