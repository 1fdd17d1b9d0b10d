// Weak chroma noise reduction: a guided filter in colour on a reduced copy of the image.
#ifndef ZVT4_ENGINE_WEAK_UV_NR_H_
#define ZVT4_ENGINE_WEAK_UV_NR_H_

#include "image/image.h"

struct Tessal4;

struct WeakUvNrParams {
  int32_t enable;  // read by the caller
  int32_t shrink;  // divisor s, at least 2
  int32_t window;  // b, in cells
  float regularisationY;
  float regularisationU;  // chroma byte 0
  float regularisationV;  // chroma byte 1
  float gain;             // k
};

extern "C" __attribute__((visibility("default"))) Status zelvan_Tessaline4Internal_weakUvNr(
    Tessal4* engine, Image* dst, const Image* src, const Image* map, const WeakUvNrParams* params);

#endif  // ZVT4_ENGINE_WEAK_UV_NR_H_
