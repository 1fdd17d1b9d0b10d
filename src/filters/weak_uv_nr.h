// Weak chroma noise reduction: a guided filter in colour that removes low-frequency colour noise from chroma.
//
// On a copy of trunc(W / s + 0.5) by trunc(H / s + 0.5) pixels each cell of 2x2 pixels gets the nine sums of Y, U, V,
// their squares and products (integers), added up over a window of 2 (b >> 1) + 1 cells in both directions. With
// n = 4 b b, covariances such as Cyu = SYU - SY SU / n, and R(p) = p p n m m / 1024 for map value m, a cell's model is
//   (Cyy + R(y)  Cyu         Cyv       )        (Cyu)                (Cyv)
//   (Cyu         Cuu + R(u)  Cuv       ) aU  =  (Cuu),   ..   aV  =  (Cuv),   b = (S - a . (SY, SU, SV)) / n
//   (Cyv         Cuv         Cvv + R(v))        (Cuv)                (Cvv)
// solved by the inverse matrix, its cofactors times one reciprocal of the determinant. The eight coefficients are
// averaged over the same window, stretched to the chroma plane by linear interpolation, and applied:
//   byte = trunc(clamp(k (q - 128) + 128, 0, 255)), NaN gives 0, with q = a . (y, c0, c1) + b between two rows
//
// All floats are of 32 bits. Sums go from left to right as written; window sums slide along the line from
// (r + 1) x first + the next r cells, then the entering cell is added before the leaving one is subtracted; each
// direction multiplies by 1 / (2 r + 1) at its end. Cells beyond an edge repeat the edge cell.
//
// dst and src: semi-planar YUV, luma and pairs of the same sizes; they may be one image. Luma of dst is not written.
// map: luma's size, or none, which stands for 32 everywhere, R(p) = p p n. Its shrunk form is read at the indices of
// the cells, without further scaling. Scratch: at most the model (8 floats a cell), then its rows stretched to the
// chroma width. Each stage is one run over its lines in min(5 x workers, lines) parts, any split gives the same bytes.
// Published method: He, Sun, Tang, "Guided image filtering", 2010, with a colour guide.
//
// ZELVAN_ERROR_PARAM for null images other than map, null parameters, a size that does not shrink (s below 2) or leaves
// no cell, and a negative b; ZELVAN_ERROR_NOMEM. The first failing step ends the run.
#ifndef ZVT4_FILTERS_WEAK_UV_NR_H_
#define ZVT4_FILTERS_WEAK_UV_NR_H_

#include "image/image.h"
#include "parallel/pel.h"

struct WeakUvNrParams {
  int32_t enable;  // read by the caller
  int32_t shrink;  // s
  int32_t window;  // b, in cells
  float regularisationY;
  float regularisationU;  // chroma byte 0
  float regularisationV;  // chroma byte 1
  float gain;             // k
};

Status weakUvNr(Env* env, Pel* pel, Image* dst, const Image* src, const Image* map, const WeakUvNrParams* params);

#endif  // ZVT4_FILTERS_WEAK_UV_NR_H_
