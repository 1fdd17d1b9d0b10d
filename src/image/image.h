// Image: the one picture record of the library. Up to three planes with a pitch each, in an arena block of its own or
// over memory that belongs to somebody else.
#ifndef ZVT4_IMAGE_IMAGE_H_
#define ZVT4_IMAGE_IMAGE_H_

#include "base/env.h"
#include "base/scoped.h"
#include "image/format.h"

struct Image {
  int32_t width;
  int32_t height;
  int32_t format;
  int32_t external;  // 1: planes are not owned
  uint8_t* plane0;
  uint8_t* plane1;
  uint8_t* plane2;
  int32_t pitch0;  // bytes from row to row
  int32_t pitch1;
  int32_t pitch2;
  Env* env;
};

// Right and bottom are exclusive.
struct ImageRect {
  int32_t left;
  int32_t top;
  int32_t right;
  int32_t bottom;
};

extern "C" {
Status construct_Image(Image* image, Env* env) ZVT4_NAME(construct_Image);
Status destruct_Image(Image* image) ZVT4_NAME(destruct_Image);
// planes: null to allocate; the plane pointer itself for a one-plane format; else an array of two or three pointers.
Status Image_init(Image* image, int32_t width, int32_t height, void* planes, int32_t format) ZVT4_NAME(Image_init);
// descriptor: null to allocate; else an array of words, first the planes, then the pitches.
Status Image_initWithPitch(Image* image, int32_t width, int32_t height, const intptr_t* descriptor, int32_t format)
    ZVT4_NAME(Image_initWithPitch);
Status Image_initSubImage(Image* dst, const Image* src, int32_t x, int32_t y, int32_t width, int32_t height)
    ZVT4_NAME(Image_initSubImage);
Status Image_initSubImageY(Image* dst, const Image* src, int32_t x, int32_t y, int32_t width, int32_t height)
    ZVT4_NAME(Image_initSubImageY);
Status Image_initSubImageU(Image* dst, const Image* src, int32_t x, int32_t y, int32_t width, int32_t height)
    ZVT4_NAME(Image_initSubImageU);
Status Image_initSubImageV(Image* dst, const Image* src, int32_t x, int32_t y, int32_t width, int32_t height)
    ZVT4_NAME(Image_initSubImageV);
Status Image_initSubImageUV(Image* dst, const Image* src, int32_t x, int32_t y, int32_t width, int32_t height)
    ZVT4_NAME(Image_initSubImageUV);
Status Image_copy(Image* dst, const Image* src) ZVT4_NAME(Image_copy);
Status Image_partialCopy(Image* dst, const Image* src, int32_t dstX, int32_t dstY, const ImageRect* rect)
    ZVT4_NAME(Image_partialCopy);
}

// Rows of plane 0 as items of a type.
template <typename T = uint8_t>
inline T* imageRow(const Image* image, int32_t y) {
  return reinterpret_cast<T*>(image->plane0 + static_cast<ptrdiff_t>(y) * image->pitch0);
}
// Rows of plane 1, the chroma of semi-planar formats.
inline uint8_t* imageChromaRow(const Image* image, int32_t y) {
  return image->plane1 + static_cast<ptrdiff_t>(y) * image->pitch1;
}

// An Image that lives for a scope: constructed here, destructed at its end. Views and temporaries are of this kind.
class ScopedImage : public Image {
 public:
  explicit ScopedImage(Env* env) { construct_Image(this, env); }
  ~ScopedImage() { destruct_Image(this); }
  ScopedImage(const ScopedImage&) = delete;
  ScopedImage& operator=(const ScopedImage&) = delete;
};

#endif  // ZVT4_IMAGE_IMAGE_H_
