#include "motion/symmetric_solve.h"

#include <cmath>

#include "base/raw_double.h"

bool factorLdl(double* matrix, int32_t n, double pivotLimit) {
  for (int32_t j = 0; j < n; ++j) {
    double* rowJ = matrix + j * n;
    double pivot = rowJ[j];
    for (int32_t k = 0; k < j; ++k) pivot -= rowJ[k] * rowJ[k] * matrix[k * n + k];
    if (std::fabs(pivot) < pivotLimit) return false;
    rowJ[j] = pivot;
    for (int32_t i = j + 1; i < n; ++i) {
      double* rowI = matrix + i * n;
      double value = rowI[j];
      for (int32_t k = 0; k < j; ++k) value -= rowI[k] * rowJ[k] * matrix[k * n + k];
      rowI[j] = value / pivot;
    }
  }
  return true;
}

void substituteForwardUnit(const double* factors, double* vector, int32_t n) {
  for (int32_t i = 0; i < n; ++i) {
    for (int32_t k = 0; k < i; ++k) vector[i] -= factors[i * n + k] * vector[k];
  }
}

void divideByDiagonal(const double* factors, double* vector, int32_t n) {
  for (int32_t i = 0; i < n; ++i) vector[i] /= factors[i * n + i];
}

void substituteBackwardUnit(const double* factors, double* vector, int32_t n) {
  for (int32_t i = n - 1; i >= 0; --i) {
    for (int32_t k = i + 1; k < n; ++k) vector[i] -= factors[k * n + i] * vector[k];
  }
}

bool factorCholesky(double* matrix, int32_t n, double pivotLimit) {
  for (int32_t i = 0; i < n; ++i) {
    double* rowI = matrix + i * n;
    double pivot = rowI[i];
    for (int32_t k = 0; k < i; ++k) pivot -= matrix[k * n + i] * matrix[k * n + i];
    if (pivot < pivotLimit) return false;
    rowI[i] = RawDouble_sqrt(pivot);
    for (int32_t j = i + 1; j < n; ++j) {
      double value = rowI[j];
      for (int32_t k = 0; k < i; ++k) value -= matrix[k * n + i] * matrix[k * n + j];
      rowI[j] = value / rowI[i];
    }
  }
  return true;
}

bool solveCholesky(const double* factors, const double* rightHandSide, double* x, int32_t n, double diagonalLimit) {
  for (int32_t i = 0; i < n; ++i) {
    const double diagonal = factors[i * n + i];
    if (std::fabs(diagonal) < diagonalLimit) return false;
    double value = rightHandSide[i];
    for (int32_t k = 0; k < i; ++k) value -= factors[k * n + i] * x[k];
    x[i] = value / diagonal;
  }
  for (int32_t i = n - 1; i >= 0; --i) {
    const double diagonal = factors[i * n + i];
    if (std::fabs(diagonal) < diagonalLimit) return false;
    double value = x[i];
    for (int32_t k = i + 1; k < n; ++k) value -= factors[i * n + k] * x[k];
    x[i] = value / diagonal;
  }
  return true;
}
