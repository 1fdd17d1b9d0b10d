// Blocks of the tracker: each remembers the 7x7 neighbourhood of one feature point of a base image and later finds it
// in another UINT8 image of the same size, starting from a predicted position. Three forms stand behind one table:
//
//   VectralBlockBM7x7     block matching: the sum of absolute differences without the mean difference, over a square of
//                         candidates; result in whole pixels
//   VectralBlockICIA7x7   inverse compositional image alignment in pure translation (S. Baker, I. Matthews,
//                         "Lucas-Kanade 20 Years On", IJCV 2004), integers only; result in 1/32 pixel
//   VectralBlockHybrid    one of the two, chosen per point by its strength when the block is made
//
// Storage belongs to the caller, who gives a slot large enough for the form; a block never allocates. init takes whole
// pixels, alignment Q15. A tracked position is 0 or more; a lost one is VECTRAL_POS_LOST in both coordinates.
// Alignments read block and image and write only x, y and rel: different points may run on different threads.
#ifndef ZVT4_TRACKER_VECTRAL_BLOCK_H_
#define ZVT4_TRACKER_VECTRAL_BLOCK_H_

#include "image/image.h"

// Marks in place of a Q15 coordinate. Both are negative.
inline constexpr int32_t VECTRAL_POS_LOST = static_cast<int32_t>(0xC0000000u);     // not tracked yet, or given up
inline constexpr int32_t VECTRAL_POS_OUTSIDE = static_cast<int32_t>(0xE0000000u);  // the prediction left the image

struct VectralBlockFuncTbl {
  // strength: that of the feature, 0 to 255 or -1. Nonzero result: no block can be made here.
  Status (*init)(void* block, const Image* image, int32_t x, int32_t y, int32_t strength);
  // x, y: the prediction in, the outcome out. range: the radius in pixels; for the hybrid form two radii, that of the
  // fine alignment and that of the matching. rel: written only by the form that measures it. Always ZELVAN_OK.
  Status (*alignment)(const void* block, const Image* image, int32_t* x, int32_t* y, const int32_t* range,
                      int32_t* rel);
  int32_t (*getPackedSize)(const void* block);
  // The packed forms have no alignment and the byte order of the machine. x, y and strength of the point travel along.
  Status (*pack)(void* block, void* out, int32_t x, int32_t y, int32_t strength);
  Status (*unpack)(void* block, int32_t* x, int32_t* y, int32_t* strength, const void* in);
};

struct VectralBlockBM7x7 {
  uint8_t pixels[49];  // row by row
  int32_t x;           // x, y, strength: filled by pack
  int32_t y;
  int32_t strength;
  int32_t meanStat;  // mean of the pixels in 16.16
};

struct VectralBlockICIA7x7 {
  int32_t grad[7][7][2];  // per pixel, row by row: gx, gy, each -255 to 255
  int32_t selfX;          // sum of gx x pixel, and of gy x pixel, times 32
  int32_t selfY;
  int32_t hessX;  // half the sum of gx x gx, and of gy x gy; above 0 in every block that init accepted
  int32_t hessY;
};

struct VectralBlockHybrid {
  int32_t kind;               // block type of the inner form: 0, 1 or 3
  VectralBlockFuncTbl table;  // functions of the inner form
  union {
    VectralBlockBM7x7 bm;
    VectralBlockICIA7x7 icia;
  } inner;
};

