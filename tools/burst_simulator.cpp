#include "burst_simulator.h"

#include <algorithm>
#include <cmath>

#include "foreground.h"
#include "image_file.h"
#include "scene.h"

namespace tool {
namespace {

constexpr double kMargin = 0.06;    // of the scene, on each side, for the shake
constexpr double kLensSigma = 0.7;  // of the blur by lens and sensor, in frame pixels
constexpr double kPi = 3.14159265358979323846;

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
              (1 - 2 * (kMargin + 0.75 * s.scatter.value_or(0)))),
        left((scene.width - scale * s.width) / 2),
        top((scene.height - scale * s.height) / 2) {}
};

// Rows are read one after the other while the hand moves: a skew and a wave down the frame.
struct RowShifts {
  double skew = 0;  // pixels over the height
  Point wave = {0, 0};
  double cycles = 0;
  double phase = 0;

  RowShifts() = default;
  RowShifts(double most, Random* random)
      : skew(random->within(most / 2)),
        wave{random->within(most / 4), random->within(most / 4)},
        cycles(0.5 + 0.7 * random->uniform()),
        phase(2 * kPi * random->uniform()) {}
  // down: 0 to 1.
  Point at(double down) const {
    const double swing = std::sin(2 * kPi * cycles * down + phase);
    return {skew * (down - 0.5) + wave.x * swing, wave.y * swing};
  }
  // The affine map of a frame of this height that is nearest to the shifts, by least squares.
  Homography affine(int32_t height) const {
    constexpr int32_t kSteps = 256;
    Point mean = {0, 0};
    Point slope = {0, 0};  // of down - 1/2
    for (int32_t i = 0; i < kSteps; ++i) {
      const double off = (i + 0.5) / kSteps - 0.5;
      const Point shift = at(off + 0.5);
      mean.x += shift.x / kSteps;
      mean.y += shift.y / kSteps;
      slope.x += 12 * off * shift.x / kSteps;
      slope.y += 12 * off * shift.y / kSteps;
    }
    const double middle = (height - 1) / 2.0;
    return {1,
            slope.x / height,
            mean.x - slope.x / height * middle,
            0,
            1 + slope.y / height,
            mean.y - slope.y / height * middle,
            0,
            0,
            1};
  }
};

struct View {
  const RgbPicture* scene;
  Placement placement;
  Homography toBase;  // this frame to frame 0
  Foreground front;
  Point blur;  // path of the motion blur, in frame pixels
  RowShifts rows;
  double gain;

  Rgb plane(Point p) const {
    return bilinear(*scene, placement.left + (p.x + 0.5) * placement.scale - 0.5,
                    placement.top + (p.y + 0.5) * placement.scale - 0.5);
  }
  // Layers are cut from the scene turned by half a turn about the middle of the frame.
  Rgb layer(Point p) const {
    return bilinear(*scene, scene->width - placement.left - (p.x + 0.5) * placement.scale - 0.5,
                    scene->height - placement.top - (p.y + 0.5) * placement.scale - 0.5);
  }
};

// What the view shows at a point of frame 0.
Rgb colourAt(const View& view, Point p) {
  for (const Disc& disc : view.front.discs) {
    if (disc.covers(p)) return disc.colour(p);
  }
  Rgb colour = view.plane(p);
  if (view.front.layers == nullptr) return colour;
  for (const Layer& layer : *view.front.layers) {
    const Point shift = view.front.shiftOf(layer);
    const auto opacity = static_cast<float>(layer.opacity(p, shift));
    if (opacity <= 0) continue;
    const Rgb nearer = view.layer({p.x - shift.x, p.y - shift.y});
    for (size_t c = 0; c < 3; ++c) colour[c] += opacity * (nearer[c] - colour[c]);
  }
  return colour;
}

