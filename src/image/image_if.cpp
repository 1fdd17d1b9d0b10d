#include "image/image_if.h"

#include "base/integer.h"

namespace {

// Lower area bounds of the display modes 0 to 22.
constexpr int32_t kModeAreas[] = {33177600, 12000000, 10077696, 7990272, 7680000, 5038848, 3981312, 3145728,
                                  2073600,  1920000,  1470000,  1310720, 1228800, 1049088, 995328,  921600,
                                  786432,   480000,   307200,   76800,   57600,   25344,   12288};
constexpr int32_t kModeCount = sizeof(kModeAreas) / sizeof(kModeAreas[0]);

// Planes that the caller's record holds for a format; 0 where its layout can't be told by a record.
int32_t recordPlanes(int32_t format) {
  if (Image_isYuvPlanar(format) != 0) return 3;
  if (Image_isYuvSemiplanar(format) != 0 || Image_isYvuSemiplanar(format) != 0) return 2;
  return isImageFormat(format) && imagePlaneCount(format) > 1 ? 0 : 1;
}

int32_t sizeOf(int32_t width, int32_t height, const char* format, int32_t kind) {
  return Image_getSize(width, height, Image_getImageFormat(format), kind);
}

}  // namespace

int32_t IF_getImageSize(int32_t width, int32_t height, const char* format) {
  return sizeOf(width, height, format, 0);
}
int32_t IF_getImageSizeY(int32_t width, int32_t height, const char* format) {
  return sizeOf(width, height, format, 2);
}
int32_t IF_getImageSizeU(int32_t width, int32_t height, const char* format) {
  return sizeOf(width, height, format, 5);
}
int32_t IF_getImageSizeV(int32_t width, int32_t height, const char* format) {
  return sizeOf(width, height, format, 8);
}
int32_t IF_getImageSizeUV(int32_t width, int32_t height, const char* format) {
  return sizeOf(width, height, format, 11);
}

Status IF_initImage(Image* image, const zelvan_ImageData* data, int32_t format) {
  if (image == nullptr || data == nullptr) return ZELVAN_ERROR_PARAM;
  const int32_t count = recordPlanes(format);
  if (count == 0) return ZELVAN_ERROR_UNSUPPORTED;
  void* planes[3] = {data->plane0, data->plane1, data->plane2};
  return Image_init(image, data->width, data->height, count == 1 ? data->plane0 : planes, format);
}

Status IF_initImageEx(Image* image, const zelvan_ImageDataEx* data, int32_t format) {
  if (image == nullptr || data == nullptr) return ZELVAN_ERROR_PARAM;
  const int32_t count = recordPlanes(format);
  if (count == 0) return ZELVAN_ERROR_UNSUPPORTED;
  void* const planes[3] = {data->plane0, data->plane1, data->plane2};
  const int32_t pitches[3] = {data->pitch0, data->pitch1, data->pitch2};
  intptr_t descriptor[6] = {};
  for (int32_t p = 0; p < count; ++p) {
    descriptor[p] = reinterpret_cast<intptr_t>(planes[p]);
    descriptor[count + p] = pitches[p];
  }
  return Image_initWithPitch(image, data->width, data->height, descriptor, format);
}

Status IF_initImageData(zelvan_ImageData* data, const Image* image) {
  if (data == nullptr || image == nullptr) return ZELVAN_ERROR_PARAM;
  data->width = image->width;
  data->height = image->height;
  const int32_t count = isImageFormat(image->format) ? imagePlaneCount(image->format) : 1;
  data->plane0 = image->plane0;
  if (count > 1) data->plane1 = image->plane1;
  if (count > 2) data->plane2 = image->plane2;
  return ZELVAN_OK;
}

int32_t IF_isAvailableImage() {
  return 1;
}

int32_t IF_isAvailableImageEx(const zelvan_ImageDataEx* data, int32_t format) {
  const bool subsampled = format >= IMAGE_YUV422_PLANAR && format <= IMAGE_YVU420_SEMIPLANAR;
  if (data == nullptr || !subsampled || (data->width & 1) == 0) return 1;
  const auto rowBytes = [&](int32_t kind) { return Image_getSize(data->width, 1, format, kind); };
  if (data->pitch0 < rowBytes(4)) return 0;
  if (Image_isYuvPlanar(format) != 0) return data->pitch1 >= rowBytes(7) && data->pitch2 >= rowBytes(10);
  return data->pitch1 >= rowBytes(13);
}

int32_t IF_getDisplayMode(int32_t width, int32_t height) {
  const int32_t area = wrapMul(width, height);
  if (area > kModeAreas[0]) return 24;
  if (area == kModeAreas[0]) return 0;
  for (int32_t mode = 1; mode < kModeCount; ++mode) {
    if (area >= kModeAreas[mode]) return mode;
  }
  return kModeCount;
}

int32_t IF_getPixelSize(int32_t mode) {
  return mode >= 0 && mode < kModeCount ? kModeAreas[mode] : 0;
}
