#include "motion/mvec8_real.h"

#include <algorithm>
#include <cmath>

#include "motion/camera.h"
#include "motion/projective_map.h"

namespace {

constexpr Mvec8Real kIdentity = {{1, 0, 0, 0, 1, 0, 0, 0, 1}, {0, 0, 0}};

// in may be out.
void scaleEntries(double* out, const double* in, double scale) {
  for (int i = 0; i < 9; ++i) out[i] = in[i] * scale;
}

double inverseDiagonalNorm(const double* h) {
  return 1.0 / RawDouble_sqrt(h[0] * h[0] + h[4] * h[4] + h[8] * h[8]);
}

}  // namespace

Status Mvec8Real_setIdentity(Mvec8Real* mvec) {
  if (mvec == nullptr) return ZELVAN_ERROR_PARAM;
  *mvec = kIdentity;
  return ZELVAN_OK;
}

Status Mvec8Real_trans2D(const Mvec8Real* mvec, int32_t* outX, int32_t* outY, int32_t x, int32_t y) {
  if (mvec == nullptr || outX == nullptr || outY == nullptr) return ZELVAN_ERROR_PARAM;
  double u, v;
  mapPoint(mvec->h, x, y, &u, &v);
  *outX = roundHalfAway(u);
  *outY = roundHalfAway(v);
  return ZELVAN_OK;
}

Status Mvec8Real_trans2DF32(const Mvec8Real* mvec, int32_t* outX, int32_t* outY, int32_t x, int32_t y) {
  if (mvec == nullptr || outX == nullptr || outY == nullptr) return ZELVAN_ERROR_PARAM;
  mapPointQ15(mvec->h, x, y, outX, outY);
  return ZELVAN_OK;
}

Status Mvec8Real_trans2DReal(const Mvec8Real* mvec, double* outX, double* outY, double x, double y) {
  if (mvec == nullptr || outX == nullptr || outY == nullptr) return ZELVAN_ERROR_PARAM;
  mapPoint(mvec->h, x, y, outX, outY);
  return ZELVAN_OK;
}

Status Mvec8Real_trans3DReal(const Mvec8Real* mvec, double* outX, double* outY, double* outZ, double x, double y,
                             double z) {
  if (mvec == nullptr || outX == nullptr || outY == nullptr || outZ == nullptr) return ZELVAN_ERROR_PARAM;
  const double* h = mvec->h;
  *outX = h[0] * x + h[1] * y + h[2] * z;
  *outY = h[3] * x + h[4] * y + h[5] * z;
  *outZ = h[6] * x + h[7] * y + h[8] * z;
  return ZELVAN_OK;
}

Status Mvec8Real_inv(Mvec8Real* out, const Mvec8Real* in) {
  if (out == nullptr || in == nullptr) return ZELVAN_ERROR_PARAM;
  const double* h = in->h;
  const double determinant =
      (h[0] * h[4] - h[1] * h[3]) * h[8] + (h[2] * (h[3] * h[7] - h[4] * h[6]) + h[5] * (h[1] * h[6] - h[0] * h[7]));
  if (std::fabs(determinant) < kSingularLimit) {
    *out = kIdentity;
    return ZELVAN_ERROR_GENERAL;
  }
  double entries[9];
  adjugate(h, entries);
  scaleEntries(out->h, entries, 1.0 / determinant);
  return ZELVAN_OK;
}

Status Mvec8Real_mult(Mvec8Real* out, const Mvec8Real* a, const Mvec8Real* b) {
  if (out == nullptr || a == nullptr || b == nullptr) return ZELVAN_ERROR_PARAM;
  Mvec8Real product = {};
  for (int row = 0; row < 9; row += 3) {
    for (int column = 0; column < 3; ++column) {
      product.h[row + column] =
          a->h[row] * b->h[column] + a->h[row + 1] * b->h[3 + column] + a->h[row + 2] * b->h[6 + column];
    }
  }
  *out = product;
  return ZELVAN_OK;
}

Status Mvec8Real_normalize(Mvec8Real* out, const Mvec8Real* in) {
  if (out == nullptr || in == nullptr) return ZELVAN_ERROR_PARAM;
  scaleEntries(out->h, in->h, inverseDiagonalNorm(in->h));
  return ZELVAN_OK;
}

Status Mvec8Real_rotationFromAngles(double* matrix, int32_t inverse, double a, double b, double c) {
  if (matrix == nullptr) return ZELVAN_ERROR_PARAM;
  const double cosA = RawDouble_cos(a), sinA = RawDouble_sin(a);
  const double cosB = RawDouble_cos(b), sinB = RawDouble_sin(b);
  const double cosC = RawDouble_cos(c), sinC = RawDouble_sin(c);
  const double r[9] = {
      cosC * cosA - sinC * sinB * sinA,
      -sinC * cosB,
      cosC * sinA + sinC * sinB * cosA,  //
      sinC * cosA + cosC * sinB * sinA,
      cosC * cosB,
      sinC * sinA - cosC * sinB * cosA,  //
      -cosB * sinA,
      sinB,
      cosB * cosA,
  };
  for (int row = 0; row < 3; ++row) {
    for (int column = 0; column < 3; ++column) {
      matrix[3 * row + column] = inverse != 0 ? r[3 * column + row] : r[3 * row + column];
    }
  }
  return ZELVAN_OK;
}

