// IF: the wrapper round the caller's records.
#ifndef ZVT4_IMAGE_IMAGE_IF_H_
#define ZVT4_IMAGE_IMAGE_IF_H_

#include "image/image.h"

// The caller's records: one plane for packed formats, two for semi-planar, three for planar ones; planes that the
// format has not are ignored. Without pitches the rows are dense. api/zelvan_tessaline4.h declares the same for
// callers, and whichever comes first holds.
#ifndef ZELVAN_IMAGE_DATA_DEFINED
#define ZELVAN_IMAGE_DATA_DEFINED
struct zelvan_ImageData {
  int32_t width;
  int32_t height;
  void* plane0;
  void* plane1;
  void* plane2;
};

struct zelvan_ImageDataEx {
  int32_t width;
  int32_t height;
  void* plane0;
  void* plane1;
  void* plane2;
  int32_t pitch0;
  int32_t pitch1;
  int32_t pitch2;
};
#endif

extern "C" {
// Bytes of an image of the named format, or of one of its planes (Y: plane 0, U and UV: plane 1, V: plane 2); 0 for an
// unknown name.
int32_t IF_getImageSize(int32_t width, int32_t height, const char* format) ZVT4_NAME(IF_getImageSize);
int32_t IF_getImageSizeY(int32_t width, int32_t height, const char* format) ZVT4_NAME(IF_getImageSizeY);
int32_t IF_getImageSizeU(int32_t width, int32_t height, const char* format) ZVT4_NAME(IF_getImageSizeU);
int32_t IF_getImageSizeV(int32_t width, int32_t height, const char* format) ZVT4_NAME(IF_getImageSizeV);
int32_t IF_getImageSizeUV(int32_t width, int32_t height, const char* format) ZVT4_NAME(IF_getImageSizeUV);

// An external image over the caller's planes, with the row bytes of the format or with the caller's pitches. A packed
// format with a null plane0 and no pitches allocates, as Image_init does.
// Statuses of Image_init; ZELVAN_ERROR_UNSUPPORTED for the YUV9 formats, which no record describes.
Status IF_initImage(Image* image, const zelvan_ImageData* data, int32_t format) ZVT4_NAME(IF_initImage);
Status IF_initImageEx(Image* image, const zelvan_ImageDataEx* data, int32_t format) ZVT4_NAME(IF_initImageEx);
// The reverse: size and the planes that the format has; other planes of the record stay.
Status IF_initImageData(zelvan_ImageData* data, const Image* image) ZVT4_NAME(IF_initImageData);

// Whether the library can work on a record. 0 only for an odd width in a planar or semi-planar 4:2:2 or 4:2:0 format
// with a pitch below the row bytes, which round up to a whole chroma unit.
int32_t IF_isAvailableImage() ZVT4_NAME(IF_isAvailableImage);
int32_t IF_isAvailableImageEx(const zelvan_ImageDataEx* data, int32_t format) ZVT4_NAME(IF_isAvailableImageEx);

// Area classes of common display sizes: mode 0 is exactly 33177600 pixels and 24 is above; modes 1 to 22 begin at the
// areas that IF_getPixelSize gives, 23 is below them all. The area wraps in 32 bits.
int32_t IF_getDisplayMode(int32_t width, int32_t height) ZVT4_NAME(IF_getDisplayMode);
int32_t IF_getPixelSize(int32_t mode) ZVT4_NAME(IF_getPixelSize);
}

#endif  // ZVT4_IMAGE_IMAGE_IF_H_
