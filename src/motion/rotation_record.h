// What the records of the rotation solvers share: a camera (width, height, fovDegrees; focalLength, cx, cy) and three
// angles per image above 0, of rotations into image 0. Public motions map image 0 to image k, so theirs are negated.
#ifndef ZVT4_MOTION_ROTATION_RECORD_H_
#define ZVT4_MOTION_ROTATION_RECORD_H_

#include "motion/camera.h"
#include "motion/mvec8_real.h"

// Of image k above 0: q are its rays, p those of image 0.
template <typename Number>
struct RotationImageSums {
  Number own[6];    // w q q^T: xx, xy, xz, yy, yz, zz. From pairs with any image.
  Number cross[9];  // w p q^T, row by row
};

// Of the images 0 < i < j: p are rays of i, q of j.
template <typename Count, typename Number>
struct RotationPairSums {
  Count count;      // how many were added
  Number cross[9];  // w p q^T, row by row
};

template <typename Record>
void rotationSetCamera(Record* self, int32_t width, int32_t height, double fovDegrees) {
  const Camera camera = makeCamera(width, height, fovDegrees);
  self->width = width;
  self->height = height;
  self->fovDegrees = fovDegrees;
  self->focalLength = camera.f;
  self->cx = camera.cx;
  self->cy = camera.cy;
}

// image above 0. The angles of the motion go into its angle places.
template <typename Record>
void rotationOutput(const Record& self, Mvec8Real* out, int32_t image) {
  const double* angles = self.angles + (image - 1) * 3;
  for (int i = 0; i < 3; ++i) out->angles[i] = -angles[i];
  Mvec8Real_setRotationAngle(out, -angles[0], -angles[1], -angles[2], self.width, self.height, self.fovDegrees, 0);
}

// image above 0. A singular motion counts as the identity and gives ZELVAN_ERROR_GENERAL.
template <typename Record>
Status rotationSetInitial(Record* self, const Mvec8Real& motion, int32_t image) {
  double a, b, c;
  const Status status =
      Mvec8Real_estimateRotationAngle(&a, &b, &c, &motion, self->width, self->height, self->fovDegrees);
  double* angles = self->angles + (image - 1) * 3;
  angles[0] = -a;
  angles[1] = -b;
  angles[2] = -c;
  return status;
}

#endif  // ZVT4_MOTION_ROTATION_RECORD_H_
