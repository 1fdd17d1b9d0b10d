#include "motion/milsm8r.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <random>
#include <utility>
#include <vector>

#include "support/test_arena.h"

namespace {

constexpr int32_t kWidth = 640, kHeight = 480, kImages = 4;
constexpr double kFov = 61.0;
// Angles of the motions from image 0.
constexpr double kAngles[kImages][3] = {{0, 0, 0}, {0.02, -0.03, 0.05}, {-0.12, 0.06, -0.4}, {0.3, -0.25, 1.3}};

struct Rotations {
  explicit Rotations(int32_t imageCount = kImages) {
    construct_MILsm(&lsm, arena.env());
    EXPECT_EQ(MILsm_init(&lsm, MILSM_8R, imageCount), ZELVAN_OK);
    EXPECT_EQ(MILsm_setCameraParam(&lsm, kWidth, kHeight, kFov), ZELVAN_OK);
    record = static_cast<MILsm8R*>(lsm.impl);
  }
  ~Rotations() { EXPECT_EQ(destruct_MILsm(&lsm), ZELVAN_OK); }
  int32_t solve() {
    int32_t code = -1;
    const uint32_t used = arena.used();
    EXPECT_EQ(MILsm_solve(&lsm), ZELVAN_OK);
    EXPECT_EQ(arena.used(), used);
    EXPECT_EQ(MILsm_getFailureCode(&lsm, &code), ZELVAN_OK);
    return code;
  }
  Mvec8Real output(int32_t image) {
    Mvec8Real out;
    EXPECT_EQ(MILsm_outputMvecReal(&lsm, &out, image), ZELVAN_OK);
    return out;
  }
  TestArena arena;
  MILsm lsm;
  MILsm8R* record;
};

Mvec8Real motionOf(int32_t image) {
  Mvec8Real m = {};
  const double* a = kAngles[image];
  Mvec8Real_setRotationAngle(&m, a[0], a[1], a[2], kWidth, kHeight, kFov, 0);
  return m;
}

struct Sample {
  int32_t a, b;
  double ax, ay, bx, by, w;
};

// Points that the images i and j see, for the given pairs of images.
std::vector<Sample> makeSamples(std::initializer_list<std::pair<int32_t, int32_t>> pairs, double noise) {
  std::mt19937 random(11);
  std::uniform_real_distribution<double> shift(-noise, noise), weight(0.5, 2.0);
  std::vector<Sample> samples;
  for (const auto& [i, j] : pairs) {
    const Mvec8Real first = motionOf(i), second = motionOf(j);
    for (int k = 0; k < 48; ++k) {
      Sample s = {i, j, 0, 0, 0, 0, weight(random)};
      const double x = 180 + 40 * (k % 8), y = 140 + 40 * (k / 8);
      Mvec8Real_trans2DReal(&first, &s.ax, &s.ay, x, y);
      Mvec8Real_trans2DReal(&second, &s.bx, &s.by, x, y);
      s.bx += shift(random);
      s.by += shift(random);
      samples.push_back(s);
    }
  }
  return samples;
}

void addAll(MILsm* lsm, const std::vector<Sample>& samples) {
  for (const Sample& s : samples) EXPECT_EQ(MILsm_addReal(lsm, s.a, s.ax, s.ay, s.b, s.bx, s.by, s.w), ZELVAN_OK);
}

// The cost by its definition, for the record's camera and angles; rotations by a public function.
double directCost(const MILsm8R& record, const std::vector<Sample>& samples, const double* angles) {
  double r[kImages][9], cost = 0;
  for (int32_t k = 0; k < record.imageCount; ++k) {
    const double* a = angles + 3 * (k - 1);
    Mvec8Real_rotationFromAngles(r[k], 1, k == 0 ? 0 : -a[0], k == 0 ? 0 : -a[1], k == 0 ? 0 : -a[2]);
  }
  for (const Sample& s : samples) {
    const double p[3] = {s.ax - record.cx, s.ay - record.cy, record.focalLength};
    const double q[3] = {s.bx - record.cx, s.by - record.cy, record.focalLength};
    const double pLength = std::hypot(p[0], p[1], p[2]), qLength = std::hypot(q[0], q[1], q[2]);
    for (int row = 0; row < 9; row += 3) {
      double difference = 0;
      for (int i = 0; i < 3; ++i) difference += r[s.a][row + i] * p[i] / pLength - r[s.b][row + i] * q[i] / qLength;
      cost += s.w * difference * difference;
    }
  }
  return cost;
}

TEST(MILsm8R, RecoversRotationsAtTheLeastCost) {
  struct {
    int32_t imageCount;
    std::initializer_list<std::pair<int32_t, int32_t>> pairs;
  } const cases[] = {{2, {{0, 1}}},
                     {3, {{0, 2}, {1, 2}}},  // image 1 is tied to the base through image 2 only
                     {4, {{0, 1}, {2, 1}, {3, 2}, {1, 3}, {3, 0}}}};
  for (const auto& c : cases) {
    for (double noise : {0.0, 0.8}) {
      Rotations s(c.imageCount);
      const std::vector<Sample> samples = makeSamples(c.pairs, noise);
      addAll(&s.lsm, samples);
      ASSERT_EQ(s.solve(), MILSM_CONVERGED) << c.imageCount << " " << noise;
      for (int32_t k = 1; k < c.imageCount; ++k) {
        const Mvec8Real found = s.output(k), expected = motionOf(k);
        double matrix[9], other[9];
        Mvec8F32 fixedPoint;
        MILsm_outputMvec(&s.lsm, &fixedPoint, k);
        for (int i = 0; i < 3; ++i) EXPECT_NEAR(found.angles[i], kAngles[k][i], noise == 0.0 ? 1e-9 : 1e-3);
        for (int i = 0; i < 9; ++i) {
          EXPECT_NEAR(found.h[i], expected.h[i], (noise == 0.0 ? 1e-9 : 1e-2) * (1 + std::fabs(expected.h[i])));
          EXPECT_LE(std::fabs(fixedPoint.h[i] - found.h[i] * 32768), 0.5);
        }
        EXPECT_EQ(MILsm8R_outputRotationMatrix(s.record, matrix, k), ZELVAN_OK);
        Mvec8Real_estimateRotationMatrix(other, &found, kWidth, kHeight, kFov);
        for (int i = 0; i < 9; ++i) EXPECT_NEAR(matrix[i], other[i], 1e-9);
      }
      const double least = directCost(*s.record, samples, s.record->angles);
      for (int32_t i = 0; i < 3 * (c.imageCount - 1); ++i) {
        for (double step : {1e-4, -1e-4}) {
          double angles[9];
          std::copy_n(s.record->angles, 3 * (c.imageCount - 1), angles);
          angles[i] += step;
          EXPECT_GT(directCost(*s.record, samples, angles), least) << i;
        }
      }
      // The sums can be taken over by another record, and the angles put back to zero.
      Rotations copied(2);
      EXPECT_EQ(MILsm_copy(&copied.lsm, &s.lsm), ZELVAN_OK);
      MILsm_clear(&s.lsm);
      // Without points: the determinant is zero, or the lifted diagonal lets nothing move.
      EXPECT_EQ(s.solve(), c.imageCount == 2 ? MILSM_FAIL_DIAGONAL : MILSM_CONVERGED);
      EXPECT_EQ(s.output(1).angles[0], 0.0);
      EXPECT_EQ(copied.solve(), MILSM_CONVERGED);
      EXPECT_NEAR(copied.output(1).angles[2], kAngles[1][2], 1e-2);
    }
  }
}

TEST(MILsm8R, RestrainedAnglesStayAtTheirStart) {
  for (int32_t imageCount : {2, 3}) {
    Rotations s(imageCount);
    const auto samples = imageCount == 2 ? makeSamples({{0, 1}}, 0.0) : makeSamples({{0, 1}, {1, 2}}, 0.0);
    addAll(&s.lsm, samples);
    const Mvec8Real start = motionOf(1);
    MILsm_setInitialMvecReal(&s.lsm, &start, 1);
    for (int i = 0; i < 3; ++i) EXPECT_NEAR(s.record->angles[i], -kAngles[1][i], 1e-9);
    s.record->angles[1] += 0.01;
    s.record->constraintFlags[3 + 1] = 1;
    const double kept = s.record->angles[1];
    EXPECT_EQ(s.solve(), MILSM_CONVERGED);
    EXPECT_NEAR(s.record->angles[1], kept, 1e-12);
    const double least = directCost(*s.record, samples, s.record->angles);
    for (int i : {0, 2}) {
      double angles[6];
      std::copy_n(s.record->angles, 3 * (imageCount - 1), angles);
      for (double step : {1e-4, -2e-4}) {
        angles[i] += step;
        EXPECT_GT(directCost(*s.record, samples, angles), least) << i;
      }
    }
  }
}

TEST(MILsm8R, BaseMotionAppliesOnlyWhenSet) {
  const Mvec8Real base = motionOf(2), start = motionOf(1);
  for (int32_t set : {0, 1}) {
    Rotations s(2);
    s.record->baseRotationSet = set;
    EXPECT_EQ(MILsm_setInitialMvecReal(&s.lsm, &base, 0), ZELVAN_OK);
    EXPECT_EQ(MILsm_setInitialMvecReal(&s.lsm, &start, 1), ZELVAN_OK);
    // start, taken from where base leads to, or start itself.
    Mvec8Real expected, inverse;
    Mvec8Real_inv(&inverse, &base);
    Mvec8Real_mult(&expected, &start, &inverse);
    const Mvec8Real found = s.output(1);
    double x, y, u, v;
    Mvec8Real_trans2DReal(&expected, &x, &y, 300, 200);
    Mvec8Real_trans2DReal(&found, &u, &v, 300, 200);
    EXPECT_NEAR(u, x, 1e-5) << set;
    EXPECT_NEAR(v, y, 1e-5) << set;
    // Seen from the world's side, points of the base lie where the inverse base motion brings them. A solve from zero
    // angles finds the motion from there, and the output has the way from the base in front.
    std::fill_n(s.record->angles, 3, 0.0);
    for (const Sample& p : makeSamples({{2, 1}}, 0.0)) MILsm_addReal(&s.lsm, 0, p.ax, p.ay, 1, p.bx, p.by, p.w);
    EXPECT_EQ(s.solve(), MILSM_CONVERGED);
    const Mvec8Real solved = s.output(1);
    Mvec8Real_trans2DReal(&solved, &u, &v, 300, 200);
    EXPECT_NEAR(u, x, 1e-5) << set;
    EXPECT_NEAR(v, y, 1e-5) << set;
  }
}

TEST(MILsm8R, EdgesAndFailures) {
  Rotations s(2);
  EXPECT_EQ(MILsm8R_init(s.record, 1), ZELVAN_ERROR_PARAM);
  EXPECT_EQ(MILsm8R_clearBlock(s.record, 0, 1), ZELVAN_ERROR_UNSUPPORTED);
  const Mvec8Real start = motionOf(3);
  EXPECT_EQ(MILsm_setInitialMvecReal(&s.lsm, &start, 1), ZELVAN_OK);
  const Mvec8Real before = s.output(1);
  Mvec8F32 ignored = {};
  EXPECT_EQ(MILsm_setInitialMvec(&s.lsm, &ignored, 1), ZELVAN_OK);
  EXPECT_EQ(s.solve(), MILSM_FAIL_DIAGONAL);  // no points
  const Mvec8Real after = s.output(1);
  EXPECT_EQ(std::memcmp(&after, &before, sizeof after), 0);
  double matrix[9], scaled[9];
  MILsm8R_calcRotMat(s.record, matrix, &start);
  Mvec8Real_estimateRotationMatrix(scaled, &start, kWidth, kHeight, kFov);
  for (int i = 0; i < 9; ++i) EXPECT_NEAR(matrix[i] * scaled[8], scaled[i] * matrix[8], 1e-9);

  Mvec8Real out;
  for (int32_t image : {-1, 2}) {
    EXPECT_EQ(MILsm_outputMvecReal(&s.lsm, &out, image), ZELVAN_ERROR_PARAM);
    EXPECT_EQ(MILsm_setInitialMvecReal(&s.lsm, &start, image), ZELVAN_ERROR_PARAM);
    EXPECT_EQ(MILsm_addReal(&s.lsm, 0, 1, 1, image, 1, 1, 1), ZELVAN_ERROR_PARAM);
  }
  EXPECT_EQ(MILsm_addReal(&s.lsm, 1, 1, 1, 1, 1, 1, 1), ZELVAN_ERROR_PARAM);

  // Rays may have any length, the sums are of unit ones: the trace of the own sums is the sum of the weights.
  const double f = s.record->focalLength, cx = s.record->cx, cy = s.record->cy;
  Rotations sphere(2);
  MILsm8R_addRealOnSphere(sphere.record, 1, 3 * (90 - cx), 3 * (30 - cy), 3 * f, 0, 80 - cx, 50 - cy, f, 2.5);
  MILsm_addReal(&s.lsm, 0, 80, 50, 1, 90, 30, 2.5);
  for (int i = 0; i < 6; ++i) EXPECT_NEAR(sphere.record->imageSums->own[i], s.record->imageSums->own[i], 1e-12);
  for (int i = 0; i < 9; ++i) EXPECT_NEAR(sphere.record->imageSums->cross[i], s.record->imageSums->cross[i], 1e-12);
  const double* own = s.record->imageSums->own;
  EXPECT_NEAR(own[0] + own[3] + own[5], 2.5, 1e-10);

  // A tolerance of zero is never met.
  Rotations more(3);
  addAll(&more.lsm, makeSamples({{0, 1}}, 0.0));
  more.record->tolerance = 0.0;
  EXPECT_EQ(more.solve(), MILSM_FAIL_PASSES);
  EXPECT_NEAR(more.output(1).angles[1], kAngles[1][1], 1e-9);

  // Growing and shrinking keep what fits.
  Rotations grown(3), whole(4);
  const auto samples = makeSamples({{0, 1}, {1, 2}}, 0.4);
  addAll(&grown.lsm, samples);
  EXPECT_EQ(MILsm_changeImageNum(&grown.lsm, 9), ZELVAN_OK);
  EXPECT_EQ(MILsm_changeImageNum(&grown.lsm, 4), ZELVAN_OK);
  const auto rest = makeSamples({{2, 3}, {1, 3}}, 0.4);
  addAll(&grown.lsm, rest);
  addAll(&whole.lsm, samples);
  addAll(&whole.lsm, rest);
  EXPECT_EQ(grown.solve(), MILSM_CONVERGED);
  EXPECT_EQ(whole.solve(), MILSM_CONVERGED);
  for (int32_t k = 0; k < 4; ++k) {
    const Mvec8Real a = grown.output(k), b = whole.output(k);
    EXPECT_EQ(std::memcmp(&a, &b, sizeof a), 0) << k;
  }
}

}  // namespace
