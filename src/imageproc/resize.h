// Linear resize and area shrink.
#ifndef ZVT4_IMAGEPROC_RESIZE_H_
#define ZVT4_IMAGEPROC_RESIZE_H_

#include "imageproc/image_proc.h"

extern "C" {
Status ImageProc_resizeImage(ImageProc* proc, Image* dst, const Image* src) ZVT4_NAME(ImageProc_resizeImage);
Status ImageProc2_resizeImage(ImageProc2* proc, Image* dst, const Image* src) ZVT4_NAME(ImageProc2_resizeImage);
int32_t ImageProc2_getBufferSizeForResizeImage(int32_t width, int32_t height)
    ZVT4_NAME(ImageProc2_getBufferSizeForResizeImage);
Status ImageProc2_averageShrink(ImageProc2* proc, Image* dst, const Image* src) ZVT4_NAME(ImageProc2_averageShrink);
int32_t ImageProc2_getBufferSizeForAverageShrink(int32_t width, int32_t height)
    ZVT4_NAME(ImageProc2_getBufferSizeForAverageShrink);

Status ImageProc_getSizeFit(int32_t* outWidth, int32_t* outHeight, int32_t width, int32_t height, int32_t boxWidth,
                            int32_t boxHeight) ZVT4_NAME(ImageProc_getSizeFit);
Status ImageProc_getSizeMax(int32_t* outWidth, int32_t* outHeight, int32_t width, int32_t height, int32_t boxWidth,
                            int32_t boxHeight) ZVT4_NAME(ImageProc_getSizeMax);
Status ImageProc_getSizeArea(int32_t* outWidth, int32_t* outHeight, int32_t width, int32_t height, int32_t area)
    ZVT4_NAME(ImageProc_getSizeArea);
}

#endif  // ZVT4_IMAGEPROC_RESIZE_H_
