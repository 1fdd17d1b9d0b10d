#include "filters/denoiser.h"

#include <initializer_list>

#include "base/cpu_level.h"
#include "filters/denoiser_kernels.h"
#include "parallel/pel_kernel.h"

namespace denoiser {

namespace {

constexpr Tap kBinomialTaps[] = {{0, 0, 4},   {-1, 0, 2}, {1, 0, 2},  {0, -1, 2}, {0, 1, 2},
                                 {-1, -1, 1}, {1, -1, 1}, {-1, 1, 1}, {1, 1, 1}};
#define NEIGHBOURS                                                                     \
  {-1, 0, 1}, {1, 0, 1}, {0, -1, 1}, {0, 1, 1}, {-1, -1, 1}, {1, -1, 1}, {-1, 1, 1}, { \
    1, 1, 1                                                                            \
  }
#define KNIGHTS                          \
  {-3, -2, 1}, {2, -3, 1}, {-3, 2, 1}, { \
    2, 3, 1                              \
  }
constexpr Tap kSpreadTaps[] = {NEIGHBOURS, KNIGHTS};
constexpr Tap kWideTaps[] = {NEIGHBOURS, KNIGHTS, {-4, 0, 1}, {4, 0, 1}, {0, -4, 1}, {0, 4, 1}};
constexpr Tap kFarLumaTaps[] = {NEIGHBOURS,   {-20, 0, 1},  {20, 0, 1},  {0, -20, 1}, {0, 20, 1}, {-14, -14, 1},
                                {14, -14, 1}, {-14, 14, 1}, {14, 14, 1}, {-10, 0, 1}, {10, 0, 1}, {0, -10, 1},
                                {0, 10, 1},   {-6, -6, 1},  {6, -6, 1},  {-6, 6, 1},  {6, 6, 1}};
#undef NEIGHBOURS
#undef KNIGHTS

constexpr LumaKind kLumaKinds[] = {
    {-32, kBinomialTaps, 9}, {-32, kBinomialTaps, 9}, {0, kSpreadTaps, 12}, {64, kWideTaps, 16}, {96, kFarLumaTaps, 24},
};

#define DIAGONAL(d)                      \
  {-d, -d, 1}, {d, -d, 1}, {-d, d, 1}, { \
    d, d, 1                              \
  }
#define AXES(d)                        \
  {-d, 0, 1}, {d, 0, 1}, {0, -d, 1}, { \
    0, d, 1                            \
  }
constexpr Tap kChromaTapSets[3][kChromaTaps] = {
    {DIAGONAL(2), AXES(6), AXES(18), DIAGONAL(14)},
    {DIAGONAL(2), AXES(4), AXES(16), DIAGONAL(10)},
    {DIAGONAL(2), AXES(10), AXES(6), DIAGONAL(14)},
};
#undef DIAGONAL
#undef AXES

}  // namespace

const LumaKind& lumaKind(int32_t kind) {
  return kLumaKinds[clampInt(kind, 0, 4)];
}

const Tap* chromaTaps(int32_t pass) {
  return kChromaTapSets[pass < 6 ? pass % 3 : 0];
}

}  // namespace denoiser

