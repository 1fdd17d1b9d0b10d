// Conversion between formats, whole images at a time, on the caller's thread.
#ifndef ZVT4_IMAGE_IMAGE_CONV_H_
#define ZVT4_IMAGE_IMAGE_CONV_H_

#include "image/image.h"

extern "C" {
// Dispatchers, one per target: they pick the way by the format of src. dst must be initialised with its format and the
// size of src; sizes are not checked. Equal formats are no work. The _withRect forms write the rectangle alone: its
// pixels, and where pixels share chroma that of all pairs and, in 4:2:0, row pairs that the rectangle touches, from the
// same source pixels as in the whole image. So rectangles that cover an image add up to the plain form.
//   toRgb888             from RGB565, the 32-bit orders, all YUV and Bayer formats
//   toRgb565             from RGB888, the 32-bit orders
//   toUint8888           from RGB565, RGB888, the YUV formats up to 29
//   toYuv422Interleaved  from RGB565, RGB888, the 32-bit orders; from YUV420_SEMIPLANAR, always in YUYV order; the
//   format
//                        of dst is not tested, and a packed 4:2:2 source is ZELVAN_ERROR_PARAM
//   toYuv420Planar       from RGB888, the 32-bit orders, YUV420_SEMIPLANAR
//   toYuv420Semiplanar   from RGB888, the 32-bit orders, YUV422_YUYV, YUV420_PLANAR
//   the other YUV forms, from RGB888 and the 32-bit orders; toBayer8, toBayer16, toRgb161616 from RGB888
//   toUint8, toUint16    between UINT8 and UINT16: the value as it is, saturated
// ZELVAN_ERROR_PARAM: null records, a dst of another format. ZELVAN_ERROR_UNSUPPORTED: a source without a way.
Status Image_conv_toRgb888(Image* dst, const Image* src) ZVT4_NAME(Image_conv_toRgb888);
Status Image_conv_toRgb888_withRect(Image* dst, const Image* src, const ImageRect* rect)
    ZVT4_NAME(Image_conv_toRgb888_withRect);
Status Image_conv_toRgb565(Image* dst, const Image* src) ZVT4_NAME(Image_conv_toRgb565);
Status Image_conv_toRgb565_withRect(Image* dst, const Image* src, const ImageRect* rect)
    ZVT4_NAME(Image_conv_toRgb565_withRect);
Status Image_conv_toUint8888(Image* dst, const Image* src) ZVT4_NAME(Image_conv_toUint8888);
Status Image_conv_toUint8888_withRect(Image* dst, const Image* src, const ImageRect* rect)
    ZVT4_NAME(Image_conv_toUint8888_withRect);
Status Image_conv_toYuv422Interleaved(Image* dst, const Image* src) ZVT4_NAME(Image_conv_toYuv422Interleaved);
Status Image_conv_toYuv422Interleaved_withRect(Image* dst, const Image* src, const ImageRect* rect)
    ZVT4_NAME(Image_conv_toYuv422Interleaved_withRect);
Status Image_conv_toYuv422Planar(Image* dst, const Image* src) ZVT4_NAME(Image_conv_toYuv422Planar);
Status Image_conv_toYuv422Planar_withRect(Image* dst, const Image* src, const ImageRect* rect)
    ZVT4_NAME(Image_conv_toYuv422Planar_withRect);
Status Image_conv_toYuv422Semiplanar(Image* dst, const Image* src) ZVT4_NAME(Image_conv_toYuv422Semiplanar);
Status Image_conv_toYuv422Semiplanar_withRect(Image* dst, const Image* src, const ImageRect* rect)
    ZVT4_NAME(Image_conv_toYuv422Semiplanar_withRect);
Status Image_conv_toYuv420Planar(Image* dst, const Image* src) ZVT4_NAME(Image_conv_toYuv420Planar);
Status Image_conv_toYuv420Planar_withRect(Image* dst, const Image* src, const ImageRect* rect)
    ZVT4_NAME(Image_conv_toYuv420Planar_withRect);
Status Image_conv_toYuv420Semiplanar(Image* dst, const Image* src) ZVT4_NAME(Image_conv_toYuv420Semiplanar);
Status Image_conv_toYuv420Semiplanar_withRect(Image* dst, const Image* src, const ImageRect* rect)
    ZVT4_NAME(Image_conv_toYuv420Semiplanar_withRect);
Status Image_conv_toYvu422Semiplanar(Image* dst, const Image* src) ZVT4_NAME(Image_conv_toYvu422Semiplanar);
Status Image_conv_toYvu422Semiplanar_withRect(Image* dst, const Image* src, const ImageRect* rect)
    ZVT4_NAME(Image_conv_toYvu422Semiplanar_withRect);
Status Image_conv_toYvu420Semiplanar(Image* dst, const Image* src) ZVT4_NAME(Image_conv_toYvu420Semiplanar);
Status Image_conv_toYvu420Semiplanar_withRect(Image* dst, const Image* src, const ImageRect* rect)
    ZVT4_NAME(Image_conv_toYvu420Semiplanar_withRect);
Status Image_conv_toBayer8(Image* dst, const Image* src) ZVT4_NAME(Image_conv_toBayer8);
Status Image_conv_toBayer8_withRect(Image* dst, const Image* src, const ImageRect* rect)
    ZVT4_NAME(Image_conv_toBayer8_withRect);
Status Image_conv_toBayer16(Image* dst, const Image* src) ZVT4_NAME(Image_conv_toBayer16);
Status Image_conv_toBayer16_withRect(Image* dst, const Image* src, const ImageRect* rect)
    ZVT4_NAME(Image_conv_toBayer16_withRect);
Status Image_conv_toUint8(Image* dst, const Image* src) ZVT4_NAME(Image_conv_toUint8);
Status Image_conv_toUint8_withRect(Image* dst, const Image* src, const ImageRect* rect)
    ZVT4_NAME(Image_conv_toUint8_withRect);
Status Image_conv_toUint16(Image* dst, const Image* src) ZVT4_NAME(Image_conv_toUint16);
Status Image_conv_toUint16_withRect(Image* dst, const Image* src, const ImageRect* rect)
    ZVT4_NAME(Image_conv_toUint16_withRect);
Status Image_conv_toRgb161616(Image* dst, const Image* src) ZVT4_NAME(Image_conv_toRgb161616);
Status Image_conv_toRgb161616_withRect(Image* dst, const Image* src, const ImageRect* rect)
    ZVT4_NAME(Image_conv_toRgb161616_withRect);

// Workers between 4:2:0 and packed 4:2:2. They move samples and compute none: luma is kept, and with width w and
// height h, chroma (x, y) for 0 <= x < ceil(w / 2), 0 <= y < ceil(h / 2) goes
//   planar <-> semi-planar   U(x, y), V(x, y)  <->  bytes 2x and 2x + 1 of chroma row y
//   YUYV -> semi-planar      from packed row 2y; the chroma of odd rows is dropped, not averaged
//   semi-planar -> YUYV      to packed rows 2y and 2y + 1; an image less than 2 rows high is left untouched
// Planes and pitches are those of the records. Exactly the pixels are written: padding of odd sizes stays as it was,
// the second luma byte of the last packed group too. dst and src must not overlap, have equal sizes and the formats of
// the name (not checked). No scratch. Always ZELVAN_OK.
Status ImageYuv420Planar_toYuv420Semiplanar(Image* dst, const Image* src)
    ZVT4_NAME(ImageYuv420Planar_toYuv420Semiplanar);
Status ImageYuv420Semiplanar_toYuv420Planar(Image* dst, const Image* src)
    ZVT4_NAME(ImageYuv420Semiplanar_toYuv420Planar);
Status ImageYuv422yuyv_toYuv420Semiplanar(Image* dst, const Image* src) ZVT4_NAME(ImageYuv422yuyv_toYuv420Semiplanar);
Status ImageYuv420Semiplanar_toYuv422yuyv(Image* dst, const Image* src) ZVT4_NAME(ImageYuv420Semiplanar_toYuv422yuyv);

// Interpolation of a mosaic, as the dispatcher does it. Both records must have their formats.
Status ImageBayer8_toRgb888(Image* dst, const Image* src) ZVT4_NAME(ImageBayer8_toRgb888);

// Places of the channels in a pixel: bytes in memory stand in the order of the letters of the name.
// ZELVAN_ERROR_UNSUPPORTED, with nothing written, for any other format.
Status ImageYuv444Interleaved_getYuvIndex(int32_t* y, int32_t* u, int32_t* v, int32_t format)
    ZVT4_NAME(ImageYuv444Interleaved_getYuvIndex);
Status ImageUint8888_getUint8888Index(int32_t* r, int32_t* g, int32_t* b, int32_t* a, int32_t format)
    ZVT4_NAME(ImageUint8888_getUint8888Index);

// Places of the samples in the four bytes of a packed 4:2:2 group. ZELVAN_ERROR_UNSUPPORTED, with nothing written,
// for any other format.
Status ImageYuv422Interleaved_getYuvIndex(int32_t* y0, int32_t* y1, int32_t* u, int32_t* v, int32_t format)
    ZVT4_NAME(ImageYuv422Interleaved_getYuvIndex);

// A reduced UINT8 image of the luma in rect, for detection. dst is initialised here, with an own block, to
//   (right - left) / ratio  x  (bottom - top) / ratio.
// With I the luma plane and (X, Y) = (left + ratio x, top + ratio y), pixel (x, y) samples its block thinly:
//   ratio 1      I(X, Y)
//   ratio 2      (I(X, Y) + I(X + 1, Y + 1)) >> 1
//   ratio 3, 4   (I(X, Y) + I(X + 2, Y) + I(X, Y + 2) + I(X + 2, Y + 2)) >> 2
//   ratio >= 5   I(X, Y)
// No read lies outside rect; rect must lie inside src (not checked). dst must be another record than src.
// That is for the planar and semi-planar YUV and YVU formats and UINT8. RGB, interleaved YUV and Bayer sources give the
// truncated mean of the block's luma, of a mosaic the mean of its samples at 8 bits. Others: ZELVAN_ERROR_UNSUPPORTED.
// ZELVAN_ERROR_PARAM: ratio below 1, an inverted rect, null arguments, pixels of a src without planes.
// ZELVAN_ERROR_NOMEM: the arena refused.
Status Image_toYUint8Shrink(Image* dst, const Image* src, const ImageRect* rect, int32_t ratio)
    ZVT4_NAME(Image_toYUint8Shrink);
Status ImageYuvPlanarSemiplanar_toYUint8Shrink(Image* dst, const Image* src, const ImageRect* rect, int32_t ratio)
    ZVT4_NAME(ImageYuvPlanarSemiplanar_toYUint8Shrink);
Status ImageUint8_toYUint8Shrink(Image* dst, const Image* src, const ImageRect* rect, int32_t ratio)
    ZVT4_NAME(ImageUint8_toYUint8Shrink);
Status ImageRgb565_toYUint8Shrink(Image* dst, const Image* src, const ImageRect* rect, int32_t ratio)
    ZVT4_NAME(ImageRgb565_toYUint8Shrink);
Status ImageRgb888_toYUint8Shrink(Image* dst, const Image* src, const ImageRect* rect, int32_t ratio)
    ZVT4_NAME(ImageRgb888_toYUint8Shrink);
Status ImageUint8888_toYUint8Shrink(Image* dst, const Image* src, const ImageRect* rect, int32_t ratio)
    ZVT4_NAME(ImageUint8888_toYUint8Shrink);
Status ImageYuv422Interleaved_toYUint8Shrink(Image* dst, const Image* src, const ImageRect* rect, int32_t ratio)
    ZVT4_NAME(ImageYuv422Interleaved_toYUint8Shrink);
Status ImageYuv444Interleaved_toYUint8Shrink(Image* dst, const Image* src, const ImageRect* rect, int32_t ratio)
    ZVT4_NAME(ImageYuv444Interleaved_toYUint8Shrink);
Status ImageYuv444Planar_toYUint8Shrink(Image* dst, const Image* src, const ImageRect* rect, int32_t ratio)
    ZVT4_NAME(ImageYuv444Planar_toYUint8Shrink);
Status ImageBayer8_toYUint8Shrink(Image* dst, const Image* src, const ImageRect* rect, int32_t ratio)
    ZVT4_NAME(ImageBayer8_toYUint8Shrink);
Status ImageBayer10Unpacked_toYUint8Shrink(Image* dst, const Image* src, const ImageRect* rect, int32_t ratio)
    ZVT4_NAME(ImageBayer10Unpacked_toYUint8Shrink);
Status ImageBayer10M8L2Packed_toYUint8Shrink(Image* dst, const Image* src, const ImageRect* rect, int32_t ratio)
    ZVT4_NAME(ImageBayer10M8L2Packed_toYUint8Shrink);
Status ImageBayer12Unpacked_toYUint8Shrink(Image* dst, const Image* src, const ImageRect* rect, int32_t ratio)
    ZVT4_NAME(ImageBayer12Unpacked_toYUint8Shrink);
Status ImageBayer16_toYUint8Shrink(Image* dst, const Image* src, const ImageRect* rect, int32_t ratio)
    ZVT4_NAME(ImageBayer16_toYUint8Shrink);
}

// The same workers on a rectangle inside both images, as the dispatchers run them.
void planarToSemiplanar(Image* dst, const Image* src, const ImageRect& rect);
void semiplanarToPlanar(Image* dst, const Image* src, const ImageRect& rect);
void yuyvToSemiplanar(Image* dst, const Image* src, const ImageRect& rect);
void semiplanarToYuyv(Image* dst, const Image* src, const ImageRect& rect);

#endif  // ZVT4_IMAGE_IMAGE_CONV_H_
