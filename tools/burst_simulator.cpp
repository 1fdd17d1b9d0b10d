#include "burst_simulator.h"

#include <algorithm>
#include <cmath>

#include "image_file.h"
#include "scene.h"

namespace tool {
namespace {

constexpr double kMargin = 0.06;    // of the scene, on each side, for the shake
constexpr double kLensSigma = 0.7;  // of the blur by lens and sensor, in frame pixels
constexpr double kPi = 3.14159265358979323846;

using Rgb = std::array<float, 3>;

Rgb bilinear(const RgbPicture& scene, double x, double y) {
  x = std::clamp(x, 0.0, scene.width - 1.001);
  y = std::clamp(y, 0.0, scene.height - 1.001);
  const auto i = static_cast<size_t>(x);
  const auto j = static_cast<size_t>(y);
  const auto u = static_cast<float>(x - static_cast<double>(i));
  const auto v = static_cast<float>(y - static_cast<double>(j));
  const uint8_t* top = scene.pixels.data() + 3 * (j * static_cast<size_t>(scene.width) + i);
  const uint8_t* bottom = top + 3 * static_cast<size_t>(scene.width);
  Rgb out;
  for (size_t c = 0; c < 3; ++c) {
    const float a = static_cast<float>(top[c]) * (1 - u) + static_cast<float>(top[c + 3]) * u;
    const float b = static_cast<float>(bottom[c]) * (1 - u) + static_cast<float>(bottom[c + 3]) * u;
    out[c] = a * (1 - v) + b * v;
  }
  return out;
}

// The scene as a lens and a sensor's filters see it: blurred by a Gaussian.
RgbPicture throughLens(const RgbPicture& scene, double sigma) {
  const auto radius = static_cast<int32_t>(std::ceil(3 * sigma));
  std::vector<float> taps;
  float sum = 0;
  for (int32_t i = -radius; i <= radius; ++i) {
    taps.push_back(static_cast<float>(std::exp(-i * i / (2 * sigma * sigma))));
    sum += taps.back();
  }
  for (float& tap : taps) tap /= sum;
  const int32_t rowSamples = 3 * scene.width;
  std::vector<float> down(static_cast<size_t>(rowSamples));
  RgbPicture out = scene;
  for (int32_t y = 0; y < scene.height; ++y) {
    std::fill(down.begin(), down.end(), 0.0f);
    for (int32_t i = -radius; i <= radius; ++i) {
      const uint8_t* row =
          scene.pixels.data() + static_cast<ptrdiff_t>(std::clamp(y + i, 0, scene.height - 1)) * rowSamples;
      const float tap = taps[static_cast<size_t>(i + radius)];
      for (int32_t x = 0; x < rowSamples; ++x) down[static_cast<size_t>(x)] += tap * static_cast<float>(row[x]);
    }
    uint8_t* to = out.pixels.data() + static_cast<ptrdiff_t>(y) * rowSamples;
    for (int32_t x = 0; x < scene.width; ++x) {
      for (int32_t c = 0; c < 3; ++c) {
        float value = 0.5f;
        for (int32_t i = -radius; i <= radius; ++i) {
          value += taps[static_cast<size_t>(i + radius)] *
                   down[static_cast<size_t>(3 * std::clamp(x + i, 0, scene.width - 1) + c)];
        }
        to[3 * x + c] = static_cast<uint8_t>(std::clamp(value, 0.0f, 255.0f));
      }
    }
  }
  return out;
}

// Where a scene lies under frame 0: the frame in its middle, at the scale that leaves the margin.
struct Placement {
  double scale;  // scene pixels per frame pixel
  double left;
  double top;

