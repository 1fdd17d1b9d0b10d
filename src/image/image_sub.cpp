// Views: images over a rectangle of another image's planes.
#include "image/image.h"

namespace {

struct Rectangle {
  int32_t x;
  int32_t y;
  int32_t width;
  int32_t height;
};

uint8_t* planeOf(const Image* image, int32_t plane) {
  return plane == 0 ? image->plane0 : plane == 1 ? image->plane1 : image->plane2;
}
int32_t pitchOf(const Image* image, int32_t plane) {
  return plane == 0 ? image->pitch0 : plane == 1 ? image->pitch1 : image->pitch2;
}
bool hasPlane(const Image* image, int32_t plane) {
  return planeOf(image, plane) != nullptr && pitchOf(image, plane) >= 1;
}

bool liesInside(const Image* src, const Rectangle& r) {
  return r.x >= 0 && r.y >= 0 && r.width >= 0 && r.height >= 0 && int64_t{r.x} + r.width <= src->width &&
         int64_t{r.y} + r.height <= src->height;
}

// Start of the unit of a plane that holds pixel (x, y).
uint8_t* planeStart(const Image* src, int32_t plane, int32_t x, int32_t y) {
  const ImagePlaneDescriptor& p = imageFormatDescriptor(src->format).planes[plane];
  const ptrdiff_t row = ptrdiff_t{y >> p.shiftY} * pitchOf(src, plane);
  // Four packed pixels begin with their four high bytes, which are addressed one by one.
  const ptrdiff_t column =
      Image_isBayer10M8L2Packed(src->format) != 0 ? ptrdiff_t{x} + x / 4 : ptrdiff_t{x >> p.shiftX} * p.bytes;
  return planeOf(src, plane) + row + column;
}

// A one-plane view of a plane; the rectangle is given in pixels of src and shrinks with the plane.
Status initPlaneView(Image* dst, const Image* src, int32_t plane, const Rectangle& r, int32_t format) {
  if (dst == nullptr || !liesInside(src, r) || planeOf(src, 0) == nullptr || !hasPlane(src, plane)) {
    return ZELVAN_ERROR_PARAM;
  }
  const ImagePlaneDescriptor& p = imageFormatDescriptor(src->format).planes[plane];
  const int32_t width = r.width >> p.shiftX;
  const int32_t height = r.height >> p.shiftY;
  uint8_t* const start = width < 1 || height < 1 ? nullptr : planeStart(src, plane, r.x, r.y);
  const intptr_t descriptor[2] = {reinterpret_cast<intptr_t>(start), pitchOf(src, plane)};
  return Image_initWithPitch(dst, width, height, descriptor, format);
}

bool isThreePlane(int32_t format) {
  return Image_isYuvPlanar(format) != 0;
}
bool isTwoPlane(int32_t format) {
  return Image_isYuvSemiplanar(format) != 0 || Image_isYvuSemiplanar(format) != 0;
}

}  // namespace

Status Image_initSubImage(Image* dst, const Image* src, int32_t x, int32_t y, int32_t width, int32_t height) {
  if (dst == nullptr || src == nullptr || !isImageFormat(src->format) || !liesInside(src, {x, y, width, height})) {
    return ZELVAN_ERROR_PARAM;
  }
  const int32_t count = imagePlaneCount(src->format);
  for (int32_t p = 0; p < count; ++p) {
    if (!hasPlane(src, p)) return ZELVAN_ERROR_PARAM;
  }
  intptr_t descriptor[6] = {};
  for (int32_t p = 0; p < count; ++p) descriptor[count + p] = pitchOf(src, p);
  if (width > 0 && height > 0) {
    if (src->format == IMAGE_NONE || src->format >= IMAGE_YUV9_44_UV) return ZELVAN_ERROR_UNSUPPORTED;
    for (int32_t p = 0; p < count; ++p) descriptor[p] = reinterpret_cast<intptr_t>(planeStart(src, p, x, y));
  }
  return Image_initWithPitch(dst, width, height, descriptor, src->format);
}

Status Image_initSubImageY(Image* dst, const Image* src, int32_t x, int32_t y, int32_t width, int32_t height) {
  if (src == nullptr) return ZELVAN_ERROR_PARAM;
  if (!isThreePlane(src->format) && !isTwoPlane(src->format) && src->format != IMAGE_UINT8) {
    return ZELVAN_ERROR_UNSUPPORTED;
  }
  return initPlaneView(dst, src, 0, {x, y, width, height}, IMAGE_UINT8);
}

Status Image_initSubImageU(Image* dst, const Image* src, int32_t x, int32_t y, int32_t width, int32_t height) {
  if (src == nullptr) return ZELVAN_ERROR_PARAM;
  if (!isThreePlane(src->format)) return ZELVAN_ERROR_UNSUPPORTED;
  return initPlaneView(dst, src, 1, {x, y, width, height}, IMAGE_UINT8);
}

Status Image_initSubImageV(Image* dst, const Image* src, int32_t x, int32_t y, int32_t width, int32_t height) {
  if (src == nullptr) return ZELVAN_ERROR_PARAM;
  if (!isThreePlane(src->format)) return ZELVAN_ERROR_UNSUPPORTED;
  return initPlaneView(dst, src, 2, {x, y, width, height}, IMAGE_UINT8);
}

Status Image_initSubImageUV(Image* dst, const Image* src, int32_t x, int32_t y, int32_t width, int32_t height) {
  if (src == nullptr) return ZELVAN_ERROR_PARAM;
  if (!isTwoPlane(src->format)) return ZELVAN_ERROR_UNSUPPORTED;
  return initPlaneView(dst, src, 1, {x, y, width, height}, IMAGE_UINT88);
}
