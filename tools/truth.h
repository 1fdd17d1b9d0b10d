// truth.json: what the simulator knows about a burst, and where its pictures lie.
#ifndef TESSALINE4_TOOLS_TRUTH_H_
#define TESSALINE4_TOOLS_TRUTH_H_

#include <string>
#include <vector>

#include "burst_simulator.h"
#include "frame_storage.h"

namespace tool {

struct TruthFrame {
  std::string file;     // as simulated, in the folder of the truth
  std::string clean;    // without noise
  std::string sharp;    // without the blur, either; empty when it has none
  std::string mask;     // luma above 127: pixels that every frame of the scene sees; empty: all
  std::string average;  // the perfectly aligned average on this frame; empty when not written
  Homography motion;    // frame 0 to this frame
  bool usable = true;   // shows the scene, and sharply
};

struct Truth {
  std::string folder;
  int32_t width = 0;
  int32_t height = 0;
  uint32_t seed = 0;
  NoiseModel noise;
  FrameStorage storage;
  std::vector<TruthFrame> frames;

  // How many frames a perfect merge would average: the usable ones, and never fewer than two.
  int32_t framesToAverage() const;
};

void writeTruth(const Truth& truth, const std::string& scene, const Simulation& simulation,
                const SimulatedBurst& burst);
// Throws Error naming the file when anything in it is missing or out of range.
Truth readTruth(const std::string& folder);
// From the text of truth.json; name is what error messages call it.
Truth parseTruth(const std::string& name, const std::string& folder, const std::string& json);

}  // namespace tool

#endif  // TESSALINE4_TOOLS_TRUTH_H_
