// Fills an image with one colour.
//
// values: the channels of the family, in its order: R, G, B for the RGB formats and a fourth, A, for the 32-bit ones;
// Y, U, V for the YUV ones; one value for the others, two for UINT88. Channels keep their low bits (RGB565 their high
// ones: the values are 8-bit colours). A mosaic has one value for all its samples. Exactly the pixels are written: the
// chroma of an odd size counts its last half, padding stays.
// ZELVAN_ERROR_PARAM: null arguments, no planes, a format outside the family of the name.
#ifndef ZVT4_IMAGE_IMAGE_CLEAR_H_
#define ZVT4_IMAGE_IMAGE_CLEAR_H_

#include "image/image.h"

extern "C" {
Status ImageRgb565_clear(Image* image, const int32_t* values) ZVT4_NAME(ImageRgb565_clear);
Status ImageRgb888_clear(Image* image, const int32_t* values) ZVT4_NAME(ImageRgb888_clear);  // BGR888 too
Status ImageUint8888_clear(Image* image, const int32_t* values) ZVT4_NAME(ImageUint8888_clear);
Status ImageRgb161616_clear(Image* image, const int32_t* values) ZVT4_NAME(ImageRgb161616_clear);
Status ImageYuv422Interleaved_clear(Image* image, const int32_t* values) ZVT4_NAME(ImageYuv422Interleaved_clear);
Status ImageYuv444Interleaved_clear(Image* image, const int32_t* values) ZVT4_NAME(ImageYuv444Interleaved_clear);
Status ImageYuvPlanarSemiplanar_clear(Image* image, const int32_t* values) ZVT4_NAME(ImageYuvPlanarSemiplanar_clear);
Status ImageBayer8_clear(Image* image, const int32_t* values) ZVT4_NAME(ImageBayer8_clear);
Status ImageBayer16_clear(Image* image, const int32_t* values) ZVT4_NAME(ImageBayer16_clear);  // 10 and 12 bits too
Status ImageUint8_clear(Image* image, const int32_t* values) ZVT4_NAME(ImageUint8_clear);
Status ImageUint16_clear(Image* image, const int32_t* values) ZVT4_NAME(ImageUint16_clear);
Status ImageUint88_clear(Image* image, const int32_t* values) ZVT4_NAME(ImageUint88_clear);
Status ImageInt32_clear(Image* image, const int32_t* values) ZVT4_NAME(ImageInt32_clear);
Status ImageFloat_clear(Image* image, const int32_t* values) ZVT4_NAME(ImageFloat_clear);
}

#endif  // ZVT4_IMAGE_IMAGE_CLEAR_H_
