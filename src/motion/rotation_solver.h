// The iteration of the rotation solvers: Gauss-Newton steps on the angles a, b, c of the images above 0, for the cost
//
//   sum of w |R_i p - R_j q|^2,    R_k = Ry(a) Rx(b) Rz(c),
//
// as motion/milsm8r.h tells it. What differs between the variants stands in Model:
//   Record                   imageCount, failureCode, tolerance, angles, env, and imageSums with the sums own and cross
//   pairSums(record)         count and cross of the images 0 < i < j, at pairIndexAboveBase
//   unit(record)             the factor that makes all sums those of unit rays, more or less
//   constraintFlags(record)  as in MILsm8R, or null
//   sineCosine(angle)        of the angle
//   tableAngle(angle)        the angle that sineCosine took for it, from which a step goes on
#ifndef ZVT4_MOTION_ROTATION_SOLVER_H_
#define ZVT4_MOTION_ROTATION_SOLVER_H_

#include <algorithm>
#include <cmath>

#include "base/scoped.h"
#include "motion/pair_record.h"
#include "motion/symmetric_solve.h"

inline constexpr double kDeterminantLimit = 1e-8;
inline constexpr double kRotationPivotLimit = 1e-16;
inline constexpr double kDiagonalLift = 1e-16;

struct SineCosine {
  double sine, cosine;
};

// Ry(a) Rx(b) Rz(c), and its derivatives by a, b and c.
struct RotationTable {
  double r[9];
  double slopes[3][9];
};

inline RotationTable rotationTable(const SineCosine& a, const SineCosine& b, const SineCosine& c) {
  const auto [sinA, cosA] = a;
  const auto [sinB, cosB] = b;
  const auto [sinC, cosC] = c;
  return {
      {cosA * cosC + sinA * sinB * sinC, -cosA * sinC + sinA * sinB * cosC, sinA * cosB,  //
       cosB * sinC, cosB * cosC, -sinB,                                                   //
       -sinA * cosC + cosA * sinB * sinC, sinA * sinC + cosA * sinB * cosC, cosA * cosB},
      {{-sinA * cosC + cosA * sinB * sinC, sinA * sinC + cosA * sinB * cosC, cosA * cosB,  //
        0, 0, 0,                                                                           //
        -cosA * cosC - sinA * sinB * sinC, cosA * sinC - sinA * sinB * cosC, -sinA * cosB},
       {sinA * cosB * sinC, sinA * cosB * cosC, -sinA * sinB,  //
        -sinB * sinC, -sinB * cosC, -cosB,                     //
        cosA * cosB * sinC, cosA * cosB * cosC, -cosA * sinB},
       {-cosA * sinC + sinA * sinB * cosC, -cosA * cosC - sinA * sinB * sinC, 0,  //
        cosB * cosC, -cosB * sinC, 0,                                             //
        sinA * sinC + cosA * sinB * cosC, sinA * cosC - cosA * sinB * sinC, 0}},
  };
}

inline void multiply3x3(const double* a, const double* b, double* out) {
  for (int row = 0; row < 9; row += 3) {
    for (int column = 0; column < 3; ++column) {
      out[row + column] = a[row] * b[column] + a[row + 1] * b[3 + column] + a[row + 2] * b[6 + column];
    }
  }
}

// Sum of the products of corresponding entries: trace(a b^T).
inline double entrySum(const double* a, const double* b) {
  double sum = 0.0;
  for (int i = 0; i < 9; ++i) sum += a[i] * b[i];
  return sum;
}

// The work memory of a solve.
template <typename Model>
class RotationSolver {
 public:
  using Record = typename Model::Record;

  explicit RotationSolver(Record* self)
      : self_(*self),
        images_(self->imageCount - 1),
        angleCount_(3 * images_),
        n_(angleCount_ + countFlags(*self)),
        unit_(Model::unit(*self)),
        matrix_(self->env, static_cast<size_t>(n_) * n_),
        step_(self->env, n_),
        multipliers_(self->env, n_ - angleCount_),
        start_(self->env, angleCount_),
        tables_(self->env, images_) {}

  Status run() {
    if (!matrix_ || !step_ || !multipliers_ || !start_ || !tables_) {
      self_.failureCode = MILSM_FAIL_MEMORY;
      return ZELVAN_ERROR_NOMEM;
    }
    std::copy_n(self_.angles, angleCount_, start_.data());
    std::fill_n(multipliers_.data(), n_ - angleCount_, 1.0);
    self_.failureCode = iterate();
    return ZELVAN_OK;
  }

 private:
  static int32_t countFlags(const Record& self) {
    const uint8_t* flags = Model::constraintFlags(self);
    int32_t count = 0;
    for (int32_t i = 3; flags != nullptr && i < 3 * self.imageCount; ++i) count += flags[i] != 0;
    return count;
  }

  int32_t iterate() {
    for (int32_t pass = 0; pass < kSolvePasses; ++pass) {
      buildSystem();
      const int32_t failure = n_ == 3 ? solveClosed() : solveFactored();
      if (failure != MILSM_CONVERGED) return failure;
      if (applyStep() < self_.tolerance) return MILSM_CONVERGED;
    }
    return MILSM_FAIL_PASSES;
  }

  void buildSystem() {
    std::fill_n(matrix_.data(), n_ * n_, 0.0);
    std::fill_n(step_.data(), n_, 0.0);
    for (int32_t k = 0; k < images_; ++k) {
      const double* angles = self_.angles + 3 * k;
      tables_[k] =
          rotationTable(Model::sineCosine(angles[0]), Model::sineCosine(angles[1]), Model::sineCosine(angles[2]));
    }
    for (int32_t k = 0; k < images_; ++k) addImage(k);
    for (int32_t i = 0; i < images_; ++i) {
      for (int32_t j = i + 1; j < images_; ++j) addPair(i, j);
    }
    addConstraints();
  }

