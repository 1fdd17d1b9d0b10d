#include "image/image.h"

#include <cstring>
#include <limits>

namespace {

// The arena counts in 32 bits and adds its own header; a size near the top would wrap there.
constexpr uint64_t kLargestBlock = std::numeric_limits<uint32_t>::max() - 64;

bool rowBytesFitPitch(int32_t format, int32_t plane, int32_t width) {
  return imagePlaneRowBytes(format, plane, width) <= static_cast<uint64_t>(std::numeric_limits<int32_t>::max());
}

// Bytes of all planes; more than any block when a row is too long for a pitch.
uint64_t totalBytes(int32_t width, int32_t height, int32_t format) {
  uint64_t total = 0;
  for (int32_t p = 0; p < imagePlaneCount(format); ++p) {
    const uint64_t rows = imagePlaneRows(format, p, height);
    if (rows != 0 && !rowBytesFitPitch(format, p, width)) return std::numeric_limits<uint64_t>::max();
    total += imagePlaneRowBytes(format, p, width) * rows;
  }
  return total;
}

void setOwnPlanes(Image* image, int32_t width, int32_t height, int32_t format) {
  uint8_t** const planes[3] = {&image->plane0, &image->plane1, &image->plane2};
  int32_t* const pitches[3] = {&image->pitch0, &image->pitch1, &image->pitch2};
  uint8_t* next = image->plane0;
  for (int32_t p = 0; p < 3; ++p) {
    const bool present = p < imagePlaneCount(format);
    const uint64_t rowBytes = imagePlaneRowBytes(format, p, width);
    *planes[p] = present ? next : nullptr;
    *pitches[p] = static_cast<int32_t>(rowBytes);
    if (present && next != nullptr) next += rowBytes * imagePlaneRows(format, p, height);
  }
}

void setForeignPlanes(Image* image, const intptr_t* descriptor, int32_t format) {
  uint8_t* planes[3] = {};
  int32_t pitches[3] = {};
  const int32_t count = imagePlaneCount(format);
  for (int32_t p = 0; p < count; ++p) {
    planes[p] = reinterpret_cast<uint8_t*>(descriptor[p]);
    pitches[p] = static_cast<int32_t>(descriptor[count + p]);
  }
  image->plane0 = planes[0];
  image->plane1 = planes[1];
  image->plane2 = planes[2];
  image->pitch0 = pitches[0];
  image->pitch1 = pitches[1];
  image->pitch2 = pitches[2];
}

bool hasPlanes(const Image* image) {
  const int32_t count = imagePlaneCount(image->format);
  return image->plane0 != nullptr && (count < 2 || image->plane1 != nullptr) && (count < 3 || image->plane2 != nullptr);
}

void copyRows(uint8_t* dst, int32_t dstPitch, const uint8_t* src, int32_t srcPitch, size_t rowBytes, uint64_t rows) {
  for (uint64_t y = 0; y < rows; ++y, dst += dstPitch, src += srcPitch) std::memcpy(dst, src, rowBytes);
}

}  // namespace

Status construct_Image(Image* image, Env* env) {
  if (image == nullptr) return ZELVAN_ERROR_PARAM;
  *image = {};
  image->env = env;
  return ZELVAN_OK;
}

Status destruct_Image(Image* image) {
  if (image == nullptr) return ZELVAN_ERROR_PARAM;
  Status status = ZELVAN_OK;
  if (image->external == 0 && image->plane0 != nullptr) status = Heap2_free(&image->env->heap, image->plane0);
  *image = {};
  return status;
}

Status Image_init(Image* image, int32_t width, int32_t height, void* planes, int32_t format) {
  if (image == nullptr || width < 0 || height < 0 || !isImageFormat(format)) return ZELVAN_ERROR_PARAM;
  if (planes == nullptr) return Image_initWithPitch(image, width, height, nullptr, format);
  intptr_t descriptor[6] = {};
  const int32_t count = imagePlaneCount(format);
  for (int32_t p = 0; p < count; ++p) {
    if (!rowBytesFitPitch(format, p, width)) return ZELVAN_ERROR_PARAM;
    void* const plane = count == 1 ? planes : static_cast<void* const*>(planes)[p];
    descriptor[p] = reinterpret_cast<intptr_t>(plane);
    descriptor[count + p] = static_cast<intptr_t>(imagePlaneRowBytes(format, p, width));
  }
  return Image_initWithPitch(image, width, height, descriptor, format);
}

