#include "fine/block.h"

#include <algorithm>
#include <cstdlib>

#include "base/cpu_level.h"
#include "base/integer.h"
#include "base/raw_double.h"

namespace fine {
namespace {

constexpr int32_t kMostCells = 24;
constexpr int32_t kSmallBlock = 16;
constexpr int32_t kMostSmallCells = 32;
constexpr double kLeastStructure = 0.4;  // eigenvalue of A by pixel, in squared levels
constexpr double kLeastSignal = 0.6;     // eigenvalue without noise by what noise gives it

constexpr double kNoiseOfResidual = 0.5;  // share of a residual that is the template's own noise
constexpr double kQuantisation = 0.17;    // variance of a difference of two bytes

struct Gradients {
  int64_t x, y, xx, xy, yy, v, vv;
};

ALWAYS_INLINE void gradientBody(Gradients* __restrict total, const uint8_t* from, ptrdiff_t pitch, int32_t size) {
  *total = {};
  for (int32_t j = 0; j < size; ++j, from += pitch) {
    const uint8_t* __restrict row = from;
    const uint8_t* __restrict up = from - pitch;
    const uint8_t* __restrict down = from + pitch;
    int32_t x = 0, y = 0, xx = 0, xy = 0, yy = 0, v = 0, vv = 0;  // at most 32 products of 255 x 255
    for (int32_t i = 0; i < size; ++i) {
      const auto gx = static_cast<int16_t>(row[i + 1] - row[i - 1]);
      const auto gy = static_cast<int16_t>(down[i] - up[i]);
      const int16_t value = row[i];
      x += gx;
      y += gy;
      xx += gx * gx;
      xy += gx * gy;
      yy += gy * gy;
      v += value;
      vv += value * value;
    }
    total->x += x;
    total->y += y;
    total->xx += xx;
    total->xy += xy;
    total->yy += yy;
    total->v += v;
    total->vv += vv;
  }
}
constexpr CpuRow<gradientBody> kGradients;

Gradients gradientSums(const Image& image, int32_t left, int32_t top, int32_t size) {
  Gradients total;
  kGradients(&total, imageRow(&image, top) + left, image.pitch0, size);
  return total;
}

// What noise adds to both eigenvalues.
double noiseEigenvalue(const Block& block, double noise) {
  return 0.5 * block.size * block.size * noise;
}

// The least that counts as structure.
double leastEigenvalue(const Block& block, double noisy) {
  return std::max(kLeastStructure * block.size * block.size, kLeastSignal * noisy);
}

Block makeBlock(const Image& image, int32_t left, int32_t top, int32_t size, const NoiseCurve& noise) {
  const Gradients g = gradientSums(image, left, top, size);
  const double n = size * size;
  Block block = {};
  block.left = left;
  block.top = top;
  block.size = size;
  const double x = 0.5 * static_cast<double>(g.x);
  const double y = 0.5 * static_cast<double>(g.y);
  block.gradientX = x;
  block.gradientY = y;
  const double v = static_cast<double>(g.v);
  block.variance = (static_cast<double>(g.vv) - v * v / n) / n;
  block.noise = noise.at(static_cast<int32_t>(g.v / (size * size)));
  const double xx = 0.25 * static_cast<double>(g.xx) - x * x / n;
  const double xy = 0.25 * static_cast<double>(g.xy) - x * y / n;
  const double yy = 0.25 * static_cast<double>(g.yy) - y * y / n;
  const double half = 0.5 * (xx - yy);
  const double square = half * half + xy * xy;
  const double root = square > 0.0 ? RawDouble_sqrt(square) : 0.0;
  // The axis (xy, larger - xx), or (larger - yy, xy): the longer of the two.
  const double ax = half > 0.0 ? half + root : xy;
  const double ay = half > 0.0 ? xy : root - half;
  const double length = ax * ax + ay * ay;
  const double scale = length > 0.0 ? 1.0 / RawDouble_sqrt(length) : 0.0;
  block.cosine = scale > 0.0 ? ax * scale : 1.0;
  block.sine = ay * scale;
  const double noisy = noiseEigenvalue(block, block.noise);
  const double least = leastEigenvalue(block, noisy);
  const double middle = 0.5 * (xx + yy) - noisy;
  block.along = middle + root > least ? middle + root : 0.0;
  block.across = middle - root > least ? middle - root : 0.0;
  return block;
}

// Blocks of a size, at most so many cells in each direction.
int32_t chooseOfSize(Block* blocks, const Image& level, const NoiseCurve& noise, int32_t size, int32_t cells) {
  if (level.width < size + 2 || level.height < size + 2) return 0;
  const int32_t across = std::clamp(level.width / size, 1, cells);
  const int32_t down = std::clamp(level.height / size, 1, cells);
  int32_t count = 0;
  for (int32_t j = 0; j < down; ++j) {
    for (int32_t i = 0; i < across; ++i) {
      const int32_t left = i * level.width / across;
      const int32_t top = j * level.height / down;
      const int32_t spareX = (i + 1) * level.width / across - left - size;
      const int32_t spareY = (j + 1) * level.height / down - top - size;
      Block best = {};
      const int32_t placesX = spareX > size / 4 ? 3 : 1;
      const int32_t placesY = spareY > size / 4 ? 3 : 1;
      for (int32_t k = 0; k < placesX * placesY; ++k) {
        const int32_t x = left + (placesX == 1 ? spareX / 2 : (k % placesX) * spareX / 2);
        const int32_t y = top + (placesY == 1 ? spareY / 2 : (k / placesX) * spareY / 2);
        const Block block = makeBlock(level, std::clamp(x, 1, level.width - size - 1),
                                      std::clamp(y, 1, level.height - size - 1), size, noise);
        if (block.across > best.across || (best.across == 0.0 && block.along > best.along)) best = block;
      }
      if (best.along > 0.0) blocks[count++] = best;
    }
  }
  return count;
}

}  // namespace

int32_t chooseBlocks(Block* blocks, const Image& level, const NoiseCurve& noise) {
  const int32_t side = std::max(level.width, level.height);
  return chooseOfSize(blocks, level, noise, side >= 900 ? 32 : side >= 150 ? 24 : 16, kMostCells);
}

int32_t chooseSmallBlocks(Block* blocks, const Image& level, const NoiseCurve& noise) {
  return chooseOfSize(blocks, level, noise, kSmallBlock, kMostSmallCells);
}

BlockShift trackBlock(const Block& block, const Image& base, const Image& frame, const Mvec8Real& motion,
                      int32_t rounds, double reach) {
  constexpr double kUnit = 65536.0;
  const double* h = motion.h;
  const double cx = block.left + block.centre();
  const double cy = block.top + block.centre();
  const double w = h[6] * cx + h[7] * cy + h[8];
  const double u = (h[0] * cx + h[1] * cy + h[2]) / w;
  const double v = (h[3] * cx + h[4] * cy + h[5]) / w;
  // The derivative of the motion there.
  const double jacobian[4] = {(h[0] - u * h[6]) / w, (h[1] - u * h[7]) / w, (h[3] - v * h[6]) / w,
                              (h[4] - v * h[7]) / w};
  int32_t step[4];
  for (int32_t i = 0; i < 4; ++i) step[i] = truncToInt32(jacobian[i] * kUnit + 32768.5) - 32768;

  BlockShift shift = {0.0, 0.0, 0.0, false};
  const double n = block.size * block.size;
  const int32_t last = block.size - 1;
  Window window;
  fillWindow(&window, base, block.left, block.top, block.size);
  for (int32_t round = 0; round < rounds; ++round) {
    const double fromX = u + shift.x - block.centre() * (step[0] + step[1]) / kUnit;
    const double fromY = v + shift.y - block.centre() * (step[2] + step[3]) / kUnit;
    if (!(fromX > -8192.0 && fromX < 24576.0 && fromY > -8192.0 && fromY < 24576.0)) return shift;
    const int32_t x0 = truncToInt32(fromX * kUnit + 128.0);
    const int32_t y0 = truncToInt32(fromY * kUnit + 128.0);
    for (int32_t corner = 0; corner < 4; ++corner) {
      const int32_t i = corner % 2 * last;
      const int32_t j = corner / 2 * last;
      const int32_t x = (x0 + i * step[0] + j * step[1]) >> 16;
      const int32_t y = (y0 + i * step[2] + j * step[3]) >> 16;
      if (x < 0 || y < 0 || x > frame.width - 2 || y > frame.height - 2) return shift;
    }
    const WindowSums s = residualSums(window, frame, x0, y0, step);
    const double r = static_cast<double>(s.r) / 16.0;
    const double bx = static_cast<double>(s.rx) / 32.0 - block.gradientX * r / n;
    const double by = static_cast<double>(s.ry) / 32.0 - block.gradientY * r / n;
    const double b1 = block.cosine * bx + block.sine * by;
    const double b2 = block.cosine * by - block.sine * bx;
    const double d1 = b1 / block.along;
    const double d2 = block.across > 0.0 ? b2 / block.across : 0.0;
    const double dx = block.cosine * d1 - block.sine * d2;
    const double dy = block.sine * d1 + block.cosine * d2;
    shift.x -= jacobian[0] * dx + jacobian[1] * dy;
    shift.y -= jacobian[2] * dx + jacobian[3] * dy;
    const double rr = static_cast<double>(s.rr) / 256.0 - r * r / n;
    const double rest = rr - (b1 * d1 + b2 * d2);  // what the step will leave, as far as the gradient goes
    shift.residual = (rest > 0.0 ? rest : 0.0) / n;
    if (!(shift.x * shift.x + shift.y * shift.y <= reach * reach)) return shift;
  }
  shift.good = true;
  return shift;
}

void shiftVariances(double* along, double* across, const Block& block, const BlockShift& shift) {
  const double residual = shift.residual + kQuantisation;
  const double promised = noiseEigenvalue(block, block.noise);
  const double noisy = std::max(promised, noiseEigenvalue(block, kNoiseOfResidual * shift.residual));
  const double least = leastEigenvalue(block, noisy);
  const auto variance = [&](double eigenvalue) {
    const double a = eigenvalue + promised - noisy;
    return eigenvalue > 0.0 && a > least ? residual * (a + noisy) / (a * a) : -1.0;
  };
  *along = variance(block.along);
  *across = variance(block.across);
}

}  // namespace fine
