// One plane of an image as an image of its own.
#ifndef ZVT4_IMAGEPROC_PLANE_VIEW_H_
#define ZVT4_IMAGEPROC_PLANE_VIEW_H_

#include "image/image.h"

using ViewInit = Status (*)(Image* view, const Image* image, int32_t x, int32_t y, int32_t width, int32_t height);

// Runs body(dst view, src view) on the plane that init gives of both images. A view without pixels, as the chroma of an
// image one pixel wide, needs no work.
template <typename Body>
Status onPlaneViews(Env* env, const Image* dst, const Image* src, ViewInit init, const Body& body) {
  ScopedImage dstView(env);
  ScopedImage srcView(env);
  if (const Status s = init(&dstView, dst, 0, 0, dst->width, dst->height); s != ZELVAN_OK) return s;
  if (const Status s = init(&srcView, src, 0, 0, src->width, src->height); s != ZELVAN_OK) return s;
  if (dstView.width < 1 || dstView.height < 1 || srcView.width < 1 || srcView.height < 1) return ZELVAN_OK;
  return body(&dstView, &srcView);
}

// The chroma pairs of 27 or 29 as one plane of bytes, with the last pair and row of odd sizes.
inline Image bytesOfChroma(const Image& image) {
  Image plane = image;
  plane.width = (image.width + 1) / 2 * 2;
  plane.height = (image.height + 1) / 2;
  plane.plane0 = image.plane1;
  plane.pitch0 = image.pitch1;
  return plane;
}

#endif  // ZVT4_IMAGEPROC_PLANE_VIEW_H_
