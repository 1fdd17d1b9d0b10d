#include "fine/align.h"

#include <cmath>
#include <memory>

#include "support/burst.h"
#include "support/test_arena.h"
#include "support/test_image.h"

namespace {

constexpr int32_t kWidth = 640;
constexpr int32_t kHeight = 480;

using Scene = double (*)(double, double);

double textured(double x, double y) {
  return test::sceneLuma(x, y);
}
double foreign(double x, double y) {
  return test::sceneLuma(y + 5000, x - 3000);
}
double flat(double x, double) {
  return 90 + x / 40;
}
// The left third only is in focus.
double halfSoft(double x, double y) {
  return x < kWidth / 3.0 ? textured(x, y) : 40 + 150 * test::valueNoise(x / 130, y / 130, 7);
}

// Five discs on plain ground.
double sparse(double x, double y) {
  double value = 90;
  for (int32_t i = 0; i < 5; ++i) value += std::hypot(x - 100 - 110 * i, y - 120 - 60 * (i % 3)) < 20 ? 50 : 0;
  return value;
}

// What a frame shows and how it is held.
struct Shot {
  Scene scene = textured;
  double dx = 0, dy = 0, degrees = 0, zoom = 1, px = 0, py = 0;  // about the middle; perspective by full-size pixel
  double noise = 4;
  bool grain = false;    // noise of neighbours is alike
  double objectAt = -1;  // left edge of a block of texture of its own, a quarter of the picture wide
  double gain = 1;       // of brightness
};

Mvec8Real motionOf(const Shot& s) {
  const double mx = 0.5 * (kWidth - 1), my = 0.5 * (kHeight - 1), a = s.degrees * 0.017453292519943295;
  const double c = s.zoom * std::cos(a), b = s.zoom * std::sin(a);
  const Mvec8Real in = {{1, 0, -mx, 0, 1, -my, 0, 0, 1}, {}};
  const Mvec8Real turn = {{c, -b, s.dx, b, c, s.dy, s.px, s.py, 1}, {}};
  const Mvec8Real out = {{1, 0, mx, 0, 1, my, 0, 0, 1}, {}};
  Mvec8Real m;
  Mvec8Real_mult(&m, &turn, &in);
  Mvec8Real_mult(&m, &out, &m);
  return m;
}

std::unique_ptr<TestImage> take(const Shot& s, uint32_t seed) {
  auto image = std::make_unique<TestImage>(kWidth, kHeight, IMAGE_YVU420_SEMIPLANAR);
  Mvec8Real back;
  const Mvec8Real motion = motionOf(s);
  Mvec8Real_inv(&back, &motion);
  std::mt19937 random(seed);
  std::normal_distribution<double> normal;
  std::vector<double> noise(static_cast<size_t>(kWidth + 2) * (kHeight + 2));
  for (double& n : noise) n = s.noise * normal(random);
  for (int32_t y = 0; y < kHeight; ++y) {
    for (int32_t x = 0; x < kWidth; ++x) {
      double u, v;
      Mvec8Real_trans2DReal(&back, &u, &v, x, y);
      double value = s.gain * s.scene(u, v);
      if (s.objectAt >= 0 && x >= s.objectAt && x < s.objectAt + kWidth / 4.0 && y > 100 && y < 400) {
        value = test::sceneLuma(x - s.objectAt + 2000, y + 900);
      }
      const double* n = &noise[static_cast<size_t>(y + 1) * (kWidth + 2) + static_cast<size_t>(x) + 1];
      if (s.grain) {
        for (int32_t j = -1; j <= 1; ++j) {
          for (int32_t i = -1; i <= 1; ++i) value += n[j * (kWidth + 2) + i] / 3;
        }
      } else {
        value += *n;
      }
      image->row(0, y)[x] = static_cast<uint8_t>(std::clamp(value + 0.5, 0.0, 255.0));
    }
  }
  return image;
}

class FineAlign : public testing::Test {
 protected:
  // Lays a frame over a base; base and frame have noise of their own.
  fine::Alignment align(const Shot& base, const Shot& frame) {
    const auto a = take(base, 1);
    const auto b = take(frame, 2);
    fine::Pyramid pyramids[2];
    const TestImage* images[2] = {a.get(), b.get()};
    for (int32_t i = 0; i < 2; ++i) {
      fine::construct(&pyramids[i], arena_.env());
      EXPECT_EQ(fine::build(&pyramids[i], nullptr, images[i]), ZELVAN_OK);
    }
    std::vector<fine::Block> blocks(static_cast<size_t>(fine::kMostBlocks) * fine::kMostLevels);
    std::vector<fine::Match> matches(fine::kMostMatches);
    const auto coarse = std::make_unique<fine::CoarseBase>();
    fine::AlignBase prepared;
    EXPECT_EQ(fine::prepareBase(&prepared, arena_.env(), &pyramids[0], blocks.data(), coarse.get()), ZELVAN_OK);
    fine::Alignment result;
    fine::alignFrame(&result, prepared, pyramids[1], nullptr, 0, matches.data());
    for (fine::Pyramid& p : pyramids) fine::release(&p);
    return result;
  }

