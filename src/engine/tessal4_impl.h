// What the files of the engine share.
#ifndef ZVT4_ENGINE_TESSAL4_IMPL_H_
#define ZVT4_ENGINE_TESSAL4_IMPL_H_

#include <cstring>

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

// The chroma of a 4:2:0 image of an odd size has a column or row more than the views that the kernels work on. Repeats
// the last pair and row there, in front of a stage that reads the whole planes and behind one that wrote the views. A
// column that the pitch has no room for is left out. Even sizes, and images without planes: nothing.
inline void repeatOddChroma(Image* image) {
  if (image == nullptr || !isSemiplanar420(image->format) || image->plane1 == nullptr) return;
  const int32_t bytes = image->width / 2 * 2;
  const int32_t rows = image->height / 2;
  if (bytes < 2 || rows < 1) return;
  const bool column = image->width > bytes && image->pitch1 >= bytes + 2;
  for (int32_t y = 0; column && y < rows; ++y) {
    uint8_t* end = imageChromaRow(image, y) + bytes;
    std::memcpy(end, end - 2, 2);
  }
  if (image->height % 2 != 0) {
    std::memcpy(imageChromaRow(image, rows), imageChromaRow(image, rows - 1),
                static_cast<size_t>(column ? bytes + 2 : bytes));
  }
}

#endif  // ZVT4_ENGINE_TESSAL4_IMPL_H_
