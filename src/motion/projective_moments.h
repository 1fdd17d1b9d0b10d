// The sums behind the projective solvers, and the cost that they describe.
//
// Image k has eight parameters p0..p7, the matrix P_k = [p0 p1 p2; p3 p4 p5; p6 p7 1] that maps coordinates of image k
// to those of image 0; P_0 is the identity. A correspondence of weight w has the point u = (X, Y, 1) in one image,
// whose matrix is P, and v = (x, y, 1) in the other, whose matrix is Q. Its algebraic residuals are homogeneous
// products, with subscripts for rows,
//
//   r_x = (P_0 u)(Q_2 v) - (Q_0 v)(P_2 u),    r_y = (P_1 u)(Q_2 v) - (Q_1 v)(P_2 u),
//
// and the cost is E = sum of w (r_x^2 + r_y^2). Against image 0, Q is the identity and the residuals are linear in p.
// The 36 moments of a pair of images are all that E needs, so that points need not be kept.
//
// The order of all sums is part of the results.
#ifndef ZVT4_MOTION_PROJECTIVE_MOMENTS_H_
#define ZVT4_MOTION_PROJECTIVE_MOMENTS_H_

#include <cstdint>

inline constexpr int32_t kMomentCount = 36;
inline constexpr int32_t kProjectiveParameters = 8;

// Adds one correspondence to the moments m of its pair. The 32-bit form takes products modulo 2^32, reads them as
// signed and converts them one by one.
void addMoments(double* m, double x, double y, double X, double Y, double w);
void addMoments(double* m, int32_t x, int32_t y, int32_t X, int32_t Y, int32_t w);

// The pair of image 0 with an image of parameters p: E = p^T A p - 2 b^T p + (m8 + m9).
// Adds A, both triangles, to the 8x8 block that starts at matrix; rows are stride apart.
void addBaseMatrix(const double* m, double* matrix, int32_t stride);
void baseRightHandSide(const double* m, double* b);
// Adds A p - b, half the gradient of E.
void addBaseGradient(const double* m, const double* p, double* gradient);
double baseCost(const double* m, const double* p);

struct ProjectiveImage {
  double matrix[9];
  int32_t position;  // of its parameters in a linear system
};

// The pair of two images above 0. Adds to matrix, n x n, the Gauss-Newton matrix (half of that of E), to gradient half
// the gradient of E, and returns E.
double addPair(const double* m, const ProjectiveImage& imageOfU, const ProjectiveImage& imageOfV, double* matrix,
               int32_t n, double* gradient);

// The whole system of imageCount images: all blocks of moments, all parameters. matrix and gradient, of size
// n = 8 (imageCount - 1), are cleared first. Returns E.
double buildProjectiveSystem(const double* moments, const double* parameters, int32_t imageCount, double* matrix,
                             double* gradient);

// Which of the (imageCount - 1)^2 blocks is that of the images low < high. Blocks of a pair with image 0 stand on the
// diagonal of the grid, the others above it.
constexpr int32_t momentBlock(int32_t imageCount, int32_t low, int32_t high) {
  return low == 0 ? (high - 1) * imageCount : (high - 1) + (imageCount - 1) * (low - 1);
}

// Inverse of a projective matrix whose ninth value counts as 1, scaled back to a ninth value of 1. False, and out
// untouched, when the determinant of the upper left 2x2 block is below 1e-16 in magnitude. No overlap.
bool invertProjective(const double* h, double* out);

#endif  // ZVT4_MOTION_PROJECTIVE_MOMENTS_H_
