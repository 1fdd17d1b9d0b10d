#include "motion/milsm.h"

#include <cstring>
#include <random>

#include "motion/milsm3r.h"
#include "motion/milsm4.h"
#include "motion/milsm8.h"
#include "motion/milsm8r.h"
#include "motion/milsm8r_fixed_point.h"
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

constexpr int32_t kWidth = 320, kHeight = 240, kImages = 4;
constexpr double kFov = 61.0;

Mvec8Real similarity(double angle, double zoom, double dx, double dy) {
  const double c = zoom * std::cos(angle), s = zoom * std::sin(angle);
  return {{c, -s, dx, s, c, dy, 0, 0, 1}, {}};
}
Mvec8Real rotation(const double (&angles)[3]) {
  Mvec8Real m = {};
  Mvec8Real_setRotationAngle(&m, angles[0], angles[1], angles[2], kWidth, kHeight, kFov, 0);
  return m;
}

const Mvec8Real kRigid[kImages] = {kIdentity, similarity(0.04, 1, 5.5, -3.25), similarity(-0.6, 1, -20, 90),
                                   similarity(2.8, 1, 310, 220)};
const Mvec8Real kSimilar[kImages] = {kIdentity, similarity(0.04, 1.03, 5.5, -3.25), similarity(-0.6, 0.8, 12, 130),
                                     similarity(2.8, 1.3, 400, 200)};
constexpr double kAngles[kImages][3] = {{}, {0.02, -0.03, 0.05}, {-0.12, 0.06, -0.4}, {0.2, -0.15, 1.3}};
const Mvec8Real kRotated[kImages] = {kIdentity, rotation(kAngles[1]), rotation(kAngles[2]), rotation(kAngles[3])};

const Mvec8Real kProjective[kImages] = {kIdentity,
                                        {{0.98, 0.05, 4, -0.04, 1.01, 2, 0, 0, 1}, {}},
                                        {{1.02, -0.03, -6, 0.02, 0.97, 7, 5e-5, -8e-5, 1}, {}},
                                        {{1.9, 0.2, -20, -0.1, 1.8, 9, 3e-4, 2e-4, 1.9}, {}}};

struct Variant {
  int32_t type;
  const Mvec8Real* motions;
  double exact;  // limit of the error without noise, in pixels; 1/16: positions, and Q15 sines at the corners
  int32_t withoutPoints;
  Status clearBlock, initialOfBase;
};
const Variant kVariants[] = {
    {MILSM_3R, kRigid, 1e-6, MILSM_FAIL_PIVOT, ZELVAN_OK, ZELVAN_OK},
    {MILSM_4, kSimilar, 1e-6, MILSM_FAIL_PIVOT, ZELVAN_ERROR_UNSUPPORTED, ZELVAN_OK},
    {MILSM_8, kProjective, 1e-5, MILSM_FAIL_DIAGONAL, ZELVAN_OK, ZELVAN_ERROR_PARAM},
    {MILSM_8ST, kProjective, 1e-5, MILSM_FAIL_PIVOT, ZELVAN_OK, ZELVAN_ERROR_PARAM},
    {MILSM_8R, kRotated, 1e-6, MILSM_FAIL_DIAGONAL, ZELVAN_ERROR_UNSUPPORTED, ZELVAN_OK},
    {MILSM_8R_FIXED_POINT, kRotated, 1.0 / 16, MILSM_FAIL_DIAGONAL, ZELVAN_ERROR_UNSUPPORTED, ZELVAN_ERROR_PARAM},
};

struct Correspondence {
  int32_t i, j;
  double ax, ay, bx, by, w;
};

// The same points of the scene in pairs of images, in both orders: in all pairs, or in those with the base or with the
// next image only.
enum Links { kAll, kToBase, kToNext };
std::vector<Correspondence> makePoints(const Mvec8Real* motions, int32_t imageCount, Links links, double noise) {
  std::mt19937 random(11);
  std::uniform_real_distribution<double> shift(-noise, noise), weight(0.25, 1.0);
  std::vector<Correspondence> points;
  for (int32_t i = 0; i < imageCount; ++i) {
    for (int32_t j = i + 1; j < imageCount; ++j) {
      if ((links == kToBase && i != 0) || (links == kToNext && j != i + 1)) continue;
      for (int k = 0; k < 48; ++k) {
        Correspondence c = {i, j, 0, 0, 0, 0, weight(random)};
        Mvec8Real_trans2DReal(&motions[i], &c.ax, &c.ay, 60 + 28 * (k % 8), 45 + 30 * (k / 8));
        Mvec8Real_trans2DReal(&motions[j], &c.bx, &c.by, 60 + 28 * (k % 8), 45 + 30 * (k / 8));
        c.bx += shift(random);
        c.by += shift(random);
        if (k % 2 != 0) c = {j, i, c.bx, c.by, c.ax, c.ay, c.w};
        points.push_back(c);
      }
    }
  }
  return points;
}

