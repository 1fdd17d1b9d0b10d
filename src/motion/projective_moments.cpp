#include "motion/projective_moments.h"

#include <algorithm>
#include <cmath>

#include "motion/projective_map.h"

namespace {

// Element is the type of the products, ToReal converts each of them.
template <typename Element, typename ToReal>
void addTerms(double* m, Element x, Element y, Element X, Element Y, Element w, ToReal toReal) {
  const Element wX = w * X, wY = w * Y, wx = w * x, wy = w * y;
  const Element wXX = wX * X, wXY = wX * Y, wYY = wY * Y;
  const Element wxx = wx * x, wyy = wy * y, wxy = wx * y;
  const Element wxX = wx * X, wyX = wy * X, wxY = wx * Y, wyY = wy * Y;
  const Element wxxX = wxx * X, wyyX = wyy * X, wxyX = wxy * X;
  const Element wxxY = wxx * Y, wyyY = wyy * Y, wxyY = wxy * Y;
  const Element terms[kMomentCount] = {
      w,        wX,       wY,       wx,      wy,  //  0
      wXX,      wXY,      wYY,                    //  5
      wxx,      wyy,      wxy,                    //  8
      wxX,      wyX,      wxY,      wyY,          // 11
      wxX * X,  wyX * X,  wxX * Y,  wyX * Y,      // 15
      wxY * Y,  wyY * Y,                          // 19
      wxxX,     wyyX,     wxyX,                   // 21
      wxxY,     wyyY,     wxyY,                   // 24
      wxxX * X, wyyX * X, wxyX * X,               // 27
      wxxX * Y, wyyX * Y, wxyX * Y,               // 30
      wxxY * Y, wyyY * Y, wxyY * Y,               // 33
  };
  for (int i = 0; i < kMomentCount; ++i) m[i] += toReal(terms[i]);
}

// The moments that one of the two residuals against image 0 needs besides those of the point (X, Y) alone: t stands for
// x or y.
struct ResidualMoments {
  double t, tX, tY, tXX, tXY, tYY;
  double tt, ttX, ttY, ttXX, ttXY, ttYY;
};

// Sum of w (q0 X + q1 Y + q2 - t (p6 X + p7 Y + 1))^2, expanded: the first bracket squared, the products of both, the
// second squared.
double residualCost(const double* m, const ResidualMoments& r, const double* q, double p6, double p7) {
  const double own = q[0] * q[0] * m[5] + 2.0 * q[0] * q[1] * m[6] + 2.0 * q[0] * q[2] * m[1] + q[1] * q[1] * m[7] +
                     2.0 * q[1] * q[2] * m[2] + q[2] * q[2] * m[0];
  const double mixed = q[0] * (p6 * r.tXX + p7 * r.tXY + r.tX) + q[1] * (p6 * r.tXY + p7 * r.tYY + r.tY) +
                       q[2] * (p6 * r.tX + p7 * r.tY + r.t);
  const double other =
      p6 * p6 * r.ttXX + 2.0 * p6 * p7 * r.ttXY + 2.0 * p6 * r.ttX + p7 * p7 * r.ttYY + 2.0 * p7 * r.ttY + r.tt;
  return own - 2.0 * mixed + other;
}

// Moments of the product of a monomial in (X, Y) and one in (x, y). Rows: XX, XY, YY, X, Y, 1; columns: xx, xy, yy, x,
// y, 1.
constexpr uint8_t kMomentOf[6][6] = {
    {27, 29, 28, 15, 16, 5}, {30, 32, 31, 17, 18, 6}, {33, 35, 34, 19, 20, 7},
    {21, 23, 22, 11, 12, 1}, {24, 26, 25, 13, 14, 2}, {8, 10, 9, 3, 4, 0},
};
// The monomial that is the product of two entries of (X, Y, 1).
constexpr uint8_t kMonomialOf[3][3] = {{0, 1, 3}, {1, 2, 4}, {3, 4, 5}};

double dot9(const double* a, const double* b) {
  double sum = 0.0;
  for (int i = 0; i < 9; ++i) sum += a[i] * b[i];
  return sum;
}

ProjectiveImage makeImage(const double* parameters, int32_t image) {
  ProjectiveImage result = {};
  const int32_t position = (image - 1) * kProjectiveParameters;
  std::copy_n(parameters + position, kProjectiveParameters, result.matrix);
  result.matrix[8] = 1.0;
  result.position = position;
  return result;
}

}  // namespace

