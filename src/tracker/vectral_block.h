// Blocks of the tracker: a 7x7 neighbourhood of a feature point, found again in another image of the same level.
#ifndef ZVT4_TRACKER_VECTRAL_BLOCK_H_
#define ZVT4_TRACKER_VECTRAL_BLOCK_H_

#include "image/image.h"

inline constexpr int32_t VECTRAL_POS_LOST = static_cast<int32_t>(0xC0000000u);
inline constexpr int32_t VECTRAL_POS_OUTSIDE = static_cast<int32_t>(0xE0000000u);

struct VectralBlockFuncTbl {
  // x, y integer pixels. Nonzero: no block can be made here.
  Status (*init)(void* block, const Image* image, int32_t x, int32_t y, int32_t strength);
  // x, y in Q15, in and out; range in pixels (two radii for the hybrid form).
  Status (*alignment)(const void* block, const Image* image, int32_t* x, int32_t* y, const int32_t* range,
                      int32_t* rel);
  int32_t (*getPackedSize)(const void* block);
  Status (*pack)(void* block, void* out, int32_t x, int32_t y, int32_t strength);
  Status (*unpack)(void* block, int32_t* x, int32_t* y, int32_t* strength, const void* in);
};

struct VectralBlockBM7x7 {
  uint8_t pixels[49];
  int32_t x;
  int32_t y;
  int32_t strength;
  int32_t meanStat;  // mean in 16.16
};

struct VectralBlockICIA7x7 {
  int32_t grad[7][7][2];  // per pixel gx, gy
  int32_t selfX;
  int32_t selfY;
  int32_t hessX;
  int32_t hessY;
};

struct VectralBlockHybrid {
  int32_t kind;  // block type of the inner form: 0, 1 or 3
  VectralBlockFuncTbl table;
  union {
    VectralBlockBM7x7 bm;
    VectralBlockICIA7x7 icia;
  } inner;
};

extern "C" {
Status VectralBlock_getFuncTbl(VectralBlockFuncTbl* table, int32_t blockType) ZVT4_NAME(VectralBlock_getFuncTbl);
Status VectralBlockBM7x7_init(void* block, const Image* image, int32_t x, int32_t y, int32_t strength)
    ZVT4_NAME(VectralBlockBM7x7_init);
Status VectralBlockBM7x7_alignment(const void* block, const Image* image, int32_t* x, int32_t* y, const int32_t* range,
                                   int32_t* rel) ZVT4_NAME(VectralBlockBM7x7_alignment);
Status VectralBlockBM7x7_alignmentWithRel(const void* block, const Image* image, int32_t* x, int32_t* y,
                                          const int32_t* range, int32_t* rel)
    ZVT4_NAME(VectralBlockBM7x7_alignmentWithRel);
Status VectralBlockBM7x7_evalCandidate(const void* block, const Image* image, int32_t cx, int32_t cy, int32_t* bestX,
                                       int32_t* bestY, int32_t* bestCost) ZVT4_NAME(VectralBlockBM7x7_evalCandidate);
Status VectralBlockICIA7x7_init(void* block, const Image* image, int32_t x, int32_t y, int32_t strength)
    ZVT4_NAME(VectralBlockICIA7x7_init);
Status VectralBlockICIA7x7_alignment(const void* block, const Image* image, int32_t* x, int32_t* y,
                                     const int32_t* range, int32_t* rel) ZVT4_NAME(VectralBlockICIA7x7_alignment);
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

#endif  // ZVT4_TRACKER_VECTRAL_BLOCK_H_
