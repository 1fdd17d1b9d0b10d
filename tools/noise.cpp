#include "noise.h"

#include <algorithm>
#include <cmath>

namespace tool {
namespace {

constexpr double kPi = 3.14159265358979323846;

uint8_t noisyByte(double value) {
  return static_cast<uint8_t>(std::clamp(value + 0.5, 0.0, 255.0));
}

// Edges wrap around, which keeps the variance the same everywhere.
void blurLines(std::vector<float>* plane, const std::vector<float>& taps, int32_t width, int32_t height, bool rows) {
  const std::vector<float> in = *plane;
  const auto radius = static_cast<int32_t>(taps.size() / 2);
  const auto index = [width](int32_t x, int32_t y) {
    return static_cast<size_t>(y) * static_cast<size_t>(width) + static_cast<size_t>(x);
  };
  for (int32_t y = 0; y < height; ++y) {
    for (int32_t x = 0; x < width; ++x) {
      float sum = 0;
      for (int32_t i = -radius; i <= radius; ++i) {
        const size_t from =
            rows ? index(((x + i) % width + width) % width, y) : index(x, ((y + i) % height + height) % height);
        sum += taps[static_cast<size_t>(i + radius)] * in[from];
      }
      (*plane)[index(x, y)] = sum;
    }
  }
}

// A plane of normal numbers of variance 1, correlated over sigma samples.
std::vector<float> grainPlane(int32_t width, int32_t height, double sigma, Random* random) {
  std::vector<float> plane(static_cast<size_t>(width) * static_cast<size_t>(height));
  for (float& value : plane) value = static_cast<float>(random->normal());
  const auto radius = static_cast<int32_t>(std::ceil(3 * sigma));
  std::vector<float> taps;
  double squares = 0;
  for (int32_t i = -radius; i <= radius; ++i) {
    // The square of the smallest sigmas is 0.
    taps.push_back(i == 0 ? 1.0f : static_cast<float>(std::exp(-i * i / (2 * sigma * sigma))));
    squares += double{taps.back()} * taps.back();
  }
  for (float& tap : taps) tap = static_cast<float>(tap / std::sqrt(squares));
  blurLines(&plane, taps, width, height, true);
  blurLines(&plane, taps, width, height, false);
  return plane;
}

}  // namespace

// Box and Muller's transform.
double Random::normal() {
  if (spare_) {
    const double value = *spare_;
    spare_.reset();
    return value;
  }
  const double radius = std::sqrt(-2 * std::log(uniform()));
  const double angle = 2 * kPi * uniform();
  spare_ = radius * std::sin(angle);
  return radius * std::cos(angle);
}

Picture withNoise(const Picture& clean, const NoiseModel& model, Random* random) {
  Picture noisy = clean;
  const bool grainy = model.grain > 0;
  std::vector<float> grain;
  if (grainy) grain = grainPlane(clean.width, clean.height, model.grain, random);
  const auto deviation = [&](double luma) { return std::sqrt(model.shot * luma + model.read * model.read); };
  for (size_t i = 0; i < clean.y.size(); ++i) {
    const double luma = clean.y[i];
    noisy.y[i] = noisyByte(luma + deviation(luma) * (grainy ? grain[i] : random->normal()));
  }
  std::vector<float> grainU;
  std::vector<float> grainV;
  if (grainy) {
    grainU = grainPlane(clean.chromaWidth(), clean.chromaHeight(), model.grain / 2, random);
    grainV = grainPlane(clean.chromaWidth(), clean.chromaHeight(), model.grain / 2, random);
  }
  const size_t pairs = static_cast<size_t>(clean.chromaWidth());
  for (size_t i = 0; i < clean.u.size(); ++i) {
    const double luma = clean.y[i / pairs * 2 * static_cast<size_t>(clean.width) + i % pairs * 2];
    noisy.u[i] = noisyByte(clean.u[i] + deviation(luma) * (grainy ? grainU[i] : random->normal()));
    noisy.v[i] = noisyByte(clean.v[i] + deviation(luma) * (grainy ? grainV[i] : random->normal()));
  }
  return noisy;
}

}  // namespace tool