void addPoints(MILsm* lsm, const std::vector<Correspondence>& points) {
  for (const auto& c : points) ASSERT_EQ(MILsm_addReal(lsm, c.i, c.ax, c.ay, c.j, c.bx, c.by, c.w), ZELVAN_OK);
}

TEST(MILsmVariants, RecoverKnownMotions) {
  for (const Variant& v : kVariants) {
    for (const int32_t imageCount : {2, kImages}) {
      for (const Links links : {kAll, kToBase, kToNext}) {
        for (const double noise : {0.0, 0.5}) {
          SCOPED_TRACE(testing::Message() << v.type << " " << imageCount << " " << links << " " << noise);
          Solver s(v.type, imageCount), copied(MILSM_8);
          const double limit = (links == kToNext ? 3 : 1.25) * noise;
          MILsm_setCameraParam(&s.lsm, kWidth, kHeight, kFov);
          addPoints(&s.lsm, makePoints(v.motions, imageCount, links, noise));
          EXPECT_EQ(MILsm_changeImageNum(&s.lsm, 9) | MILsm_changeImageNum(&s.lsm, imageCount), ZELVAN_OK);
          EXPECT_EQ(MILsm_copy(&copied.lsm, &s.lsm), ZELVAN_OK);
          ASSERT_EQ(copied.solve(), MILSM_CONVERGED);
          for (int32_t k = 0; k < imageCount; ++k) {
            EXPECT_LT(largestDistance(copied.output(k), v.motions[k]), noise == 0 || k == 0 ? v.exact : limit) << k;
            Mvec8F32 q15;
            EXPECT_EQ(MILsm_outputMvec(&copied.lsm, &q15, k), ZELVAN_OK);
            for (int i = 0; i < 9; ++i) EXPECT_LE(std::fabs(q15.h[i] - copied.output(k).h[i] * 32768), 0.5);
          }
          EXPECT_EQ(largestDistance(s.output(1), kIdentity), 0.0) << "solved in the copy alone";
          const Mvec8Real found = copied.output(1);
          for (int i = 0; i < 3 && v.motions == kRotated; ++i) {
            EXPECT_NEAR(found.angles[i], kAngles[1][i], noise == 0 && v.exact < 0.01 ? 1e-9 : 2e-3);
          }
          // The solution is where the next solve starts; it must stay there.
          EXPECT_EQ(copied.solve(), MILSM_CONVERGED);
          EXPECT_LT(largestDistance(copied.output(1), found), v.exact);
          if (imageCount == 2 && noise == 0) {
            Solver projective(MILSM_8ST);
            addPoints(&projective.lsm, makePoints(v.motions, 2, kAll, 0));
            projective.solve();
            EXPECT_LT(largestDistance(projective.output(), copied.output()), v.exact + 1e-4) << "the same direction";
          }
          MILsm_clear(&copied.lsm);
          EXPECT_EQ(largestDistance(copied.output(1), kIdentity), 0.0);
        }
      }
    }
  }
}

