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
// A constructed record holds no memory; destruct_Image frees an owned block and zeroes the record, env included.
// ZELVAN_ERROR_PARAM for a null record.
Status construct_Image(Image* image, Env* env) ZVT4_NAME(construct_Image);
Status destruct_Image(Image* image) ZVT4_NAME(destruct_Image);

// Gives a record its size, format and planes, over memory of its own or over foreign memory.
//
// Own memory is one arena block that holds all planes densely, one behind the other, with row bytes as pitches. A
// record that already owns a block of the same total size keeps it, whatever the format was; any other block is freed
// before the new one is taken. An image of zero bytes has no block and null planes.
//
// Image_init: planes is null to allocate, the plane pointer itself for a one-plane format, else an array of two or
// three plane pointers; pitches are the row bytes of the format.
// Image_initWithPitch: descriptor is null to allocate, else an array of words, first the planes, then their pitches:
// {plane0, pitch0}, {plane0, plane1, pitch0, pitch1} or {plane0, plane1, plane2, pitch0, pitch1, pitch2}.
//
// ZELVAN_ERROR_PARAM: null record, negative size, unknown format, or foreign planes whose row bytes fit no pitch.
// ZELVAN_ERROR_NOMEM: the arena refused, or the size is beyond any arena; plane0 is then null.
Status Image_init(Image* image, int32_t width, int32_t height, void* planes, int32_t format) ZVT4_NAME(Image_init);
Status Image_initWithPitch(Image* image, int32_t width, int32_t height, const intptr_t* descriptor, int32_t format)
    ZVT4_NAME(Image_initWithPitch);

// Views of the rectangle (x, y, width, height) of src, in pixels of src; dst is external and shares the pitches.
//   initSubImage    all planes, the format of src
//   initSubImageY   luma of the planar and semi-planar YUV and YVU formats, or all of UINT8, as UINT8
//   initSubImageU   plane 1 of the planar YUV formats as UINT8; initSubImageV: plane 2
//   initSubImageUV  plane 1 of the semi-planar formats as UINT88, pairs in the order of src
// The size of a chroma view is halved, rounding down, along the axes on which the format is subsampled. An odd origin
// in a subsampled format takes the unit that holds it. A view of a view is as good as one of its parent; src must live
// as long as dst is used. An empty view has null planes.
// ZELVAN_ERROR_PARAM: a null record, a rectangle not inside src, a missing plane, a pitch below 1.
// ZELVAN_ERROR_UNSUPPORTED: a format that the function does not serve.
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

// Copies all planes, honouring both pitches; bytes outside the pixels (padding of odd sizes, gaps of pitches) stay.
// An owned dst takes the size and format of src, an external one must have them already. Images that share plane0 are
// taken as the same picture: nothing is done. Else the planes must not overlap.
// ZELVAN_ERROR_PARAM: null records, an empty or incomplete src, an external dst of another shape.
Status Image_copy(Image* dst, const Image* src) ZVT4_NAME(Image_copy);
// Copies a rectangle of src to (dstX, dstY) of dst, which has the same format. Both origins must be multiples of the
// format's alignment (ZELVAN_ERROR_PARAM), since a unit can't be copied in part. An empty rectangle is no error.
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
