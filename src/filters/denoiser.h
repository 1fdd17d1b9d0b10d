// Tessal4Denoiser: the engine's local noise filter, a thresholded mean over sparse taps.
//
// Round a pixel the taps of a fixed pattern are tested against a threshold that rises with the strength map m ("UINT8",
// of the luma's size); those that pass are averaged with the pixel:
//   out = min(((sum + (n >> 1)) x (32768 / n)) >> 15, 255)
// Luma tests |r - t| < (strength x m) >> 3, with r between the pixel c and its binomial 3x3 mean; c itself counts
// centreWeight times (taken within 0 to 231). Kinds 0 and 1 test the 3x3 neighbourhood, 2 to 4 spread ever farther, up
// to 20 pixels. Chroma pairs always count with their four neighbour pairs; a tap counts where luma is nearer than
// M >> 1 and each byte nearer than (strength x M + 32) >> 6, with M = m + 10. The far taps change from pass to pass.
// Strengths are truncated and kept within 0 to 255. Coordinates are clamped to the image.
//
// denoiseInplace: image is semi-planar 4:2:0. If first is not 0 dark specks are lifted, then the luma passes take the
// kinds in order, then the chroma passes run with strengths[1] and [2]. In place: a pixel sees what lies left of it and
// above it filtered. Tiles of a 20 x 20 grid are tasks on the Pel, ordered so that the picture is that of the tasks run
// one by one, for any number of workers. The grid of a side leaves out a strip at its beginning, which is not filtered:
//   side    up to 63   64 to 79   80 to 95   96 to 113   114 to 401   402 to 689   690 and more
//   strip       0         16         32         48           32           16            0
// Scratch: the tasks and events of up to 32 passes; where it is refused the tiles run in the caller.
// ZELVAN_ERROR_NOMEM, with nothing done, when the arena has no block for the tasks and events of all passes, 28 bytes a
// tile: a setting too large for the arena would not end. A failed enqueue ends the run after the tiles already issued.
//
// removeSpikePEL: a pixel that stands out of the rings of four at the distances 2 and 3 by more than their own spread
// is pulled to the mean of its eight neighbours. denoiseYPEL, denoiseUVPEL: one pass from src to dst; the chroma
// strengths are taken 8 times, guide is the luma, src and dst are semi-planar or "UINT88". These three have a job per
// row of dst, no scratch, and a dst that shares no memory with src.
#ifndef ZVT4_FILTERS_DENOISER_H_
#define ZVT4_FILTERS_DENOISER_H_

#include "imageproc/image_proc.h"

struct Tessal4Denoiser {
  Env* env;
  ParallelExecutor* executor;
  Pel* pel;
  ImageProc* imageProc;
};

extern "C" {
Status Tessal4Denoiser_denoiseInplace(Pel* pel, Env* env, Image* image, const Image* map, int32_t first,
                                      const int32_t* kinds, int32_t lumaPasses, int32_t centreWeight,
                                      int32_t chromaPasses, const double* strengths)
    ZVT4_NAME(Tessal4Denoiser_denoiseInplace);
Status Tessal4Denoiser_removeSpikePEL(Pel* pel, Image* dst, const Image* src, const Image* map, double strength)
    ZVT4_NAME(Tessal4Denoiser_removeSpikePEL);
Status Tessal4Denoiser_denoiseYPEL(Pel* pel, const Image* src, Image* dst, const Image* map, double strength,
                                   int32_t kind, int32_t centreWeight) ZVT4_NAME(Tessal4Denoiser_denoiseYPEL);
Status Tessal4Denoiser_denoiseUVPEL(Pel* pel, const Image* src, Image* dst, const Image* guide, const Image* map,
                                    double strength0, double strength1) ZVT4_NAME(Tessal4Denoiser_denoiseUVPEL);
}

#endif  // ZVT4_FILTERS_DENOISER_H_
