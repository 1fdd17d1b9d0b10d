// Gaussian taps in Q15 that sum to exactly 32768.
#ifndef ZVT4_IMAGEPROC_GAUSS_TAPS_H_
#define ZVT4_IMAGEPROC_GAUSS_TAPS_H_

#include <cstdint>

// taps: 2 x radius + 1 values. g[i] = exp(-(i i) / (2 sigma sigma)) in doubles, mirrored and summed from the left; each
// tap is trunc(g x 32768.0 / sum + 0.5); the centre takes up the difference. 32-bit, since a centre of 32768 does not
// fit 16 signed bits. sigma > 0.
void gaussTaps(int32_t* taps, int32_t radius, double sigma);

#endif  // ZVT4_IMAGEPROC_GAUSS_TAPS_H_