extern "C" {
// Clears the table and fills it.
//   0  ICIA7x7     1  BM7x7     2  hybrid, matching below strength 31
//   3  BM7x7 with measured reliability     4  hybrid, fine alignment above strength 50, else type 3
// ZELVAN_ERROR_PARAM, and no functions, for any other type.
Status VectralBlock_getFuncTbl(VectralBlockFuncTbl* table, int32_t blockType) ZVT4_NAME(VectralBlock_getFuncTbl);

// Block matching.
// init: ZELVAN_ERROR_GENERAL unless the window lies in the image.
// alignment: visits a square spiral round the whole-pixel part of the prediction; the candidate of least cost wins, the
//   earlier one on a tie. A prediction closer to the border than range + 3 is returned as it came.
// alignmentWithRel: the same winner, and *rel = the margin of the second lowest cost over the lowest, in grey levels
//   summed over the block, rounded up, 0 to 255. rel may be null.
// evalCandidate: costs one candidate; takes it into bestX, bestY, bestCost if it is strictly better. Candidates whose
//   window leaves the image are ignored.
Status VectralBlockBM7x7_init(void* block, const Image* image, int32_t x, int32_t y, int32_t strength)
    ZVT4_NAME(VectralBlockBM7x7_init);
Status VectralBlockBM7x7_alignment(const void* block, const Image* image, int32_t* x, int32_t* y, const int32_t* range,
                                   int32_t* rel) ZVT4_NAME(VectralBlockBM7x7_alignment);
Status VectralBlockBM7x7_alignmentWithRel(const void* block, const Image* image, int32_t* x, int32_t* y,
                                          const int32_t* range, int32_t* rel)
    ZVT4_NAME(VectralBlockBM7x7_alignmentWithRel);
Status VectralBlockBM7x7_evalCandidate(const void* block, const Image* image, int32_t cx, int32_t cy, int32_t* bestX,
                                       int32_t* bestY, int32_t* bestCost) ZVT4_NAME(VectralBlockBM7x7_evalCandidate);

// Inverse compositional alignment: Gauss-Newton on a diagonal Hessian with the gradients of the template, so that a
// step takes only the correlation of the gradients with the image, interpolated bilinearly between four whole-pixel
// sums.
// init: the caller leaves a margin of 4 pixels round (x, y). ZELVAN_ERROR_GENERAL for flat blocks and for edges, where
//   one direction has more than 32 times the energy of the other.
// alignment: up to 20 steps of at most one pixel, until one changes nothing. Lost when the corner of the window leaves
//   the range or the image, when two positions alternate, or when the steps run out. rel is not used.
Status VectralBlockICIA7x7_init(void* block, const Image* image, int32_t x, int32_t y, int32_t strength)
    ZVT4_NAME(VectralBlockICIA7x7_init);
Status VectralBlockICIA7x7_alignment(const void* block, const Image* image, int32_t* x, int32_t* y,
                                     const int32_t* range, int32_t* rel) ZVT4_NAME(VectralBlockICIA7x7_alignment);

// Hybrid. The inits return the status of the chosen form: a point that the fine alignment refuses is not handed to the
// matching. unpack: ZELVAN_ERROR_PARAM for a kind that is no inner form; such a block aligns to its prediction.
Status VectralBlockHybrid_init(void* block, const Image* image, int32_t x, int32_t y, int32_t strength)
    ZVT4_NAME(VectralBlockHybrid_init);
Status VectralBlockHybrid_init2(void* block, const Image* image, int32_t x, int32_t y, int32_t strength)
    ZVT4_NAME(VectralBlockHybrid_init2);
Status VectralBlockHybrid_alignment(const void* block, const Image* image, int32_t* x, int32_t* y, const int32_t* range,
                                    int32_t* rel) ZVT4_NAME(VectralBlockHybrid_alignment);
Status VectralBlockHybrid_pack(void* block, void* out, int32_t x, int32_t y, int32_t strength)
    ZVT4_NAME(VectralBlockHybrid_pack);
Status VectralBlockHybrid_unpack(void* block, int32_t* x, int32_t* y, int32_t* strength, const void* in)
    ZVT4_NAME(VectralBlockHybrid_unpack);
}

// Reached through the table only. Packed sizes: 68 bytes, 136 bytes, and 140 for the hybrid form whatever its kind
// (with an inner matching block the last 68 of them are not written).
int32_t VectralBlockBM7x7_getPackedSize(const void* block);
Status VectralBlockBM7x7_pack(void* block, void* out, int32_t x, int32_t y, int32_t strength);
Status VectralBlockBM7x7_unpack(void* block, int32_t* x, int32_t* y, int32_t* strength, const void* in);
int32_t VectralBlockICIA7x7_getPackedSize(const void* block);
Status VectralBlockICIA7x7_pack(void* block, void* out, int32_t x, int32_t y, int32_t strength);
Status VectralBlockICIA7x7_unpack(void* block, int32_t* x, int32_t* y, int32_t* strength, const void* in);
int32_t VectralBlockHybrid_getPackedSize(const void* block);

#endif  // ZVT4_TRACKER_VECTRAL_BLOCK_H_
