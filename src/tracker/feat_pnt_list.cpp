#include "tracker/feat_pnt_list.h"

#include <algorithm>
#include <cstring>

#include "base/integer.h"
#include "parallel/bands.h"

namespace {

constexpr int32_t kDetectorType = 4;
constexpr int32_t kMinLevelSide = 24;
constexpr int32_t kMinStrength = 6;
constexpr int32_t kMaxSlices = 16;

// Samples that have a response, in feature coordinates; the last ones exclusive.
struct SampleRange {
  int32_t firstX;
  int32_t lastX;
  int32_t firstY;
  int32_t lastY;
};

// First sample from half a block on, past the end of those before size - half.
void sampleSpan(int32_t size, int32_t step, int32_t block, int32_t* first, int32_t* last) {
  const int32_t half = block >> 1;
  *first = (half - 1) / step + 1;
  *last = (size - half) / step;
  // The gradients of the window reach from -2 to 3; only blocks below 6 at small steps come that near to the border.
  while (*first * step < 2) ++*first;
  while (*last > *first && (*last - 1) * step + 3 >= size) --*last;
}

SampleRange sampleRange(const Image* image, int32_t step, int32_t block) {
  SampleRange range;
  sampleSpan(image->width, step, block, &range.firstX, &range.lastX);
  sampleSpan(image->height, step, block, &range.firstY, &range.lastY);
  return range;
}

int32_t responseAt(const uint8_t* pixel, ptrdiff_t pitch) {
  int32_t sumXX = 0;
  int32_t sumYY = 0;
  int32_t sumXY = 0;
  for (int32_t v = -1; v <= 2; ++v) {
    const uint8_t* const row = pixel + v * pitch;
    for (int32_t u = -1; u <= 2; ++u) {
      const int32_t dx = row[u + 1] - row[u - 1];
      const int32_t dy = row[u + pitch] - row[u - pitch];
      sumXX += dx * dx;
      sumYY += dy * dy;
      sumXY += dx * dy;
    }
  }
  const int32_t a = sumXX >> 2;
  const int32_t c = sumYY >> 2;
  const int32_t e = sumXY >> 2;
  const auto trace = static_cast<uint32_t>(a + c);
  const int32_t response = wrapSub(wrapSub(wrapMul(a, c), wrapMul(e, e)), static_cast<int32_t>((trace * trace) >> 4));
  return std::max(response, 0);
}

bool isFeatInputValid(const Image* in, int32_t step, int32_t block) {
  return block >= 2 && step >= 1 && in->format == IMAGE_UINT8;
}

// Gives the feature image its size, all responses 0.
Status initFeatImage(Image* out, const Image* in, int32_t step) {
  const int32_t width = (in->width - 1) / step + 1;
  const int32_t height = (in->height - 1) / step + 1;
  if (const Status s = Image_init(out, width, height, nullptr, IMAGE_INT32); s != ZELVAN_OK) return s;
  for (int32_t y = 0; y < height; ++y) std::fill_n(imageRow<int32_t>(out, y), width, 0);
  return ZELVAN_OK;
}

// How a level is tiled.
struct Grid {
  int32_t cell;
  int32_t step;
};

Grid gridFor(const Image* image, int32_t maximum) {
  Grid grid;
  grid.cell = isqrt(wrapMul(image->width, image->height) / maximum);
  if (grid.cell < 5) grid.cell = 4;
  grid.step = grid.cell >= 9 ? std::min(std::max(grid.cell >> 2, 2), 8) : 2;
  return grid;
}

void addBestOfCells(FeatPntList* list, const Image* image, const Image* feat, const Grid& grid, int32_t floorFlag,
                    int32_t scale) {
  for (int32_t top = 0; top < image->height; top += grid.cell) {
    for (int32_t left = 0; left < image->width; left += grid.cell) {
      const ImageRect cell = {left, top, std::min(left + grid.cell, image->width),
                              std::min(top + grid.cell, image->height)};
      FeatPntList_addFeatPnt(list, &cell, feat, grid.step, floorFlag, scale);  // a cell without a corner adds nothing
    }
  }
}

// Splits cells until the list has maximum points or a pass changes nothing.
Status subdivideCells(FeatPntList* list, int32_t maximum, const Image* feat, int32_t step, int32_t scale) {
  while (list->count < maximum) {
    const int32_t before = list->count;
    for (int32_t i = 0; i < before && i < list->count && list->count < maximum; ++i) {
      FeatPntList_div(list, i, feat, step, scale);
    }
    if (const Status s = FeatPntList_strip(list, maximum); s != ZELVAN_OK) return s;
    if (list->count == before) break;
  }
  return ZELVAN_OK;
}

// The feature image by slices. When it can't be made, out stays without a format.
Status calcFeatImageSliced(Image* out, const Image* in, int32_t step, int32_t block, ParallelExecutor* executor) {
  if (!isFeatInputValid(in, step, block)) return ZELVAN_ERROR_PARAM;
  if (const Status s = initFeatImage(out, in, step); s != ZELVAN_OK) return s;
  const SampleRange range = sampleRange(in, step, block);
  const int32_t rows = std::max(range.lastY - range.firstY, 0);
  const int32_t n = clampInt(ParallelExecutor_getNumberOfBands(executor), 1, kMaxSlices);
  return forkBands<FeatImageSlice, VectralFeatPntList_calcSlice>(executor, n, [&](int32_t k) {
    return FeatImageSlice{
        out, in, step, block, range.firstY + rows * k / n, range.firstY + rows * (k + 1) / n,
    };
  });
}

}  // namespace