Status Mvec8Real_setRotationAngle(Mvec8Real* out, double a, double b, double c, int32_t width, int32_t height,
                                  double fovDegrees, int32_t inverse) {
  if (out == nullptr) return ZELVAN_ERROR_PARAM;
  double r[9];
  Mvec8Real_rotationFromAngles(r, inverse, a, b, c);
  motionFromRotation(makeCamera(width, height, fovDegrees), r, out->h);
  scaleEntries(out->h, out->h, inverseDiagonalNorm(out->h));
  return ZELVAN_OK;
}

Status Mvec8Real_setRotationMatrix(Mvec8Real* out, const double* matrix, int32_t width, int32_t height,
                                   double fovDegrees, int32_t inverse) {
  if (out == nullptr || matrix == nullptr) return ZELVAN_ERROR_PARAM;
  double entries[9];
  motionFromRotation(makeCamera(width, height, fovDegrees), matrix, entries);
  std::copy_n(entries, 9, out->h);
  const Status status = inverse != 0 ? Mvec8Real_inv(out, out) : ZELVAN_OK;
  scaleEntries(out->h, out->h, 1.0 / RawDouble_sqrt(out->h[0] * out->h[0] + out->h[1] * out->h[1]));
  return status;
}

Status Mvec8Real_estimateRotationAngle(double* a, double* b, double* c, const Mvec8Real* in, int32_t width,
                                       int32_t height, double fovDegrees) {
  if (a == nullptr || b == nullptr || c == nullptr || in == nullptr) return ZELVAN_ERROR_PARAM;
  const auto [f, cx, cy] = makeCamera(width, height, fovDegrees);
  Mvec8Real inverse = kIdentity;
  const Status status = Mvec8Real_inv(&inverse, in);
  const double* g = inverse.h;

  // The picture's centre and its right neighbour, through the inverse motion.
  const double x0 = g[2] + (cx * g[0] + cy * g[1]);
  const double y0 = g[5] + (cx * g[3] + cy * g[4]);
  const double w0 = g[8] + (cx * g[6] + cy * g[7]);
  const double next = cx + 1.0;
  const double x1 = g[2] + (next * g[0] + cy * g[1]);
  const double y1 = g[5] + (next * g[3] + cy * g[4]);
  const double w1 = g[8] + (next * g[6] + cy * g[7]);

  // Where the centre went gives the first two angles. The line of sight may lie in the picture's plane.
  double angleA, angleB, height0;
  if (std::fabs(w0) < kSingularLimit) {
    const double sine = y0 / RawDouble_sqrt(x0 * x0 + y0 * y0 + w0 * w0);
    angleB = RawDouble_asin(sine < -1.0 ? -1.0 : sine > 1.0 ? 1.0 : sine);
    angleA = RawDouble_atan2(-x0, w0);
    height0 = y0;
  } else {
    const double u = x0 / w0 - cx;
    const double v = y0 / w0 - cy;
    angleA = w0 > 0.0 ? RawDouble_atan2(-u, f) : RawDouble_atan2(u, -f);
    const double m = f * RawDouble_cos(angleA) - u * RawDouble_sin(angleA);
    angleB = std::fabs(m) >= kSingularLimit ? RawDouble_atan(v / m) : RawDouble_atan2(v, 0.0);
    height0 = v;
  }

  // With those two undone, the direction to the neighbour gives the turn about the line of sight.
  double angleC;
  if (std::fabs(w1) < kSingularLimit) {
    angleC = height0 > y1 ? kHalfPi : -kHalfPi;
  } else {
    const double p = x1 / w1 - cx;
    const double q = y1 / w1 - cy;
    double m[9];
    Mvec8Real_rotationFromAngles(m, 0, angleA, angleB, 0.0);
    const double s = m[0] * p + m[1] * q + m[2] * f;
    const double t = m[3] * p + m[4] * q + m[5] * f;
    angleC = w1 > 0.0 ? RawDouble_atan2(-t, s) : RawDouble_atan2(t, -s);
  }
  *a = angleA;
  *b = angleB;
  *c = angleC;
  return status;
}

Status Mvec8Real_estimateRotationMatrix(double* matrix, const Mvec8Real* in, int32_t width, int32_t height,
                                        double fovDegrees) {
  double r[9];
  rotationFromMotion(makeCamera(width, height, fovDegrees), in->h, r);
  scaleEntries(matrix, r, 1.0 / RawDouble_sqrt(r[8] * r[8] + (r[2] * r[2] + r[5] * r[5])));
  return ZELVAN_OK;
}
