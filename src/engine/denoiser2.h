// Tessal4Denoiser2: the pattern-driven second denoiser.
#ifndef ZVT4_ENGINE_DENOISER2_H_
#define ZVT4_ENGINE_DENOISER2_H_

#include "image/image.h"
#include "parallel/parallel_executor.h"
#include "parallel/pel.h"

struct Tessal4Denoiser2 {
  Env* env;
  ParallelExecutor* executor;
  Pel* pel;
};

#endif  // ZVT4_ENGINE_DENOISER2_H_
