// Dense symmetric linear systems in place. Matrices are n x n, row by row. Of the triangles one is read and written:
// the lower by L D L^T, the upper by Cholesky. All sums run in ascending order of the index and begin with the entry
// that is being reduced.
#ifndef ZVT4_MOTION_SYMMETRIC_SOLVE_H_
#define ZVT4_MOTION_SYMMETRIC_SOLVE_H_

#include <cstdint>

// A = L D L^T: the unit lower triangle L goes below the diagonal, D onto it.
// False as soon as a pivot has a magnitude below pivotLimit; the columns before it are then done.
bool factorLdl(double* matrix, int32_t n, double pivotLimit);

// The three steps of the solution by the factors of factorLdl. vector: right-hand side in, solution out.
void substituteForwardUnit(const double* factors, double* vector, int32_t n);
void divideByDiagonal(const double* factors, double* vector, int32_t n);
void substituteBackwardUnit(const double* factors, double* vector, int32_t n);

// A = R^T R, row by row of the upper triangle R. False at the first pivot that is below pivotLimit before its root is
// taken; the rows above are then done, that of the pivot and those below it are as they were.
bool factorCholesky(double* matrix, int32_t n, double pivotLimit);

// R^T R x = rightHandSide by forward and back substitution; both may be the same array. False when a diagonal entry has
// a magnitude below diagonalLimit; x then has new values only as far as the substitution went.
bool solveCholesky(const double* factors, const double* rightHandSide, double* x, int32_t n, double diagonalLimit);

#endif  // ZVT4_MOTION_SYMMETRIC_SOLVE_H_
