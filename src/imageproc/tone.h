// Tone adjustment of a YUV image: a luma curve with a histogram stretch, and chroma that keeps its saturation.
//
// Luma goes through a table L. With gamma 0 or less L[i] = clamp((i gain + 16384) >> 15). Otherwise the darkest low and
// the brightest 100 - high per cent of the pixels are cut off, and between the bounds lo and hi
// L[lo + i] = trunc(pow(i / (hi - lo), 100 / gamma) x 255 + 0.5); above hi it is 255, else 0. Chroma of a block scales
// with the brightening of its top-left luma y: U' = clamp(((tU[U] - 128) x ratio + 2^27) >> 28, -128, 127) + 128, ratio
// = L[y] x R[y] with the Q28 reciprocals R; tU is the gain satU about 128.
//
// With all three percentages 100 and gamma 0 the image is copied. Formats: planar and semi-planar 4:2:0 and interleaved
// 4:2:2, the same on both sides, else ZELVAN_ERROR_UNSUPPORTED. May run in place. The counting takes a shrunk luma from
// the arena (ZELVAN_ERROR_NOMEM). Two tasks of halves of the rows.
#ifndef ZVT4_IMAGEPROC_TONE_H_
#define ZVT4_IMAGEPROC_TONE_H_

#include "imageproc/image_proc.h"

struct ImageProcTone {
  int32_t percentages[3];  // brightness, contrast, saturation as the caller's panel shows them; neutral at 100
  int32_t gamma;           // percentage
  int32_t gain;            // Q15
  int32_t satU;            // Q15
  int32_t satV;
  uint8_t low;  // per cent of the pixels
  uint8_t high;
};

extern "C" {
Status ImageProc_enhanceImage_process(ImageProc* proc, Image* dst, const Image* src, const ImageProcTone* tone)
    ZVT4_NAME(ImageProc_enhanceImage_process);
}

#endif  // ZVT4_IMAGEPROC_TONE_H_
