// The one pass over the picture: what comes out of frames that are known, at all sizes, for any number of workers.
#include "fine/fusion.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <memory>
#include <random>

#include "support/cpu_levels.h"
#include "support/test_arena.h"
#include "support/test_image.h"
#include "support/test_pel.h"

namespace fine {
namespace {

constexpr Mvec8Real shift(double dx, double dy) {
  return {{1, 0, dx, 0, 1, dy, 0, 0, 1}, {}};
}

// A burst with equal shares. paint: value of byte c of a frame, in the frame's own luma pixels.
class Scene {
 public:
  using Paint = std::function<int32_t(int32_t frame, int32_t c, double x, double y)>;

  Scene(int32_t width, int32_t height, const std::vector<Mvec8Real>& motions, const Paint& paint)
      : arena_(24u << 20),
        width_(width),
        height_(height),
        map_(width / 4, height / 4, IMAGE_UINT8),
        left_(map_.width, map_.height, IMAGE_UINT8),
        shares_(map_.width, map_.height, IMAGE_UINT16, 1, 6) {
    fusion_.env = arena_.env();
    fusion_.count = static_cast<int32_t>(motions.size());
    fusion_.mapLuma = &map_;
    fusion_.left = &left_;
    fusion_.saturation = 1024;
    for (int32_t y = 0; y < map_.height; ++y) {
      for (int32_t x = 0; x < map_.width; ++x) {
        left_.row(0, y)[x] = static_cast<uint8_t>(255 / fusion_.count);
        imageRow<uint16_t>(&shares_, y)[x] = static_cast<uint16_t>(32768 / fusion_.count);
      }
    }
    const auto nodes = static_cast<size_t>(meshNodes(width) * meshNodes(height));
    nodes_.resize(motions.size() * nodes);
    for (size_t i = 0; i < motions.size(); ++i) {
      frames_.push_back(std::make_unique<TestImage>(width, height, IMAGE_YVU420_SEMIPLANAR));
      TestImage& image = *frames_.back();
      const auto value = [&](int32_t c, double x, double y) {
        return static_cast<uint8_t>(std::clamp(paint(static_cast<int32_t>(i), c, x, y), 0, 255));
      };
      for (int32_t y = 0; y < height; ++y) {
        for (int32_t x = 0; x < width; ++x) image.row(0, y)[x] = value(0, x, y);
      }
      for (int32_t y = 0; y < image.pixelRows(1); ++y) {
        for (int32_t x = 0; x < image.pixelBytes(1); ++x) {
          image.row(1, y)[x] = value(1 + x % 2, x / 2 * 2 + 0.5, 2 * y + 0.5);
        }
      }
      FusionFrame& f = fusion_.frames[i];
      construct_Image(&f.luma, arena_.env());
      construct_Image(&f.pairs, arena_.env());
      EXPECT_EQ(Image_initSubImageY(&f.luma, &image, 0, 0, width, height), ZELVAN_OK);
      EXPECT_EQ(Image_initSubImageUV(&f.pairs, &image, 0, 0, width, height), ZELVAN_OK);
      f.mesh.nodes = nodes_.data() + i * nodes;
      fillMesh(&f.mesh, motions[i], nullptr, 0, width, height);
      f.shares = i == 0 ? nullptr : &shares_;
    }
  }

  // sigma: of a frame, in levels. strength 0 with transform: there and back.
  void shrinkBy(double strength, double sigma) {
    for (FusionShrink& shrink : fusion_.shrink) {
      shrink.on = true;
      for (uint16_t& v : shrink.byLuma) v = static_cast<uint16_t>(128 * sigma);
      shrink.table.noise = static_cast<int16_t>(2048 * strength);
      std::fill_n(shrink.table.even[0], 64, int16_t{32767});
    }
  }
  std::unique_ptr<TestImage> fused(Pel* pel = nullptr, uint32_t seed = 9) {
    auto out = std::make_unique<TestImage>(width_, height_, IMAGE_YVU420_SEMIPLANAR, seed);
    fusion_.pel = pel;
    EXPECT_EQ(fuse(fusion_, out.get()), ZELVAN_OK);
    EXPECT_TRUE(out->guardsUnchanged());
    return out;
  }
  const TestImage& frame(size_t i) const { return *frames_[i]; }