// Both orders of a pair, and all values of all images: no small step may lower the cost of the points themselves.
TEST(MILsmVariants, EndAtTheMinimumOfTheirCost) {
  for (const int32_t type : {MILSM_3R, MILSM_4}) {
    const std::vector<Correspondence> points = makePoints(type == MILSM_3R ? kRigid : kSimilar, kImages, kAll, 3.0);
    Solver s(type, kImages);
    addPoints(&s.lsm, points);
    ASSERT_EQ(s.solve(), MILSM_CONVERGED);
    double values[kImages][4] = {{1, 0, 0, 0}};
    for (int k = 1; k < kImages; ++k) {
      if (type == MILSM_3R) {
        std::copy_n(static_cast<MILsm3R*>(s.lsm.impl)->parameters + 3 * k, 3, values[k] + 1);
      } else {
        std::copy_n(static_cast<MILsm4*>(s.lsm.impl)->parameters + 4 * (k - 1), 4, values[k]);
      }
    }
    const auto cost = [&] {
      double sum = 0;
      for (const Correspondence& c : points) {
        double mapped[2][2];
        for (const int side : {0, 1}) {
          const double* p = values[side == 0 ? c.i : c.j];
          const double x = side == 0 ? c.ax : c.bx, y = side == 0 ? c.ay : c.by;
          const bool rigid = type == MILSM_3R && p != values[0];
          const double a = rigid ? std::cos(p[1]) : p[0], b = rigid ? std::sin(p[1]) : p[1];
          mapped[side][0] = a * x - b * y + p[2];
          mapped[side][1] = b * x + a * y + p[3];
        }
        sum += c.w * (std::pow(mapped[0][0] - mapped[1][0], 2) + std::pow(mapped[0][1] - mapped[1][1], 2));
      }
      return sum;
    };
    const double least = cost();
    for (int k = 1; k < kImages; ++k) {
      for (int t = type == MILSM_3R ? 1 : 0; t < 4; ++t) {
        for (const double step : {1e-6, -1e-6}) {
          values[k][t] += step * (t < 2 ? 1 : 100);
          EXPECT_GT(cost(), least) << type << " " << k << " " << t;
          values[k][t] -= step * (t < 2 ? 1 : 100);
        }
      }
    }
  }
}

TEST(MILsmVariants, AnswersAndFailures) {
  for (const Variant& v : kVariants) {
    SCOPED_TRACE(v.type);
    Solver s(v.type, 2);
    EXPECT_EQ(s.failure(), MILSM_NOT_SOLVED);
    EXPECT_EQ(s.solve(), v.withoutPoints);
    EXPECT_EQ(largestDistance(s.output(1), kIdentity), 0.0);
    Mvec8Real out = rotation({1, 1, 1});
    EXPECT_EQ(MILsm_outputMvecReal(&s.lsm, &out, 0), ZELVAN_OK);
    EXPECT_EQ(std::memcmp(&out, &kIdentity, sizeof out), 0);
    for (const int32_t image : {-1, 2}) {
      EXPECT_EQ(MILsm_outputMvecReal(&s.lsm, &out, image), ZELVAN_ERROR_PARAM);
      EXPECT_EQ(MILsm_addReal(&s.lsm, image, 0, 0, 1, 0, 0, 1), ZELVAN_ERROR_PARAM);
      EXPECT_EQ(MILsm_setInitialMvecReal(&s.lsm, &v.motions[1], image),
                v.type <= MILSM_4 ? ZELVAN_OK : ZELVAN_ERROR_PARAM);
    }
    EXPECT_EQ(MILsm_add(&s.lsm, 1, 0, 0, 1, 0, 0, 1), ZELVAN_ERROR_PARAM);
    EXPECT_EQ(MILsm_clearBlock(&s.lsm, 1, 0), v.clearBlock);
    EXPECT_EQ(MILsm_setInitialMvecReal(&s.lsm, &v.motions[1], 0), v.initialOfBase);
    EXPECT_EQ(MILsm_changeImageNum(&s.lsm, 1) & MILsm_init(&s.lsm, v.type, 1), ZELVAN_ERROR_PARAM);
    EXPECT_EQ(MILsm_solve(&s.lsm), ZELVAN_ERROR_STATE);
    if (v.clearBlock != ZELVAN_OK) continue;
    Solver three(v.type, 3);
    addPoints(&three.lsm, makePoints(v.motions, 3, kAll, 0));
    EXPECT_EQ(MILsm_clearBlock(&three.lsm, 2, 0) | MILsm_clearBlock(&three.lsm, 1, 2), ZELVAN_OK);
    EXPECT_EQ(three.solve(), MILSM_FAIL_PIVOT) << "the last image hangs in the air";
  }
}

