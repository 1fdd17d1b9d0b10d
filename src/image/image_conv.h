// Conversion between formats, whole images at a time, on the caller's thread.
#ifndef ZVT4_IMAGE_IMAGE_CONV_H_
#define ZVT4_IMAGE_IMAGE_CONV_H_

#include "image/image.h"

extern "C" {
// Dispatchers, one per target: they pick the worker by the format of src. dst must be initialised with its format and
// the size of src; sizes are not checked. Equal formats are no work.
//   toYuv420Semiplanar    from YUV422_YUYV, YUV420_PLANAR
//   toYuv420Planar        from YUV420_SEMIPLANAR
//   toYuv422Interleaved   from YUV420_SEMIPLANAR, always in YUYV order; the format of dst is not tested, and a
//                         packed 4:2:2 source is ZELVAN_ERROR_PARAM
// ZELVAN_ERROR_PARAM: null records, a dst of another format. ZELVAN_ERROR_UNSUPPORTED: a source without a worker.
Status Image_conv_toYuv420Semiplanar(Image* dst, const Image* src) ZVT4_NAME(Image_conv_toYuv420Semiplanar);
Status Image_conv_toYuv420Planar(Image* dst, const Image* src) ZVT4_NAME(Image_conv_toYuv420Planar);
Status Image_conv_toYuv422Interleaved(Image* dst, const Image* src) ZVT4_NAME(Image_conv_toYuv422Interleaved);

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
// Sources: the planar and semi-planar YUV and YVU formats, UINT8; others are ZELVAN_ERROR_UNSUPPORTED.
// ZELVAN_ERROR_PARAM: ratio below 1, an inverted rect, null arguments. ZELVAN_ERROR_NOMEM: the arena refused.
Status Image_toYUint8Shrink(Image* dst, const Image* src, const ImageRect* rect, int32_t ratio)
    ZVT4_NAME(Image_toYUint8Shrink);
Status ImageYuvPlanarSemiplanar_toYUint8Shrink(Image* dst, const Image* src, const ImageRect* rect, int32_t ratio)
    ZVT4_NAME(ImageYuvPlanarSemiplanar_toYUint8Shrink);
Status ImageUint8_toYUint8Shrink(Image* dst, const Image* src, const ImageRect* rect, int32_t ratio)
    ZVT4_NAME(ImageUint8_toYUint8Shrink);
}

#endif  // ZVT4_IMAGE_IMAGE_CONV_H_
