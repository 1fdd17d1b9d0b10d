// Sizes and motions; the image operations stand in vectral_util_image.cpp.
#include "tracker/vectral_util.h"

#include <algorithm>

#include "base/integer.h"
#include "base/raw_double.h"
#include "motion/camera.h"
#include "motion/milsm.h"
#include "motion/similar_transform.h"

namespace {

// 2^n for the difference of two levels.
double powerOfTwo(int32_t n) {
  return wrapShl(1, n & 31);
}

// Reads the rotation off the inverse motion at the centre and its right neighbour, as seen at size 2.
Status refitRotation(Mvec8Real* dst, const Mvec8Real* src, int32_t width1, int32_t height1, int32_t width2,
                     int32_t height2, double fieldOfView) {
  const Camera camera = makeCamera(width2, height2, fieldOfView);
  const double f = camera.f;
  Mvec8Real inverse = {};
  Status status = Mvec8Real_inv(&inverse, src);
  const int32_t hx = width1 / 2;
  const int32_t hy = height1 / 2;
  double x0 = 0, y0 = 0, x1 = 0, y1 = 0;
  status |= Mvec8Real_trans2DReal(&inverse, &x0, &y0, hx, hy);
  status |= Mvec8Real_trans2DReal(&inverse, &x1, &y1, static_cast<double>(hx) + 1, hy);
  x0 = (x0 - hx) * width2 / width1;
  y0 = (y0 - hy) * height2 / height1;
  x1 = (x1 - hx) * width2 / width1;
  y1 = (y1 - hy) * height2 / height1;
  const double a = RawDouble_atan2(-x0, f);
  const double b = RawDouble_atan2(y0, f * RawDouble_cos(a) - x0 * RawDouble_sin(a));
  double r[9];
  VectralUtil_rotationMatrix(r, a, b, 0);
  const double c = RawDouble_atan2(-(r[3] * x1 + r[4] * y1 + r[5] * f), r[0] * x1 + r[1] * y1 + r[2] * f);
  VectralUtil_rotationMatrix(r, a, b, c);
  motionFromRotation(camera, r, dst->h);
  return status;
}

}  // namespace

Status VectralUtil_calcShrinkRatio(int32_t* ratio, int32_t targetArea, int32_t width, int32_t height) {
  if (ratio == nullptr) return ZELVAN_ERROR_PARAM;
  *ratio = 1;
  if (targetArea < 0) return ZELVAN_ERROR_PARAM;
  const int32_t target = std::max(targetArea, 1);
  int32_t r = 2;
  while (wrapMul(width / r, height / r) >= target) ++r;
  *ratio = r - 1;
  return ZELVAN_OK;
}

Status VectralUtil_calcResoNum(int32_t* levels, int32_t minimumArea, int32_t width, int32_t height) {
  if (levels == nullptr) return ZELVAN_ERROR_PARAM;
  for (int32_t i = 0; i <= 98; ++i) {
    const int32_t shift = std::min(i, 31);
    if (wrapMul(width >> shift, height >> shift) < minimumArea) {
      *levels = i;
      return ZELVAN_OK;
    }
  }
  return ZELVAN_ERROR_PARAM;
}

Status VectralUtil_similarTransform(Mvec8Real* dst, const Mvec8Real* src, const ImageRect* rect, double scale,
                                    int32_t inverse) {
  if (dst == nullptr || src == nullptr) return ZELVAN_ERROR_PARAM;
  const double left = rect != nullptr ? rect->left : 0;
  const double top = rect != nullptr ? rect->top : 0;
  return similarTransform(dst, src, left, top, scale, inverse != 0);
}

Status VectralUtil_rotationMatrix(double* matrix, double a, double b, double c) {
  if (matrix == nullptr) return ZELVAN_ERROR_PARAM;
  const double ca = RawDouble_cos(a), sa = RawDouble_sin(a);
  const double cb = RawDouble_cos(b), sb = RawDouble_sin(b);
  const double cc = RawDouble_cos(c), sc = RawDouble_sin(c);
  matrix[0] = ca * cc - sa * sb * sc;
  matrix[1] = -cb * sc;
  matrix[2] = sa * cc + ca * sb * sc;
  matrix[3] = ca * sc + sa * sb * cc;
  matrix[4] = cb * cc;
  matrix[5] = sa * sc - ca * sb * cc;
  matrix[6] = -sa * cb;
  matrix[7] = sb;
  matrix[8] = ca * cb;
  return ZELVAN_OK;
}

Status VectralUtil_shift8R(Mvec8Real* dst, const Mvec8Real* src, double dx, double dy, int32_t width, int32_t height,
                           double fieldOfView) {
  if (dst == nullptr || src == nullptr) return ZELVAN_ERROR_PARAM;
  const Camera camera = makeCamera(width, height, fieldOfView);
  double a = 0, b = 0, c = 0;
  const Status status = Mvec8Real_estimateRotationAngle(&a, &b, &c, src, width, height, fieldOfView);
  a += dx / camera.f;
  b -= dy / camera.f;
  double r[9];
  VectralUtil_rotationMatrix(r, a, b, c);
  *dst = {};
  motionFromRotation(camera, r, dst->h);
  return status;
}

Status VectralUtil_scaleMvec(Mvec8Real* dst, const Mvec8Real* src, int32_t width1, int32_t height1, int32_t level1,
                             int32_t width2, int32_t height2, int32_t level2, double fieldOfView, int32_t type) {
  if (dst == nullptr || src == nullptr) return ZELVAN_ERROR_PARAM;
  if (dst != src) *dst = *src;
  if (type == MILSM_8R) return refitRotation(dst, dst, width1, height1, width2, height2, fieldOfView);
  double k;
  if (level1 < 0 || level2 < 0) {
    k = static_cast<double>(width1) / width2;
  } else if (level1 > level2) {
    k = powerOfTwo(level1 - level2);
  } else {
    k = 1 / powerOfTwo(level2 - level1);
  }
  dst->h[2] *= k;
  dst->h[5] *= k;
  dst->h[6] *= 1 / k;
  dst->h[7] *= 1 / k;
  return ZELVAN_OK;
}
