// Conversion between formats.
#ifndef ZVT4_IMAGE_IMAGE_CONV_H_
#define ZVT4_IMAGE_IMAGE_CONV_H_

#include "image/image.h"

extern "C" {
Status Image_conv_toYuv420Semiplanar(Image* dst, const Image* src) ZVT4_NAME(Image_conv_toYuv420Semiplanar);
Status Image_conv_toYuv420Planar(Image* dst, const Image* src) ZVT4_NAME(Image_conv_toYuv420Planar);
Status Image_conv_toYuv422Interleaved(Image* dst, const Image* src) ZVT4_NAME(Image_conv_toYuv422Interleaved);

Status ImageYuv420Planar_toYuv420Semiplanar(Image* dst, const Image* src)
    ZVT4_NAME(ImageYuv420Planar_toYuv420Semiplanar);
Status ImageYuv420Semiplanar_toYuv420Planar(Image* dst, const Image* src)
    ZVT4_NAME(ImageYuv420Semiplanar_toYuv420Planar);
Status ImageYuv422yuyv_toYuv420Semiplanar(Image* dst, const Image* src) ZVT4_NAME(ImageYuv422yuyv_toYuv420Semiplanar);
Status ImageYuv420Semiplanar_toYuv422yuyv(Image* dst, const Image* src) ZVT4_NAME(ImageYuv420Semiplanar_toYuv422yuyv);

Status ImageYuv422Interleaved_getYuvIndex(int32_t* y0, int32_t* y1, int32_t* u, int32_t* v, int32_t format)
    ZVT4_NAME(ImageYuv422Interleaved_getYuvIndex);

Status Image_toYUint8Shrink(Image* dst, const Image* src, const ImageRect* rect, int32_t ratio)
    ZVT4_NAME(Image_toYUint8Shrink);
Status ImageYuvPlanarSemiplanar_toYUint8Shrink(Image* dst, const Image* src, const ImageRect* rect, int32_t ratio)
    ZVT4_NAME(ImageYuvPlanarSemiplanar_toYUint8Shrink);
}

#endif  // ZVT4_IMAGE_IMAGE_CONV_H_
