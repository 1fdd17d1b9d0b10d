// The feature data of a base as a byte stream, so that another instance can track against it.
#include <cstring>

#include "tracker/vectral.h"

namespace {

class Writer {
 public:
  explicit Writer(void* out) : next_(static_cast<uint8_t*>(out)) {}
  void putInt(int32_t value) { putBytes(&value, sizeof value); }
  void putBytes(const void* bytes, size_t count) {
    std::memcpy(next_, bytes, count);
    next_ += count;
  }
  Status putList(const VectralFPList* list) {
    int32_t size = 0;
    putInt(list->count);
    Status status = VectralFPList_getDumpSize(list, &size);
    status |= VectralFPList_dumpPacked(list, next_);
    next_ += size;
    return status;
  }

 private:
  uint8_t* next_;
};

class Reader {
 public:
  explicit Reader(const void* in) : next_(static_cast<const uint8_t*>(in)) {}
  int32_t getInt() {
    int32_t value;
    getBytes(&value, sizeof value);
    return value;
  }
  void getBytes(void* bytes, size_t count) {
    std::memcpy(bytes, next_, count);
    next_ += count;
  }
  // False for a negative number of points.
  bool getList(VectralFPList* list, int32_t blockType) {
    const int32_t count = getInt();
    if (count < 0) return false;
    VectralFPList_loadPacked(list, count, next_, blockType);
    next_ += static_cast<size_t>(packedSize(blockType)) * static_cast<size_t>(count);
    return true;
  }

 private:
  // All blocks of a type take the same room; a list that the arena refused doesn't tell how much.
  static int32_t packedSize(int32_t blockType) {
    VectralBlockFuncTbl table = {};
    VectralBlockHybrid block = {};
    if (VectralBlock_getFuncTbl(&table, blockType) != ZELVAN_OK) return 0;
    return table.getPackedSize(&block);
  }

  const uint8_t* next_;
};

// Bytes of the coarsest base level, as its stream form counts them.
size_t coarsestBytes(const Image* image) {
  return image->plane0 == nullptr ? 0 : static_cast<size_t>(image->width) * static_cast<size_t>(image->height);
}

Status requireBase(const Vectral* self) {
  return self->state == VECTRAL_BASED && self->fpLists != nullptr ? ZELVAN_OK : ZELVAN_ERROR_STATE;
}

}  // namespace

Status Vectral_getFeatDataSize(Vectral* self, int32_t* outSize, int32_t withImage) {
  if (self == nullptr || outSize == nullptr) return ZELVAN_ERROR_PARAM;
  if (const Status s = requireBase(self); s != ZELVAN_OK) return s;
  Status status = ZELVAN_OK;
  int32_t size = 4 + 4 * self->resoNum;
  for (int32_t level = 0; level < self->resoNum; ++level) {
    int32_t listSize = 0;
    status |= VectralFPList_getDumpSize(&self->fpLists[level], &listSize);
    size += listSize;
  }
  if (self->fullResEnabled != 0) {
    int32_t listSize = 0;
    status |= VectralFPList_getDumpSize(&self->fullResFpList, &listSize);
    size += 8 + listSize;
  } else {
    size += 4;
  }
  size += 4;
  if (withImage != 0) {
    size += static_cast<int32_t>((coarsestBytes(&self->baseImages[self->resoNum - 1]) + 3) & ~size_t{3});
  }
  *outSize = size;
  return status;
}

Status Vectral_dumpFeatData(Vectral* self, void* buffer, int32_t withImage) {
  if (self == nullptr || buffer == nullptr) return ZELVAN_ERROR_PARAM;
  if (const Status s = requireBase(self); s != ZELVAN_OK) return s;
  Writer writer(buffer);
  Status status = ZELVAN_OK;
  writer.putInt(self->resoNum);
  for (int32_t level = 0; level < self->resoNum; ++level) status |= writer.putList(&self->fpLists[level]);
  writer.putInt(self->fullResEnabled);
  if (self->fullResEnabled != 0) status |= writer.putList(&self->fullResFpList);
  writer.putInt(withImage);
  if (withImage != 0) {
    const Image* const coarsest = &self->baseImages[self->resoNum - 1];
    if (const size_t bytes = coarsestBytes(coarsest); bytes != 0) writer.putBytes(coarsest->plane0, bytes);
  }
  return status;
}

Status Vectral_loadFeatData(Vectral* self, const void* buffer) {
  if (self == nullptr || buffer == nullptr) return ZELVAN_ERROR_PARAM;
  if (self->state == VECTRAL_NEW || self->fpLists == nullptr) return ZELVAN_ERROR_STATE;
  Reader reader(buffer);
  const int32_t levels = reader.getInt();
  if (levels < 0 || levels > self->resoNum) return ZELVAN_ERROR_PARAM;
  for (int32_t level = 0; level < levels; ++level) {
    if (!reader.getList(&self->fpLists[level], self->blockType)) return ZELVAN_ERROR_PARAM;
  }
  self->fullResEnabled = reader.getInt();
  if (self->fullResEnabled != 0 && !reader.getList(&self->fullResFpList, self->blockType)) return ZELVAN_ERROR_PARAM;
  if (reader.getInt() != 0) {
    const Image* const coarsest = &self->baseImages[self->resoNum - 1];
    if (const size_t bytes = coarsestBytes(coarsest); bytes != 0) reader.getBytes(coarsest->plane0, bytes);
  }
  self->state = VECTRAL_BASED;
  return ZELVAN_OK;
}
