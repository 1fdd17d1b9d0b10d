#include "motion/mvec8_f32.h"

#include <cmath>

#include "motion/projective_map.h"

Status Mvec8F32_setIdentity(Mvec8F32* mvec) {
  if (mvec == nullptr) return ZELVAN_ERROR_PARAM;
  *mvec = {{32768, 0, 0, 0, 32768, 0, 0, 0, 32768}};
  return ZELVAN_OK;
}

Status Mvec8F32_trans2D(const Mvec8F32* mvec, int32_t* outX, int32_t* outY, int32_t x, int32_t y) {
  if (mvec == nullptr || outX == nullptr || outY == nullptr) return ZELVAN_ERROR_PARAM;
  double u, v;
  mapPoint(mvec->h, x, y, &u, &v);
  *outX = roundHalfAway(u);
  *outY = roundHalfAway(v);
  return ZELVAN_OK;
}

Status Mvec8F32_trans2DF32(const Mvec8F32* mvec, int32_t* outX, int32_t* outY, int32_t x, int32_t y) {
  if (mvec == nullptr || outX == nullptr || outY == nullptr) return ZELVAN_ERROR_PARAM;
  mapPointQ15(mvec->h, x, y, outX, outY);
  return ZELVAN_OK;
}

Status Mvec8F32_trans2DReal(const Mvec8F32* mvec, double* outX, double* outY, double x, double y) {
  if (mvec == nullptr || outX == nullptr || outY == nullptr) return ZELVAN_ERROR_PARAM;
  mapPoint(mvec->h, x, y, outX, outY);
  return ZELVAN_OK;
}

Status Mvec8F32_inv(Mvec8F32* out, const Mvec8F32* in) {
  if (out == nullptr || in == nullptr) return ZELVAN_ERROR_PARAM;
  double entries[9];
  adjugate(in->h, entries);
  const double determinant = entries[8];
  if (std::fabs(determinant) < kSingularLimit) return ZELVAN_ERROR_GENERAL;
  const double scale = kQ15One / determinant;
  for (int i = 0; i < 8; ++i) out->h[i] = roundHalfAway(entries[i] * scale);
  out->h[8] = 32768;
  return ZELVAN_OK;
}
