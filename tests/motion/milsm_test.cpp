#include "motion/milsm.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <random>
#include <vector>

#include "motion/milsm8.h"
#include "motion/milsm8st.h"
#include "motion/projective_moments.h"
#include "support/test_arena.h"

namespace {

constexpr Mvec8Real kIdentity = {{1, 0, 0, 0, 1, 0, 0, 0, 1}, {}};
constexpr Mvec8Real kMotions[] = {
    kIdentity,
    {{1, 0, 5.25, 0, 1, -3.5, 0, 0, 1}, {}},
    {{0.98, 0.05, 4, -0.04, 1.01, 2, 0, 0, 1}, {}},
    {{1.02, -0.03, -6, 0.02, 0.97, 7, 5e-5, -8e-5, 1}, {}},
    {{1.9, 0.2, -20, -0.1, 1.8, 9, 3e-4, 2e-4, 1.9}, {}},
};

// A front with its arena. Everything must be back in the arena at the end.
struct Solver {
  explicit Solver(int32_t type = MILSM_8ST, int32_t imageCount = 2) {
    construct_MILsm(&lsm, arena.env());
    EXPECT_EQ(MILsm_init(&lsm, type, imageCount), ZELVAN_OK);
  }
  ~Solver() { EXPECT_EQ(destruct_MILsm(&lsm), ZELVAN_OK); }
  int32_t failure() {
    int32_t code = -1;
    EXPECT_EQ(MILsm_getFailureCode(&lsm, &code), ZELVAN_OK);
    return code;
  }
  Mvec8Real output(int32_t image = 1) {
    Mvec8Real out;
    EXPECT_EQ(MILsm_outputMvecReal(&lsm, &out, image), ZELVAN_OK);
    return out;
  }
  TestArena arena;
  MILsm lsm;
};

struct Pair {
  double x, y, X, Y, w;
};

// A grid of points with their images under m, moved by noise of the given half width.
std::vector<Pair> makePairs(const Mvec8Real& m, double noise, uint32_t seed = 7) {
  std::mt19937 random(seed);
  std::uniform_real_distribution<double> shift(-noise, noise), weight(0.5, 2.0);
  std::vector<Pair> pairs;
  for (int i = 0; i < 70; ++i) {
    Pair p = {7.0 + 16 * (i % 10), 5.0 + 17 * (i / 10), 0, 0, weight(random)};
    Mvec8Real_trans2DReal(&m, &p.X, &p.Y, p.x, p.y);
    p.X += shift(random);
    p.Y += shift(random);
    pairs.push_back(p);
  }
  return pairs;
}

void addPairs(MILsm* lsm, const std::vector<Pair>& pairs) {
  for (const Pair& p : pairs) EXPECT_EQ(MILsm_addReal(lsm, 0, p.x, p.y, 1, p.X, p.Y, p.w), ZELVAN_OK);
}

double largestDistance(const Mvec8Real& a, const Mvec8Real& b) {
  double largest = 0;
  for (int i = 0; i < 4; ++i) {
    double ax, ay, bx, by;
    Mvec8Real_trans2DReal(&a, &ax, &ay, 160.0 * (i & 1), 120.0 * (i >> 1));
    Mvec8Real_trans2DReal(&b, &bx, &by, 160.0 * (i & 1), 120.0 * (i >> 1));
    largest = std::max(largest, std::hypot(ax - bx, ay - by));
  }
  return largest;
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

TEST(ProjectiveMoments, GiveTheCostItsGradientAndMatrix) {
  const std::vector<Pair> pairs = makePairs(kMotions[3], 4.0);
  double m[kMomentCount] = {};
  for (const Pair& p : pairs) addMoments(m, p.x, p.y, p.X, p.Y, p.w);
  const ProjectiveImage first = {{1.1, 0.1, -3, 0.05, 0.9, 8, 1e-3, -2e-3, 1}, 0};
  const ProjectiveImage second = {{0.95, -0.1, 2, 0.1, 1.2, -5, -2e-3, 1e-3, 1}, 8};
  const ProjectiveImage base = {{1, 0, 0, 0, 1, 0, 0, 0, 1}, 8};
  for (const ProjectiveImage* other : {&base, &second}) {
    const int n = other == &base ? 8 : 16;
    double matrix[256] = {}, gradient[16] = {}, cost;
    if (other == &base) {
      addBaseMatrix(m, matrix, n);
      addBaseGradient(m, first.matrix, gradient);
      cost = baseCost(m, first.matrix);
      double b[8];
      baseRightHandSide(m, b);
      for (int t = 0; t < 8; ++t) {
        for (int u = 0; u < 8; ++u) b[t] -= matrix[8 * t + u] * first.matrix[u];
        EXPECT_NEAR(-b[t] / gradient[t], 1.0, 1e-9);
      }
    } else {
      cost = addPair(m, first, second, matrix, n, gradient);
    }
    EXPECT_NEAR(cost / directCost(pairs, first.matrix, other->matrix), 1.0, 1e-10);
    for (int t = 0; t < n; ++t) {
      // Along one parameter of either matrix the residuals are linear: the cost is a parabola with exact differences.
      const double h = t % 8 >= 6 ? 1e-3 : 1.0;
      ProjectiveImage up[2] = {first, *other}, down[2] = {first, *other};
      up[t / 8].matrix[t % 8] += h;
      down[t / 8].matrix[t % 8] -= h;
      const double above = directCost(pairs, up[0].matrix, up[1].matrix);
      const double below = directCost(pairs, down[0].matrix, down[1].matrix);
      EXPECT_NEAR(gradient[t] * 4 * h / (above - below), 1.0, 1e-6) << t;
      EXPECT_NEAR(matrix[t * n + t] * 2 * h * h / (above - 2 * cost + below), 1.0, 1e-6) << t;
      for (int u = 0; u < t; ++u) {
        // The same parabola along both at once gives the mixed entry, within one image, where that is linear too.
        EXPECT_NEAR(matrix[t * n + u], matrix[u * n + t], 1e-9 * std::fabs(matrix[t * n + u]));
        if (u / 8 != t / 8) continue;
        const double k = u % 8 >= 6 ? 1e-3 : 1.0;
        up[t / 8].matrix[u % 8] += k;
        down[t / 8].matrix[u % 8] -= k;
        const double both = directCost(pairs, up[0].matrix, up[1].matrix) - 2 * cost +
                            directCost(pairs, down[0].matrix, down[1].matrix);
        const double separate = 2 * h * h * matrix[t * n + t] + 2 * k * k * matrix[u * n + u];
        EXPECT_NEAR(both - separate, 4 * h * k * matrix[t * n + u], 1e-9 * separate) << t << " " << u;
        up[t / 8].matrix[u % 8] -= k;
        down[t / 8].matrix[u % 8] += k;
      }
    }
  }
}

TEST(ProjectiveMoments, IntegerProductsWrapOneByOne) {
  const int32_t x = 1234, y = -987, X = 4321, Y = -2345, w = 3;
  double m[kMomentCount] = {}, real[kMomentCount] = {};
  addMoments(m, x, y, X, Y, w);
  addMoments(real, double{x}, double{y}, double{X}, double{Y}, double{w});
  int wrapped = 0;
  for (int i = 0; i < kMomentCount; ++i) {
    const int64_t exact = static_cast<int64_t>(real[i]);  // below 2^53
    EXPECT_EQ(m[i], static_cast<int32_t>(exact & 0xFFFFFFFF)) << i;
    wrapped += m[i] != real[i];
  }
  EXPECT_EQ(wrapped, 21);  // those of the third degree and more
}

TEST(MILsm, AllWaysToAddAgree) {
  for (int32_t type : {MILSM_8, MILSM_8ST, MILSM_8R}) {
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
      MILsm_solve(&s.lsm);
      EXPECT_EQ(s.failure(), MILSM_CONVERGED);
      results[way] = s.output();
    }
    EXPECT_GT(largestDistance(results[0], kIdentity), 1.0);
    for (int way = 1; way < 4; ++way) EXPECT_EQ(std::memcmp(&results[way], &results[0], sizeof(Mvec8Real)), 0) << way;
  }
}

TEST(MILsm, RecoversKnownMotions) {
  for (int32_t type : {MILSM_8, MILSM_8ST}) {
    for (const Mvec8Real& motion : kMotions) {
      for (double noise : {0.0, 0.3}) {
        Solver s(type);
        addPairs(&s.lsm, makePairs(motion, noise));
        const uint32_t used = s.arena.used();
        EXPECT_EQ(MILsm_solve(&s.lsm), ZELVAN_OK);
        EXPECT_EQ(s.arena.used(), used);
        EXPECT_EQ(s.failure(), MILSM_CONVERGED) << type << " " << noise;
        const Mvec8Real found = s.output();
        EXPECT_LT(largestDistance(found, motion), noise == 0.0 ? 1e-5 : 0.4) << type << " " << noise;
        Mvec8F32 fixedPoint;
        MILsm_outputMvec(&s.lsm, &fixedPoint, 1);
        EXPECT_EQ(found.h[8], 1.0);
        for (int k = 0; k < 9; ++k) EXPECT_LE(std::fabs(fixedPoint.h[k] - found.h[k] * 32768), 0.5);
        // The solution is where the next solve starts; it must stay there.
        MILsm_solve(&s.lsm);
        EXPECT_LT(largestDistance(s.output(), found), 1e-6);
        MILsm_clear(&s.lsm);
        EXPECT_EQ(largestDistance(s.output(), kIdentity), 0.0);
      }
    }
  }
}

TEST(MILsm8St, EndsAtTheMinimumOfThePenalisedCost) {
  const std::vector<Pair> pairs = makePairs(kMotions[3], 1.5);
  double previous = 1;
  // The narrower the widths of perspective, the nearer to its centre it ends.
  for (double width : {1.0, 1e-3, 3e-5, 1e-6}) {
    Solver s;
    const double widths[8] = {1, 1, 1e10, 1, 1, 1e10, width, width};
    auto* record = static_cast<MILsm8St*>(s.lsm.impl);
    EXPECT_EQ(MILsm8St_setRestraint(record, widths, 1), ZELVAN_OK);
    const Mvec8Real prior = {{1, 0.02, 3, 0, 1, -2, 2e-4, 2e-4, 1}, {}};
    EXPECT_EQ(MILsm_setInitialMvecReal(&s.lsm, &prior, 1), ZELVAN_OK);
    addPairs(&s.lsm, pairs);
    MILsm_solve(&s.lsm);
    ASSERT_EQ(s.failure(), MILSM_CONVERGED) << width;
    const auto logCost = [&](const double* p) {
      const double P[9] = {p[0], p[1], p[2], p[3], p[4], p[5], p[6], p[7], 1};
      double sum = std::log(directCost(pairs, P, kIdentity.h));
      for (int t = 0; t < 8; ++t) sum += std::pow((p[t] - record->centres[t]) / widths[t], 2);
      return sum;
    };
    const double least = logCost(record->parameters);
    for (int t = 0; t < 8; ++t) {
      for (double sign : {1.0, -1.0}) {
        double p[8];
        std::copy_n(record->parameters, 8, p);
        p[t] += sign * (t >= 6 ? 1e-7 : t % 3 == 2 ? 1e-3 : 1e-5);
        EXPECT_GT(logCost(p), least) << width << " " << t;
      }
    }
    const double distance =
        std::hypot(record->parameters[6] - record->centres[6], record->parameters[7] - record->centres[7]);
    EXPECT_LT(distance, previous);
    previous = distance;
  }
}

TEST(MILsm, DegenerateSetsFailAndNoPointsLeaveTheInitialMotion) {
  struct {
    int count, dx, dy;  // points on a line of this direction
    int32_t failure8, failure8St;
  } const cases[] = {{0, 0, 0, MILSM_FAIL_DIAGONAL, MILSM_FAIL_PIVOT},
                     {30, 0, 0, MILSM_FAIL_PIVOT, MILSM_FAIL_PIVOT},
                     {30, 3, 2, MILSM_FAIL_PIVOT, MILSM_FAIL_PIVOT}};
  for (const auto& c : cases) {
    for (int32_t type : {MILSM_8, MILSM_8ST}) {
      Solver s(type);
      MILsm_setInitialMvecReal(&s.lsm, &kMotions[2], 1);
      const Mvec8Real initial = s.output();
      EXPECT_LT(largestDistance(initial, kMotions[2]), 1e-12);
      for (int i = 0; i < c.count; ++i) {
        MILsm_addReal(&s.lsm, 0, 8 + i * c.dx, 4 + i * c.dy, 1, 9 + i * c.dx, 6 + i * c.dy, 1);
      }
      EXPECT_EQ(s.failure(), MILSM_NOT_SOLVED);
      EXPECT_EQ(MILsm_solve(&s.lsm), ZELVAN_OK);
      EXPECT_EQ(s.failure(), type == MILSM_8 ? c.failure8 : c.failure8St) << c.count << " " << c.dx;
      if (c.count == 0) {
        EXPECT_EQ(largestDistance(s.output(), initial), 0.0);
      }
    }
  }
}

TEST(MILsm, InitialMotionsAreCheckedAndInverted) {
  for (int32_t type : {MILSM_8, MILSM_8ST}) {
    Solver s(type, 3);
    Mvec8Real out;
    for (int32_t image : {-1, 0, 3}) {
      EXPECT_EQ(MILsm_setInitialMvecReal(&s.lsm, &kMotions[3], image), ZELVAN_ERROR_PARAM);
      EXPECT_EQ(MILsm_outputMvecReal(&s.lsm, &out, image), image == 0 ? ZELVAN_OK : ZELVAN_ERROR_PARAM);
      EXPECT_EQ(MILsm_addReal(&s.lsm, 1, 0, 0, image == 0 ? 1 : image, 0, 0, 1), ZELVAN_ERROR_PARAM);
    }
    MILsm_setInitialMvecReal(&s.lsm, &kMotions[3], 2);
    EXPECT_LT(largestDistance(s.output(2), kMotions[3]), 1e-9);
    EXPECT_EQ(largestDistance(s.output(1), kIdentity), 0.0);
    EXPECT_EQ(largestDistance(s.output(0), kIdentity), 0.0);
    const Mvec8Real singular = {{1, 2, 3, 2, 4, 5, 0, 0, 1}, {}};
    EXPECT_EQ(MILsm_setInitialMvecReal(&s.lsm, &singular, 2), ZELVAN_OK);
    EXPECT_LT(largestDistance(s.output(2), kMotions[3]), 1e-9);
    const Mvec8F32 fixedPoint = {{33000, -900, 5 << 15, 700, 32000, -(4 << 15), 2, -3, 32768}};
    Mvec8F32 back;
    EXPECT_EQ(MILsm_setInitialMvec(&s.lsm, &fixedPoint, 1), ZELVAN_OK);
    EXPECT_EQ(MILsm_outputMvec(&s.lsm, &back, 1), ZELVAN_OK);
    EXPECT_EQ(std::memcmp(&back, &fixedPoint, sizeof back), 0);
    if (type == MILSM_8ST) {
      const auto* record = static_cast<MILsm8St*>(s.lsm.impl);
      EXPECT_EQ(std::memcmp(record->centres, record->parameters, 16 * sizeof(double)), 0);
    }
  }
}

// Three frames, of which the last is tied to the base through the others only.
TEST(MILsm, LinksImagesThroughOthers) {
  for (int32_t type : {MILSM_8, MILSM_8ST}) {
    Solver s(type, 4), grown(type, 2);
    EXPECT_EQ(MILsm_changeImageNum(&grown.lsm, 1), ZELVAN_ERROR_PARAM);
    for (int i = 0; i < 2; ++i) {
      MILsm* lsm = i == 0 ? &s.lsm : &grown.lsm;
      for (const Pair& p : makePairs(kIdentity, 0.0)) {
        double X[4], Y[4];
        for (int k = 0; k < 4; ++k) Mvec8Real_trans2DReal(&kMotions[k], &X[k], &Y[k], p.x, p.y);
        EXPECT_EQ(MILsm_addReal(lsm, 0, X[0], Y[0], 1, X[1], Y[1], p.w), ZELVAN_OK);
        if (i == 1 && p.x == 7 && p.y == 5) {
          // The first point is in by now; growing must keep it, and shrinking what stays.
          EXPECT_EQ(MILsm_changeImageNum(lsm, 6), ZELVAN_OK);
          EXPECT_EQ(MILsm_changeImageNum(lsm, 4), ZELVAN_OK);
          EXPECT_EQ(lsm->imageCount, 4);
        }
        MILsm_addReal(lsm, 2, X[2], Y[2], 0, X[0], Y[0], p.w);
        MILsm_addReal(lsm, 2, X[2], Y[2], 1, X[1], Y[1], p.w);
        MILsm_addReal(lsm, 3, X[3], Y[3], 1, X[1], Y[1], p.w);
        MILsm_addReal(lsm, 2, X[2], Y[2], 3, X[3], Y[3], p.w);
      }
      MILsm_solve(lsm);
    }
    EXPECT_EQ(s.failure(), MILSM_CONVERGED) << type;
    Solver copied(MILSM_8);
    MILsm_copy(&copied.lsm, &s.lsm);
    EXPECT_EQ(copied.lsm.type, type);
    EXPECT_EQ(copied.failure(), s.failure());
    for (int k = 0; k < 4; ++k) {
      const Mvec8Real found = s.output(k), other = grown.output(k), third = copied.output(k);
      EXPECT_LT(largestDistance(found, kMotions[k]), 1e-5) << type << " " << k;
      EXPECT_EQ(std::memcmp(&found, &other, sizeof found), 0);
      EXPECT_EQ(std::memcmp(&found, &third, sizeof found), 0);
    }
    // Without its pairs the last frame hangs in the air.
    MILsm_clearBlock(&s.lsm, 1, 3);
    EXPECT_EQ(MILsm_solve(&s.lsm), ZELVAN_OK);
    EXPECT_EQ(s.failure(), MILSM_CONVERGED);
    MILsm_clearBlock(&s.lsm, 3, 2);
    EXPECT_EQ(MILsm_solve(&s.lsm), ZELVAN_OK);
    EXPECT_EQ(s.failure(), MILSM_FAIL_PIVOT);
  }
}

TEST(MILsm, FrontAnswersWithoutImplementationOrSlot) {
  TestArena arena;
  MILsm lsm;
  int32_t code;
  Mvec8Real m = kIdentity;
  Mvec8F32 q = {};
  const auto callAll = [&] {
    return std::vector<Status>{MILsm_clear(&lsm),
                               MILsm_changeImageNum(&lsm, 3),
                               MILsm_add(&lsm, 0, 0, 0, 1, 0, 0, 1),
                               MILsm_addF32(&lsm, 0, 0, 0, 1, 0, 0, 1),
                               MILsm_solve(&lsm),
                               MILsm_outputMvec(&lsm, &q, 1),
                               MILsm_outputMvecReal(&lsm, &m, 1),
                               MILsm_getFailureCode(&lsm, &code),
                               MILsm_clearBlock(&lsm, 0, 1),
                               MILsm_copy(&lsm, &lsm),
                               MILsm_addReal(&lsm, 0, 0, 0, 1, 0, 0, 1),
                               MILsm_setInitialMvec(&lsm, &q, 1),
                               MILsm_setInitialMvecReal(&lsm, &m, 1),
                               MILsm_setCameraParam(&lsm, 640, 480, 61.0)};
  };
  EXPECT_EQ(construct_MILsm(&lsm, arena.env()), ZELVAN_OK);
  EXPECT_EQ(callAll(), std::vector<Status>(14, ZELVAN_ERROR_STATE));
  for (int32_t type : {-1, 6, 1000}) EXPECT_EQ(MILsm_init(&lsm, type, 2), ZELVAN_ERROR_PARAM);
  for (int32_t type : {MILSM_8, MILSM_8ST}) {
    EXPECT_EQ(MILsm_init(&lsm, type, 1), ZELVAN_ERROR_PARAM);
    EXPECT_EQ(MILsm_solve(&lsm), ZELVAN_ERROR_STATE);
    EXPECT_EQ(MILsm_init(&lsm, type, 2), ZELVAN_OK);
    EXPECT_EQ(lsm.self, lsm.impl);
    EXPECT_EQ(callAll(), std::vector<Status>(14, ZELVAN_OK));
  }
  MILsmSlots fewest = {};
  fewest.destruct = lsm.slots.destruct;
  lsm.slots = fewest;
  std::vector<Status> expected(14, ZELVAN_OK);
  std::fill_n(expected.begin(), 10, ZELVAN_ERROR_STATE);
  expected[10] = ZELVAN_ERROR_UNSUPPORTED;
  EXPECT_EQ(callAll(), expected);
  EXPECT_EQ(MILsm_memClear(&lsm), ZELVAN_OK);
  EXPECT_EQ(arena.used(), 0u);
  EXPECT_EQ(MILsm_solve(&lsm), ZELVAN_ERROR_STATE);
  EXPECT_EQ(MILsm_init(&lsm, MILSM_8ST, 2), ZELVAN_OK);
  EXPECT_EQ(destruct_MILsm(&lsm), ZELVAN_OK);
}

// The arena gives out at every request of init, solve and changeImageNum in turn.
TEST(MILsm, ExhaustedArenaIsReported) {
  for (int32_t type : {MILSM_8, MILSM_8ST, MILSM_8R}) {
    for (int step = 0; step < 3; ++step) {
      int refused = 0;
      for (Status status = ZELVAN_ERROR_NOMEM; status != ZELVAN_OK; ++refused) {
        ASSERT_EQ(status, ZELVAN_ERROR_NOMEM);
        Solver s(type, 3);
        if (step == 0) MILsm_memClear(&s.lsm);
        MILsm_setCameraParam(&s.lsm, 160, 120, 61.0);
        for (const Pair& p : makePairs(kIdentity, 0.0)) {
          MILsm_addReal(&s.lsm, 0, p.x, p.y, 1, p.X, p.Y, p.w);
          MILsm_addReal(&s.lsm, 0, p.x, p.y, 2, p.X, p.Y, p.w);
        }
        Heap2* heap = &s.arena.env()->heap;
        void* block = Heap2_malloc(heap, Heap2_getFreeSize(heap) - 16 - 48 * refused);
        ASSERT_NE(block, nullptr);
        status = step == 0   ? MILsm_init(&s.lsm, type, 3)
                 : step == 1 ? MILsm_solve(&s.lsm)
                             : MILsm_changeImageNum(&s.lsm, 4);
        if (step == 1) {
          EXPECT_EQ(s.failure(), status == ZELVAN_OK ? MILSM_CONVERGED : MILSM_FAIL_MEMORY);
        }
        Heap2_free(heap, block);
        if (step > 0 && status != ZELVAN_OK) {
          EXPECT_EQ(MILsm_solve(&s.lsm), ZELVAN_OK);
          EXPECT_EQ(s.failure(), MILSM_CONVERGED);
        }
      }
      EXPECT_GT(refused, 5) << type << " " << step;
    }
  }
}

}  // namespace
