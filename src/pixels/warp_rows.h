// Row kernels of the engine's warps: bilinear interpolation of neighbours that lie in four arrays, and the blend into
// an accumulator.
//
// Byte j of a row belongs to the item k = j / channels with position p = start + k x step on each axis (Q15).
//
//   coarse  f = (p >> 8) & 127, one rounding:
//           (((128 - fx) a + fx b) (128 - fy) + ((128 - fx) c + fx d) fy + 8192) >> 14
//   fine    f = p & 0x7fff, cut at each stage: top = (a (0x8000 - fx) + b fx) >> 10, bottom likewise from c, d,
//           (top (0x8000 - fy) + bottom fy) >> 20
//   blend   (w acc + (128 - w) s + 64) >> 7
//
// All is done in 16-bit lanes; warp_rows.cpp shows why that gives the same bits. Four equal neighbours come out
// unchanged in both forms, and s = acc leaves acc alone whatever w is: edges need no code here.
//
// A table is one build of the kernels; all tables give the same bytes. dst does not overlap the neighbours.
#ifndef ZVT4_PIXELS_WARP_ROWS_H_
#define ZVT4_PIXELS_WARP_ROWS_H_

#include "base/cpu_level.h"
#include "pixels/warp_span.h"

// count: bytes.
using WarpRow = void (*)(uint8_t* dst, const WarpTaps& taps, const WarpLine& line, int32_t count);
using WarpBlendRow = void (*)(uint8_t* acc, const WarpTaps& taps, const WarpLine& line, const uint8_t* weights,
                              int32_t count);

struct WarpRows {
  const char* name;
  WarpRow coarseLuma;
  WarpRow coarseChroma;
  WarpRow fineLuma;
  WarpRow fineChroma;
  WarpBlendRow blendLuma;    // coarse
  WarpBlendRow blendChroma;  // fine
};

const WarpRows* warpRowsOf(CpuLevel level);

#endif  // ZVT4_PIXELS_WARP_ROWS_H_
