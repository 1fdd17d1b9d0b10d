#include "motion/milsm.h"

#include <cstring>
#include <random>

#include "motion/milsm8.h"
#include "motion/milsm8st.h"
#include "motion/milsm_rig.h"
#include "motion/projective_moments.h"
#include "motion/symmetric_solve.h"

namespace {

constexpr Mvec8Real kMotion = {{1.02, -0.03, -6, 0.02, 0.97, 7, 5e-5, -8e-5, 1}, {}};

struct Pair {
  double x, y, X, Y, w;
};

// A grid of points with their images under the motion, moved by noise of the given half width.
std::vector<Pair> makePairs(double noise) {
  std::mt19937 random(7);
  std::uniform_real_distribution<double> shift(-noise, noise), weight(0.5, 2.0);
  std::vector<Pair> pairs;
  for (int i = 0; i < 70; ++i) {
    Pair p = {7.0 + 16 * (i % 10), 5.0 + 17 * (i / 10), 0, 0, weight(random)};
    Mvec8Real_trans2DReal(&kMotion, &p.X, &p.Y, p.x, p.y);
    p.X += shift(random);
    p.Y += shift(random);
    pairs.push_back(p);
  }
  return pairs;
}

// Cost of pairs by its definition; P maps (X, Y), Q maps (x, y).
double directCost(const std::vector<Pair>& pairs, const double* P, const double* Q) {
  double cost = 0;
  for (const Pair& p : pairs) {
    double u[3], v[3];
    for (int r = 0; r < 3; ++r) {
      u[r] = P[3 * r] * p.X + P[3 * r + 1] * p.Y + P[3 * r + 2];
      v[r] = Q[3 * r] * p.x + Q[3 * r + 1] * p.y + Q[3 * r + 2];
    }
    const double rx = u[0] * v[2] - v[0] * u[2], ry = u[1] * v[2] - v[1] * u[2];
    cost += p.w * (rx * rx + ry * ry);
  }
  return cost;
}

struct System {
  double cost, matrix[256] = {}, gradient[16] = {};
};

TEST(ProjectiveMoments, GiveTheCostItsGradientAndMatrix) {
  const std::vector<Pair> pairs = makePairs(4.0);
  double m[kMomentCount] = {};
  for (const Pair& p : pairs) addMoments(m, p.x, p.y, p.X, p.Y, p.w);
  constexpr int n = 16;  // of two images beside the base
  const auto evaluate = [&](const double(&P)[2][9]) {
    System s;
    ProjectiveImage images[2] = {{{}, 0}, {{}, 8}};
    for (int i = 0; i < 2; ++i) std::copy_n(P[i], 9, images[i].matrix);
    s.cost = addPair(m, images[0], images[1], s.matrix, n, s.gradient);
    return s;
  };
  double P[2][9] = {{1.1, 0.1, -3, 0.05, 0.9, 8, 1e-3, -2e-3, 1}, {0.95, -0.1, 2, 0.1, 1.2, -5, -2e-3, 1e-3, 1}};
  const System here = evaluate(P);
  EXPECT_NEAR(here.cost / directCost(pairs, P[0], P[1]), 1.0, 1e-10);
  for (int t = 0; t < n; ++t) {
    // In the parameters of one image the residuals are linear: the cost is a parabola, its gradient a line.
    const double h = t % 8 >= 6 ? 1e-3 : 1.0;
    double& parameter = P[t / 8][t % 8];
    const double kept = parameter;
    parameter = kept - h;
    const double below = directCost(pairs, P[0], P[1]);
    parameter = kept + h;
    EXPECT_NEAR(here.gradient[t] * 4 * h / (directCost(pairs, P[0], P[1]) - below), 1.0, 1e-6) << t;
    const System there = evaluate(P);
    parameter = kept;
    for (int u = t / 8 * 8; u < t / 8 * 8 + 8; ++u) {
      const double scale = std::sqrt(here.matrix[t * n + t] * here.matrix[u * n + u]);
      EXPECT_NEAR((there.gradient[u] - here.gradient[u]) / h, here.matrix[t * n + u], 1e-8 * scale) << t << " " << u;
      EXPECT_NEAR(here.matrix[u * n + t], here.matrix[t * n + u], 1e-8 * scale);
    }
  }
}

TEST(ProjectiveMoments, IntegerProductsWrapOneByOne) {
  const int32_t x = 1234, y = -987, X = 4321, Y = -2345, w = 3;
  double m[kMomentCount] = {}, real[kMomentCount] = {};
  addMoments(m, x, y, X, Y, w);
  addMoments(real, double{x}, double{y}, double{X}, double{Y}, double{w});
  for (int i = 0; i < kMomentCount; ++i) {
    const int64_t exact = static_cast<int64_t>(real[i]);  // below 2^53
    EXPECT_EQ(m[i], static_cast<int32_t>(exact & 0xFFFFFFFF)) << i;
  }
}

TEST(MILsm, AllWaysToAddAgree) {
  for (int32_t type : kAllTypes) {
    Mvec8Real results[4];
    for (int way = 0; way < 4; ++way) {
      Solver s(type);
      MILsm_setCameraParam(&s.lsm, 40, 30, 61.0);
      for (int i = 0; i < 25; ++i) {
        const int32_t x = i % 5 * 6, y = i / 5 * 5, X = x + 2 + i % 2, Y = y - 1 - i % 3 / 2, w = 1 + i % 2;
        if (way == 0) MILsm_add(&s.lsm, 0, x, y, 1, X, Y, w);
        if (way == 1) MILsm_addF32(&s.lsm, 0, x * 32768, y * 32768, 1, X * 32768, Y * 32768, w * 32768);
        if (way == 2) MILsm_addReal(&s.lsm, 0, x, y, 1, X, Y, w);
        if (way == 3) MILsm_addReal(&s.lsm, 1, X, Y, 0, x, y, w);
      }
      EXPECT_EQ(s.solve(), MILSM_CONVERGED);
      results[way] = s.output();
    }
    EXPECT_GT(largestDistance(results[0], kIdentity), 1.0);
    for (int way = 1; way < 4; ++way) EXPECT_EQ(std::memcmp(&results[way], &results[0], sizeof(Mvec8Real)), 0) << way;
  }
}

TEST(MILsm8St, EndsAtTheMinimumOfThePenalisedCost) {
  const std::vector<Pair> pairs = makePairs(1.5);
  double previous = 1;
  // The narrower the widths of perspective, the nearer to its centre it ends.
  for (double width : {1.0, 1e-3, 3e-5, 1e-6}) {
    Solver s;
    const double widths[8] = {1, 1, 1e10, 1, 1, 1e10, width, width};
    auto* record = static_cast<MILsm8St*>(s.lsm.impl);
    if (width != 1e-3) MILsm8St_setRestraint(record, widths, 1);  // else the default
    const Mvec8Real prior = {{1, 0.02, 3, 0, 1, -2, 2e-4, 2e-4, 1}, {}};
    EXPECT_EQ(MILsm_setInitialMvecReal(&s.lsm, &prior, 1), ZELVAN_OK);
    for (const Pair& p : pairs) EXPECT_EQ(MILsm_addReal(&s.lsm, 0, p.x, p.y, 1, p.X, p.Y, p.w), ZELVAN_OK);
    ASSERT_EQ(s.solve(), MILSM_CONVERGED) << width;
    double p[9] = {0, 0, 0, 0, 0, 0, 0, 0, 1};
    std::copy_n(record->parameters, 8, p);
    const auto logCost = [&] {
      double sum = std::log(directCost(pairs, p, kIdentity.h));
      for (int t = 0; t < 8; ++t) sum += std::pow((p[t] - record->centres[t]) / widths[t], 2);
      return sum;
    };
    const double least = logCost();
    for (int t = 0; t < 8; ++t) {
      for (double sign : {1.0, -1.0}) {
        p[t] = record->parameters[t] + sign * (t >= 6 ? 1e-7 : t % 3 == 2 ? 1e-3 : 1e-5);
        EXPECT_GT(logCost(), least) << width << " " << t;
      }
      p[t] = record->parameters[t];
    }
    const double distance = std::hypot(p[6] - record->centres[6], p[7] - record->centres[7]);
    EXPECT_LT(distance, previous);
    previous = distance;
  }
}

TEST(MILsm, DegenerateSetsFailAndNoPointsLeaveTheInitialMotion) {
  for (int32_t type : {MILSM_8, MILSM_8ST}) {
    for (int count : {0, 30}) {  // points on a line
      Solver s(type);
      MILsm_setInitialMvecReal(&s.lsm, &kMotion, 1);
      const Mvec8Real initial = s.output();
      for (int i = 0; i < count; ++i) MILsm_addReal(&s.lsm, 0, 8 + i * 3, 4 + i * 2, 1, 9 + i * 3, 6 + i * 2, 1);
      EXPECT_EQ(s.solve(), type == MILSM_8 && count == 0 ? MILSM_FAIL_DIAGONAL : MILSM_FAIL_PIVOT) << count;
      EXPECT_TRUE(count != 0 || largestDistance(s.output(), initial) == 0.0);
    }
  }
}

// The second row is half the first: its pivot is 0. What is done of the factor is the first row, in every column.
TEST(SymmetricSolve, GoesOnAlongTheUpperTriangleAfterAFailedPivot) {
  const double lower = -1e6;  // never read
  double matrix[9] = {4, 2, 6, lower, 1, 5, lower, lower, 20};
  EXPECT_FALSE(factorCholesky(matrix, 3, 1e-8));
  const double rightHandSide[3] = {2, 3, 4};
  double x[3];
  EXPECT_TRUE(solveCholesky(matrix, rightHandSide, x, 3, 1e-16));
  // Forward by the columns (2), (1, 1), (3, 5, 20), back by the rows.
  const double y[3] = {2.0 / 2, (3 - 1 * 1.0) / 1, (4 - 3 * 1.0 - 5 * 2.0) / 20};
  EXPECT_EQ(x[2], y[2] / 20);
  EXPECT_EQ(x[1], y[1] - 5 * x[2]);
  EXPECT_EQ(x[0], (y[0] - 1 * x[1] - 3 * x[2]) / 2);
}

TEST(MILsm, InitialMotionsAreCheckedAndInverted) {
  for (int32_t type : {MILSM_8, MILSM_8ST}) {
    Solver s(type, 3);
    for (int32_t image : {-1, 3}) EXPECT_EQ(MILsm_setInitialMvecReal(&s.lsm, &kMotion, image), ZELVAN_ERROR_PARAM);
    const Mvec8Real singular = {{1, 2, 3, 2, 4, 5, 0, 0, 1}, {}};  // leaves the motion before
    for (const Mvec8Real* m : {&kMotion, &singular}) {
      EXPECT_EQ(MILsm_setInitialMvecReal(&s.lsm, m, 2), ZELVAN_OK);
      EXPECT_LT(largestDistance(s.output(2), kMotion), 1e-9);
    }
    EXPECT_EQ(largestDistance(s.output(1), kIdentity), 0.0);
    const Mvec8F32 fixedPoint = {{33000, -900, 5 << 15, 700, 32000, -(4 << 15), 2, -3, 32768}};
    Mvec8F32 back;
    EXPECT_EQ(MILsm_setInitialMvec(&s.lsm, &fixedPoint, 1) | MILsm_outputMvec(&s.lsm, &back, 1), ZELVAN_OK);
    EXPECT_EQ(std::memcmp(&back, &fixedPoint, sizeof back), 0);
  }
}

TEST(MILsm, FrontAnswersWithoutImplementationOrSlot) {
  Solver s(MILSM_8);
  const auto expectAnswers = [&](Status solve, Status addReal, Status setInitial) {
    EXPECT_EQ(MILsm_solve(&s.lsm), solve);
    EXPECT_EQ(MILsm_addReal(&s.lsm, 0, 0, 0, 1, 0, 0, 1), addReal);
    EXPECT_EQ(MILsm_setInitialMvecReal(&s.lsm, &kIdentity, 1), setInitial);
    EXPECT_EQ(MILsm_setCameraParam(&s.lsm, 640, 480, 61.0), setInitial);
  };
  expectAnswers(ZELVAN_OK, ZELVAN_OK, ZELVAN_OK);
  MILsmSlots fewest = {};
  fewest.destruct = s.lsm.slots.destruct;
  s.lsm.slots = fewest;
  expectAnswers(ZELVAN_ERROR_STATE, ZELVAN_ERROR_UNSUPPORTED, ZELVAN_OK);
  for (int32_t type : {-1, 6}) EXPECT_EQ(MILsm_init(&s.lsm, type, 2), ZELVAN_ERROR_PARAM);
  expectAnswers(ZELVAN_ERROR_STATE, ZELVAN_ERROR_STATE, ZELVAN_ERROR_STATE);
  EXPECT_EQ(MILsm_init(&s.lsm, MILSM_8ST, 1), ZELVAN_ERROR_PARAM);
}

// The arena gives out at every request of init and solve in turn.
TEST(MILsm, ExhaustedArenaIsReported) {
  for (int32_t type : kAllTypes) {
    for (bool init : {true, false}) {
      Status status = ZELVAN_ERROR_NOMEM;
      for (int room = 16; status != ZELVAN_OK; room += 48) {
        Solver s(type, 3);
        Heap2* heap = &s.arena.env()->heap;
        if (init) MILsm_memClear(&s.lsm);
        void* block = Heap2_malloc(heap, Heap2_getFreeSize(heap) - room);
        status = init ? MILsm_init(&s.lsm, type, 3) : MILsm_solve(&s.lsm);
        ASSERT_EQ(status & ~ZELVAN_ERROR_NOMEM, 0u) << room;
        EXPECT_TRUE(init || (s.failure() == MILSM_FAIL_MEMORY) == (status != ZELVAN_OK));
        Heap2_free(heap, block);
      }
    }
  }
}

}  // namespace
