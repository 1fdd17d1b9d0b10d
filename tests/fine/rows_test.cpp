// The fine road's kernels: every table against its plain form, and against what they are to compute.
#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <vector>

#include "fine/dct_shrink.h"
#include "fine/sampler.h"
#include "fine/window.h"
#include "support/cpu_levels.h"
#include "support/test_arena.h"
#include "support/test_image.h"

namespace fine {
namespace {

std::vector<uint8_t> bytes(size_t count, uint32_t seed, bool extreme) {
  std::mt19937 random(seed);
  std::vector<uint8_t> out(count);
  for (uint8_t& v : out) v = static_cast<uint8_t>(extreme ? (random() % 2) * 255 : random());
  return out;
}

// Rows of one and of two channels, moved by all there is: fractions, steps, edges.
TEST(FineSampler, LevelsAgree) {
  std::mt19937 random(1);
  for (int32_t width = 2; width <= 200; ++width) {
    for (const bool extreme : {false, true}) {
      constexpr int32_t kHeight = 20;
      const auto turn = [&](double most) { return most * (static_cast<double>(random() % 2001) / 1000 - 1); };
      const Mvec8Real motion = {{1 + turn(0.05), turn(0.05), turn(9), turn(0.05), 1 + turn(0.05), turn(9), 0, 0, 1},
                                {}};
      std::vector<MeshNode> nodes(static_cast<size_t>(meshNodes(width)) * static_cast<size_t>(meshNodes(kHeight)));
      Mesh mesh = {0, 0, nodes.data()};
      fillMesh(&mesh, motion, nullptr, 0, width, kHeight);
      for (const int format : {IMAGE_UINT8, IMAGE_UINT88}) {
        TestImage image(width, kHeight, format);
        const std::vector<uint8_t> content = bytes(static_cast<size_t>(2 * width * kHeight), random(), extreme);
        for (int32_t y = 0; y < kHeight; ++y) {
          std::copy_n(content.data() + 2 * y * width, image.pixelBytes(0), image.row(0, y));
        }
        std::vector<int16_t> plain;
        test::atEveryLevel([&](CpuLevel level) {
          std::vector<int16_t> rows;
          for (int32_t y = 0; y < kHeight; ++y) {
            std::vector<int16_t> row(static_cast<size_t>(2 * width + kSampleSlack));
            sampleRow(row.data(), image, mesh, y, width);
            rows.insert(rows.end(), row.data(), row.data() + image.pixelBytes(0));
            if (format == IMAGE_UINT88 && y < kHeight / 2) {
              sampleChroma(row.data(), image, mesh, y, width / 2);
              rows.insert(rows.end(), row.data(), row.data() + width / 2 * 2);
            }
          }
          if (level == CPU_PLAIN) plain = rows;
          ASSERT_EQ(rows, plain) << cpuLevelName(level) << ", width " << width;
        });
      }
    }
  }
}

// The sums of a window by their definition, in frames that end where its samples do, turned so that rows break.
TEST(FineWindow, SumsAreThoseOfBilinearResiduals) {
  std::mt19937 random(5);
  for (int32_t round = 0; round < 600; ++round) {
    const int32_t size = 16 + 8 * (round % 3);
    const bool extreme = round % 2 == 0;
    const int32_t side = size + 2 + round % 4;
    const TestImage base(size + 2, size + 2, IMAGE_UINT8, random());
    const TestImage frame(side, side, IMAGE_UINT8, random());
    for (const TestImage* image : {&base, &frame}) {
      for (int32_t y = 0; y < image->height && extreme; ++y) {
        for (int32_t x = 0; x < image->width; ++x) image->row(0, y)[x] = image->row(0, y)[x] < 128 ? 0 : 255;
      }
    }
    const int32_t most = round % 5 == 0 ? 0 : round % 5 == 1 ? 20000 : 2000;
    const auto turn = [&] { return static_cast<int32_t>(random() % (2 * static_cast<uint32_t>(most) + 1)) - most; };
    const int32_t step[4] = {65536 + turn(), turn(), turn(), 65536 + turn()};
    const int32_t middle = (side - 1) * 32768;
    const int32_t x0 = middle - (size - 1) * (step[0] + step[1]) / 2;
    const int32_t y0 = middle - (size - 1) * (step[2] + step[3]) / 2;
    int64_t expected[4] = {};
    bool inside = true;
    for (int32_t j = 0; j < size; ++j) {
      for (int32_t i = 0; i < size; ++i) {
        const int32_t px = x0 + i * step[0] + j * step[1];
        const int32_t py = y0 + i * step[2] + j * step[3];
        const int32_t x = px >> 16, y = py >> 16;
        inside = inside && x >= 0 && y >= 0 && x < side - 1 && y < side - 1;
        if (!inside) continue;
        const int32_t fx = (px >> 8) & 255, fy = (py >> 8) & 255;
        const auto across = [&](const uint8_t* row) { return (row[x] * (256 - fx) + row[x + 1] * fx) >> 4; };
        const int32_t upper = across(frame.row(0, y)), lower = across(frame.row(0, y + 1));
        const uint8_t* t = base.row(0, j + 1) + i + 1;
        const int32_t r = upper + (((lower - upper) * fy) >> 8) - 16 * t[0];
        expected[0] += r;
        expected[1] += r * (t[1] - t[-1]);
        expected[2] += r * (base.row(0, j + 2)[i + 1] - base.row(0, j)[i + 1]);
        expected[3] += int64_t{r} * r;
      }
    }
    if (!inside) continue;
    test::atEveryLevel([&](CpuLevel level) {
      Window window;
      fillWindow(&window, base, 1, 1, size);
      const WindowSums s = residualSums(window, frame, x0, y0, step);
      const int64_t found[4] = {s.r, s.rx, s.ry, s.rr};
      for (int32_t k = 0; k < 4; ++k) {
        ASSERT_EQ(found[k], expected[k]) << cpuLevelName(level) << ", round " << round << ", sum " << k;
      }
    });
  }
}

double catmullRom(const double* p, double f) {
  return p[1] +
         0.5 * f * (p[2] - p[0] + f * (2 * p[0] - 5 * p[1] + 4 * p[2] - p[3] + f * (3 * (p[1] - p[2]) + p[3] - p[0])));
}

// Also outside the picture, where the edge goes on.
TEST(FineSampler, RowsFollowTheBicubicFormula) {
  constexpr int32_t kWidth = 150, kHeight = 130;
  TestImage image(kWidth, kHeight, IMAGE_UINT8, 5);
  std::mt19937 random(3);
  for (int32_t y = 0; y < kHeight; ++y) {
    for (int32_t x = 0; x < kWidth; ++x) image.row(0, y)[x] = static_cast<uint8_t>(random());
  }
  const Mvec8Real motion = {{1.01, -0.03, 4.3, 0.02, 0.98, -3.7, 1e-5, -2e-5, 1}, {}};
  std::vector<MeshNode> nodes(static_cast<size_t>(meshNodes(kWidth)) * static_cast<size_t>(meshNodes(kHeight)));
  Mesh mesh = {0, 0, nodes.data()};
  fillMesh(&mesh, motion, nullptr, 0, kWidth, kHeight);
  const auto pixel = [&](int32_t x, int32_t y) {
    return static_cast<double>(image.row(0, std::clamp(y, 0, kHeight - 1))[std::clamp(x, 0, kWidth - 1)]);
  };
  std::vector<int16_t> row(kWidth + kSampleSlack);
  double worst = 0;
  for (int32_t y = 0; y < kHeight; ++y) {
    sampleRow(row.data(), image, mesh, y, kWidth);
    for (int32_t x = 0; x < kWidth; ++x) {
      const MeshNode at = meshPosition(mesh, x, y);
      double u, v;
      Mvec8Real_trans2DReal(&motion, &u, &v, x, y);
      ASSERT_NEAR(at.x / 32768.0, u, 0.03);
      ASSERT_NEAR(at.y / 32768.0, v, 0.03);
      const double px = at.x / 32768.0, py = at.y / 32768.0;
      const auto ix = static_cast<int32_t>(std::floor(px)), iy = static_cast<int32_t>(std::floor(py));
      double down[4];
      for (int32_t j = 0; j < 4; ++j) {
        double across[4];
        for (int32_t i = 0; i < 4; ++i) across[i] = pixel(ix - 1 + i, iy - 1 + j);
        down[j] = catmullRom(across, px - ix);
      }
      worst = std::max(worst, std::abs(row[static_cast<size_t>(x)] / 64.0 + 128 - catmullRom(down, py - iy)));
    }
  }
  EXPECT_LT(worst, 0.08) << "levels, over random pixels";
}

// One plane through the transform with all rows of blocks that its rows need.
std::vector<int16_t> transformed(const std::vector<int16_t>& in, const ShrinkTable& table, int32_t width,
                                 int32_t height, int16_t sigma) {
  const int32_t stride = dctStride(width);
  std::vector<int16_t> padded(static_cast<size_t>((height + 8) * stride) + 8 * kDctSlack), out(padded.size());
  for (int32_t y = -4; y < height + 4; ++y) {
    for (int32_t x = -4; x < stride - 4; ++x) {
      padded[static_cast<size_t>((y + 4) * stride + x + 4)] =
          in[static_cast<size_t>(std::clamp(y, 0, height - 1) * width + std::clamp(x, 0, width - 1))];
    }
  }
  const std::vector<int16_t> sigmas(static_cast<size_t>(stride / 4) + kDctSlack, sigma);
  for (int32_t y = 0; y + 8 <= height + 8; y += 4) {
    shrinkBlocks(out.data() + y * stride, padded.data() + y * stride, sigmas.data(), table, width);
  }
  std::vector<int16_t> result;
  for (int32_t y = 0; y < height; ++y) {
    const int16_t* row = out.data() + (y + 4) * stride + 4;
    result.insert(result.end(), row, row + width);
  }
  return result;
}

TEST(FineDct, IsTheIdentityWithoutThresholdsAndLevelsAgree) {
  ShrinkTable none = {}, some = {};
  some.noise = 4000;
  for (int32_t i = 0; i < 64; ++i) {
    none.even[i / 8][i % 8] = some.even[i / 8][i % 8] = static_cast<int16_t>(32767 - 200 * i);
    some.gain[i / 8][i % 8] = static_cast<int16_t>(200 * i);
  }
  for (const int32_t width : {8, 31, 124, 125, 128, 129, 200, 260}) {
    constexpr int32_t kHeight = 24;
    std::mt19937 random(static_cast<uint32_t>(width));
    std::vector<int16_t> in(static_cast<size_t>(width * kHeight));
    for (int16_t& v : in) v = static_cast<int16_t>(random() % 2049) - 1024;
    const std::vector<int16_t> same = transformed(in, none, width, kHeight, 640);
    double squares = 0;
    for (size_t i = 0; i < in.size(); ++i) {
      ASSERT_NEAR(same[i], in[i], 7) << width << " at " << i;
      squares += std::pow(same[i] - in[i], 2);
    }
    EXPECT_LT(squares / static_cast<double>(in.size()), 2.5) << "rounding only, in eighths of a level";
    const std::vector<int16_t> shrunk = transformed(in, some, width, kHeight, 640);
    EXPECT_NE(shrunk, same);
    test::atEveryLevel(
        [&](CpuLevel level) { EXPECT_EQ(transformed(in, some, width, kHeight, 640), shrunk) << cpuLevelName(level); });
  }
}

TEST(FineDct, TakesNoiseAndLeavesMeansAndEdges) {
  constexpr int32_t kSide = 64;
  ShrinkTable table = {};
  table.noise = 2048;
  std::fill_n(table.even[0], 64, int16_t{32767});
  std::mt19937 random(1);
  std::normal_distribution<double> normal(0, 4.0 * 8);  // four levels
  for (int32_t level = 0; level < 256; level += 51) {
    std::vector<int16_t> in(kSide * kSide);
    double before = 0;
    for (int32_t i = 0; i < kSide * kSide; ++i) {
      const int32_t clean = 8 * ((i % kSide < kSide / 2 ? level : 255 - level) - 128);
      in[static_cast<size_t>(i)] = static_cast<int16_t>(clean + std::lround(normal(random)));
      before += std::pow(in[static_cast<size_t>(i)] - clean, 2);
    }
    const std::vector<int16_t> out = transformed(in, table, kSide, kSide, 4 * 128);
    double after = 0, mean = 0, meanBefore = 0;
    for (int32_t i = 0; i < kSide * kSide; ++i) {
      const int32_t clean = 8 * ((i % kSide < kSide / 2 ? level : 255 - level) - 128);
      after += std::pow(out[static_cast<size_t>(i)] - clean, 2);
      mean += out[static_cast<size_t>(i)];
      meanBefore += in[static_cast<size_t>(i)];
    }
    EXPECT_LT(after, 0.13 * before) << level;
    EXPECT_NEAR(mean / (kSide * kSide), meanBefore / (kSide * kSide), 0.4) << "an eighth of a level is one";
  }
}

}  // namespace
}  // namespace fine
