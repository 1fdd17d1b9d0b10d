// Sums over one-dimensional windows in four directions, sums over square windows, and box means.
//
//   sum_hori  dst(x, y) = sum over k = -r..r of src(x + k, y)
//   sum_vert  dst(x, y) = sum over k = -r..r of src(x, y + k)
//   sum_diag  dst(x, y) = sum over k = -r..r of src(x + k, y + k)
//   sum_anti  dst(x, y) = sum over k = -r..r of src(x - k, y + k)
//   sum_sqre  sum_hori into scratch, then sum_vert into dst
//
// A sample outside the picture repeats the last sample inside on the same line; the diagonals end where the line
// leaves the picture, so the corners at the line's far side are never read for it. Sums wrap at the width of dst:
// 16-bit ones are exact as long as (2r + 1) x the largest sample stays below 65536.
//
// dst, src and scratch have one size and do not overlap; scratch has the format of dst. r may exceed the picture. All
// forms are running sums, so the cost does not depend on r. sum_<kind>_<in>_to_<out> takes u8 = UINT8, u16 = UINT16,
// u32 = INT32 images; sum_<kind> picks the form by the formats.
//
// Rows of sum_hori are split over the Pel; sum_vert is a single job, since each row needs the one above, and the
// diagonals run in the caller for the same reason. No scratch but the caller's.
//
// box_blur_*: mean over (2 (width >> 1) + 1) x (2 (height >> 1) + 1) pixels with repeated edges, per channel. Rows go
// from src to scratch, columns from scratch to dst, each rounded to nearest: (sum + count / 2) / count. dst may be
// src. scratch: size and format of src. rowScratch: one row of running column sums, as wide as src for u8 (UINT16) and
// u16 (INT32), twice as wide for u88 (UINT16). The columns are cut into 8 jobs.
//
// ZELVAN_ERROR_PARAM: a null or empty image, sizes that differ, a negative radius. ZELVAN_ERROR_UNSUPPORTED: formats
// outside the form or the family, or a half width of a box mean above 128 (u8, u88) or 32767 (u16).
#ifndef ZVT4_IMAGEPROC_WINDOW_SUMS_H_
#define ZVT4_IMAGEPROC_WINDOW_SUMS_H_

#include "image/image.h"
#include "parallel/pel.h"

extern "C" {
Status sum_hori(Image* dst, const Image* src, int32_t radius, Pel* pel) ZVT4_NAME(sum_hori);
Status sum_hori_u8_to_u16(Image* dst, const Image* src, int32_t radius, Pel* pel) ZVT4_NAME(sum_hori_u8_to_u16);
Status sum_hori_u16_to_u16(Image* dst, const Image* src, int32_t radius, Pel* pel) ZVT4_NAME(sum_hori_u16_to_u16);
Status sum_hori_u16_to_u32(Image* dst, const Image* src, int32_t radius, Pel* pel) ZVT4_NAME(sum_hori_u16_to_u32);
Status sum_hori_u32_to_u32(Image* dst, const Image* src, int32_t radius, Pel* pel) ZVT4_NAME(sum_hori_u32_to_u32);

Status sum_vert(Image* dst, const Image* src, int32_t radius, Pel* pel) ZVT4_NAME(sum_vert);
Status sum_vert_u8_to_u16(Image* dst, const Image* src, int32_t radius, Pel* pel) ZVT4_NAME(sum_vert_u8_to_u16);
Status sum_vert_u16_to_u16(Image* dst, const Image* src, int32_t radius, Pel* pel) ZVT4_NAME(sum_vert_u16_to_u16);
Status sum_vert_u16_to_u32(Image* dst, const Image* src, int32_t radius, Pel* pel) ZVT4_NAME(sum_vert_u16_to_u32);
Status sum_vert_u32_to_u32(Image* dst, const Image* src, int32_t radius, Pel* pel) ZVT4_NAME(sum_vert_u32_to_u32);

Status sum_diag(Image* dst, const Image* src, int32_t radius) ZVT4_NAME(sum_diag);
Status sum_diag_u8_to_u16(Image* dst, const Image* src, int32_t radius) ZVT4_NAME(sum_diag_u8_to_u16);
Status sum_diag_u16_to_u16(Image* dst, const Image* src, int32_t radius) ZVT4_NAME(sum_diag_u16_to_u16);
Status sum_diag_u8_to_u32(Image* dst, const Image* src, int32_t radius) ZVT4_NAME(sum_diag_u8_to_u32);
Status sum_diag_u16_to_u32(Image* dst, const Image* src, int32_t radius) ZVT4_NAME(sum_diag_u16_to_u32);
Status sum_diag_u32_to_u32(Image* dst, const Image* src, int32_t radius) ZVT4_NAME(sum_diag_u32_to_u32);

Status sum_anti(Image* dst, const Image* src, int32_t radius) ZVT4_NAME(sum_anti);
Status sum_anti_u8_to_u16(Image* dst, const Image* src, int32_t radius) ZVT4_NAME(sum_anti_u8_to_u16);
Status sum_anti_u16_to_u16(Image* dst, const Image* src, int32_t radius) ZVT4_NAME(sum_anti_u16_to_u16);
Status sum_anti_u8_to_u32(Image* dst, const Image* src, int32_t radius) ZVT4_NAME(sum_anti_u8_to_u32);
Status sum_anti_u16_to_u32(Image* dst, const Image* src, int32_t radius) ZVT4_NAME(sum_anti_u16_to_u32);
Status sum_anti_u32_to_u32(Image* dst, const Image* src, int32_t radius) ZVT4_NAME(sum_anti_u32_to_u32);

Status sum_sqre(Image* dst, const Image* src, Image* scratch, int32_t radius, Pel* pel) ZVT4_NAME(sum_sqre);
Status sum_sqre_u8_to_u16(Image* dst, const Image* src, Image* scratch, int32_t radius, Pel* pel)
    ZVT4_NAME(sum_sqre_u8_to_u16);
Status sum_sqre_u16_to_u16(Image* dst, const Image* src, Image* scratch, int32_t radius, Pel* pel)
    ZVT4_NAME(sum_sqre_u16_to_u16);
Status sum_sqre_u8_to_u32(Image* dst, const Image* src, Image* scratch, int32_t radius, Pel* pel)
    ZVT4_NAME(sum_sqre_u8_to_u32);
Status sum_sqre_u16_to_u32(Image* dst, const Image* src, Image* scratch, int32_t radius, Pel* pel)
    ZVT4_NAME(sum_sqre_u16_to_u32);
Status sum_sqre_u32_to_u32(Image* dst, const Image* src, Image* scratch, int32_t radius, Pel* pel)
    ZVT4_NAME(sum_sqre_u32_to_u32);

Status box_blur_u8(Image* dst, const Image* src, Image* scratch, Image* rowScratch, int32_t width, int32_t height,
                   Pel* pel) ZVT4_NAME(box_blur_u8);
Status box_blur_u88(Image* dst, const Image* src, Image* scratch, Image* rowScratch, int32_t width, int32_t height,
                    Pel* pel) ZVT4_NAME(box_blur_u88);
Status box_blur_u16(Image* dst, const Image* src, Image* scratch, Image* rowScratch, int32_t width, int32_t height,
                    Pel* pel) ZVT4_NAME(box_blur_u16);
}

#endif  // ZVT4_IMAGEPROC_WINDOW_SUMS_H_
