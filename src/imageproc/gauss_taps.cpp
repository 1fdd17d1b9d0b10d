#include "imageproc/gauss_taps.h"

#include "base/integer.h"
#include "base/raw_double.h"

namespace {

double gauss(int32_t i, double sigma) {
  return RawDouble_exp(-static_cast<double>(i * i) / (2.0 * sigma * sigma));
}

}  // namespace

void gaussTaps(int32_t* taps, int32_t radius, double sigma) {
  double sum = 0.0;
  for (int32_t i = -radius; i <= radius; ++i) sum += gauss(i, sigma);
  int32_t rest = 32768;
  for (int32_t i = 1; i <= radius; ++i) {
    const int32_t tap = truncToInt32(gauss(i, sigma) * 32768.0 / sum + 0.5);
    taps[radius - i] = tap;
    taps[radius + i] = tap;
    rest -= 2 * tap;
  }
  taps[radius] = rest;
}
