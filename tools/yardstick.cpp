#include "yardstick.h"

#include <algorithm>
#include <cmath>

namespace tool {
namespace {

class PlaneSum {
 public:
  explicit PlaneSum(size_t samples) : sums_(samples) {}
  void add(const std::vector<uint8_t>& plane) {
    for (size_t i = 0; i < sums_.size(); ++i) sums_[i] = static_cast<uint16_t>(sums_[i] + plane[i]);
  }
  std::vector<uint8_t> mean(int32_t count) const {
    std::vector<uint8_t> out;
    out.reserve(sums_.size());
    for (const uint16_t sum : sums_) out.push_back(static_cast<uint8_t>((sum + count / 2) / count));
    return out;
  }

 private:
  std::vector<uint16_t> sums_;
};

struct Gradient {
  float x;
  float y;
  float square() const { return x * x + y * y; }
};

Gradient gradientAt(const Picture& picture, size_t at) {
  const auto width = static_cast<size_t>(picture.width);
  return {(static_cast<float>(picture.y[at + 1]) - static_cast<float>(picture.y[at - 1])) / 2,
          (static_cast<float>(picture.y[at + width]) - static_cast<float>(picture.y[at - width])) / 2};
}

double gradientGain(const Picture& result, const Picture& truth, const Mask* counted) {
  constexpr double kStrongest = 0.02;
  std::vector<size_t> pixels;
  std::vector<float> squares;
  forEachCounted(truth.width, truth.height, counted, [&](size_t at) {
    const auto x = at % static_cast<size_t>(truth.width);
    const auto y = at / static_cast<size_t>(truth.width);
    if (x == 0 || y == 0 || x + 1 >= static_cast<size_t>(truth.width) || y + 1 >= static_cast<size_t>(truth.height)) {
      return;
    }
    pixels.push_back(at);
    squares.push_back(gradientAt(truth, at).square());
  });
  if (pixels.empty()) return 1;
  std::vector<float> ranked = squares;
  const auto limit = ranked.begin() + static_cast<ptrdiff_t>(static_cast<double>(ranked.size()) * (1 - kStrongest));
  std::nth_element(ranked.begin(), limit, ranked.end());
  double product = 0;
  double square = 0;
  for (size_t i = 0; i < pixels.size(); ++i) {
    if (squares[i] < *limit) continue;
    const Gradient of = gradientAt(truth, pixels[i]);
    const Gradient found = gradientAt(result, pixels[i]);
    product += double{found.x} * of.x + double{found.y} * of.y;
    square += of.square();
  }
  return square > 0 ? product / square : 1;
}

}  // namespace

Picture alignedAverage(const Picture& clean, const NoiseModel& noise, const FrameStorage& storage, int32_t frames,
                       uint32_t seed) {
  PlaneSum y(clean.y.size());
  PlaneSum u(clean.u.size());
  PlaneSum v(clean.v.size());
  for (int32_t i = 0; i < frames; ++i) {
    // Far from the seeds of the frames themselves.
    Random random(seed * 1000003u + 0x9E3779B9u + static_cast<uint32_t>(i));
    const Picture frame = asStored(withNoise(clean, noise, &random), storage);
    y.add(frame.y);
    u.add(frame.u);
    v.add(frame.v);
  }
  Picture average(clean.width, clean.height);
  average.y = y.mean(frames);
  average.u = u.mean(frames);
  average.v = v.mean(frames);
  return average;
}

Yardstick measure(const Picture& result, const Picture& noisy, const Picture& average, const Picture& truth,
                  const Mask* counted) {
  Yardstick yardstick{};
  yardstick.noisy = psnrOf(noisy, truth, counted);
  yardstick.average = psnrOf(average, truth, counted);
  yardstick.result = psnrOf(result, truth, counted);
  const double best = yardstick.average.luma - yardstick.noisy.luma;
  yardstick.share = best > 0 ? (yardstick.result.luma - yardstick.noisy.luma) / best : 0;
  yardstick.meanShift = meanDifference(result, truth, counted);
  yardstick.gradientGain = gradientGain(result, truth, counted);
  return yardstick;
}

}  // namespace tool
