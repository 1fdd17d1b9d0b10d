// General warp of a whole picture by a motion or from a quadrilateral.
//
// A motion takes the destination pixel (x, y) to the source position (X / W, Y / W), X = h0 x + h1 y + h2,
// Y = h3 x + h4 y + h5, W = h6 x + h7 y + h8. It is followed exactly at the corners of tiles only, in double precision
// and rounded to Q15 by trunc(v + 0.5); in between positions are bilinear (Heckbert, Fundamentals of Texture Mapping
// and Image Warping, 1989): the left and the right edge of a tile advance by the integer step (bottom - top) / rows,
// the pixels of a row by (right - left) / columns, both cut toward zero. A tile is dropped, which leaves its pixels as
// they are, when a corner has W <= 1e-16 or lies beyond 2^30 in Q15.
//
// Sampling, per axis, of a source of n pixels and a position p in Q15; a pixel takes the worse of its two axes:
//   0x8000 <= p < (n - 1) 0x8000    bilinear with weights of 7 bits
//   0 <= p < n 0x8000               the outermost pixels: the sample at p >> 15 of both axes
//   else                            outside: the destination keeps its pixel
// A tile whose corners all stand at least 0x8000 from the left and the top and 0x18000 from n 0x8000 is bilinear
// throughout. With a, b the neighbours above, c, d those below, fx, fy the weights of b over a and of below over above:
//   ImageProc_   f = (p >> 8) & 127, (((128-fx) a + fx b) (128-fy) + ((128-fx) c + fx d) fy + 8192) >> 14
//   ImageProc2_  f = ((p & 0x7fff) + 128) >> 8, top = ((128-fx) a + fx b + 64) >> 7, bottom likewise from c, d,
//                ((128-fy) top + fy bottom + 64) >> 7
//
// ImageProc_render, _wParam: tiles of 128 x 128, counted from the start of each of four slices of rows that end at
// (H/4) & ~31, (H/2) & ~31, (3H/4) & ~31 and H. Formats 27, 29, 57 and 4 to 15 (each of the four bytes by itself). The
// chroma of a tile is warped as a quad of its own, with all corners at half their coordinates, destination and source,
// cut down to whole Q15. Each slice takes a row of 16-bit words (source width + 8) from the arena and gives it back.
// ImageProc_render leaves the rows of a slice that gets none as they are and reports nothing; _wParam returns
// ZELVAN_ERROR_NOMEM, else the first failing status of its forks.
//
// ImageProc_render_with4Points: one quad, given by four corners in Q15 in order round it (either way), in place of the
// tiles. Also 58 and 61. The corners of the destination form a convex quad, else ZELVAN_ERROR_PARAM. Destination
// (x, y) belongs to the quad when its position lies inside; the left and top outlines count as inside. Edge and row
// steps are taken per pixel as above, with edges that begin between two rows met at the row. The quad may reach beyond
// the picture; corners beyond 2^30 drop it. No scratch.
//
// ImageProc2_render: 27, 29, 57 and 61, else ZELVAN_ERROR_UNSUPPORTED; ZELVAN_ERROR_PARAM when the formats differ.
// Tiles of 32 x 32, counted from the origin. Luma and chroma are two runs; the motion of the chroma is that of the luma
// in a frame scaled by chroma width / luma width. Scratch: a record for each column of tiles and worker, else
// ZELVAN_ERROR_NOMEM.
//
// All: dst and src have one format (other combinations and formats of the executor form: ZELVAN_ERROR_GENERAL), any two
// sizes, and do not overlap. Null arguments and empty images give ZELVAN_ERROR_PARAM. Rows are independent and tiles do
// not depend on the number of threads: any number gives the same bits.
#ifndef ZVT4_IMAGEPROC_RENDER_H_
#define ZVT4_IMAGEPROC_RENDER_H_

#include "imageproc/image_proc.h"
#include "motion/mvec8_real.h"

// Switches of the tile kernel; zero is what ImageProc_render does.
struct ImageProcRenderParam {
  int32_t fillOutside;  // nonzero: pixels outside the source become black (0, chroma 128)
  int32_t fillDropped;  // nonzero: so do the pixels of dropped tiles
  int32_t clipColumns;  // nonzero: the outermost columns of the source count as outside
  int32_t clipRows;     // nonzero: the outermost rows of the source count as outside
};

extern "C" {
Status ImageProc_render(ImageProc* proc, Image* dst, const Image* src, const Mvec8Real* motion)
    ZVT4_NAME(ImageProc_render);
Status ImageProc_render_wParam(ImageProc* proc, const ImageProcRenderParam* param, Image* dst, const Image* src,
                               const Mvec8Real* motion) ZVT4_NAME(ImageProc_render_wParam);
Status ImageProc_render_with4Points(ImageProc* proc, Image* dst, const int32_t* dstX, const int32_t* dstY,
                                    const Image* src, const int32_t* srcX, const int32_t* srcY)
    ZVT4_NAME(ImageProc_render_with4Points);
Status ImageProc2_render(ImageProc2* proc, Image* dst, const Image* src, const Mvec8Real* motion)
    ZVT4_NAME(ImageProc2_render);
// Arena bytes that ImageProc2_render may need for a destination of this size, with a worker for every processor.
int32_t ImageProc2_getBufferSizeForRender(int32_t width, int32_t height) ZVT4_NAME(ImageProc2_getBufferSizeForRender);
}

#endif  // ZVT4_IMAGEPROC_RENDER_H_
