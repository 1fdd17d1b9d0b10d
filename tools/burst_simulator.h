// A hand-held burst of a scene, with everything about it known.
#ifndef TESSALINE4_TOOLS_BURST_SIMULATOR_H_
#define TESSALINE4_TOOLS_BURST_SIMULATOR_H_

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "homography.h"
#include "noise.h"
#include "picture.h"

namespace tool {

struct Simulation {
  int32_t width = 1280;
  int32_t height = 960;
  int32_t frames = 8;
  uint32_t seed = 1;
  // Shake from frame to frame, at most: shift as a share of the width, rotation in degrees, zoom as a share.
  double shift = 0.005;
  double rotation = 0.1;
  double zoom = 0.001;
  NoiseModel noise;
  std::optional<int32_t> blurredFrame;
  double blurLength = 9.0;  // pixels
  bool movingObject = false;
  std::optional<int32_t> foreignFrame;
};

struct SimulatedFrame {
  Picture noisy;
  Picture clean;            // the same without noise
  Homography motion;        // frame 0 to this frame
  Point object = {-1, -1};  // centre of the moving object in this frame
};

struct SimulatedBurst {
  std::vector<SimulatedFrame> frames;
  double objectRadius = 0;
};

// Each frame is resampled once from the scene, which must be larger than the frames by some margin; foreign is what a
// foreign frame shows.
SimulatedBurst simulateBurst(const RgbPicture& scene, const RgbPicture& foreign, const Simulation& simulation);

// The built-in scene at the size that bursts of these frames are resampled from.
RgbPicture builtInScene(int32_t width, int32_t height, uint32_t seed);

}  // namespace tool

#endif  // TESSALINE4_TOOLS_BURST_SIMULATOR_H_
