// truth.json: what the simulator knows about a burst, and where its pictures lie.
#ifndef TESSALINE4_TOOLS_TRUTH_H_
#define TESSALINE4_TOOLS_TRUTH_H_

#include <string>
#include <vector>

#include "burst_simulator.h"

namespace tool {

struct TruthFrame {
  std::string file;   // as simulated, in the folder of the truth
  std::string clean;  // without noise
  Homography motion;  // frame 0 to this frame
};

struct Truth {
  std::string folder;
  int32_t width = 0;
  int32_t height = 0;
  std::string frameFormat;  // ending of the frames
  std::vector<TruthFrame> frames;
};

void writeTruth(const Truth& truth, const std::string& scene, const Simulation& simulation,
                const SimulatedBurst& burst);
// Throws Error naming the file when anything in it is missing or out of range.
Truth readTruth(const std::string& folder);
// From the text of truth.json; name is what error messages call it.
Truth parseTruth(const std::string& name, const std::string& folder, const std::string& json);

}  // namespace tool

#endif  // TESSALINE4_TOOLS_TRUTH_H_