void addMoments(double* m, double x, double y, double X, double Y, double w) {
  addTerms(m, x, y, X, Y, w, [](double term) { return term; });
}

void addMoments(double* m, int32_t x, int32_t y, int32_t X, int32_t Y, int32_t w) {
  addTerms(m, static_cast<uint32_t>(x), static_cast<uint32_t>(y), static_cast<uint32_t>(X), static_cast<uint32_t>(Y),
           static_cast<uint32_t>(w), [](uint32_t term) { return static_cast<double>(static_cast<int32_t>(term)); });
}

void addBaseMatrix(const double* m, double* matrix, int32_t stride) {
  const double upper[8][8] = {
      {m[5], m[6], m[1], 0, 0, 0, -m[15], -m[17]},
      {0, m[7], m[2], 0, 0, 0, -m[17], -m[19]},
      {0, 0, m[0], 0, 0, 0, -m[11], -m[13]},
      {0, 0, 0, m[5], m[6], m[1], -m[16], -m[18]},
      {0, 0, 0, 0, m[7], m[2], -m[18], -m[20]},
      {0, 0, 0, 0, 0, m[0], -m[12], -m[14]},
      {0, 0, 0, 0, 0, 0, m[27] + m[28], m[30] + m[31]},
      {0, 0, 0, 0, 0, 0, 0, m[33] + m[34]},
  };
  for (int t = 0; t < 8; ++t) {
    matrix[t * stride + t] += upper[t][t];
    for (int u = t + 1; u < 8; ++u) {
      matrix[t * stride + u] += upper[t][u];
      matrix[u * stride + t] += upper[t][u];
    }
  }
}

void baseRightHandSide(const double* m, double* b) {
  b[0] = m[11];
  b[1] = m[13];
  b[2] = m[3];
  b[3] = m[12];
  b[4] = m[14];
  b[5] = m[4];
  b[6] = -(m[21] + m[22]);
  b[7] = -(m[24] + m[25]);
}

void addBaseGradient(const double* m, const double* p, double* gradient) {
  gradient[0] += m[5] * p[0] + m[6] * p[1] + m[1] * p[2] - m[15] * p[6] - m[17] * p[7] - m[11];
  gradient[1] += m[6] * p[0] + m[7] * p[1] + m[2] * p[2] - m[17] * p[6] - m[19] * p[7] - m[13];
  gradient[2] += m[1] * p[0] + m[2] * p[1] + m[0] * p[2] - m[11] * p[6] - m[13] * p[7] - m[3];
  gradient[3] += m[5] * p[3] + m[6] * p[4] + m[1] * p[5] - m[16] * p[6] - m[18] * p[7] - m[12];
  gradient[4] += m[6] * p[3] + m[7] * p[4] + m[2] * p[5] - m[18] * p[6] - m[20] * p[7] - m[14];
  gradient[5] += m[1] * p[3] + m[2] * p[4] + m[0] * p[5] - m[12] * p[6] - m[14] * p[7] - m[4];
  gradient[6] += -m[15] * p[0] - m[17] * p[1] - m[11] * p[2] - m[16] * p[3] - m[18] * p[4] - m[12] * p[5] +
                 (m[27] + m[28]) * p[6] + (m[30] + m[31]) * p[7] + (m[21] + m[22]);
  gradient[7] += -m[17] * p[0] - m[19] * p[1] - m[13] * p[2] - m[18] * p[3] - m[20] * p[4] - m[14] * p[5] +
                 (m[30] + m[31]) * p[6] + (m[33] + m[34]) * p[7] + (m[24] + m[25]);
}

double baseCost(const double* m, const double* p) {
  const ResidualMoments ofX = {m[3], m[11], m[13], m[15], m[17], m[19], m[8], m[21], m[24], m[27], m[30], m[33]};
  const ResidualMoments ofY = {m[4], m[12], m[14], m[16], m[18], m[20], m[9], m[22], m[25], m[28], m[31], m[34]};
  return residualCost(m, ofX, p, p[6], p[7]) + residualCost(m, ofY, p + 3, p[6], p[7]);
}