namespace {

using namespace denoiser;

constexpr int32_t kSpikeReach = 3;

struct SpikeJob {
  Image* dst;
  const Image* src;
  const Image* map;
  uint32_t strength;
};

// The pixels from kSpikeReach on, whose rings lie inside the row. rows: those at -3 to 3, clamped to the plane.
ALWAYS_INLINE void spikeInnerBody(uint8_t* __restrict dst, const uint8_t* const* rows, const uint8_t* __restrict map,
                                  uint32_t strength, int32_t end) {
  const uint8_t* const up3 = rows[0];
  const uint8_t* const up2 = rows[1];
  const uint8_t* const up = rows[2];
  const uint8_t* const row = rows[3];
  const uint8_t* const down = rows[4];
  const uint8_t* const down2 = rows[5];
  const uint8_t* const down3 = rows[6];
  for (int32_t x = kSpikeReach; x < end; ++x) {
    const Ring close(row[x - 2], row[x + 2], up2[x], down2[x]);
    const Ring far(row[x - 3], row[x + 3], up3[x], down3[x]);
    const int32_t sum = up[x - 1] + up[x] + up[x + 1] + row[x - 1] + row[x + 1] + down[x - 1] + down[x] + down[x + 1];
    dst[x] = withoutSpike(row[x], close, far, sum, strength, map[x]);
  }
}

constexpr CpuRow<spikeInnerBody> spikeInner;

Status spikeRow(SpikeJob* job, int32_t y, const PelContext*) {
  const Plane<true> luma(job->src);
  const uint8_t* map = imageRow(job->map, y);
  uint8_t* dst = imageRow(job->dst, y);
  const int32_t width = job->src->width;
  const auto checked = [&](int32_t begin, int32_t end) {
    for (int32_t x = begin; x < end; ++x) {
      dst[x] = withoutSpike(luma(x, y), Ring(luma, x, y, 2), Ring(luma, x, y, 3), neighbourSum(luma, x, y),
                            job->strength, map[x]);
    }
  };
  if (width <= 2 * kSpikeReach) {
    checked(0, width);
    return ZELVAN_OK;
  }
  const uint8_t* rows[2 * kSpikeReach + 1];
  for (int32_t i = -kSpikeReach; i <= kSpikeReach; ++i) {
    rows[kSpikeReach + i] = imageRow(job->src, clampInt(y + i, 0, job->src->height - 1));
  }
  checked(0, kSpikeReach);
  spikeInner(dst, rows, map, job->strength, width - kSpikeReach);
  checked(width - kSpikeReach, width);
  return ZELVAN_OK;
}

constexpr PelKernel kSpikeRow = pelIndexed<SpikeJob, spikeRow>();

struct LumaJob {
  const Image* src;
  Image* dst;
  const Image* map;
  int32_t strength;
  int32_t kind;
  int32_t centreWeight;
};

Status lumaRow(LumaJob* job, int32_t y, const PelContext*) {
  const Plane<true> luma(job->src);
  const LumaKind& kind = lumaKind(job->kind);
  const uint8_t* map = imageRow(job->map, y);
  uint8_t* dst = imageRow(job->dst, y);
  for (int32_t x = 0; x < job->src->width; ++x) {
    dst[x] = lumaMean(luma, x, y, map[x], job->strength, kind, job->centreWeight);
  }
  return ZELVAN_OK;
}

constexpr PelKernel kLumaRow = pelIndexed<LumaJob, lumaRow>();

struct PairView {
  uint8_t* bytes;
  int32_t pitch;
  int32_t width;  // of the luma grid that the pairs cover
  int32_t height;
};

// The chroma of a semi-planar image, or an "UINT88" image itself.
PairView pairsOf(const Image* image) {
  return image->plane1 != nullptr ? PairView{image->plane1, image->pitch1, image->width, image->height}
                                  : PairView{image->plane0, image->pitch0, 2 * image->width, 2 * image->height};
}

struct ChromaJob {
  PairView src;
  PairView dst;
  const Image* guide;
  const Image* map;
  int32_t strength0;
  int32_t strength1;
};

Status chromaRow(ChromaJob* job, int32_t row, const PelContext*) {
  // A chroma view of an odd size ends in front of the guide's last column or row.
  Plane<true> luma(job->guide);
  luma.width = luma.width < job->src.width ? luma.width : job->src.width;
  luma.height = luma.height < job->src.height ? luma.height : job->src.height;
  const PairPlane<true> chroma = {job->src.bytes, job->src.pitch, luma.width, luma.height};
  const int32_t y = 2 * row;
  const uint8_t* map = imageRow(job->map, y);
  uint8_t* dst = job->dst.bytes + static_cast<ptrdiff_t>(row) * job->dst.pitch;
  for (int32_t x = 0; x < luma.width; x += 2) {
    chromaMean(dst + x, chroma, luma, x, y, map[x], job->strength0, job->strength1, chromaTaps(0));
  }
  return ZELVAN_OK;
}

constexpr PelKernel kChromaRow = pelIndexed<ChromaJob, chromaRow>();

}  // namespace

Status Tessal4Denoiser_removeSpikePEL(Pel* pel, Image* dst, const Image* src, const Image* map, double strength) {
  SpikeJob job = {dst, src, map, truncToUint32(strength)};
  return executeToEnd(pel, &kSpikeRow, &job, dst->height);
}

Status Tessal4Denoiser_denoiseYPEL(Pel* pel, const Image* src, Image* dst, const Image* map, double strength,
                                   int32_t kind, int32_t centreWeight) {
  LumaJob job = {src, dst, map, byteStrength(strength), kind, clampInt(centreWeight, 0, kMaxCentreWeight)};
  return executeToEnd(pel, &kLumaRow, &job, dst->height);
}

Status Tessal4Denoiser_denoiseUVPEL(Pel* pel, const Image* src, Image* dst, const Image* guide, const Image* map,
                                    double strength0, double strength1) {
  ChromaJob job = {
      pairsOf(src), pairsOf(dst), guide, map, byteStrength(strength0 * 8.0), byteStrength(strength1 * 8.0)};
  return executeToEnd(pel, &kChromaRow, &job, (job.dst.height + 1) / 2);
}
