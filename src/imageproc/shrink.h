// Exact area shrink, 2x2 mean, quarter turns, and the argument records of the older shrinking kernels.
//
// ImageProc_shrinkImage: the mean over the footprint of each destination pixel. Edges lie at
//   b(x) = ((sw << 15) x - 1) / dw, truncated, Q15; the footprint runs from b(x) to b(x) + (sw << 15) / dw. The first
//   and the last column count by 256 - ((b >> 7) & 255) and (end >> 7) & 255, those between by 256, and likewise for
//   rows; the weighted sum is divided by the product of the total weights. UINT8, UINT16 and INT32 into themselves, 27
//   and 29 into themselves (the chroma pairs apart) or into UINT8 (luma). Others: ZELVAN_ERROR_GENERAL. dst must not be
//   larger.
// ImageProc_shrink2: (a + b + c + d + 2) >> 2 of each 2x2 block on both planes of 27 and 29; other formats: nothing, 0.
// ImageProc2_rotateImageEx: quarter turns clockwise (0 to 3), after a mirroring from left to right if the flag is set.
//   Formats of 1 to 4 bytes a pixel, and 27 and 29. dst has the turned size, else ZELVAN_ERROR_UNSUPPORTED. Not in
//   place. A Pel job a row of dst.
// The ..._setArgs functions store three words in a record; they are one function under eleven names.
#ifndef ZVT4_IMAGEPROC_SHRINK_H_
#define ZVT4_IMAGEPROC_SHRINK_H_

#include "imageproc/image_proc.h"

struct ImageProcShrinkArgs {
  intptr_t words[3];
};

#define ZVT4_SET_ARGS(name)                                                                        \
  Status ImageProc_##name##_setArgs(ImageProcShrinkArgs* args, intptr_t a, intptr_t b, intptr_t c) \
      ZVT4_NAME(ImageProc_##name##_setArgs)

extern "C" {
Status ImageProc_shrinkImage(ImageProc* proc, Image* dst, const Image* src) ZVT4_NAME(ImageProc_shrinkImage);
Status ImageProc_shrink2(ImageProc* proc, Image* dst, const Image* src) ZVT4_NAME(ImageProc_shrink2);
Status ImageProc2_rotateImageEx(ImageProc2* proc, Image* dst, const Image* src, int32_t quarterTurns, int32_t mirror)
    ZVT4_NAME(ImageProc2_rotateImageEx);
ZVT4_SET_ARGS(resizerImageUint8);
ZVT4_SET_ARGS(resizerImageFloat);
ZVT4_SET_ARGS(resizerImageInt32);
ZVT4_SET_ARGS(resizerImageUint888);
ZVT4_SET_ARGS(resizerImageUint8888);
ZVT4_SET_ARGS(resizerImageUint16);
ZVT4_SET_ARGS(resizerImageUV);
ZVT4_SET_ARGS(shrinkaverageImageUint8);
ZVT4_SET_ARGS(shrinkaverageImageUint16);
ZVT4_SET_ARGS(shrinkaverageImageInt32);
ZVT4_SET_ARGS(shrinkaverageImageUV);
}

#endif  // ZVT4_IMAGEPROC_SHRINK_H_