TEST(MILsmVariants, NotANumberIsNoConvergence) {
  const double nan = std::nan("");
  for (const Variant& v : kVariants) {
    for (const int32_t imageCount : {2, 3}) {
      SCOPED_TRACE(testing::Message() << v.type << " " << imageCount);
      // Integer sums have no NaN; there the camera brings it.
      const bool integers = v.type == MILSM_8R_FIXED_POINT;
      Solver s(v.type, imageCount);
      MILsm_setCameraParam(&s.lsm, kWidth, kHeight, integers ? nan : kFov);
      addPoints(&s.lsm, makePoints(v.motions, imageCount, kAll, 0));
      if (!integers) MILsm_addReal(&s.lsm, 0, 3, nan, 1, 4, 5, 1);
      EXPECT_EQ(s.solve(), MILSM_FAIL_PASSES);
    }
  }
}

TEST(MILsm3R, OutputsFormsAndPasses) {
  Solver s(MILSM_3R, 3);
  auto* record = static_cast<MILsm3R*>(s.lsm.impl);
  const Mvec8F32 start = {{0, -32768, 1 << 20, 32768, 0, 1 << 20, 0, 0, 32768}};
  EXPECT_EQ(MILsm3R_setInitialMvec(record, &start, 1) | MILsm3R_setInitialMvecReal(record, &kRigid[2], 1), ZELVAN_OK);
  EXPECT_EQ(largestDistance(s.output(1), kIdentity), 0.0);
  addPoints(&s.lsm, makePoints(kRigid, 3, kAll, 0));
  ASSERT_EQ(s.solve(), MILSM_CONVERGED);
  Mvec6F32 affine;
  EXPECT_EQ(MILsm3R_outputMvec(record, &affine, 2), ZELVAN_OK);
  for (int i = 0; i < 6; ++i) EXPECT_NEAR(affine.m[i], kRigid[2].h[i] * 32768, 1) << i;
  // Steps for an angle are too long by the zoom that the model lacks; from 2 on they miss the minimum.
  Solver zoomed(MILSM_3R);
  const Mvec8Real third[2] = {kIdentity, similarity(0.1, 1.0 / 3, 4, 5)};
  addPoints(&zoomed.lsm, makePoints(third, 2, kAll, 0));
  EXPECT_EQ(zoomed.solve(), MILSM_FAIL_PASSES);
}

TEST(MILsm4, NoScaleLeft) {
  Solver s(MILSM_4);
  for (int k = 0; k < 9; ++k) MILsm_addReal(&s.lsm, 0, 7, 9, 1, k % 3, k / 3, 1);  // one point for all
  ASSERT_EQ(s.solve(), MILSM_CONVERGED);
  Mvec8Real out = kSimilar[1];
  EXPECT_EQ(MILsm_outputMvecReal(&s.lsm, &out, 1), ZELVAN_ERROR_GENERAL);
  EXPECT_EQ(std::memcmp(&out, &kIdentity, sizeof out), 0);
}

TEST(MILsm8R, StartAndPasses) {
  Solver s(MILSM_8R);
  MILsm_setCameraParam(&s.lsm, kWidth, kHeight, kFov);
  EXPECT_EQ(MILsm_setInitialMvecReal(&s.lsm, &kRotated[3], 1), ZELVAN_OK);
  EXPECT_EQ(s.solve(), MILSM_FAIL_DIAGONAL);  // no points: the motion stays
  for (int i = 0; i < 3; ++i) EXPECT_NEAR(s.output().angles[i], kAngles[3][i], 1e-9);
  addPoints(&s.lsm, makePoints(kRotated, 2, kAll, 0));
  static_cast<MILsm8R*>(s.lsm.impl)->tolerance = 0.0;  // never met
  EXPECT_EQ(s.solve(), MILSM_FAIL_PASSES);
  EXPECT_NEAR(s.output().angles[1], kAngles[1][1], 1e-9);
}

