// Adaptive sharpening of a luma plane.
#ifndef ZVT4_ENGINE_SHARPEN_H_
#define ZVT4_ENGINE_SHARPEN_H_

#include "image/image.h"
#include "parallel/parallel_executor.h"

extern "C" {
Status Tessal4ImageFunc_adaSharp5x5_uint8_withmap(ParallelExecutor* executor, Env* env, Image* dst, const Image* src,
                                                  const Image* map, double sigmaA, double sigmaB, double gain,
                                                  double coring) ZVT4_NAME(Tessal4ImageFunc_adaSharp5x5_uint8_withmap);
Status Tessal4ImageFunc_adaSharp5x5_uint8(ParallelExecutor* executor, Env* env, Image* dst, const Image* src,
                                          double sigmaA, double sigmaB, double gain, double coring)
    ZVT4_NAME(Tessal4ImageFunc_adaSharp5x5_uint8);
Status Tessal4ImageFunc_adaSharp7x7_uint8_withmap(ParallelExecutor* executor, Env* env, Image* dst, const Image* src,
                                                  const Image* map, double sigmaA, double sigmaB, double gain,
                                                  double coring) ZVT4_NAME(Tessal4ImageFunc_adaSharp7x7_uint8_withmap);
Status Tessal4ImageFunc_adaSharp7x7_uint8(ParallelExecutor* executor, Env* env, Image* dst, const Image* src,
                                          double sigmaA, double sigmaB, double gain, double coring)
    ZVT4_NAME(Tessal4ImageFunc_adaSharp7x7_uint8);
}

#endif  // ZVT4_ENGINE_SHARPEN_H_
