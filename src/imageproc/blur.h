// Gaussian smoothing on a ParallelExecutor.
#ifndef ZVT4_IMAGEPROC_BLUR_H_
#define ZVT4_IMAGEPROC_BLUR_H_

#include "imageproc/image_proc.h"

extern "C" {
Status ImageProc_pgaussBlur(ImageProc* proc, Image* dst, const Image* src, double sigma)
    ZVT4_NAME(ImageProc_pgaussBlur);
Status ImageProc_gaussBlur2(ImageProc* proc, Image* dst, const Image* src, double sigma)
    ZVT4_NAME(ImageProc_gaussBlur2);
Status ImageProc_filterGaussianBlur7x7_uint8(ImageProc* proc, Image* dst, const Image* src, double sigma)
    ZVT4_NAME(ImageProc_filterGaussianBlur7x7_uint8);
}

#endif  // ZVT4_IMAGEPROC_BLUR_H_
