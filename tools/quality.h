// How near a picture is to the truth.
#ifndef TESSALINE4_TOOLS_QUALITY_H_
#define TESSALINE4_TOOLS_QUALITY_H_

#include "picture.h"

namespace tool {

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

// The luma part alone, quicker.
double lumaPsnr(const Picture& picture, const Picture& truth);

}  // namespace tool

#endif  // TESSALINE4_TOOLS_QUALITY_H_