Status construct_FeatPntList(FeatPntList* list, int32_t capacity, Env* env) {
  if (list == nullptr || capacity < 0 || env == nullptr) return ZELVAN_ERROR_PARAM;
  *list = {nullptr, 0, 0, env};
  const uint64_t bytes = uint64_t{sizeof(FeatPnt)} * static_cast<uint32_t>(capacity);
  if (bytes > UINT32_MAX) return ZELVAN_ERROR_NOMEM;
  list->pnts = static_cast<FeatPnt*>(Heap2_malloc(&env->heap, static_cast<uint32_t>(bytes)));
  if (list->pnts == nullptr) return ZELVAN_ERROR_NOMEM;
  std::memset(list->pnts, 0, bytes);
  list->capacity = capacity;
  return ZELVAN_OK;
}

Status destruct_FeatPntList(FeatPntList* list) {
  if (list == nullptr) return ZELVAN_ERROR_PARAM;
  if (list->env != nullptr) Heap2_free(&list->env->heap, list->pnts);
  *list = {};
  return ZELVAN_OK;
}

Status FeatPntList_init(FeatPntList* list) {
  if (list == nullptr) return ZELVAN_ERROR_PARAM;
  list->count = 0;
  return ZELVAN_OK;
}

Status FeatPntList_add(FeatPntList* list, const FeatPnt* pnt) {
  if (list == nullptr || pnt == nullptr) return ZELVAN_ERROR_PARAM;
  if (list->count >= list->capacity) return ZELVAN_ERROR_STATE;
  list->pnts[list->count] = *pnt;
  return static_cast<Status>(++list->count);
}

Status FeatPntList_addFeatPnt(FeatPntList* list, const ImageRect* rect, const Image* feat, int32_t step,
                              int32_t floorFlag, int32_t scale) {
  if (list == nullptr || rect == nullptr || feat == nullptr || step < 1 || feat->format != IMAGE_INT32) {
    return ZELVAN_ERROR_PARAM;
  }
  const ImageRect cell = {rect->left / step, rect->top / step, rect->right / step, rect->bottom / step};
  if (cell.left >= cell.right || cell.top >= cell.bottom) return ZELVAN_ERROR_PARAM;
  if (cell.left < 0 || cell.top < 0 || cell.right > feat->width || cell.bottom > feat->height) {
    return ZELVAN_ERROR_PARAM;
  }

  int32_t best = -1;
  FeatPnt pnt = {rect->left, rect->top, rect->right, rect->bottom, 0, 0, 0};
  for (int32_t fy = cell.top; fy < cell.bottom; ++fy) {
    const int32_t* const row = imageRow<const int32_t>(feat, fy);
    for (int32_t fx = cell.left; fx < cell.right; ++fx) {
      if (row[fx] < best) continue;
      best = row[fx];
      pnt.x = fx * step;
      pnt.y = fy * step;
    }
  }
  if (best <= 0) return ZELVAN_ERROR_STATE;
  const int32_t strength = wrapMul(scale, isqrt(isqrt(best))) >> 15;
  if (floorFlag != 0 && strength < kMinStrength) return ZELVAN_ERROR_STATE;
  pnt.strength = std::min(strength, 255);
  return FeatPntList_add(list, &pnt);
}

