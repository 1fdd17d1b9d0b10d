#include <cstdlib>
#include <cstring>

#include "base/cpu_level.h"
#include "parallel/bands.h"
#include "pixels/image_func.h"
#include "pixels/row_filter.h"

namespace {

struct BlurBand {
  Image* dst;
  const Image* src;
  Image* scratch;
  const int32_t* taps;
  int32_t begin;
  int32_t end;
};

template <int32_t Channels>
Status blurAcross(BlurBand* band) {
  for (int32_t y = band->begin; y < band->end; ++y) {
    filterRow<3, Channels>(imageRow<int16_t>(band->scratch, y), imageRow(band->src, y), band->src->width, band->taps);
  }
  return ZELVAN_OK;
}

// Every tap is rounded by itself.
ALWAYS_INLINE void blurDownRowBody(uint8_t* __restrict dst, const int16_t* const* rows, const int32_t* taps,
                                   int32_t count) {
  for (int32_t x = 0; x < count; ++x) {
    int32_t sum = 16;
    for (int32_t i = 0; i < 7; ++i) sum += (taps[i] * rows[i][x] + 0x4000) >> 15;
    dst[x] = static_cast<uint8_t>(sum >> 5);
  }
}
constexpr CpuRow<blurDownRowBody> blurDownRow;

Status blurDown(BlurBand* band) {
  const int32_t last = band->scratch->height - 1;
  for (int32_t y = band->begin; y < band->end; ++y) {
    const int16_t* rows[7];
    for (int32_t i = 0; i < 7; ++i) rows[i] = imageRow<int16_t>(band->scratch, clampInt(y + i - 3, 0, last));
    blurDownRow(imageRow(band->dst, y), rows, band->taps, band->scratch->width);
  }
  return ZELVAN_OK;
}

template <int32_t Channels>
Status blur(ParallelExecutor* executor, Env* env, Image* dst, const Image* src, double sigma) {
  int32_t taps[7];
  gaussTaps(taps, 3, sigma);
  ScopedImage scratch(env);
  if (const Status s = Image_init(&scratch, src->width * Channels, src->height, nullptr, IMAGE_INT16); s != ZELVAN_OK) {
    return s;
  }
  const int32_t height = src->height;
  const int32_t n = ParallelExecutor_getNumberOfBands(executor);
  const auto make = [&](int32_t i) {
    return BlurBand{dst, src, &scratch, taps, bandStart(i, n, height), bandStart(i + 1, n, height)};
  };
  if (src->width < kRowFilterMinWidth) {
    // The row filter refuses such rows, which is no error here: what the scratch holds goes on.
    for (int32_t y = 0; y < height; ++y) std::memset(imageRow(&scratch, y), 0, static_cast<size_t>(scratch.pitch0));
  } else if (const Status s = forkBands<BlurBand, blurAcross<Channels>>(executor, n, make); s != ZELVAN_OK) {
    return s;
  }
  return forkBands<BlurBand, blurDown>(executor, n, make);
}

constexpr int32_t kScoreBands = 16;
constexpr int32_t kWindowRows = 7;

struct ScoreBand {
  const Image* image;
  const int32_t* wide;
  const int32_t* narrow;
  int16_t* window;  // kWindowRows filtered rows of each kernel
  uint32_t* sum;
  int32_t begin;
  int32_t end;
};

// Symmetric rows are added before the multiplication and round together.
ALWAYS_INLINE int32_t filterDown(const int16_t* const* rows, const int32_t* taps, int32_t x) {
  int32_t sum = (taps[3] * rows[3][x] + 16384) >> 15;
  for (int32_t j = 0; j < 3; ++j) sum += (taps[j] * (rows[j][x] + rows[6 - j][x]) + 16384) >> 15;
  return sum;
}

// The sum of the distances of a row of both.
ALWAYS_INLINE uint32_t scoreRowBody(const int16_t* const* narrow, const int16_t* const* wide, const int32_t* narrowTaps,
                                    const int32_t* wideTaps, int32_t width) {
  uint32_t sum = 0;
  for (int32_t x = 0; x < width; ++x) {
    sum += static_cast<uint32_t>(std::abs(filterDown(narrow, narrowTaps, x) - filterDown(wide, wideTaps, x)));
  }
  return sum;
}
constexpr CpuRow<scoreRowBody> scoreRow;

Status scoreBand(ScoreBand* band) {
  const Image* image = band->image;
  const int32_t width = image->width;
  const int32_t last = image->height - 1;
  const auto rowAt = [&](int32_t kernel, int32_t y) {
    return band->window + (kernel * kWindowRows + y % kWindowRows) * static_cast<ptrdiff_t>(width);
  };
  const auto fill = [&](int32_t y) {
    filterRow<3, 1>(rowAt(0, y), imageRow(image, y), width, band->wide);
    filterRow<3, 1>(rowAt(1, y), imageRow(image, y), width, band->narrow);
  };
  int32_t filled = band->begin > 3 ? band->begin - 3 : 0;  // the next row to filter
  uint32_t total = 0;
  for (int32_t y = band->begin; y < band->end; ++y) {
    for (; filled <= y + 3 && filled <= last; ++filled) fill(filled);
    const int16_t* wide[kWindowRows];
    const int16_t* narrow[kWindowRows];
    for (int32_t i = 0; i < kWindowRows; ++i) {
      wide[i] = rowAt(0, clampInt(y + i - 3, 0, last));
      narrow[i] = rowAt(1, clampInt(y + i - 3, 0, last));
    }
    total += scoreRow(narrow, wide, band->narrow, band->wide, width);
  }
  *band->sum = total;
  return ZELVAN_OK;
}

}  // namespace

Status Tessal4ImageFunc_blur_uint8(ParallelExecutor* executor, Env* env, Image* dst, const Image* src, double sigma) {
  return blur<1>(executor, env, dst, src, sigma);
}

Status Tessal4ImageFunc_blur_uint88(ParallelExecutor* executor, Env* env, Image* dst, const Image* src, double sigma) {
  return blur<2>(executor, env, dst, src, sigma);
}

Status Tessal4ImageFunc_evalBlur(ParallelExecutor* executor, Env* env, uint32_t* score, const Image* image, uint32_t,
                                 uint32_t, double sigmaWide, double sigmaNarrow) {
  *score = 0;
  if (image->width < kRowFilterMinWidth) return ZELVAN_ERROR_PARAM;
  int32_t wide[7];
  int32_t narrow[7];
  gaussTaps(wide, 3, sigmaWide);
  gaussTaps(narrow, 3, sigmaNarrow);
  const int32_t bands = ParallelExecutor_getNumberOfBands(executor);
  const int32_t n = bands < kScoreBands ? bands : kScoreBands;
  const size_t windowSize = size_t{2} * kWindowRows * static_cast<size_t>(image->width);
  const ScopedBlock<int16_t> windows(env, windowSize * static_cast<size_t>(n));
  if (!windows) return ZELVAN_ERROR_NOMEM;
  uint32_t sums[kScoreBands] = {};
  const int64_t height = image->height;
  const Status status = forkBands<ScoreBand, scoreBand>(executor, n, [&](int32_t i) {
    return ScoreBand{image,
                     wide,
                     narrow,
                     windows.data() + windowSize * static_cast<size_t>(i),
                     &sums[i],
                     static_cast<int32_t>(height * i / n),
                     static_cast<int32_t>(height * (i + 1) / n)};
  });
  for (uint32_t sum : sums) *score += sum;
  return status;
}
