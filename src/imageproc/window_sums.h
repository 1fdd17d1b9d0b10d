// Sums over one-dimensional windows in four directions.
#ifndef ZVT4_IMAGEPROC_WINDOW_SUMS_H_
#define ZVT4_IMAGEPROC_WINDOW_SUMS_H_

#include "image/image.h"
#include "parallel/pel.h"

extern "C" {
Status sum_hori(Image* dst, const Image* src, int32_t radius, Pel* pel) ZVT4_NAME(sum_hori);
Status sum_vert(Image* dst, const Image* src, int32_t radius, Pel* pel) ZVT4_NAME(sum_vert);
Status sum_diag(Image* dst, const Image* src, int32_t radius) ZVT4_NAME(sum_diag);
Status sum_anti(Image* dst, const Image* src, int32_t radius) ZVT4_NAME(sum_anti);
}

#endif  // ZVT4_IMAGEPROC_WINDOW_SUMS_H_