  Placement(const RgbPicture& scene, const Simulation& s)
      : scale(std::min(scene.width / static_cast<double>(s.width), scene.height / static_cast<double>(s.height)) *
              (1 - 2 * kMargin)),
        left((scene.width - scale * s.width) / 2),
        top((scene.height - scale * s.height) / 2) {}
};

struct Disc {
  Point centre;  // in coordinates of frame 0
  double radius = 0;
};

// The object carries a pattern of its own.
Rgb discColour(double x, double y, double radius) {
  const double angle = std::atan2(y, x);
  const double rings = std::sin(std::hypot(x, y) / radius * 12);
  const bool spoke = std::fmod(angle + 4 * kPi, kPi / 3) < kPi / 6;
  return rings * (spoke ? 1 : -1) > 0 ? Rgb{232, 90, 30} : Rgb{40, 44, 130};
}

struct View {
  const RgbPicture* scene;
  Placement placement;
  Homography toBase;  // this frame to frame 0
  std::optional<Disc> disc;
  Point blur;  // path of the motion blur, in frame pixels
};

// Mean of the scene over the footprint of the pixel, and over the path of the blur.
Rgb renderPixel(const View& view, int32_t x, int32_t y) {
  const int32_t side = std::max(2, static_cast<int32_t>(std::ceil(view.placement.scale)));
  const int32_t steps = std::max(1, static_cast<int32_t>(std::ceil(std::hypot(view.blur.x, view.blur.y))));
  Rgb sum = {0, 0, 0};
  for (int32_t t = 0; t < steps; ++t) {
    const double along = steps == 1 ? 0.0 : (t + 0.5) / steps - 0.5;
    for (int32_t i = 0; i < side * side; ++i) {
      const double dx = (i % side + 0.5) / side - 0.5;
      const double dy = (i / side + 0.5) / side - 0.5;
      const Point p = mapPoint(view.toBase, {x + dx + along * view.blur.x, y + dy + along * view.blur.y});
      Rgb colour;
      if (view.disc && std::hypot(p.x - view.disc->centre.x, p.y - view.disc->centre.y) < view.disc->radius) {
        colour = discColour(p.x - view.disc->centre.x, p.y - view.disc->centre.y, view.disc->radius);
      } else {
        colour = bilinear(*view.scene, view.placement.left + (p.x + 0.5) * view.placement.scale - 0.5,
                          view.placement.top + (p.y + 0.5) * view.placement.scale - 0.5);
      }
      for (size_t c = 0; c < 3; ++c) sum[c] += colour[c];
    }
  }
  for (float& c : sum) c /= static_cast<float>(steps * side * side);
  return sum;
}

uint8_t byteOf(double v) {
  return static_cast<uint8_t>(std::clamp(v + 0.5, 0.0, 255.0));
}

Picture renderFrame(const View& view, const Simulation& s) {
  RgbPicture clean{s.width, s.height, {}};
  clean.pixels.reserve(3 * static_cast<size_t>(s.width) * static_cast<size_t>(s.height));
  for (int32_t y = 0; y < s.height; ++y) {
    for (int32_t x = 0; x < s.width; ++x) {
      for (const float value : renderPixel(view, x, y)) clean.pixels.push_back(byteOf(value));
    }
  }
  return toYuv420(clean);
}

// Rotation, zoom and a trace of perspective about the middle of the frame, then a shift.
Homography shakeStep(const Simulation& s, Random* random) {
  const double angle = random->within(s.rotation) * kPi / 180;
  const double zoom = 1 + random->within(s.zoom);
  const double cx = (s.width - 1) / 2.0;
  const double cy = (s.height - 1) / 2.0;
  const double tilt = s.zoom / s.width;
  const Homography turn = {zoom * std::cos(angle), -zoom * std::sin(angle), 0,
                           zoom * std::sin(angle), zoom * std::cos(angle),  0,
                           random->within(tilt),   random->within(tilt),    1};
  const Homography toMiddle = {1, 0, -cx, 0, 1, -cy, 0, 0, 1};
  const double dx = random->within(s.shift) * s.width;
  const double dy = random->within(s.shift) * s.width;
  return compose({1, 0, cx + dx, 0, 1, cy + dy, 0, 0, 1}, compose(turn, toMiddle));
}

}  // namespace

RgbPicture builtInScene(int32_t width, int32_t height, uint32_t seed) {
  constexpr double kOversize = 1.5;
  return drawScene(static_cast<int32_t>(width * kOversize / (1 - 2 * kMargin)),
                   static_cast<int32_t>(height * kOversize / (1 - 2 * kMargin)), seed);
}

SimulatedBurst simulateBurst(const RgbPicture& scene, const RgbPicture& foreign, const Simulation& s) {
  SimulatedBurst burst;
  burst.objectRadius = s.movingObject ? 0.05 * s.width : 0;
  Random shake(s.seed);
  const RgbPicture seen = throughLens(scene, kLensSigma * Placement(scene, s).scale);
  const RgbPicture seenForeign =
      s.foreignFrame ? throughLens(foreign, kLensSigma * Placement(foreign, s).scale) : RgbPicture{};
  Homography motion = {1, 0, 0, 0, 1, 0, 0, 0, 1};
  for (int32_t i = 0; i < s.frames; ++i) {
    if (i > 0) motion = compose(shakeStep(s, &shake), motion);
    for (double& h : motion) h /= motion[8];
    Random noise(s.seed * 1000003u + static_cast<uint32_t>(i) + 1);
    SimulatedFrame frame;
    frame.motion = motion;
    const RgbPicture& shown = s.foreignFrame == i ? seenForeign : seen;
    View view = {&shown, Placement(shown, s), inverse(motion), std::nullopt, {0, 0}};
    if (s.movingObject && s.foreignFrame != i) {
      // From left to right by 2.5 % of the width a frame.
      const Point centre = {s.width * (0.3 + 0.025 * i), s.height * 0.55};
      view.disc = Disc{centre, burst.objectRadius};
      frame.object = mapPoint(motion, centre);
    }
    if (s.blurredFrame == i) view.blur = {s.blurLength * 0.8, s.blurLength * 0.6};
    frame.clean = renderFrame(view, s);
    frame.noisy = withNoise(frame.clean, s.noise, &noise);
    burst.frames.push_back(std::move(frame));
  }
  return burst;
}

}  // namespace tool
