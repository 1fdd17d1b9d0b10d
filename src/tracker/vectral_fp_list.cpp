// The points of a level: storage, making, copies and dumps.
#include "tracker/vectral_fp_list.h"

#include <algorithm>

#include "base/integer.h"

namespace {

constexpr int32_t kBlockMargin = 4;  // the fine alignment takes gradients one pixel beyond its window

template <typename T>
bool allocate(Env* env, T** out, int32_t count) {
  const uint64_t bytes = uint64_t{sizeof(T)} * static_cast<uint32_t>(count);
  *out = bytes <= UINT32_MAX ? static_cast<T*>(Heap2_malloc(&env->heap, static_cast<uint32_t>(bytes))) : nullptr;
  return *out != nullptr;
}

// Arrays, blocks and a cleared history for count points. On a failure the list is cleared.
Status allocatePoints(VectralFPList* list, int32_t count) {
  Env* const env = list->env;
  if (!allocate(env, &list->baseX, count) || !allocate(env, &list->baseY, count) ||
      !allocate(env, &list->curX, count) || !allocate(env, &list->curY, count) ||
      !allocate(env, &list->strength, count) || !allocate(env, &list->inlier, count) ||
      !allocate(env, &list->blocks, count) || !allocate(env, &list->history, count)) {
    VectralFPList_clear(list);
    return ZELVAN_ERROR_NOMEM;
  }
  std::fill_n(list->inlier, count, 0);
  std::fill_n(list->history, count, VectralFPHistory{0, 0});
  return ZELVAN_OK;
}

template <typename T>
void release(Env* env, T** array) {
  if (env != nullptr) Heap2_free(&env->heap, *array);
  *array = nullptr;
}

// Empties the list for points of another type.
Status restart(VectralFPList* list, int32_t blockType) {
  VectralFPList_clear(list);
  list->blockType = blockType;
  return VectralBlock_getFuncTbl(&list->table, blockType);
}

}  // namespace

Status construct_VectralFPList(VectralFPList* list, Env* env) {
  if (list == nullptr) return ZELVAN_ERROR_PARAM;
  *list = {};
  list->env = env;
  return VectralBlock_getFuncTbl(&list->table, 2);
}

Status destruct_VectralFPList(VectralFPList* list) {
  const Status status = VectralFPList_clear(list);
  if (list != nullptr) *list = {};
  return status;
}

Status VectralFPList_clear(VectralFPList* list) {
  if (list == nullptr) return ZELVAN_ERROR_PARAM;
  release(list->env, &list->baseX);
  release(list->env, &list->baseY);
  release(list->env, &list->curX);
  release(list->env, &list->curY);
  release(list->env, &list->strength);
  release(list->env, &list->inlier);
  release(list->env, &list->blocks);
  release(list->env, &list->history);
  list->count = 0;
  return ZELVAN_OK;
}

Status VectralFPList_set(VectralFPList* list, const FeatPntList* feats, const Image* image, int32_t blockType) {
  if (list == nullptr || feats == nullptr || image == nullptr) return ZELVAN_ERROR_PARAM;
  if (const Status s = restart(list, blockType); s != ZELVAN_OK) return s;
  if (feats->count < 1) return ZELVAN_OK;
  if (const Status s = allocatePoints(list, feats->count); s != ZELVAN_OK) return s;
  int32_t k = 0;
  for (int32_t i = 0; i < feats->count; ++i) {
    const FeatPnt& feat = feats->pnts[i];
    list->baseX[k] = feat.x;
    list->baseY[k] = feat.y;
    list->strength[k] = feat.strength;
    list->curX[k] = VECTRAL_POS_LOST;
    list->curY[k] = VECTRAL_POS_LOST;
    if (feat.x < kBlockMargin || feat.x >= image->width - kBlockMargin) continue;
    if (feat.y < kBlockMargin || feat.y >= image->height - kBlockMargin) continue;
    if (list->table.init(&list->blocks[k], image, feat.x, feat.y, feat.strength) == ZELVAN_OK) ++k;
  }
  list->count = k;
  return ZELVAN_OK;
}