  // Here and below image numbers count from 0 without the base.
  void addImage(int32_t k) {
    const RotationTable& table = tables_[k];
    const auto& own = self_.imageSums[k].own;
    double S[9], cross[9];
    constexpr int kPlaces[9] = {0, 1, 2, 1, 3, 4, 2, 4, 5};
    for (int i = 0; i < 9; ++i) S[i] = own[kPlaces[i]] * unit_;
    for (int i = 0; i < 9; ++i) cross[i] = self_.imageSums[k].cross[i] * unit_;
    for (int s = 0; s < 3; ++s) {
      double product[9];
      multiply3x3(table.slopes[s], S, product);
      for (int t = 0; t < 3; ++t) matrix_[(3 * k + s) * n_ + 3 * k + t] += entrySum(product, table.slopes[t]);
      step_[3 * k + s] += entrySum(cross, table.slopes[s]) - entrySum(product, table.r);
    }
  }

  // Of |R_i p - R_j q|^2 the squares are in the own sums of both images; this is the product.
  void addPair(int32_t i, int32_t j) {
    const auto& pair = Model::pairSums(self_)[pairIndexAboveBase(self_.imageCount, i + 1, j + 1)];
    if (pair.count == 0) return;
    double cross[9];
    for (int k = 0; k < 9; ++k) cross[k] = pair.cross[k] * unit_;
    double product[9];
    for (int s = 0; s < 3; ++s) {
      multiply3x3(tables_[i].slopes[s], cross, product);
      for (int t = 0; t < 3; ++t) {
        const double entry = -entrySum(product, tables_[j].slopes[t]);
        matrix_[(3 * i + s) * n_ + 3 * j + t] += entry;
        matrix_[(3 * j + t) * n_ + 3 * i + s] += entry;
      }
      step_[3 * i + s] += entrySum(product, tables_[j].r);
    }
    multiply3x3(tables_[i].r, cross, product);
    for (int t = 0; t < 3; ++t) step_[3 * j + t] += entrySum(product, tables_[j].slopes[t]);
  }

  // A Lagrange multiplier for each restrained angle.
  void addConstraints() {
    if (n_ == angleCount_) return;
    const uint8_t* flags = Model::constraintFlags(self_);
    int32_t row = angleCount_;
    for (int32_t i = 0; i < angleCount_; ++i) {
      if (flags[3 + i] == 0) continue;
      matrix_[row * n_ + i] += 0.5;
      matrix_[i * n_ + row] += 0.5;
      step_[i] -= 0.5 * multipliers_[row - angleCount_];
      step_[row] -= 0.5 * (self_.angles[i] - start_[i]);
      ++row;
    }
  }

  int32_t solveClosed() {
    const double* h = matrix_.data();
    const double c00 = h[4] * h[8] - h[5] * h[5];
    const double c01 = h[2] * h[5] - h[1] * h[8];
    const double c02 = h[1] * h[5] - h[2] * h[4];
    const double c11 = h[0] * h[8] - h[2] * h[2];
    const double c12 = h[1] * h[2] - h[0] * h[5];
    const double c22 = h[0] * h[4] - h[1] * h[1];
    const double determinant = h[0] * c00 + h[1] * c01 + h[2] * c02;
    if (std::fabs(determinant) < kDeterminantLimit) return MILSM_FAIL_DIAGONAL;
    const double g0 = step_[0], g1 = step_[1], g2 = step_[2];
    step_[0] = (c00 * g0 + c01 * g1 + c02 * g2) / determinant;
    step_[1] = (c01 * g0 + c11 * g1 + c12 * g2) / determinant;
    step_[2] = (c02 * g0 + c12 * g1 + c22 * g2) / determinant;
    return MILSM_CONVERGED;
  }

  int32_t solveFactored() {
    for (int32_t i = 0; i < n_; ++i) matrix_[i * n_ + i] += kDiagonalLift;
    if (!factorLdl(matrix_.data(), n_, kRotationPivotLimit)) return MILSM_FAIL_PIVOT;
    substituteForwardUnit(matrix_.data(), step_.data(), n_);
    divideByDiagonal(matrix_.data(), step_.data(), n_);
    substituteBackwardUnit(matrix_.data(), step_.data(), n_);
    return MILSM_CONVERGED;
  }

  // Returns the stop measure: the largest change of an angle, relative to angles above 1. NaN if there is one.
  double applyStep() {
    double measure = 0.0;
    for (int32_t i = 0; i < angleCount_; ++i) {
      self_.angles[i] = Model::tableAngle(self_.angles[i]) + step_[i];
      measure = largerMeasure(measure, std::fabs(step_[i]) / std::max(self_.angles[i], 1.0));
    }
    for (int32_t i = angleCount_; i < n_; ++i) multipliers_[i - angleCount_] += step_[i];
    return measure;
  }

  Record& self_;
  const int32_t images_;
  const int32_t angleCount_;
  const int32_t n_;
  const double unit_;
  const ScopedBlock<double> matrix_;
  const ScopedBlock<double> step_;
  const ScopedBlock<double> multipliers_;
  const ScopedBlock<double> start_;
  const ScopedBlock<RotationTable> tables_;
};

#endif  // ZVT4_MOTION_ROTATION_SOLVER_H_
