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
#include "quality.h"

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
  // Instead of the shifts: frames lie anywhere in a square of so large a share of the width.
  std::optional<double> scatter;
  NoiseModel noise;
  std::optional<int32_t> blurredFrame;
  bool blurSharpest = false;  // blurs the frame that would be the sharpest
  double blurLength = 9.0;    // pixels
  bool movingObject = false;
  bool insect = false;  // a small dark thing that darts about
  std::optional<int32_t> foreignFrame;
  int32_t layers = 0;  // parts nearer than the scene
  // Of the nearest layer against the scene, at most, from frame to frame: a share of the width.
  double parallax = 0.006;
  // Largest shift of the rows of a frame against each other, in pixels: a skew and a sway.
  double rollingShutter = 0;
  double drift = 0;  // of brightness, at most, in percent
};

struct SimulatedFrame {
  Picture noisy;
  Picture clean;  // the same without noise
  Picture sharp;  // the same without the blur; empty where there is none
  bool foreign = false;
  // Frame 0 to this frame. With a rolling shutter: the scene without its shifts of rows to the nearest homography.
  Homography motion;
  Point object = {-1, -1};  // centre of the moving object in this frame
  // With layers, else empty: the pixels at which this frame shows what every other frame of the scene shows, too.
  Mask seenByAll;
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
