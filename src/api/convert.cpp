#include <cstring>

#include "api/tessal4_handle.h"
#include "image/image_conv.h"
#include "image/image_if.h"

namespace {

uint8_t* bytesOf(void* plane) {
  return static_cast<uint8_t*>(plane);
}

// The scratch frame. It is cleared, so that the padding of odd sizes does not carry old arena content to the caller.
Status initScratch(Image* scratch, int32_t width, int32_t height, int32_t format) {
  const Status status = Image_init(scratch, width, height, nullptr, format);
  if (status == ZELVAN_OK && scratch->plane0 != nullptr) {
    std::memset(scratch->plane0, 0, static_cast<size_t>(Image_getSize(width, height, format, 0)));
  }
  return status;
}

}  // namespace

Status zelvan_Tessaline4_convertInput(zelvan_Tessaline4* handle, zelvan_ImageData* data, int32_t fromFormat,
                                      int32_t toFormat) {
  if (handle == nullptr || data == nullptr || handle->pointer == nullptr) return ZELVAN_ERROR_PARAM;
  if (toFormat != IMAGE_YUV420_SEMIPLANAR) return ZELVAN_ERROR_UNSUPPORTED;
  if (fromFormat != IMAGE_YUV422_YUYV && fromFormat != IMAGE_YUV420_PLANAR) return ZELVAN_ERROR_UNSUPPORTED;
  Tessal4Handle* self = handle->pointer;
  Image* src = &self->convertSrc;
  Image* dst = &self->convertDst;
  const int32_t bytes = IF_getImageSize(data->width, data->height, "YVU420_SEMIPLANAR");
  uint8_t* plane0 = bytesOf(data->plane0);
  if (plane0 == nullptr) return ZELVAN_ERROR_PARAM;
  // The whole output size is read: a smaller frame does not hold it.
  if (data->width < self->width || data->height < self->height) return ZELVAN_ERROR_PARAM;

  Status status;
  if (fromFormat == IMAGE_YUV422_YUYV) {
    status = Image_init(src, self->width, self->height, plane0, fromFormat);
  } else {
    uint8_t* plane1 = plane0 + Image_getSize(data->width, data->height, fromFormat, 2);
    void* planes[3] = {plane0, plane1, plane1 + Image_getSize(data->width, data->height, fromFormat, 5)};
    status = Image_init(src, self->width, self->height, planes, fromFormat);
  }
  status |= initScratch(dst, self->width, self->height, toFormat);
  if (status != ZELVAN_OK) return status;
  status = Image_conv_toYuv420Semiplanar(dst, src);
  if (status != ZELVAN_OK) return status;
  const int32_t held = Image_getSize(self->width, self->height, toFormat, 0);
  if (held > 0) std::memcpy(src->plane0, dst->plane0, static_cast<size_t>(bytes < held ? bytes : held));
  // The packed record now reads as a semi-planar image; the planes of a planar one serve as they are.
  if (fromFormat == IMAGE_YUV422_YUYV) data->plane1 = plane0 + Image_getSize(data->width, data->height, toFormat, 2);
  return ZELVAN_OK;
}

Status zelvan_Tessaline4_convertOutput(zelvan_Tessaline4* handle, Image* image, int32_t fromFormat, int32_t toFormat) {
  if (handle == nullptr || image == nullptr || handle->pointer == nullptr) return ZELVAN_ERROR_PARAM;
  if (fromFormat != IMAGE_YUV420_SEMIPLANAR) return ZELVAN_ERROR_UNSUPPORTED;
  if (toFormat != IMAGE_YUV420_PLANAR && toFormat != IMAGE_YUV422_YUYV) return ZELVAN_ERROR_UNSUPPORTED;
  Tessal4Handle* self = handle->pointer;
  Image* src = &self->convertSrc;
  Image* dst = &self->convertDst;
  if (image->plane0 == nullptr) return ZELVAN_ERROR_PARAM;
  void* planes[2] = {image->plane0, image->plane0 + Image_getSize(image->width, image->height, fromFormat, 2)};
  Status status = Image_init(src, self->width, self->height, planes, fromFormat);
  status |= initScratch(dst, self->width, self->height, toFormat);
  if (status != ZELVAN_OK) return status;
  status =
      toFormat == IMAGE_YUV422_YUYV ? Image_conv_toYuv422Interleaved(dst, src) : Image_conv_toYuv420Planar(dst, src);
  const int32_t bytes = Image_getSize(self->width, self->height, toFormat, 0);
  if (bytes > 0) std::memcpy(src->plane0, dst->plane0, static_cast<size_t>(bytes));
  return status;
}
