// Mvec8F32: the motion matrix in Q15. The letters F32 mean 32-bit fixed point with 15 fraction bits.
#ifndef ZVT4_MOTION_MVEC8_F32_H_
#define ZVT4_MOTION_MVEC8_F32_H_

#include "base/export.h"
#include "base/status.h"

struct Mvec8F32 {
  int32_t h[9];
};

extern "C" {
Status Mvec8F32_setIdentity(Mvec8F32* mvec) ZVT4_NAME(Mvec8F32_setIdentity);
Status Mvec8F32_trans2D(const Mvec8F32* mvec, int32_t* outX, int32_t* outY, int32_t x, int32_t y)
    ZVT4_NAME(Mvec8F32_trans2D);
Status Mvec8F32_trans2DF32(const Mvec8F32* mvec, int32_t* outX, int32_t* outY, int32_t x, int32_t y)
    ZVT4_NAME(Mvec8F32_trans2DF32);
Status Mvec8F32_trans2DReal(const Mvec8F32* mvec, double* outX, double* outY, double x, double y)
    ZVT4_NAME(Mvec8F32_trans2DReal);
Status Mvec8F32_inv(Mvec8F32* out, const Mvec8F32* in) ZVT4_NAME(Mvec8F32_inv);
}

#endif  // ZVT4_MOTION_MVEC8_F32_H_
