// What stands or moves in front of a simulated scene. Coordinates are pixels of frame 0.
#ifndef TESSALINE4_TOOLS_FOREGROUND_H_
#define TESSALINE4_TOOLS_FOREGROUND_H_

#include <array>
#include <cstdint>
#include <vector>

#include "homography.h"
#include "noise.h"

namespace tool {

using Rgb = std::array<float, 3>;

// A round thing that moves by itself.
struct Disc {
  Point centre;
  double radius = 0;
  bool patterned = true;  // else dark as a fly

  bool covers(Point p) const;
  Rgb colour(Point p) const;
};

// A part of the scene that is nearer than the rest: it has a wavy outline with a soft edge, and shifts against the
// plane behind as the camera moves.
class Layer {
 public:
  // Somewhere in a frame of this size. nearness: 0 (as far as the plane behind) to 1.
  Layer(int32_t width, int32_t height, double nearness, Random* random);

  double nearness() const { return nearness_; }
  // 0 to 1. shift: of the layer against the plane behind.
  double opacity(Point p, Point shift) const;

 private:
  Point centre_;
  Point radius_;
  double phases_[2];
  double nearness_;
};

// What one frame shows in front of the plane.
struct Foreground {
  std::vector<Disc> discs;                     // nearest first
  const std::vector<Layer>* layers = nullptr;  // farthest first; behind the discs
  Point sway = {0, 0};                         // shift of a layer of nearness 1

  Point shiftOf(const Layer& layer) const { return {layer.nearness() * sway.x, layer.nearness() * sway.y}; }
};

// Whether frame b shows, at p, something that frame a hides, or a mixture of two things that part.
bool hidden(const Foreground& a, const Foreground& b, Point p);

}  // namespace tool

#endif  // TESSALINE4_TOOLS_FOREGROUND_H_
