// Tracking the points of a level into another image.
#include <algorithm>

#include "base/integer.h"
#include "base/raw_double.h"
#include "parallel/bands.h"
#include "tracker/vectral_fp_list.h"

namespace {

constexpr int32_t kBorder = 3 << 15;  // a window reaches 3 pixels from its centre
constexpr int32_t kMaxSlices = 16;
constexpr int32_t kMinForked = 65;
constexpr int32_t kMinForkedWithLens = 33;
constexpr int32_t kWindowSide = 7;

struct Position {
  int32_t x;
  int32_t y;
};

struct UpdateJob {
  VectralFPList* list;
  const Image* image;
  const Mvec8Real* motion;
  const int32_t* ranges;
};

struct UpdateSlice {
  const UpdateJob* job;
  int32_t begin;
  int32_t end;
};

Position predict(const VectralFPList* list, const Mvec8Real* motion, int32_t i) {
  Position p = {VECTRAL_POS_OUTSIDE, VECTRAL_POS_OUTSIDE};
  Mvec8Real_trans2DF32(motion, &p.x, &p.y, wrapShl(list->baseX[i], 15), wrapShl(list->baseY[i], 15));
  return p;
}

Position predictWithLens(const VectralFPList* list, const Image* image, const Mvec8Real* motion, int32_t i) {
  const double width = image->width;
  const double height = image->height;
  const double scale = 1.0 / (RawDouble_hypot(width, height) * 0.5);
  double x = list->baseX[i];
  double y = list->baseY[i];
  if (list->lensUndistort != nullptr) list->lensUndistort(list->lensContext, &x, &y, x, y, width, height, scale);
  Mvec8Real_trans2DReal(motion, &x, &y, x, y);
  if (list->lensDistort != nullptr) list->lensDistort(list->lensContext, &x, &y, x, y, width, height, scale);
  return {truncToInt32(x * 32768.0), truncToInt32(y * 32768.0)};
}

bool windowInside(const Image* image, const Position& p) {
  return p.x >= kBorder && p.y >= kBorder && p.x < wrapSub(wrapShl(image->width, 15), kBorder) &&
         p.y < wrapSub(wrapShl(image->height, 15), kBorder);
}

void store(VectralFPList* list, int32_t i, const Position& p) {
  list->curX[i] = p.x;
  list->curY[i] = p.y;
  list->inlier[i] = 0;
}

Status updateSlice(UpdateSlice* slice) {
  const UpdateJob& job = *slice->job;
  VectralFPList* const list = job.list;
  Status status = ZELVAN_OK;
  for (int32_t i = slice->begin; i < slice->end; ++i) {
    Position p =
        list->lensContext == nullptr ? predict(list, job.motion, i) : predictWithLens(list, job.image, job.motion, i);
    if (windowInside(job.image, p)) {
      status |= list->table.alignment(&list->blocks[i], job.image, &p.x, &p.y, job.ranges, &list->strength[i]);
    } else {
      p = {VECTRAL_POS_OUTSIDE, VECTRAL_POS_OUTSIDE};
    }
    store(list, i, p);
  }
  return status;
}

// The radius up to which the blocks of this type look at the image.
int32_t patchRadius(int32_t blockType, const int32_t* ranges) {
  if (blockType > 4) return 0;
  return blockType == 2 || blockType == 4 ? std::max(ranges[0], ranges[1]) : ranges[0];
}

// Fills the patch from the square of its size centred at (centreX, centreY). False: not all of that lies in the image.
bool mapPatch(Image* patch, const Image* image, int32_t centreX, int32_t centreY, const int32_t* table) {
  const int32_t left = centreX - patch->width / 2;
  const int32_t top = centreY - patch->height / 2;
  if (left < 0 || top < 0 || left > image->width - patch->width || top > image->height - patch->height) return false;
  for (int32_t y = 0; y < patch->height; ++y) {
    const uint8_t* const from = imageRow(image, top + y) + left;
    uint8_t* const to = imageRow(patch, y);
    for (int32_t x = 0; x < patch->width; ++x) to[x] = static_cast<uint8_t>(table[from[x]]);
  }
  return true;
}

}  // namespace

Status VectralFPList_updatePos(VectralFPList* list, const Image* image, const Mvec8Real* motion, const int32_t* ranges,
                               ParallelExecutor* executor) {
  if (list == nullptr || image == nullptr || motion == nullptr || ranges == nullptr) return ZELVAN_ERROR_PARAM;
  const UpdateJob job = {list, image, motion, ranges};
  const int32_t minForked = list->lensContext == nullptr ? kMinForked : kMinForkedWithLens;
  const int32_t n = list->count >= minForked ? clampInt(ParallelExecutor_getNumberOfBands(executor), 1, kMaxSlices) : 1;
  return forkBands<UpdateSlice, updateSlice>(executor, n, [&](int32_t k) {
    return UpdateSlice{&job, list->count * k / n, list->count * (k + 1) / n};
  });
}

Status VectralFPList_updatePos2(VectralFPList* list, const Image* image, const Mvec8Real* motion, const int32_t* ranges,
                                int32_t /*mean*/, int32_t /*deviation*/, const int32_t* table) {
  if (list == nullptr || image == nullptr || motion == nullptr || ranges == nullptr || table == nullptr) {
    return ZELVAN_ERROR_PARAM;
  }
  const int32_t side = kWindowSide + 2 * patchRadius(list->blockType, ranges);
  ScopedImage patch(list->env);
  if (const Status s = Image_init(&patch, side, side, nullptr, IMAGE_UINT8); s != ZELVAN_OK) return s;
  Status status = ZELVAN_OK;
  for (int32_t i = 0; i < list->count; ++i) {
    Position p = predict(list, motion, i);
    if (windowInside(image, p) && mapPatch(&patch, image, p.x >> 15, p.y >> 15, table)) {
      const int32_t originX = ((p.x >> 15) - side / 2) * 32768;
      const int32_t originY = ((p.y >> 15) - side / 2) * 32768;
      p.x -= originX;
      p.y -= originY;
      status |= list->table.alignment(&list->blocks[i], &patch, &p.x, &p.y, ranges, &list->strength[i]);
      p.x = wrapAdd(p.x, originX);
      p.y = wrapAdd(p.y, originY);
    } else {
      p = {VECTRAL_POS_OUTSIDE, VECTRAL_POS_OUTSIDE};
    }
    store(list, i, p);
  }
  return status;
}