Status VectralFPList_updateSt(VectralFPList* list, const Mvec8Real* motion) {
  if (list == nullptr || motion == nullptr) return ZELVAN_ERROR_PARAM;
  ++list->updateCount;
  for (int32_t i = 0; i < list->count; ++i) {
    if (list->curX[i] < 0) continue;
    int32_t px = 0;
    int32_t py = 0;
    Mvec8Real_trans2DF32(motion, &px, &py, wrapShl(list->baseX[i], 15), wrapShl(list->baseY[i], 15));
    const int32_t dx = wrapSub(list->curX[i], px) >> 10;
    const int32_t dy = wrapSub(list->curY[i], py) >> 10;
    VectralFPHistory& history = list->history[i];
    history.sum = wrapAdd(history.sum, wrapAdd(wrapMul(dx, dx), wrapMul(dy, dy)) >> 5);
    ++history.count;
  }
  return ZELVAN_OK;
}

Status VectralFPList_copy(VectralFPList* dst, const VectralFPList* src) {
  if (dst == nullptr || src == nullptr) return ZELVAN_ERROR_PARAM;
  if (dst == src) return ZELVAN_OK;
  VectralFPList_clear(dst);
  if (src->count > 0) {
    if (const Status s = allocatePoints(dst, src->count); s != ZELVAN_OK) return s;
    std::copy_n(src->baseX, src->count, dst->baseX);
    std::copy_n(src->baseY, src->count, dst->baseY);
    std::copy_n(src->curX, src->count, dst->curX);
    std::copy_n(src->curY, src->count, dst->curY);
    std::copy_n(src->strength, src->count, dst->strength);
    std::copy_n(src->inlier, src->count, dst->inlier);
    std::copy_n(src->history, src->count, dst->history);
    std::copy_n(src->blocks, src->count, dst->blocks);
  }
  dst->count = src->count;
  dst->blockType = src->blockType;
  dst->updateCount = src->updateCount;
  dst->table = src->table;
  dst->lensContext = src->lensContext;
  dst->lensUndistort = src->lensUndistort;
  dst->lensDistort = src->lensDistort;
  return ZELVAN_OK;
}

Status VectralFPList_getDumpSize(const VectralFPList* list, int32_t* out) {
  if (list == nullptr || out == nullptr) return ZELVAN_ERROR_PARAM;
  int32_t size = 0;
  for (int32_t i = 0; i < list->count; ++i) size += list->table.getPackedSize(&list->blocks[i]);
  *out = size;
  return ZELVAN_OK;
}

Status VectralFPList_dumpPacked(const VectralFPList* list, void* out) {
  if (list == nullptr || out == nullptr) return ZELVAN_ERROR_PARAM;
  auto* to = static_cast<uint8_t*>(out);
  Status status = ZELVAN_OK;
  for (int32_t i = 0; i < list->count; ++i) {
    VectralBlockHybrid* const block = &list->blocks[i];
    status |= list->table.pack(block, to, list->baseX[i], list->baseY[i], list->strength[i]);
    to += list->table.getPackedSize(block);
  }
  return status;
}

Status VectralFPList_loadPacked(VectralFPList* list, int32_t count, const void* data, int32_t blockType) {
  if (list == nullptr || data == nullptr) return ZELVAN_OK;
  if (const Status s = restart(list, blockType); s != ZELVAN_OK) return s;
  if (const Status s = allocatePoints(list, std::max(count, 1)); s != ZELVAN_OK) return s;
  const auto* from = static_cast<const uint8_t*>(data);
  Status status = ZELVAN_OK;
  for (int32_t i = 0; i < count; ++i) {
    VectralBlockHybrid* const block = &list->blocks[i];
    list->baseX[i] = 0;
    list->baseY[i] = 0;
    list->strength[i] = 0;
    status |= list->table.unpack(block, &list->baseX[i], &list->baseY[i], &list->strength[i], from);
    from += list->table.getPackedSize(block);
    list->curX[i] = VECTRAL_POS_LOST;
    list->curY[i] = VECTRAL_POS_LOST;
  }
  list->count = std::max(count, 0);
  return status;
}
