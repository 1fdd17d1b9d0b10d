// Mvec8Real: the motion value of the whole system, a 3x3 projective transform in double precision.
//
// (x, y) maps to (X / W, Y / W) with X = h0 x + h1 y + h2, Y = h3 x + h4 y + h5, W = h6 x + h7 y + h8. Coordinates are
// pixels with the origin at the top-left sample. In the pipeline a motion maps coordinates of the base frame to those
// of the other frame. The overall scale has no meaning, and h8 need not be 1.
//
// All functions give ZELVAN_ERROR_PARAM on a null pointer, except Mvec8Real_estimateRotationMatrix, which does not
// look. Outputs may alias inputs. A camera is given by its picture size and the diagonal angle of view in degrees.
#ifndef ZVT4_MOTION_MVEC8_REAL_H_
#define ZVT4_MOTION_MVEC8_REAL_H_

#include "base/export.h"
#include "base/status.h"

struct Mvec8Real {
  double h[9];       // row by row
  double angles[3];  // rotation angles in radians that a rotation solver or the tracker attaches; else 0
};

extern "C" {
// All twelve places.
Status Mvec8Real_setIdentity(Mvec8Real* mvec) ZVT4_NAME(Mvec8Real_setIdentity);

// A point through the motion: in integer pixels, in Q15 (32768 = 1 pixel), in doubles. The integer results are rounded
// to nearest, halves away from zero, and saturate. W = 0 is not guarded.
Status Mvec8Real_trans2D(const Mvec8Real* mvec, int32_t* outX, int32_t* outY, int32_t x, int32_t y)
    ZVT4_NAME(Mvec8Real_trans2D);
Status Mvec8Real_trans2DF32(const Mvec8Real* mvec, int32_t* outX, int32_t* outY, int32_t x, int32_t y)
    ZVT4_NAME(Mvec8Real_trans2DF32);
Status Mvec8Real_trans2DReal(const Mvec8Real* mvec, double* outX, double* outY, double x, double y)
    ZVT4_NAME(Mvec8Real_trans2DReal);
// The bare matrix product, without a division.
Status Mvec8Real_trans3DReal(const Mvec8Real* mvec, double* outX, double* outY, double* outZ, double x, double y,
                             double z) ZVT4_NAME(Mvec8Real_trans3DReal);

// Matrix inverse; the angle places of out stay. A determinant of magnitude below 1e-16 makes out the identity, angle
// places included, and gives ZELVAN_ERROR_GENERAL; callers commonly go on with that identity.
Status Mvec8Real_inv(Mvec8Real* out, const Mvec8Real* in) ZVT4_NAME(Mvec8Real_inv);
// a x b: b is applied first. The angle places have no meaning afterwards.
Status Mvec8Real_mult(Mvec8Real* out, const Mvec8Real* a, const Mvec8Real* b) ZVT4_NAME(Mvec8Real_mult);
// Scales the nine entries so that h0^2 + h4^2 + h8^2 = 1: an identity comes out with 1/sqrt(3) on the diagonal.
Status Mvec8Real_normalize(Mvec8Real* out, const Mvec8Real* in) ZVT4_NAME(Mvec8Real_normalize);

// Rotation matrix of the angles a about y, b about x, c about z. inverse 0: Rz(c) Rx(b) Ry(a); else its transpose,
// with Rx(t) = [1 0 0; 0 cos -sin; 0 sin cos], Ry(t) = [cos 0 sin; 0 1 0; -sin 0 cos], Rz(t) = [cos -sin 0; sin cos 0;
// 0 0 1].
Status Mvec8Real_rotationFromAngles(double* matrix, int32_t inverse, double a, double b, double c)
    ZVT4_NAME(Mvec8Real_rotationFromAngles);
// Motion of a camera rotation given by angles, normalised by its diagonal as Mvec8Real_normalize does.
Status Mvec8Real_setRotationAngle(Mvec8Real* out, double a, double b, double c, int32_t width, int32_t height,
                                  double fovDegrees, int32_t inverse) ZVT4_NAME(Mvec8Real_setRotationAngle);
// Motion of a camera rotation given by its 3x3 matrix, inverted if inverse is nonzero. Here the scale makes
// h0^2 + h1^2 = 1, after the inversion; its status is the result.
Status Mvec8Real_setRotationMatrix(Mvec8Real* out, const double* matrix, int32_t width, int32_t height,
                                   double fovDegrees, int32_t inverse) ZVT4_NAME(Mvec8Real_setRotationMatrix);
// The angles that Mvec8Real_setRotationAngle with inverse 0 made the motion of. Works through the inverse motion, whose
// status is the result.
Status Mvec8Real_estimateRotationAngle(double* a, double* b, double* c, const Mvec8Real* in, int32_t width,
                                       int32_t height, double fovDegrees) ZVT4_NAME(Mvec8Real_estimateRotationAngle);
// The rotation matrix of a motion, scaled to a third column of length 1.
Status Mvec8Real_estimateRotationMatrix(double* matrix, const Mvec8Real* in, int32_t width, int32_t height,
                                        double fovDegrees) ZVT4_NAME(Mvec8Real_estimateRotationMatrix);
}

#endif  // ZVT4_MOTION_MVEC8_REAL_H_