double addPair(const double* m, const ProjectiveImage& imageOfU, const ProjectiveImage& imageOfV, double* matrix,
               int32_t n, double* gradient) {
  // A residual is sum of c_ab u_a v_b. Its square is a form in the nine coefficients, with this matrix.
  double form[9][9];
  for (int i = 0; i < 81; ++i) {
    const int a = i / 27, b = i / 9 % 3, c = i / 3 % 3, d = i % 3;
    form[3 * a + b][3 * c + d] = m[kMomentOf[kMonomialOf[a][c]][kMonomialOf[b][d]]];
  }
  const double* P = imageOfU.matrix;
  const double* Q = imageOfV.matrix;
  double cost = 0.0;
  for (int row = 0; row < 2; ++row) {
    // Coefficients, and their derivatives by the parameters of this row and of the last row, first of P, then of Q.
    double coefficients[9];
    double slopes[10][9] = {};
    int32_t places[10];
    for (int i = 0; i < 9; ++i) {
      const int a = i / 3, b = i % 3;
      coefficients[i] = P[3 * row + a] * Q[6 + b] - P[6 + a] * Q[3 * row + b];
      slopes[a][i] = Q[6 + b];
      if (a < 2) slopes[3 + a][i] = -Q[3 * row + b];
      slopes[5 + b][i] = -P[6 + a];
      if (b < 2) slopes[8 + b][i] = P[3 * row + a];
    }
    for (int i = 0; i < 5; ++i) {
      const int parameter = i < 3 ? 3 * row + i : 3 + i;
      places[i] = imageOfU.position + parameter;
      places[5 + i] = imageOfV.position + parameter;
    }
    double product[9];
    for (int i = 0; i < 9; ++i) product[i] = dot9(form[i], coefficients);
    cost += dot9(coefficients, product);
    for (int t = 0; t < 10; ++t) {
      gradient[places[t]] += dot9(slopes[t], product);
      double formSlope[9];
      for (int i = 0; i < 9; ++i) formSlope[i] = dot9(form[i], slopes[t]);
      for (int u = 0; u < 10; ++u) matrix[places[t] * n + places[u]] += dot9(slopes[u], formSlope);
    }
  }
  return cost;
}

double buildProjectiveSystem(const double* moments, const double* parameters, int32_t imageCount, double* matrix,
                             double* gradient) {
  const int32_t n = kProjectiveParameters * (imageCount - 1);
  std::fill_n(matrix, n * n, 0.0);
  std::fill_n(gradient, n, 0.0);
  double cost = 0.0;
  for (int32_t high = 1; high < imageCount; ++high) {
    const int32_t position = kProjectiveParameters * (high - 1);
    const double* base = moments + kMomentCount * momentBlock(imageCount, 0, high);
    addBaseMatrix(base, matrix + position * n + position, n);
    addBaseGradient(base, parameters + position, gradient + position);
    cost += baseCost(base, parameters + position);
    for (int32_t low = 1; low < high; ++low) {
      const double* pair = moments + kMomentCount * momentBlock(imageCount, low, high);
      cost += addPair(pair, makeImage(parameters, low), makeImage(parameters, high), matrix, n, gradient);
    }
  }
  return cost;
}

bool invertProjective(const double* h, double* out) {
  const double d = h[0] * h[4] - h[1] * h[3];
  if (std::fabs(d) < kSingularLimit) return false;
  out[0] = (h[4] - h[5] * h[7]) / d;
  out[1] = (h[2] * h[7] - h[1]) / d;
  out[2] = (h[1] * h[5] - h[2] * h[4]) / d;
  out[3] = (h[5] * h[6] - h[3]) / d;
  out[4] = (h[0] - h[2] * h[6]) / d;
  out[5] = (h[2] * h[3] - h[0] * h[5]) / d;
  out[6] = (h[3] * h[7] - h[4] * h[6]) / d;
  out[7] = (h[1] * h[6] - h[0] * h[7]) / d;
  return true;
}