  // Largest distance of a corner from the truth, for a base that was not moved.
  static double cornerError(const fine::Alignment& result, const Shot& frame) {
    const Mvec8Real truth = motionOf(frame);
    double worst = 0;
    for (int32_t corner = 0; corner < 4; ++corner) {
      double u, v, p, q;
      Mvec8Real_trans2DReal(&truth, &u, &v, corner % 2 * (kWidth - 1), corner / 2 * (kHeight - 1));
      Mvec8Real_trans2DReal(&result.motion, &p, &q, corner % 2 * (kWidth - 1), corner / 2 * (kHeight - 1));
      worst = std::max(worst, std::hypot(u - p, v - q));
    }
    return worst;
  }

  TestArena arena_{8u << 20};
};

TEST_F(FineAlign, FindsTheMotionsOfAHand) {
  const struct {
    const char* what;
    Shot frame;
    double most;
  } cases[] = {
      {"none", {}, 0.06},
      {"below a pixel", {.dx = 0.37, .dy = -0.61}, 0.06},
      {"a tenth of the width", {.dx = 63, .dy = -20}, 0.1},
      {"a tenth of the width, up", {.dx = -40, .dy = 60}, 0.1},
      {"turn and zoom", {.dx = 9, .degrees = 3, .zoom = 1.03}, 0.1},
      {"turn and zoom the other way", {.dy = -12, .degrees = -3, .zoom = 0.97}, 0.1},
      {"perspective", {.dx = 5, .dy = 4, .px = 2e-5, .py = -3e-5}, 0.1},
      {"much noise", {.dx = 14.5, .dy = 7.25, .degrees = 1, .noise = 12}, 0.15},
      {"darker", {.dx = -6.25, .dy = 3.5, .gain = 0.9}, 0.1},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    const fine::Alignment result = align({.noise = c.frame.noise}, c.frame);
    EXPECT_EQ(result.verdict, fine::ALIGNED);
    EXPECT_LE(cornerError(result, c.frame), c.most);
    EXPECT_LE(result.quality.cornerSigma, 0.15);
  }
}

TEST_F(FineAlign, AMovingObjectDoesNotPull) {
  const Shot base = {.objectAt = 60};
  const Shot frame = {.dx = 4.5, .dy = 2.25, .degrees = 0.5, .objectAt = 130};
  const fine::Alignment result = align(base, frame);
  EXPECT_EQ(result.verdict, fine::ALIGNED);
  EXPECT_LE(cornerError(result, frame), 0.12);
}

TEST_F(FineAlign, RefusesWhatItCannotKnow) {
  EXPECT_NE(align({}, {.scene = foreign, .dx = 7}).verdict, fine::ALIGNED) << "another scene";
  EXPECT_NE(align({.scene = flat}, {.scene = flat, .dx = 7}).verdict, fine::ALIGNED) << "no structure";
  EXPECT_NE(align({}, {.dx = 0.35 * kWidth}).verdict, fine::ALIGNED) << "too far";
  // Nothing but noise of the size of pixels and larger: blocks find some shift anywhere, and agree on none.
  const Shot grain = {.scene = flat, .noise = 12, .grain = true};
  const Shot moved = {.scene = flat, .dx = 7, .noise = 12, .grain = true};
  EXPECT_NE(align(grain, moved).verdict, fine::ALIGNED) << "grain";
}

// Where much of the picture shows noise only, blocks there must neither move a corner nor make it look sure.
TEST_F(FineAlign, KnowsHowSureItIs) {
  int32_t accepted = 0;
  for (const Scene scene : {halfSoft, sparse}) {
    for (const bool grain : {false, true}) {
      for (const double noise : {1.5, 6.0, 12.0}) {
        SCOPED_TRACE(testing::Message() << "noise " << noise << " grain " << grain << " sparse " << (scene == sparse));
        const Shot frame = {.scene = scene, .dx = 7.3, .dy = -3.8, .degrees = 0.25, .noise = noise, .grain = grain};
        const fine::Alignment result = align({.scene = scene, .noise = noise, .grain = grain}, frame);
        if (result.verdict != fine::ALIGNED) continue;
        ++accepted;
        const double error = cornerError(result, frame);
        EXPECT_LE(error, 3.0 * result.quality.cornerSigma);
        EXPECT_LE(error, 0.6);
      }
    }
  }
  EXPECT_GE(accepted, 5);
}

}  // namespace