Status Image_initWithPitch(Image* image, int32_t width, int32_t height, const intptr_t* descriptor, int32_t format) {
  if (image == nullptr || width < 0 || height < 0 || !isImageFormat(format)) return ZELVAN_ERROR_PARAM;
  if (image->external != 0) image->plane0 = nullptr;  // only an owned block may survive below
  const uint64_t oldBytes = image->plane0 != nullptr ? totalBytes(image->width, image->height, image->format) : 0;
  const uint64_t newBytes = descriptor != nullptr ? 0 : totalBytes(width, height, format);
  if (oldBytes != newBytes) {
    if (image->plane0 != nullptr) Heap2_free(&image->env->heap, image->plane0);
    image->plane0 = nullptr;
    image->external = 0;
    if (newBytes != 0) {
      if (image->env != nullptr && newBytes <= kLargestBlock) {
        image->plane0 = static_cast<uint8_t*>(Heap2_malloc(&image->env->heap, static_cast<uint32_t>(newBytes)));
      }
      if (image->plane0 == nullptr) return ZELVAN_ERROR_NOMEM;
    }
  }
  if (descriptor != nullptr) {
    setForeignPlanes(image, descriptor, format);
  } else {
    setOwnPlanes(image, width, height, format);
  }
  image->width = width;
  image->height = height;
  image->format = format;
  image->external = descriptor != nullptr;
  return ZELVAN_OK;
}

Status Image_copy(Image* dst, const Image* src) {
  if (dst == nullptr || src == nullptr) return ZELVAN_ERROR_PARAM;
  if (dst == src || dst->plane0 == src->plane0) return ZELVAN_OK;
  if (src->width <= 0 || src->height <= 0 || src->format == IMAGE_NONE || !isImageFormat(src->format) ||
      !hasPlanes(src)) {
    return ZELVAN_ERROR_PARAM;
  }
  if (dst->external == 0) {
    const Status status = Image_init(dst, src->width, src->height, nullptr, src->format);
    if (status != ZELVAN_OK) return status;
  } else if (dst->width != src->width || dst->height != src->height || dst->format != src->format || !hasPlanes(dst)) {
    return ZELVAN_ERROR_PARAM;
  }

  uint8_t* const to[3] = {dst->plane0, dst->plane1, dst->plane2};
  const uint8_t* const from[3] = {src->plane0, src->plane1, src->plane2};
  const int32_t toPitch[3] = {dst->pitch0, dst->pitch1, dst->pitch2};
  const int32_t fromPitch[3] = {src->pitch0, src->pitch1, src->pitch2};
  for (int32_t p = 0; p < imagePlaneCount(src->format); ++p) {
    // Units of the plane itself, not of the format's alignment: the columns and rows of padding are not pixels, and
    // beside a view they belong to somebody else.
    const ImagePlaneDescriptor& plane = imageFormatDescriptor(src->format).planes[p];
    const uint64_t across = (static_cast<uint64_t>(src->width) + (1u << plane.shiftX) - 1) >> plane.shiftX;
    const uint64_t down = (static_cast<uint64_t>(src->height) + (1u << plane.shiftY) - 1) >> plane.shiftY;
    copyRows(to[p], toPitch[p], from[p], fromPitch[p], across * plane.bytes, down * plane.rows);
  }
  return ZELVAN_OK;
}

Status Image_partialCopy(Image* dst, const Image* src, int32_t dstX, int32_t dstY, const ImageRect* rect) {
  if (dst == nullptr || src == nullptr || rect == nullptr) return ZELVAN_ERROR_PARAM;
  if (dst == src || dst->plane0 == src->plane0) return ZELVAN_OK;
  if (rect->right <= rect->left || rect->bottom <= rect->top) return ZELVAN_OK;
  if (!isImageFormat(dst->format) || rect->left < 0 || rect->top < 0) return ZELVAN_ERROR_PARAM;
  const ImageFormatDescriptor& layout = imageFormatDescriptor(dst->format);
  if (((rect->left | dstX) & ((1 << layout.alignX) - 1)) != 0 ||
      ((rect->top | dstY) & ((1 << layout.alignY) - 1)) != 0) {
    return ZELVAN_ERROR_PARAM;
  }
  const int32_t width = rect->right - rect->left;
  const int32_t height = rect->bottom - rect->top;
  ScopedImage from(src->env);
  ScopedImage to(dst->env);
  if (const Status s = Image_initSubImage(&from, src, rect->left, rect->top, width, height); s != ZELVAN_OK) return s;
  if (const Status s = Image_initSubImage(&to, dst, dstX, dstY, width, height); s != ZELVAN_OK) return s;
  return Image_copy(&to, &from);
}
