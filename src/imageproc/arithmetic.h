// Per-pixel arithmetic, table lookup, conversion between pixel types, fill.
#ifndef ZVT4_IMAGEPROC_ARITHMETIC_H_
#define ZVT4_IMAGEPROC_ARITHMETIC_H_

#include "imageproc/image_proc.h"

extern "C" {
Status ImageProc_clearY(ImageProc* proc, Image* image, int32_t value) ZVT4_NAME(ImageProc_clearY);
Status ImageProc_ImageFloat_clearY(ImageProc* proc, Image* image, int32_t value) ZVT4_NAME(ImageProc_ImageFloat_clearY);
Status ImageProc_cvt(ImageProc* proc, Image* dst, const Image* src) ZVT4_NAME(ImageProc_cvt);
Status ImageProc_n_shift(ImageProc* proc, Image* dst, const Image* src, int32_t n) ZVT4_NAME(ImageProc_n_shift);
Status ImageProc_table(ImageProc* proc, Image* dst, const Image* src, const uint8_t* table, int32_t tableSize)
    ZVT4_NAME(ImageProc_table);
}

#endif  // ZVT4_IMAGEPROC_ARITHMETIC_H_