Status FeatPntList_strip(FeatPntList* list, int32_t maximum) {
  if (list == nullptr || maximum < 1) return ZELVAN_ERROR_PARAM;
  if (list->count < 1) return ZELVAN_OK;
  const ScopedBlock<FeatPnt> copy(list->env, static_cast<size_t>(list->count));
  const ScopedBlock<int32_t> starts(list->env, 256);
  if (!copy || !starts) return ZELVAN_ERROR_NOMEM;

  const auto rank = [](const FeatPnt& pnt) { return 255 - clampByte(pnt.strength); };
  std::copy_n(list->pnts, list->count, copy.data());
  std::fill_n(starts.data(), 256, 0);
  for (int32_t i = 0; i < list->count; ++i) ++starts[rank(copy[i])];
  for (int32_t value = 0, next = 0; value < 256; ++value) {
    const int32_t start = next;
    next += starts[value];
    starts[value] = start;
  }
  for (int32_t i = 0; i < list->count; ++i) list->pnts[starts[rank(copy[i])]++] = copy[i];
  list->count = std::min(maximum, list->count);
  return ZELVAN_OK;
}

Status FeatPntList_div(FeatPntList* list, int32_t index, const Image* feat, int32_t step, int32_t scale) {
  if (list == nullptr || index < 0 || index >= list->count) return ZELVAN_ERROR_PARAM;
  const FeatPnt cell = list->pnts[index];
  if (cell.right - cell.left < 2 * step || cell.bottom - cell.top < 2 * step) return ZELVAN_ERROR_STATE;
  const int32_t middleX = (cell.left + cell.right) >> 1;
  const int32_t middleY = (cell.top + cell.bottom) >> 1;
  const ImageRect quarters[4] = {{cell.left, cell.top, middleX, middleY},
                                 {middleX, cell.top, cell.right, middleY},
                                 {cell.left, middleY, middleX, cell.bottom},
                                 {middleX, middleY, cell.right, cell.bottom}};
  for (const ImageRect& quarter : quarters) FeatPntList_addFeatPnt(list, &quarter, feat, step, 1, scale);
  list->pnts[index] = list->pnts[list->count - 1];
  --list->count;
  return ZELVAN_OK;
}

Status VectralFeatPntList_calcSlice(FeatImageSlice* slice) {
  const SampleRange range = sampleRange(slice->in, slice->step, slice->block);
  for (int32_t fy = slice->begin; fy < slice->end; ++fy) {
    const uint8_t* const row = imageRow(slice->in, fy * slice->step);
    int32_t* const responses = imageRow<int32_t>(slice->out, fy);
    for (int32_t fx = range.firstX; fx < range.lastX; ++fx) {
      responses[fx] = responseAt(row + static_cast<ptrdiff_t>(fx) * slice->step, slice->in->pitch0);
    }
  }
  return ZELVAN_OK;
}

Status calcFeatImage(Image* out, const Image* in, int32_t step, int32_t block, int32_t type) {
  if (out == nullptr || in == nullptr || type != kDetectorType || !isFeatInputValid(in, step, block)) {
    return ZELVAN_ERROR_PARAM;
  }
  if (const Status s = initFeatImage(out, in, step); s != ZELVAN_OK) return s;
  const SampleRange range = sampleRange(in, step, block);
  FeatImageSlice all = {out, in, step, block, range.firstY, range.lastY};
  return VectralFeatPntList_calcSlice(&all);
}

Status VectralFeatPntList_calc(FeatPntList* list, const Image* image, int32_t maximum, int32_t block, int32_t subdivide,
                               int32_t scale, int32_t type, ParallelExecutor* executor) {
  if (list == nullptr || image == nullptr) return ZELVAN_ERROR_PARAM;
  FeatPntList_init(list);
  if (maximum == 0 || image->width < kMinLevelSide || image->height < kMinLevelSide) return ZELVAN_OK;
  if (maximum < 0) return ZELVAN_ERROR_PARAM;

  const Grid grid = gridFor(image, maximum);
  ScopedImage feat(list->env);
  if (type != kDetectorType || executor == nullptr) {
    if (const Status s = calcFeatImage(&feat, image, grid.step, block, type); s != ZELVAN_OK) return s;
  } else {
    calcFeatImageSliced(&feat, image, grid.step, block, executor);  // without a feature image no cell has a point
  }
  addBestOfCells(list, image, &feat, grid, subdivide, scale);
  if (const Status s = FeatPntList_strip(list, maximum); s != ZELVAN_OK) return s;
  return subdivide != 0 ? subdivideCells(list, maximum, &feat, grid.step, scale) : ZELVAN_OK;
}

Status calcFeatPntList(FeatPntList* list, const Image* image, int32_t maximum, int32_t block, int32_t subdivide,
                       int32_t scale, int32_t type) {
  return VectralFeatPntList_calc(list, image, maximum, block, subdivide, scale, type, nullptr);
}
