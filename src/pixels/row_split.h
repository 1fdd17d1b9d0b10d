// How the engine's row functions are cut over the workers of a ParallelExecutor.
#ifndef ZVT4_PIXELS_ROW_SPLIT_H_
#define ZVT4_PIXELS_ROW_SPLIT_H_

#include "parallel/bands.h"

struct RowRange {
  int32_t begin;
  int32_t end;
};

// Slice k of n over height rows; slices start at multiples of 4.
constexpr RowRange rowSlice(int32_t k, int32_t n, int32_t height) {
  const int32_t begin = ((k * height) / n + 3) & ~3;
  const int32_t end = (((k + 1) * height) / n + 3) & ~3;
  return {begin, end < height ? end : height};
}

// Runs Body over all rows; block is copied for each slice with its begin and end filled in.
template <typename Block, Status (*Body)(Block*)>
Status forkRows(ParallelExecutor* executor, int32_t height, const Block& block) {
  const int32_t n = ParallelExecutor_getNumberOfBands(executor);
  return forkBands<Block, Body>(executor, n, [&](int32_t k) {
    Block slice = block;
    const RowRange rows = rowSlice(k, n, height);
    slice.begin = rows.begin;
    slice.end = rows.end;
    return slice;
  });
}

#endif  // ZVT4_PIXELS_ROW_SPLIT_H_
