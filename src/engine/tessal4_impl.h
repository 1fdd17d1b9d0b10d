// What the files of the engine share.
#ifndef ZVT4_ENGINE_TESSAL4_IMPL_H_
#define ZVT4_ENGINE_TESSAL4_IMPL_H_

#include "engine/tessal4.h"

constexpr int32_t evenDown(int32_t value) {
  return value & ~1;
}
constexpr int32_t evenUp(int32_t value) {
  return (value + 1) & ~1;
}

// Frees what the record owns and leaves it empty.
inline void resetImage(Image* image, Env* env) {
  destruct_Image(image);
  construct_Image(image, env);
}

#endif  // ZVT4_ENGINE_TESSAL4_IMPL_H_
