// Tessal4Denoiser: the engine's local noise filter, a thresholded mean over sparse taps.
#ifndef ZVT4_ENGINE_DENOISER_H_
#define ZVT4_ENGINE_DENOISER_H_

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

#endif  // ZVT4_ENGINE_DENOISER_H_