 private:
  TestArena arena_;
  int32_t width_;
  int32_t height_;
  TestImage map_;
  TestImage left_;
  TestImage shares_;
  std::vector<std::unique_ptr<TestImage>> frames_;
  std::vector<MeshNode> nodes_;
  Fusion fusion_ = {};
};

int32_t hashed(int32_t frame, int32_t c, double x, double y) {
  const auto key = static_cast<uint32_t>(frame * 7919 + c * 104729 + static_cast<int32_t>(x) * 31337 +
                                         static_cast<int32_t>(y) * 65537);
  return static_cast<int32_t>((key * 2654435761u) >> 24);
}

constexpr struct {
  int32_t width, height;
} kSizes[] = {{64, 64}, {65, 67}, {100, 130}, {127, 129}, {258, 66}, {321, 193}};

TEST(FineFusion, EqualFramesGiveTheFrameAtAnySize) {
  for (const auto& size : kSizes) {
    const auto same = [](int32_t, int32_t c, double x, double y) { return hashed(0, c, x, y); };
    Scene scene(size.width, size.height, {shift(0, 0), shift(0, 0), shift(0, 0)}, same);
    const auto merged = scene.fused();
    scene.shrinkBy(0, 5);
    const auto transformed = scene.fused();
    for (int32_t p = 0; p < 2; ++p) {
      for (int32_t y = 0; y < merged->pixelRows(p); ++y) {
        for (int32_t x = 0; x < merged->pixelBytes(p); ++x) {
          // Odd edges of chroma repeat the last pair.
          const int32_t fromY = p == 0 ? y : std::min(y, size.height / 2 - 1);
          const int32_t fromX = p == 0 || x < size.width / 2 * 2 ? x : x - 2;
          const uint8_t expected = scene.frame(0).row(p, fromY)[fromX];
          ASSERT_EQ(merged->row(p, y)[x], expected) << size.width << ": " << p << ", " << x << ", " << y;
          ASSERT_NEAR(transformed->row(p, y)[x], expected, 1) << size.width << ": " << p << ", " << x << ", " << y;
        }
      }
    }
  }
}

// Chroma too, by half the shift; the margin is what the frame does not show.
TEST(FineFusion, AShiftedFrameComesBack) {
  for (const auto& [dx, dy] : {std::pair(6.0, -4.0), {-3.5, 2.25}, {0.5, 0.5}}) {
    const auto wave = [&, x0 = dx, y0 = dy](int32_t frame, int32_t c, double x, double y) {
      const double u = frame == 0 ? x : x - x0, v = frame == 0 ? y : y - y0;
      return static_cast<int32_t>(std::lround(128 + 60 * std::sin(u * 0.11 + c) + 50 * std::sin(v * 0.07 + u * 0.03)));
    };
    Scene scene(201, 163, {shift(0, 0), shift(dx, dy)}, wave);
    EXPECT_LE(worstDifference(*scene.fused(), scene.frame(0), 8), 1) << dx << ", " << dy;
  }
}

TEST(FineFusion, BytesDependOnNeitherWorkersNorLevelNorWhatWasThere) {
  for (const auto& size : kSizes) {
    Scene scene(size.width, size.height,
                {shift(0, 0), shift(1.3, -2.6), {{1.01, 0.02, -3, -0.02, 0.99, 4, 0, 0, 1}, {}}}, hashed);
    for (const bool shrinks : {false, true}) {
      if (shrinks) scene.shrinkBy(1.5, 20);
      std::unique_ptr<TestImage> expected;
      test::atEveryLevel([&](CpuLevel level) {
        if (level == CPU_PLAIN) expected = scene.fused();
        for (const int32_t workers : {1, 2, 8}) {
          const TestPel pel(workers);
          const auto out = scene.fused(pel.get(), static_cast<uint32_t>(10 * workers + level));
          ASSERT_EQ(worstDifference(*out, *expected), 0) << size.width << ", " << workers << " workers, " << level;
        }
      });
    }
  }
}

TEST(FineFusion, NoChannelIsLiftedAndFlatPlanesAreFlat) {
  for (int32_t level = 20; level < 240; level += 55) {
    std::mt19937 random(static_cast<uint32_t>(level));
    std::normal_distribution<double> normal(0, 6);
    const auto noisy = [&](int32_t, int32_t, double, double) {
      return static_cast<int32_t>(std::lround(level + normal(random)));
    };
    Scene scene(512, 512, {shift(0, 0), shift(0.3, 0.7), shift(-2.5, 1.1), shift(0, 0)}, noisy);
    for (const bool shrinks : {false, true}) {
      if (shrinks) scene.shrinkBy(1.5, 6);
      const auto out = scene.fused();
      double off[3] = {}, was[3] = {};
      const auto count = [&](double* sums, const TestImage& image, double weight) {
        for (int32_t y = 8; y < 504; ++y) {
          for (int32_t x = 8; x < 504; ++x) sums[0] += weight * (image.row(0, y)[x] - level) / (496.0 * 496.0);
        }
        for (int32_t y = 4; y < 252; ++y) {
          for (int32_t x = 8; x < 504; ++x) sums[1 + x % 2] += weight * (image.row(1, y)[x] - level) / (248.0 * 248.0);
        }
      };
      count(off, *out, 1);
      for (size_t i = 0; i < 4; ++i) count(was, scene.frame(i), 0.25);
      // What moves over the borders of the picture differs by chance: 0.01 or less.
      EXPECT_NEAR(off[0], was[0], 0.02) << level << (shrinks ? ", shrunk" : "");
      for (int32_t c = 1; c < 3; ++c) EXPECT_NEAR(off[c], was[c], 0.03) << level << (shrinks ? ", shrunk" : "");
    }
  }
  const auto flat = [](int32_t, int32_t c, double, double) { return 255 * (c % 2) + c; };
  Scene scene(101, 99, {shift(0, 0), shift(2.4, 1.7)}, flat);
  scene.shrinkBy(1.5, 6);
  EXPECT_EQ(worstDifference(*scene.fused(), scene.frame(0)), 0);
}

}  // namespace
}  // namespace fine
