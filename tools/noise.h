// The noise that a camera adds to a picture.
#ifndef TESSALINE4_TOOLS_NOISE_H_
#define TESSALINE4_TOOLS_NOISE_H_

#include <cstdint>
#include <optional>
#include <random>

#include "picture.h"

namespace tool {

// Numbers that do not depend on the standard library: its engines are specified, its distributions are not.
class Random {
 public:
  explicit Random(uint32_t seed) : engine_(seed) {}
  double uniform() { return (engine_() + 0.5) / 4294967296.0; }  // above 0, below 1
  double within(double limit) { return (2 * uniform() - 1) * limit; }
  double normal();

 private:
  std::mt19937 engine_;
  std::optional<double> spare_;
};

struct NoiseModel {
  // A luma or chroma sample where luma is y (0 to 255): variance shot x y + read^2.
  double shot = 0.7;
  double read = 4.0;
  // Grain: neighbours share their noise, as if it had been blurred by a Gaussian of so many luma pixels and brought
  // back to its variance. 0: every sample for itself.
  double grain = 0.0;
};
inline constexpr double kMostNoise = 100.0;  // of shot and of read
inline constexpr double kMostGrain = 10.0;

// Poisson noise of the light and Gaussian noise of the reading, rounded and clipped to 8 bits. The colour gains and the
// demosaicing of a camera leave the chroma of a pixel as noisy as its luma.
Picture withNoise(const Picture& clean, const NoiseModel& model, Random* random);

}  // namespace tool

#endif  // TESSALINE4_TOOLS_NOISE_H_
