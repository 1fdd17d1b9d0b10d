// Per-pixel arithmetic, table lookup, conversion between pixel types, fill.
//
// The route of an operation follows from the pair of formats. Sizes are those of dst; sources must be at least as
// large, which is not checked. Rows go to the executor in slices, and every operation may run in place: a pixel is read
// before it is written. Null arguments give ZELVAN_ERROR_PARAM.
//
// ImageProc_clearY: fills with a grey value. 27 and 29: luma value & 255, chroma 128. UINT8 and UINT16: the low 8 or 16
//   bits of value. FLOAT: the value. Any other format: ZELVAN_ERROR_PARAM.
// ImageProc_cvt: equal formats: a copy of all planes. UINT8 from 24 to 29: luma. The value as it is: UINT8 from UINT16,
//   INT32 and FLOAT (truncated), limited to 0 to 255; UINT16 from UINT8; INT32 and FLOAT from UINT8, UINT16 and INT16.
//   Any other pair, and an empty image: ZELVAN_ERROR_GENERAL.
// ImageProc_n_shift: a >> n without rounding; for negative n a << -n, of which the low bits stay; shifts of 32 and more
//   leave 0, to the right of a signed pixel its sign (0 or -1). UINT8, UINT16, INT16, INT32 into themselves, 27 and 29
//   as UINT8 on both planes. UINT16 into UINT8, the 16-bit weights that become an 8-bit map, saturates at 255. Any
//   other pair: ZELVAN_ERROR_PARAM.
// ImageProc_table: dst = table[src] for UINT8 into UINT8, else ZELVAN_ERROR_UNSUPPORTED. Pixels beyond the table become
//   0. A table of less than 33 entries does nothing, with success.
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
