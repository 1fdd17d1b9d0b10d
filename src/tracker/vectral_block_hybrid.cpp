// The table of block forms, and the form that chooses one of the others per point.
#include <cstring>

#include "tracker/vectral_block.h"

namespace {

enum BlockType : int32_t {
  kFineAlignment = 0,
  kMatching = 1,
  kMatchingWithRel = 3,
};

constexpr VectralBlockFuncTbl kForms[] = {
    {VectralBlockICIA7x7_init, VectralBlockICIA7x7_alignment, VectralBlockICIA7x7_getPackedSize,
     VectralBlockICIA7x7_pack, VectralBlockICIA7x7_unpack},
    {VectralBlockBM7x7_init, VectralBlockBM7x7_alignment, VectralBlockBM7x7_getPackedSize, VectralBlockBM7x7_pack,
     VectralBlockBM7x7_unpack},
    {VectralBlockHybrid_init, VectralBlockHybrid_alignment, VectralBlockHybrid_getPackedSize, VectralBlockHybrid_pack,
     VectralBlockHybrid_unpack},
    {VectralBlockBM7x7_init, VectralBlockBM7x7_alignmentWithRel, VectralBlockBM7x7_getPackedSize,
     VectralBlockBM7x7_pack, VectralBlockBM7x7_unpack},
    {VectralBlockHybrid_init2, VectralBlockHybrid_alignment, VectralBlockHybrid_getPackedSize, VectralBlockHybrid_pack,
     VectralBlockHybrid_unpack},
};
constexpr int32_t kFormCount = sizeof(kForms) / sizeof(kForms[0]);

constexpr int32_t kPackedSize = 140;
constexpr int32_t kPackedInner = 4;  // where the inner packed form starts

Status initInner(VectralBlockHybrid* block, int32_t kind, const Image* image, int32_t x, int32_t y) {
  block->kind = kind;
  if (const Status s = VectralBlock_getFuncTbl(&block->table, kind); s != ZELVAN_OK) return s;
  return block->table.init(&block->inner, image, x, y, 0);
}

}  // namespace

Status VectralBlock_getFuncTbl(VectralBlockFuncTbl* table, int32_t blockType) {
  if (table == nullptr) return ZELVAN_ERROR_PARAM;
  if (blockType < 0 || blockType >= kFormCount) {
    *table = {};
    return ZELVAN_ERROR_PARAM;
  }
  *table = kForms[blockType];
  return ZELVAN_OK;
}

Status VectralBlockHybrid_init(void* block, const Image* image, int32_t x, int32_t y, int32_t strength) {
  return initInner(static_cast<VectralBlockHybrid*>(block), strength < 31 ? kMatching : kFineAlignment, image, x, y);
}

Status VectralBlockHybrid_init2(void* block, const Image* image, int32_t x, int32_t y, int32_t strength) {
  return initInner(static_cast<VectralBlockHybrid*>(block), strength > 50 ? kFineAlignment : kMatchingWithRel, image, x,
                   y);
}

Status VectralBlockHybrid_alignment(const void* block, const Image* image, int32_t* x, int32_t* y, const int32_t* range,
                                    int32_t* rel) {
  const auto* const self = static_cast<const VectralBlockHybrid*>(block);
  if (self->table.alignment == nullptr) return ZELVAN_OK;
  const bool matching = self->kind == kMatching || self->kind == kMatchingWithRel;
  return self->table.alignment(&self->inner, image, x, y, &range[matching ? 1 : 0], rel);
}

int32_t VectralBlockHybrid_getPackedSize(const void* /*block*/) {
  return kPackedSize;
}

Status VectralBlockHybrid_pack(void* block, void* out, int32_t x, int32_t y, int32_t strength) {
  auto* const self = static_cast<VectralBlockHybrid*>(block);
  std::memcpy(out, &self->kind, sizeof(self->kind));
  if (self->table.pack == nullptr) return ZELVAN_OK;
  return self->table.pack(&self->inner, static_cast<uint8_t*>(out) + kPackedInner, x, y, strength);
}

Status VectralBlockHybrid_unpack(void* block, int32_t* x, int32_t* y, int32_t* strength, const void* in) {
  auto* const self = static_cast<VectralBlockHybrid*>(block);
  std::memcpy(&self->kind, in, sizeof(self->kind));
  if (self->kind == 2 || self->kind == 4) {  // a hybrid has no room for another one
    self->table = {};
    return ZELVAN_ERROR_PARAM;
  }
  if (const Status s = VectralBlock_getFuncTbl(&self->table, self->kind); s != ZELVAN_OK) return s;
  return self->table.unpack(&self->inner, x, y, strength, static_cast<const uint8_t*>(in) + kPackedInner);
}
