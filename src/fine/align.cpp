#include "fine/align.h"

#include <algorithm>

#include "base/raw_double.h"

namespace fine {
namespace {

constexpr double kFloor = 0.05;      // standard deviation of a block's position that no structure lowers, in pixels
constexpr double kScale = 3.0;       // k of the robust weight
constexpr int32_t kBeside = 3;       // levels above the finest that the last fit hears, too
constexpr double kSureSigma = 0.15;  // above that, in pixels of the finest level, a motion is found a second time
constexpr double kAside = 1.5;       // from so far beside it at the corners by zoom, and by turn
constexpr double kMostAside = 0.6;   // and must come as near
constexpr double kAlike = 0.9;       // the score of a rival by the best one's that leaves doubt
constexpr int32_t kFinalists = 4;
constexpr double kBehind = 0.6;           // a candidate of a score below that share of the best one's is given up
constexpr double kLeastInliers = 0.3;     // depth leaves many blocks off a single homography
constexpr double kMostCornerSigma = 0.5;  // in pixels of the finest level

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

// What was found so far, in full-size pixels.
struct Matches {
  Match* items;
  int32_t count;
  int32_t tried;  // blocks that know something, or would if they were seen
};

void collect(Matches* out, const AlignBase& base, const Pyramid& frame, int32_t k, const Mvec8Real& full,
             int32_t rounds, double reach) {
  out->tried += base.count[k];
  int32_t unknowing = 0;
  out->count += trackLevel(out->items + out->count, kMostMatches - out->count, base, frame, k, full, nullptr, rounds,
                           reach, &unknowing);
  out->tried -= unknowing;
}

bool fit(Mvec8Real* full, const Matches& matches, const AlignBase& base, double anneal, FitQuality* quality) {
  *quality = {0.0, 1e9, 1e9};
  if (matches.count < 8) return false;
  const Image& picture = base.pyramid->level[0];
  if (!fitHomography(full, matches.items, matches.count, picture.width, picture.height, kScale, anneal, quality)) {
    return false;
  }
  quality->inliers *= static_cast<double>(matches.count) / matches.tried;
  return true;
}

// Share of the blocks' variance that is left when the frame is laid over the base.
double unexplainedShare(const AlignBase& base, const Pyramid& frame, int32_t k, const Mvec8Real& motion) {
  double left = 0.0, all = 0.0;
  for (int32_t i = 0; i < base.count[k]; ++i) {
    const Block& block = base.blocks[k][i];
    // One round: its residual is that of the motion itself, less what a small shift would explain, and noise.
    const BlockShift shift = trackBlock(block, base.pyramid->level[k], frame.level[k], motion, 1, 1.0);
    const double structure = block.variance - block.noise;
    if (!(structure > block.noise)) continue;
    const double v = std::min(structure, 400.0);  // a few strong edges shall not speak for the picture
    const double rest = std::max(0.0, shift.residual - 2.0 * block.noise);
    const double share = shift.good ? std::min(1.0, rest / structure) : 1.0;
    left += v * share;
    all += v;
  }
  return all > 0.0 ? left / all : 1.0;
}

struct Candidate {
  Mvec8Real motion;
  double score;  // share of the blocks that agree x share of the structure that is explained
};

double worstCorner(const Mvec8Real& a, const Mvec8Real& b, const Image& picture) {
  double worst = 0.0;
  for (int32_t corner = 0; corner < 4; ++corner) {
    const double x = corner % 2 * (picture.width - 1);
    const double y = corner / 2 * (picture.height - 1);
    double u, v, p, q;
    Mvec8Real_trans2DReal(&a, &u, &v, x, y);
    Mvec8Real_trans2DReal(&b, &p, &q, x, y);
    worst = std::max(worst, (u - p) * (u - p) + (v - q) * (v - q));
  }
  return worst > 0.0 ? RawDouble_sqrt(worst) : 0.0;
}

// Keeps the list sorted, best first; of two that are nearly the same the better one stays.
void addCandidate(Candidate* list, int32_t* count, const Candidate& c, const Image& picture, double near) {
  for (int32_t i = 0; i < *count; ++i) {
    if (worstCorner(list[i].motion, c.motion, picture) > near) continue;
    if (list[i].score >= c.score) return;
    std::copy(list + i + 1, list + *count, list + i);
    --*count;
    break;
  }
  int32_t at = *count;
  while (at > 0 && list[at - 1].score < c.score) --at;
  std::copy_backward(list + at, list + *count, list + *count + 1);
  list[at] = c;
  ++*count;
}

// From a level to the finest; the kBeside levels above it stay beside it.
bool refine(Mvec8Real* motion, const AlignBase& base, const Pyramid& frame, int32_t from, Match* scratch,
            FitQuality* quality, int32_t* count) {
  Matches matches = {scratch, 0, 0};
  for (int32_t k = from; k >= base.finest; --k) {
    if (k >= base.finest + kBeside) matches = {scratch, 0, 0};
    collect(&matches, base, frame, k, *motion, k == base.finest ? 2 : 3, 4.0);
    if (!fit(motion, matches, base, k == base.finest ? 2.5 : 5.0, quality)) return false;
  }
  *count = matches.count;
  return true;
}

// Noise confirms whatever motion its blocks are given, structure does not: from a little beside it the same motion must
// be found again.
bool comesBack(const Mvec8Real& motion, const AlignBase& base, const Pyramid& frame, Match* scratch) {
  const Image& picture = base.pyramid->level[0];
  const double mx = 0.5 * (picture.width - 1);
  const double my = 0.5 * (picture.height - 1);
  const double pixel = 1 << base.finest;
  const double d = kAside * pixel / RawDouble_sqrt(mx * mx + my * my);
  for (const double zoom : {-d, d}) {
    const Mvec8Real aside = {{1 + zoom, -d, d * my - zoom * mx, d, 1 + zoom, -d * mx - zoom * my, 0, 0, 1}, {}};
    Mvec8Real other;
    Mvec8Real_mult(&other, &aside, &motion);
    FitQuality quality;
    int32_t count;
    if (!refine(&other, base, frame, std::min(base.pyramid->count - 1, base.finest + kBeside), scratch, &quality,
                &count) ||
        worstCorner(other, motion, picture) > kMostAside * pixel) {
      return false;
    }
  }
  return true;
}

double score(const Alignment& a) {
  return a.quality.inliers * (1.0 - a.unexplained);
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

int32_t trackLevel(Match* out, int32_t most, const AlignBase& base, const Pyramid& frame, int32_t k,
                   const Mvec8Real& full, const ShiftField* field, int32_t rounds, double reach, int32_t* unknowing) {
  const Image& from = base.pyramid->level[k];
  const Mvec8Real plain = levelMotion(full, k);
  const double s = static_cast<double>(1 << k);
  int32_t count = 0;
  for (int32_t i = 0; i < base.count[k] && count < most; ++i) {
    const Block& block = base.blocks[k][i];
    const double x = block.left + block.centre();
    const double y = block.top + block.centre();
    Match& match = out[count];
    match.x = (x + 0.5) * s - 0.5;
    match.y = (y + 0.5) * s - 0.5;
    Mvec8Real motion = plain;
    if (field != nullptr) {
      const LatticePlace place = latticePlace(*field, match.x, match.y);
      const double shift[2] = {shiftAt(*field, field->x, place) / s, shiftAt(*field, field->y, place) / s};
      for (int32_t e = 0; e < 6; ++e) motion.h[e] += shift[e / 3] * plain.h[6 + e % 3];
    }
    const BlockShift shift = trackBlock(block, from, frame.level[k], motion, rounds, reach);
    if (!shift.good) continue;
    double along, across;
    shiftVariances(&along, &across, block, shift);
    if (!(along > 0.0)) {
      if (unknowing != nullptr) ++*unknowing;
      continue;
    }
    double u, v;
    Mvec8Real_trans2DReal(&motion, &u, &v, x, y);
    match.u = (u + shift.x + 0.5) * s - 0.5;
    match.v = (v + shift.y + 0.5) * s - 0.5;
    const double rounding = kFloor * kFloor;
    setInformation(&match, block.cosine, block.sine, s * s * (along + rounding),
                   across > 0.0 ? s * s * (across + rounding) : -1.0);
    ++count;
  }
  return count;
}

Status prepareBase(AlignBase* base, Env* env, const Pyramid* pyramid, Block* blocks, CoarseBase* coarse) {
  base->pyramid = pyramid;
  base->coarse = coarse;
  base->finest = 0;
  while (base->finest + 1 < pyramid->count &&
         std::max(pyramid->level[base->finest].width, pyramid->level[base->finest].height) > kFinestSide) {
    ++base->finest;
  }
  NoiseCurve noise = {};
  for (int32_t k = base->finest; k < pyramid->count; ++k) {
    // Small levels have too few windows to measure; there the noise of the level below is averaged over 2x2.
    if (k <= kMapLevel) {
      if (const Status s = estimateCurve(&noise, env, pyramid->level[k]); s != ZELVAN_OK) return s;
    } else {
      for (float& variance : noise.variance) variance *= 0.25f;
    }
    if (k == base->finest) base->noise = noise;
    base->blocks[k] = blocks + static_cast<ptrdiff_t>(k) * kMostBlocks;
    base->count[k] = chooseBlocks(base->blocks[k], pyramid->level[k], noise);
  }
  prepareCoarseBase(coarse, pyramid->level[pyramid->count - 1]);
  return ZELVAN_OK;
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
  for (int32_t i = 0; i < count; ++i) candidates[i] = fullMotion(candidates[i], coarsest);
  Mvec8Real_setIdentity(&candidates[count++]);
  for (int32_t i = 0; i < proposalCount && i < 7; ++i) candidates[count++] = proposals[i];

  Candidate tried[kCandidates + 8];
  int32_t left = 0;
  for (int32_t i = 0; i < count; ++i) {
    Candidate c = {candidates[i], 0.0};
    FitQuality quality;
    for (int32_t k = coarsest; k >= judge; --k) {
      for (const double anneal : {7.0, 3.5}) {
        Matches matches = {scratch, 0, 0};
        collect(&matches, base, frame, k, c.motion, 3, 4.0);
        fit(&c.motion, matches, base, anneal, &quality);
      }
    }
    c.score = quality.inliers * (1.0 - unexplainedShare(base, frame, judge, levelMotion(c.motion, judge)));
    addCandidate(tried, &left, c, base.pyramid->level[0], static_cast<double>(2 << judge));
  }
  // Fewer from level to level; the levels above the finest are enough to tell.
  int32_t k = judge - 1;
  for (int32_t most = 3; k >= std::max(base.finest, 1) && left > 1; --k, --most) {
    left = std::min(left, most);
    for (int32_t i = 0; i < left; ++i) {
      Candidate& c = tried[i];
      FitQuality quality;
      Matches matches = {scratch, 0, 0};
      collect(&matches, base, frame, k, c.motion, 3, 4.0);
      fit(&c.motion, matches, base, 5.0, &quality);
      c.score = quality.inliers * (1.0 - unexplainedShare(base, frame, k, levelMotion(c.motion, k)));
    }
    // Two may have come to the same place, and some fall behind.
    Candidate kept[kCandidates + 8];
    int32_t count2 = 0;
    for (int32_t i = 0; i < left; ++i) {
      addCandidate(kept, &count2, tried[i], base.pyramid->level[0], static_cast<double>(2 << k));
    }
    left = 0;
    while (left < count2 && kept[left].score >= kBehind * kept[0].score) {
      tried[left] = kept[left];
      ++left;
    }
  }
  if (left < 1 || !(tried[0].score > 0.0)) {
    out->verdict = FEW_BLOCKS;
    return;
  }
  // Of those that are left the finest levels tell, and proposals have their say there, too; where two places are as
  // good as each other, either may be the right one.
  const int32_t from = std::min(judge - 1, std::max(k, base.finest + kBeside));
  const int32_t check = std::min(judge, std::max(kMapLevel, base.finest));
  Alignment finals[kFinalists];
  int32_t best = -1;
  bool stale = false;  // the scratch holds what another motion left
  count = 0;
  left = std::min(left, 2);
  for (int32_t i = 0; i < std::min(left + proposalCount, kFinalists); ++i) {
    Alignment& a = finals[count];
    a = {};
    a.motion = i < left ? tried[i].motion : proposals[i - left];
    stale = true;
    if (!refine(&a.motion, base, frame, from, scratch, &a.quality, &a.matches)) continue;
    a.unexplained = unexplainedShare(base, frame, check, levelMotion(a.motion, check));
    if (best < 0 || score(a) > score(finals[best])) {
      best = count;
      stale = false;
    }
    ++count;
  }
  if (best < 0 || !(score(finals[best]) > 0.0)) {
    out->verdict = FEW_BLOCKS;
    return;
  }
  *out = finals[best];
  for (int32_t i = 0; i < count; ++i) {
    const bool elsewhere = worstCorner(finals[i].motion, out->motion, base.pyramid->level[0]) > 2 << base.finest;
    if (elsewhere && score(finals[i]) > kAlike * score(*out)) out->verdict |= NOT_DETERMINED;
  }
  if (out->quality.inliers < kLeastInliers) out->verdict |= NO_AGREEMENT;
  if (out->quality.cornerSigma > kMostCornerSigma * (1 << base.finest)) out->verdict |= NOT_DETERMINED;
  if (out->unexplained > 0.6) out->verdict |= NOT_EXPLAINED;
  if (out->verdict == ALIGNED && out->quality.cornerSigma > kSureSigma * (1 << base.finest)) {
    if (!comesBack(out->motion, base, frame, scratch)) out->verdict |= NOT_DETERMINED;
    stale = true;
  }
  if (stale && out->verdict == ALIGNED) {  // the matches that a caller may ask for are those of the motion again
    FitQuality again;
    Mvec8Real same = out->motion;
    refine(&same, base, frame, from, scratch, &again, &out->matches);
  }
  if (!isHandMotion(out->motion, base.pyramid->level[0].width, base.pyramid->level[0].height)) out->verdict |= TOO_FAR;
}

}  // namespace fine
