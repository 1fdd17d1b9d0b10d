// Mvec8Real: the motion value of the whole system, a 3x3 projective transform in double precision.
#ifndef ZVT4_MOTION_MVEC8_REAL_H_
#define ZVT4_MOTION_MVEC8_REAL_H_

#include "base/export.h"
#include "base/status.h"

// (x, y) maps to (X / W, Y / W): X = h0 x + h1 y + h2, Y = h3 x + h4 y + h5, W = h6 x + h7 y + h8.
struct Mvec8Real {
  double h[9];
  double angles[3];  // rotation angles in radians that a rotation solver attaches; else 0
};

extern "C" {
Status Mvec8Real_setIdentity(Mvec8Real* mvec) ZVT4_NAME(Mvec8Real_setIdentity);
Status Mvec8Real_trans2D(const Mvec8Real* mvec, int32_t* outX, int32_t* outY, int32_t x, int32_t y)
    ZVT4_NAME(Mvec8Real_trans2D);
Status Mvec8Real_trans2DF32(const Mvec8Real* mvec, int32_t* outX, int32_t* outY, int32_t x, int32_t y)
    ZVT4_NAME(Mvec8Real_trans2DF32);
Status Mvec8Real_trans2DReal(const Mvec8Real* mvec, double* outX, double* outY, double x, double y)
    ZVT4_NAME(Mvec8Real_trans2DReal);
Status Mvec8Real_trans3DReal(const Mvec8Real* mvec, double* outX, double* outY, double* outZ, double x, double y,
                             double z) ZVT4_NAME(Mvec8Real_trans3DReal);
Status Mvec8Real_inv(Mvec8Real* out, const Mvec8Real* in) ZVT4_NAME(Mvec8Real_inv);
Status Mvec8Real_mult(Mvec8Real* out, const Mvec8Real* a, const Mvec8Real* b) ZVT4_NAME(Mvec8Real_mult);
Status Mvec8Real_normalize(Mvec8Real* out, const Mvec8Real* in) ZVT4_NAME(Mvec8Real_normalize);
Status Mvec8Real_rotationFromAngles(double* matrix, int32_t inverse, double a, double b, double c)
    ZVT4_NAME(Mvec8Real_rotationFromAngles);
Status Mvec8Real_setRotationAngle(Mvec8Real* out, double a, double b, double c, int32_t width, int32_t height,
                                  double fovDegrees, int32_t inverse) ZVT4_NAME(Mvec8Real_setRotationAngle);
Status Mvec8Real_setRotationMatrix(Mvec8Real* out, const double* matrix, int32_t width, int32_t height,
                                   double fovDegrees, int32_t inverse) ZVT4_NAME(Mvec8Real_setRotationMatrix);
Status Mvec8Real_estimateRotationAngle(double* a, double* b, double* c, const Mvec8Real* in, int32_t width,
                                       int32_t height, double fovDegrees) ZVT4_NAME(Mvec8Real_estimateRotationAngle);
Status Mvec8Real_estimateRotationMatrix(double* matrix, const Mvec8Real* in, int32_t width, int32_t height,
                                        double fovDegrees) ZVT4_NAME(Mvec8Real_estimateRotationMatrix);
}

#endif  // ZVT4_MOTION_MVEC8_REAL_H_
