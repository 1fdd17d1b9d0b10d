// VectralUtil: how far to shrink, how a motion changes with the image size, and the operations that build a pyramid.
#ifndef ZVT4_TRACKER_VECTRAL_UTIL_H_
#define ZVT4_TRACKER_VECTRAL_UTIL_H_

#include "image/image.h"
#include "motion/mvec8_real.h"
#include "parallel/parallel_executor.h"

extern "C" {
Status VectralUtil_calcShrinkRatio(int32_t* ratio, int32_t targetArea, int32_t width, int32_t height)
    ZVT4_NAME(VectralUtil_calcShrinkRatio);
Status VectralUtil_calcResoNum(int32_t* levels, int32_t minimumArea, int32_t width, int32_t height)
    ZVT4_NAME(VectralUtil_calcResoNum);
Status VectralUtil_similarTransform(Mvec8Real* dst, const Mvec8Real* src, const ImageRect* rect, double scale,
                                    int32_t inverse) ZVT4_NAME(VectralUtil_similarTransform);
Status VectralUtil_rotationMatrix(double* matrix, double a, double b, double c) ZVT4_NAME(VectralUtil_rotationMatrix);
Status VectralUtil_shift8R(Mvec8Real* dst, const Mvec8Real* src, double dx, double dy, int32_t width, int32_t height,
                           double fieldOfView) ZVT4_NAME(VectralUtil_shift8R);
Status VectralUtil_scaleMvec(Mvec8Real* dst, const Mvec8Real* src, int32_t width1, int32_t height1, int32_t level1,
                             int32_t width2, int32_t height2, int32_t level2, double fieldOfView, int32_t type)
    ZVT4_NAME(VectralUtil_scaleMvec);
Status VectralUtil_shrinkImage(Image* dst, const Image* src, const ImageRect* rect, int32_t ratio,
                               ParallelExecutor* executor) ZVT4_NAME(VectralUtil_shrinkImage);
Status VectralUtil_normalizeImage(Image* dst, const Image* src, int32_t* mean, int32_t* deviation, int32_t minDeviation,
                                  ParallelExecutor* executor) ZVT4_NAME(VectralUtil_normalizeImage);
Status VectralUtil_shrink2ForMvecDetect(Image* dst, const Image* src, ParallelExecutor* executor)
    ZVT4_NAME(VectralUtil_shrink2ForMvecDetect);
Status ImageUint8_shrink2ForMvecDetect(Image* dst, const Image* src) ZVT4_NAME(ImageUint8_shrink2ForMvecDetect);
Status ImageUint8_calcLocalY(Image* dst, const Image* src) ZVT4_NAME(ImageUint8_calcLocalY);
}

// Mean and standard deviation of an UINT8 image by the rule of VectralUtil_normalizeImage; the deviation is at least 1.
void vectralImageStatistics(const Image* image, int32_t* mean, int32_t* deviation);
// Fills the 256-entry contrast table for a mean and a deviation.
void vectralContrastTable(int32_t* table, int32_t mean, int32_t deviation);

#endif  // ZVT4_TRACKER_VECTRAL_UTIL_H_
