// Arithmetic between images, and between an image and a number; range maps, blend, fill by channel, splitting.
//
// Operations take the destination first; sizes are those of dst, and sources must be at least as large, which is not
// checked. All may run in place: a pixel is read before it is written. Rows go to the executor in slices.
//
// Formats: dst and all sources UINT8, UINT16, INT32 or FLOAT alike, or a UINT16 or INT32 dst over UINT8 sources, which
// holds the full result; 27 and 29 into themselves work as UINT8 on both planes. Any other set: ZELVAN_ERROR_PARAM.
// Results: UINT8 and UINT16 keep the low bits of sums and products and clamp differences at 0 and their largest value;
// INT32 wraps. FLOAT is plain arithmetic.
//
//   add a + b    sub a - b    abssub |a - b|    abs |a|    mul a b    max, min    mla dst + a b
//   n_add a + n  n_sub a - n  n_subr n - a      n_mul a n  n_max, n_min
//
// ImageProc_div: a / b, truncated, INT32 only; x / 0 gives 0.
// ImageProc_blend: ((128 - m) a + m b) >> 7, m in 0 to 128 from a UINT8 mask of the size of dst; RGB888, 27 and 29 (the
//   chroma pair takes the mask at its even pixel).
// ImageProc_ImageInt32_toUint8, _ImageFloat_toUint8: [low, high] linearly onto 0 to 255, saturating. With high not
// above
//   low, and always for FLOAT, the bounds are the image's own least and most value.
// ImageProc_clear: a value per channel: three for RGB888, luma, U and V for 4:2:0, else the first for every pixel.
// ImageProc_split2rgb888: the channels of RGB888 into three UINT8 images; _yuv420semiplanar: 27 or 29 into luma, U and
// V
//   at their own sizes.
#ifndef ZVT4_IMAGEPROC_PIXEL_OPS_H_
#define ZVT4_IMAGEPROC_PIXEL_OPS_H_

#include "imageproc/image_proc.h"

struct ImageProcBlend {
  ImageProc* proc;
  Image* dst;
  const Image* a;
  const Image* b;
  const Image* mask;
};

extern "C" {
Status ImageProc_add(ImageProc* proc, Image* dst, const Image* a, const Image* b) ZVT4_NAME(ImageProc_add);
Status ImageProc_sub(ImageProc* proc, Image* dst, const Image* a, const Image* b) ZVT4_NAME(ImageProc_sub);
Status ImageProc_abssub(ImageProc* proc, Image* dst, const Image* a, const Image* b) ZVT4_NAME(ImageProc_abssub);
Status ImageProc_abs(ImageProc* proc, Image* dst, const Image* a) ZVT4_NAME(ImageProc_abs);
Status ImageProc_mul(ImageProc* proc, Image* dst, const Image* a, const Image* b) ZVT4_NAME(ImageProc_mul);
Status ImageProc_div(ImageProc* proc, Image* dst, const Image* a, const Image* b) ZVT4_NAME(ImageProc_div);
Status ImageProc_max(ImageProc* proc, Image* dst, const Image* a, const Image* b) ZVT4_NAME(ImageProc_max);
Status ImageProc_min(ImageProc* proc, Image* dst, const Image* a, const Image* b) ZVT4_NAME(ImageProc_min);
Status ImageProc_mla(ImageProc* proc, Image* dst, const Image* a, const Image* b) ZVT4_NAME(ImageProc_mla);
Status ImageProc_n_add(ImageProc* proc, Image* dst, const Image* a, int32_t n) ZVT4_NAME(ImageProc_n_add);
Status ImageProc_n_sub(ImageProc* proc, Image* dst, const Image* a, int32_t n) ZVT4_NAME(ImageProc_n_sub);
Status ImageProc_n_subr(ImageProc* proc, Image* dst, const Image* a, int32_t n) ZVT4_NAME(ImageProc_n_subr);
Status ImageProc_n_mul(ImageProc* proc, Image* dst, const Image* a, int32_t n) ZVT4_NAME(ImageProc_n_mul);
Status ImageProc_n_max(ImageProc* proc, Image* dst, const Image* a, int32_t n) ZVT4_NAME(ImageProc_n_max);
Status ImageProc_n_min(ImageProc* proc, Image* dst, const Image* a, int32_t n) ZVT4_NAME(ImageProc_n_min);
Status ImageProc_blend(ImageProc* proc, Image* dst, const Image* a, const Image* b, const Image* mask)
    ZVT4_NAME(ImageProc_blend);
Status ImageProc_blendImageWrapper(ImageProcBlend* arguments) ZVT4_NAME(ImageProc_blendImageWrapper);
Status ImageProc_ImageInt32_toUint8(ImageProc* proc, Image* dst, const Image* src, int32_t low, int32_t high)
    ZVT4_NAME(ImageProc_ImageInt32_toUint8);
Status ImageProc_ImageFloat_toUint8(ImageProc* proc, Image* dst, const Image* src)
    ZVT4_NAME(ImageProc_ImageFloat_toUint8);
Status ImageProc_clear(ImageProc* proc, Image* image, const int32_t* values) ZVT4_NAME(ImageProc_clear);
Status ImageProc_split2rgb888(ImageProc* proc, Image* red, Image* green, Image* blue, const Image* src)
    ZVT4_NAME(ImageProc_split2rgb888);
Status ImageProc_split2rgb888_yuv420semiplanar(ImageProc* proc, Image* luma, Image* u, Image* v, const Image* src)
    ZVT4_NAME(ImageProc_split2rgb888_yuv420semiplanar);
}

#endif  // ZVT4_IMAGEPROC_PIXEL_OPS_H_
