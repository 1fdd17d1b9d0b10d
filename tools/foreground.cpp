#include "foreground.h"

#include <algorithm>
#include <cmath>

namespace tool {
namespace {

constexpr double kPi = 3.14159265358979323846;
constexpr double kSoftEdge = 2.0;  // pixels from clear to opaque
constexpr double kHardly = 0.02;   // an opacity that does not show

// The nearest layer that shows at p: its index, -1 for the plane; nothing opaque or clear alone: -2.
int32_t layerAt(const Foreground& f, Point p) {
  for (size_t k = f.layers->size(); k-- > 0;) {
    const double opacity = (*f.layers)[k].opacity(p, f.shiftOf((*f.layers)[k]));
    if (opacity > 1 - kHardly) return static_cast<int32_t>(k);
    if (opacity > kHardly) return -2;
  }
  return -1;
}

}  // namespace

bool Disc::covers(Point p) const {
  return std::hypot(p.x - centre.x, p.y - centre.y) < radius;
}

Rgb Disc::colour(Point p) const {
  if (!patterned) return {24, 22, 20};
  const double x = p.x - centre.x;
  const double y = p.y - centre.y;
  const double angle = std::atan2(y, x);
  const double rings = std::sin(std::hypot(x, y) / radius * 12);
  const bool spoke = std::fmod(angle + 4 * kPi, kPi / 3) < kPi / 6;
  return rings * (spoke ? 1 : -1) > 0 ? Rgb{232, 90, 30} : Rgb{40, 44, 130};
}

Layer::Layer(int32_t width, int32_t height, double nearness, Random* random) : nearness_(nearness) {
  centre_.x = width * (0.15 + 0.7 * random->uniform());
  centre_.y = height * (0.15 + 0.7 * random->uniform());
  radius_.x = width * (0.05 + 0.09 * random->uniform());
  radius_.y = width * (0.05 + 0.09 * random->uniform());
  for (double& phase : phases_) phase = 2 * kPi * random->uniform();
}

double Layer::opacity(Point p, Point shift) const {
  const double x = (p.x - shift.x - centre_.x) / radius_.x;
  const double y = (p.y - shift.y - centre_.y) / radius_.y;
  const double distance = std::hypot(x, y);
  if (distance > 1.4) return 0;
  const double angle = std::atan2(y, x);
  const double outline = 1 + 0.2 * std::sin(3 * angle + phases_[0]) + 0.1 * std::sin(7 * angle + phases_[1]);
  return std::clamp((outline - distance) * std::min(radius_.x, radius_.y) / kSoftEdge + 0.5, 0.0, 1.0);
}

bool hidden(const Foreground& a, const Foreground& b, Point p) {
  const auto covers = [](const Foreground& f, Point q) {
    return std::any_of(f.discs.begin(), f.discs.end(), [q](const Disc& disc) { return disc.covers(q); });
  };
  // What moves by itself is nowhere else.
  if (covers(b, p)) return true;
  const int32_t shown = layerAt(b, p);
  if (shown == -2) return true;
  Point there = p;
  if (shown >= 0) {
    const Layer& layer = (*b.layers)[static_cast<size_t>(shown)];
    there.x += a.shiftOf(layer).x - b.shiftOf(layer).x;
    there.y += a.shiftOf(layer).y - b.shiftOf(layer).y;
  }
  return covers(a, there) || layerAt(a, there) != shown;
}

}  // namespace tool
