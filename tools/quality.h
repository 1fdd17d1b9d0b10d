// How near a picture is to the truth.
#ifndef TESSALINE4_TOOLS_QUALITY_H_
#define TESSALINE4_TOOLS_QUALITY_H_

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "picture.h"

namespace tool {

// Where pictures are compared: a pixel with 0 is left out. A chroma sample counts when all of its pixels do.
using Mask = std::vector<uint8_t>;

inline constexpr double kUncomparedBorder = 0.02;  // of width and height, on each side

// Calls with the index of every sample of a plane that is inside of the border and counts; counted is null where all
// do.
template <typename F>
void forEachCounted(int32_t width, int32_t height, const Mask* counted, const F& call) {
  const auto left = static_cast<int32_t>(width * kUncomparedBorder);
  const auto top = static_cast<int32_t>(height * kUncomparedBorder);
  for (int32_t y = top; y < height - top; ++y) {
    for (int32_t x = left; x < width - left; ++x) {
      const size_t at = static_cast<size_t>(y) * static_cast<size_t>(width) + static_cast<size_t>(x);
      if (counted == nullptr || (*counted)[at] != 0) call(at);
    }
  }
}

struct Quality {
  double lumaPsnr;    // dB, at most 99
  double chromaPsnr;  // of U and V together
  double lumaSsim;    // NaN where the plane is smaller than a window
  double chromaSsim;  // mean of U and V
};

// Pictures of one size, or Error; a border of 2 % is left out.
// SSIM as in Wang, Bovik, Sheikh and Simoncelli, "Image quality assessment: from error visibility to structural
// similarity" (2004): windows of 11 x 11 with Gaussian weights of sigma 1.5, K1 0.01, K2 0.03.
Quality compareWithTruth(const Picture& picture, const Picture& truth);

struct Psnr {
  double luma;    // dB, at most 99
  double chroma;  // of U and V together
};
Psnr psnrOf(const Picture& picture, const Picture& truth, const Mask* counted);
// Mean of picture - truth, of Y, U and V.
std::array<double, 3> meanDifference(const Picture& picture, const Picture& truth, const Mask* counted);

// The luma part alone, quicker.
double lumaPsnr(const Picture& picture, const Picture& truth);

}  // namespace tool

#endif  // TESSALINE4_TOOLS_QUALITY_H_