TEST(MILsm8RFixedPoint, SumsStartAndPasses) {
  Solver s(MILSM_8R_FIXED_POINT, 3);
  auto* record = static_cast<MILsm8RFixedPoint*>(s.lsm.impl);
  // The camera before any is set: 250, (160, 160). Coordinates drop below 1/32, products below 256.
  MILsm8RFixedPoint_accumDiagF32(record, 2, (161 << 15) + 1023, 160 << 15, 1, 160 << 15, (159 << 15) - 1, 3 << 10);
  const int32_t own1[6] = {0, 0, 0, 33 * 33 / 256 * 3, (-33 * 8000 - 255) / 256 * 3, 8000 * 8000 / 256 * 3};
  const int32_t own2[6] = {32 * 32 / 256 * 3, 0, 32 * 8000 / 256 * 3, 0, 0, 8000 * 8000 / 256 * 3};
  EXPECT_EQ(std::memcmp(record->imageSums[0].own, own1, sizeof own1), 0);
  EXPECT_EQ(std::memcmp(record->imageSums[1].own, own2, sizeof own2), 0);
  EXPECT_EQ(record->moments[0].cross[3], (-33 * 32 - 255) / 256 * 3);
  EXPECT_EQ(record->moments[0].count, 1);

  MILsm_clear(&s.lsm);
  MILsm_setCameraParam(&s.lsm, kWidth, kHeight, kFov);
  EXPECT_EQ(record->fixedFocalLength, 10865);  // 32 x 200 / tan(30.5 degrees)
  EXPECT_EQ(MILsm_setInitialMvecReal(&s.lsm, &kRotated[3], 1), ZELVAN_OK);
  EXPECT_LT(largestDistance(s.output(1), kRotated[3]), 1e-9);
  addPoints(&s.lsm, makePoints(kRotated, 3, kAll, 0));
  record->tolerance = 0;  // never met
  EXPECT_EQ(s.solve(), MILSM_FAIL_PASSES);
  EXPECT_LT(largestDistance(s.output(1), kRotated[1]), 1.0 / 16);
}

TEST(MILsm8R, RaysMatricesAndQ15) {
  TestArena arena;
  MILsm lsm;
  construct_MILsm(&lsm, arena.env());
  ASSERT_EQ(MILsm_init(&lsm, MILSM_8R, 2) | MILsm_setCameraParam(&lsm, 640, 480, 60.0), ZELVAN_OK);
  auto* self = static_cast<MILsm8R*>(lsm.impl);
  double rotation[9], found[9], calculated[9];
  ASSERT_EQ(Mvec8Real_rotationFromAngles(rotation, 0, -0.05, 0.08, -0.3), ZELVAN_OK);
  for (int32_t i = 0; i < 20; ++i) {  // rays of the frame, of any length, and those of the base that turn into them
    const double q[3] = {0.3 * std::sin(i), 0.3 * std::cos(1.7 * i), 1.0 + 0.05 * i};
    double p[3];
    for (int32_t r = 0; r < 3; ++r) p[r] = rotation[r] * q[0] + rotation[3 + r] * q[1] + rotation[6 + r] * q[2];
    ASSERT_EQ(MILsm8R_addRealOnSphere(self, 0, q[0], q[1], q[2], 1, p[0], p[1], p[2], 1.0), ZELVAN_OK);
  }
  ASSERT_EQ(MILsm_solve(&lsm), ZELVAN_OK);
  ASSERT_EQ(MILsm8R_outputRotationMatrix(self, found, 1), ZELVAN_OK);
  for (int32_t i = 0; i < 9; ++i)
    EXPECT_NEAR(found[i], rotation[i % 3 * 3 + i / 3], 1e-6) << "the base's into the frame's";

  Mvec8Real real;
  Mvec8F32 fixed;
  ASSERT_EQ(MILsm8R_outputMvecReal(self, &real, 1) | MILsm8R_outputMvec(self, &fixed, 1), ZELVAN_OK);
  for (int32_t i = 0; i < 9; ++i) EXPECT_NEAR(fixed.h[i], real.h[i] * 32768.0, 0.51);
  // The matrix comes at the motion's scale.
  ASSERT_EQ(MILsm8R_calcRotMat(self, calculated, &real), ZELVAN_OK);
  const double scale = std::hypot(calculated[0], calculated[1], calculated[2]);
  for (int32_t i = 0; i < 9; ++i) EXPECT_NEAR(calculated[i] / scale, found[i], 1e-6) << i;
  EXPECT_EQ(MILsm8R_setInitialMvec(self, &fixed, 1), ZELVAN_OK);
  EXPECT_EQ(MILsm8R_clearBlock(self, 0, 1), ZELVAN_ERROR_UNSUPPORTED);
  EXPECT_EQ(destruct_MILsm(&lsm), ZELVAN_OK);
}

}  // namespace
