// Mvec8F32: the motion matrix of Mvec8Real in Q15. The letters F32 mean 32-bit fixed point with 15 fraction bits.
//
// The functions are those of Mvec8Real on the raw values converted to double; the factor 32768 cancels in the mappings.
// ZELVAN_ERROR_PARAM on a null pointer. Outputs may alias inputs.
#ifndef ZVT4_MOTION_MVEC8_F32_H_
#define ZVT4_MOTION_MVEC8_F32_H_

#include "base/export.h"
#include "base/status.h"

struct Mvec8F32 {
  int32_t h[9];  // row by row; h[8] is 32768 in normal use
};

extern "C" {
Status Mvec8F32_setIdentity(Mvec8F32* mvec) ZVT4_NAME(Mvec8F32_setIdentity);
Status Mvec8F32_trans2D(const Mvec8F32* mvec, int32_t* outX, int32_t* outY, int32_t x, int32_t y)
    ZVT4_NAME(Mvec8F32_trans2D);
Status Mvec8F32_trans2DF32(const Mvec8F32* mvec, int32_t* outX, int32_t* outY, int32_t x, int32_t y)
    ZVT4_NAME(Mvec8F32_trans2DF32);
Status Mvec8F32_trans2DReal(const Mvec8F32* mvec, double* outX, double* outY, double x, double y)
    ZVT4_NAME(Mvec8F32_trans2DReal);
// The adjugate times 32768 / d with d = h0 h4 - h1 h3, the determinant of the upper left 2x2 block alone, rounded half
// away from zero; h8 becomes 32768. So it is the inverse for affine motions, and near it for weak perspective.
// |d| < 1e-16 gives ZELVAN_ERROR_GENERAL and leaves out alone.
Status Mvec8F32_inv(Mvec8F32* out, const Mvec8F32* in) ZVT4_NAME(Mvec8F32_inv);
}

#endif  // ZVT4_MOTION_MVEC8_F32_H_