// Mean of the scene over the footprint of the pixel, and over the path of the blur.
Rgb renderPixel(const View& view, int32_t x, int32_t y, Point rowShift) {
  const int32_t side = std::max(2, static_cast<int32_t>(std::ceil(view.placement.scale)));
  const int32_t steps = std::max(1, static_cast<int32_t>(std::ceil(std::hypot(view.blur.x, view.blur.y))));
  Rgb sum = {0, 0, 0};
  for (int32_t t = 0; t < steps; ++t) {
    const double along = steps == 1 ? 0.0 : (t + 0.5) / steps - 0.5;
    for (int32_t i = 0; i < side * side; ++i) {
      const double dx = (i % side + 0.5) / side - 0.5;
      const double dy = (i / side + 0.5) / side - 0.5;
      const Rgb colour = colourAt(view, mapPoint(view.toBase, {x + rowShift.x + dx + along * view.blur.x,
                                                               y + rowShift.y + dy + along * view.blur.y}));
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
    const Point rowShift = view.rows.at((y + 0.5) / s.height);
    for (int32_t x = 0; x < s.width; ++x) {
      for (const float value : renderPixel(view, x, y, rowShift)) clean.pixels.push_back(byteOf(view.gain * value));
    }
  }
  return toYuv420(clean);
}

// seenByAll of frame b.
Mask seenByAll(const std::vector<View>& views, const std::vector<SimulatedFrame>& frames, size_t b,
               const Simulation& s) {
  Mask mask;
  mask.reserve(static_cast<size_t>(s.width) * static_cast<size_t>(s.height));
  for (int32_t y = 0; y < s.height; ++y) {
    const Point rowShift = views[b].rows.at((y + 0.5) / s.height);
    for (int32_t x = 0; x < s.width; ++x) {
      const Point p = mapPoint(views[b].toBase, {x + rowShift.x, y + rowShift.y});
      bool seen = true;
      for (size_t i = 0; i < views.size() && seen; ++i) {
        seen = frames[i].foreign || !hidden(views[i].front, views[b].front, p);
      }
      mask.push_back(seen ? 255 : 0);
    }
  }
  return mask;
}

// Sum of the squared differences of neighbours.
double sharpness(const Picture& picture) {
  double sum = 0;
  for (size_t i = 1; i < picture.y.size(); ++i) {
    const double d = static_cast<double>(picture.y[i]) - picture.y[i - 1];
    sum += d * d;
  }
  return sum;
}

Point blurPath(const Simulation& s) {
  return {s.blurLength * 0.8, s.blurLength * 0.6};
}

void blur(SimulatedFrame* frame, View view, const Simulation& s) {
  frame->sharp = std::move(frame->clean);
  view.blur = blurPath(s);
  frame->clean = renderFrame(view, s);
}

// Rotation, zoom and a trace of perspective about the middle of the frame, then a shift.
// place: where the frame lies by now, for frames that are scattered.
Homography shakeStep(const Simulation& s, Random* random, Point* place) {
  const double angle = random->within(s.rotation) * kPi / 180;
  const double zoom = 1 + random->within(s.zoom);
  const double cx = (s.width - 1) / 2.0;
  const double cy = (s.height - 1) / 2.0;
  const double tilt = s.zoom / s.width;
  const Homography turn = {zoom * std::cos(angle), -zoom * std::sin(angle), 0,
                           zoom * std::sin(angle), zoom * std::cos(angle),  0,
                           random->within(tilt),   random->within(tilt),    1};
  const Homography toMiddle = {1, 0, -cx, 0, 1, -cy, 0, 0, 1};
  Point step;
  step.x = random->within(s.scatter ? *s.scatter / 2 : s.shift) * s.width;
  step.y = random->within(s.scatter ? *s.scatter / 2 : s.shift) * s.width;
  if (s.scatter) {
    const Point next = step;
    step = {next.x - place->x, next.y - place->y};
    *place = next;
  }
  return compose({1, 0, cx + step.x, 0, 1, cy + step.y, 0, 0, 1}, compose(turn, toMiddle));
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
  // Streams of their own: a burst keeps its shake and its noise whatever else it is given.
  Random things(s.seed * 1000003u + 0x51ED270Bu);
  Random rows(s.seed * 1000003u + 0x68E31DA4u);
  Random light(s.seed * 1000003u + 0xB5297A4Du);
  std::vector<Layer> layers;
  for (int32_t k = 0; k < s.layers; ++k) {
    layers.emplace_back(s.width, s.height, (k + 1.0) / s.layers, &things);
  }
  std::vector<View> views;
  Homography motion = {1, 0, 0, 0, 1, 0, 0, 0, 1};
  Point place = {0, 0};
  Point sway = {0, 0};
  for (int32_t i = 0; i < s.frames; ++i) {
    if (i > 0) {
      motion = compose(shakeStep(s, &shake, &place), motion);
      sway.x += things.within(s.parallax) * s.width;
      sway.y += things.within(s.parallax) * s.width / 2;
    }
    for (double& h : motion) h /= motion[8];
    SimulatedFrame frame;
    frame.motion = motion;
    frame.foreign = s.foreignFrame == i;
    const RgbPicture& shown = frame.foreign ? seenForeign : seen;
    View view = {&shown, Placement(shown, s), inverse(motion), {}, {0, 0}, {}, 1};
    if (s.insect) {
      const Point centre = {s.width * (0.1 + 0.8 * things.uniform()), s.height * (0.1 + 0.8 * things.uniform())};
      if (!frame.foreign) view.front.discs.push_back({centre, 0.006 * s.width, false});
    }
    if (s.movingObject && !frame.foreign) {
      // From left to right by 2.5 % of the width a frame.
      const Point centre = {s.width * (0.3 + 0.025 * i), s.height * 0.55};
      view.front.discs.push_back({centre, burst.objectRadius});
      frame.object = mapPoint(motion, centre);
    }
    if (s.layers > 0 && !frame.foreign) {
      view.front.layers = &layers;
      view.front.sway = sway;
    }
    if (s.rollingShutter > 0) {
      view.rows = RowShifts(s.rollingShutter, &rows);
      frame.motion = inverse(compose(view.toBase, view.rows.affine(s.height)));
      for (double& h : frame.motion) h /= frame.motion[8];
    }
    if (s.drift > 0) view.gain = 1 + light.within(s.drift / 100);
    frame.clean = renderFrame(view, s);
    if (s.blurredFrame == i) blur(&frame, view, s);
    burst.frames.push_back(std::move(frame));
    views.push_back(std::move(view));
  }
  if (s.blurSharpest) {
    size_t sharpest = 0;
    for (size_t i = 0; i < views.size(); ++i) {
      const SimulatedFrame& frame = burst.frames[i];
      if (burst.frames[sharpest].foreign ||
          (!frame.foreign && sharpness(frame.clean) > sharpness(burst.frames[sharpest].clean))) {
        sharpest = i;
      }
    }
    if (burst.frames[sharpest].sharp.y.empty()) blur(&burst.frames[sharpest], views[sharpest], s);
  }
  for (size_t i = 0; i < views.size(); ++i) {
    SimulatedFrame& frame = burst.frames[i];
    Random noise(s.seed * 1000003u + static_cast<uint32_t>(i) + 1);
    frame.noisy = withNoise(frame.clean, s.noise, &noise);
    if (s.layers > 0 && !frame.foreign) frame.seenByAll = seenByAll(views, burst.frames, i, s);
  }
  return burst;
}

}  // namespace tool
