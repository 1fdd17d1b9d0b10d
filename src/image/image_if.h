// IF: the wrapper round the caller's records.
#ifndef ZVT4_IMAGE_IMAGE_IF_H_
#define ZVT4_IMAGE_IMAGE_IF_H_

#include "image/image.h"

// The public records; api/zelvan_tessaline4.h declares the same for callers.
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
int32_t IF_getImageSize(int32_t width, int32_t height, const char* format) ZVT4_NAME(IF_getImageSize);
int32_t IF_getImageSizeY(int32_t width, int32_t height, const char* format) ZVT4_NAME(IF_getImageSizeY);
int32_t IF_getImageSizeU(int32_t width, int32_t height, const char* format) ZVT4_NAME(IF_getImageSizeU);
int32_t IF_getImageSizeV(int32_t width, int32_t height, const char* format) ZVT4_NAME(IF_getImageSizeV);
int32_t IF_getImageSizeUV(int32_t width, int32_t height, const char* format) ZVT4_NAME(IF_getImageSizeUV);
Status IF_initImage(Image* image, const zelvan_ImageData* data, int32_t format) ZVT4_NAME(IF_initImage);
Status IF_initImageEx(Image* image, const zelvan_ImageDataEx* data, int32_t format) ZVT4_NAME(IF_initImageEx);
Status IF_initImageData(zelvan_ImageData* data, const Image* image) ZVT4_NAME(IF_initImageData);
int32_t IF_isAvailableImage() ZVT4_NAME(IF_isAvailableImage);
int32_t IF_isAvailableImageEx(const zelvan_ImageDataEx* data, int32_t format) ZVT4_NAME(IF_isAvailableImageEx);
int32_t IF_getDisplayMode(int32_t width, int32_t height) ZVT4_NAME(IF_getDisplayMode);
int32_t IF_getPixelSize(int32_t mode) ZVT4_NAME(IF_getPixelSize);
}

#endif  // ZVT4_IMAGE_IMAGE_IF_H_
