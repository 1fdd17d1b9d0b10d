#include "fine/align.h"

#include <algorithm>

#include "base/raw_double.h"

namespace fine {
namespace {

constexpr double kFloor = 0.12;         // standard deviation of a block's position that no structure lowers, in pixels
constexpr double kScale = 3.0;          // k of the robust weight
constexpr double kPrior = 0.02;         // of shears and perspective on the coarse levels
constexpr double kQuantisation = 0.17;  // variance of a difference of two bytes

Mvec8Real fullMotion(const Mvec8Real& motion, int32_t level) {
  const double s = static_cast<double>(1 << level);
  const double c = 0.5 * (s - 1.0);
  const Mvec8Real up = {{s, 0, c, 0, s, c, 0, 0, 1}, {}};
  const Mvec8Real down = {{1 / s, 0, -c / s, 0, 1 / s, -c / s, 0, 0, 1}, {}};
  Mvec8Real out;
  Mvec8Real_mult(&out, &motion, &down);
  Mvec8Real_mult(&out, &up, &out);
  const double h8 = out.h[8];
  for (double& h : out.h) h /= h8;
  return out;
}

// Tracks the blocks of a level and fits. False when too few were found.
bool refine(Mvec8Real* motion, const AlignBase& base, const Pyramid& frame, int32_t k, int32_t rounds, double reach,
            double anneal, Match* matches, FitQuality* quality) {
  const Image& from = base.pyramid->level[k];
  int32_t found = 0;
  for (int32_t i = 0; i < base.count[k]; ++i) {
    const Block& block = base.blocks[k][i];
    const BlockShift shift = trackBlock(block, from, frame.level[k], *motion, rounds, reach);
    if (!shift.good) continue;
    Match& match = matches[found++];
    match.x = block.left + block.centre();
    match.y = block.top + block.centre();
    Mvec8Real_trans2DReal(motion, &match.u, &match.v, match.x, match.y);
    match.u += shift.x;
    match.v += shift.y;
    setInformation(&match, block.xx, block.xy, block.yy, shift.residual + kQuantisation, kFloor);
  }
  *quality = {0.0, 1e9, 1e9};
  if (found < 8) return false;
  if (!fitHomography(motion, matches, found, from.width, from.height, kScale, anneal, kPrior, quality)) return false;
  quality->inliers *= static_cast<double>(found) / base.count[k];
  return true;
}

// Share of the blocks' variance that is left when the frame is laid over the base.
double unexplainedShare(const AlignBase& base, const Pyramid& frame, int32_t k, const Mvec8Real& motion) {
  double left = 0.0, all = 0.0;
  for (int32_t i = 0; i < base.count[k]; ++i) {
    const Block& block = base.blocks[k][i];
    // One round that may not move: its residual is that of the motion itself, less what a small shift would explain.
    const BlockShift shift = trackBlock(block, base.pyramid->level[k], frame.level[k], motion, 1, 1.0);
    const double v = std::min(block.variance, 400.0);  // a few strong edges shall not speak for the picture
    const double share = shift.good ? std::min(1.0, shift.residual / block.variance) : 1.0;
    left += v * share;
    all += v;
  }
  return all > 0.0 ? left / all : 1.0;
}

bool isHandMotion(const Mvec8Real& motion, int32_t width, int32_t height) {
  const double* h = motion.h;
  const double area = h[0] * h[4] - h[1] * h[3];
  if (!(area > 0.8 && area < 1.25)) return false;
  const double most = 0.25 * std::max(width, height);
  for (int32_t corner = 0; corner < 4; ++corner) {
    const double x = corner % 2 * (width - 1);
    const double y = corner / 2 * (height - 1);
    const double w = h[6] * x + h[7] * y + h[8];
    if (!(w > 0.8 && w < 1.25)) return false;
    const double dx = (h[0] * x + h[1] * y + h[2]) / w - x;
    const double dy = (h[3] * x + h[4] * y + h[5]) / w - y;
    if (!(dx * dx + dy * dy < most * most)) return false;
  }
  return true;
}

}  // namespace

void prepareBase(AlignBase* base, const Pyramid* pyramid, Block* blocks, CoarseBase* coarse) {
  base->pyramid = pyramid;
  base->coarse = coarse;
  base->finest = 0;
  while (base->finest + 1 < pyramid->count &&
         std::max(pyramid->level[base->finest].width, pyramid->level[base->finest].height) > kFinestSide) {
    ++base->finest;
  }
  for (int32_t k = base->finest; k < pyramid->count; ++k) {
    base->blocks[k] = blocks + static_cast<ptrdiff_t>(k) * kMostBlocks;
    base->count[k] = chooseBlocks(base->blocks[k], pyramid->level[k]);
  }
  prepareCoarseBase(coarse, pyramid->level[pyramid->count - 1]);
}

void alignFrame(Alignment* out, const AlignBase& base, const Pyramid& frame, const Mvec8Real* proposals,
                int32_t proposalCount, Match* scratch) {
  const int32_t coarsest = base.pyramid->count - 1;
  const int32_t judge = coarsest - 1;
  *out = {};
  Mvec8Real_setIdentity(&out->motion);
  out->unexplained = 1.0;

  Mvec8Real candidates[kCandidates + 8];
  int32_t count = searchCoarse(candidates, *base.coarse, frame.level[coarsest]);
  Mvec8Real_setIdentity(&candidates[count++]);
  for (int32_t i = 0; i < proposalCount && i < 7; ++i) candidates[count++] = levelMotion(proposals[i], coarsest);

  Mvec8Real best;
  double bestShare = 2.0;
  for (int32_t i = 0; i < count; ++i) {
    Mvec8Real motion = candidates[i];
    FitQuality quality;
    for (int32_t k = coarsest; k >= judge; --k) {
      if (k == judge) motion = levelMotion(fullMotion(motion, coarsest), judge);
      refine(&motion, base, frame, k, 3, 4.0, 3.0, scratch, &quality);
      refine(&motion, base, frame, k, 3, 3.0, 1.5, scratch, &quality);
    }
    const double share = unexplainedShare(base, frame, judge, motion);
    if (share < bestShare) {
      bestShare = share;
      best = fullMotion(motion, judge);
    }
  }
  bool fitted = bestShare < 1.0;
  for (int32_t k = judge - 1; k >= base.finest && fitted; --k) {
    Mvec8Real motion = levelMotion(best, k);
    fitted = refine(&motion, base, frame, k, 3, 4.0, 2.0, scratch, &out->quality);
    if (fitted && k == base.finest) fitted = refine(&motion, base, frame, k, 2, 2.0, 1.0, scratch, &out->quality);
    best = fullMotion(motion, k);
  }
  if (!fitted) {
    out->verdict = FEW_BLOCKS;
    return;
  }
  out->motion = best;
  const int32_t check = std::min(judge, std::max(kMapLevel, base.finest));
  out->unexplained = unexplainedShare(base, frame, check, levelMotion(best, check));
  if (out->quality.inliers < 0.3) out->verdict |= NO_AGREEMENT;
  if (out->quality.cornerSigma * (1 << base.finest) > 0.3 * (1 << base.finest)) out->verdict |= NOT_DETERMINED;
  if (out->unexplained > 0.6) out->verdict |= NOT_EXPLAINED;
  if (!isHandMotion(best, base.pyramid->level[0].width, base.pyramid->level[0].height)) out->verdict |= TOO_FAR;
}

}  // namespace fine
