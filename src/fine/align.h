// The motion of every frame against one base.
//
// For each frame: candidates (identity, the results of the coarse search, and motions that a caller proposes) are
// refined on the coarsest levels and judged there by how much of the base's structure the frame explains; the best goes
// down the pyramid. On each level blocks of the base are tracked (fine/block.h) and a homography is fitted to what they
// found (fine/homography_fit.h), with what the coarser levels found beside it: a soft picture has its structure there,
// and noise of the fine levels hides it. The finest level is the first whose longer side is at most kFinestSide.
//
// A frame is accepted when its blocks agree, agree all over the picture (the fit's own standard deviation at the worst
// corner), and the frame explains the base's structure; a motion that is less than sure must be found again from a
// little beside it, since noise confirms whatever motion its blocks are given. Else verdict says what failed. An
// accepted motion maps full-size pixels of the base to the frame.
#ifndef ZVT4_FINE_ALIGN_H_
#define ZVT4_FINE_ALIGN_H_

#include "fine/block.h"
#include "fine/coarse_search.h"
#include "fine/homography_fit.h"
#include "fine/mesh.h"
#include "fine/pyramid.h"

namespace fine {

inline constexpr int32_t kFinestSide = 2200;

enum Verdict : uint32_t {
  ALIGNED = 0,
  FEW_BLOCKS = 1,      // the base has too little structure, or too few blocks could be tracked
  NO_AGREEMENT = 2,    // too few blocks agree on one motion
  NOT_DETERMINED = 4,  // a corner of the picture is uncertain
  NOT_EXPLAINED = 8,   // the frame does not show what the base shows
  TOO_FAR = 16,        // the motion is not one of a hand
};

struct Alignment {
  Mvec8Real motion;
  uint32_t verdict;
  double unexplained;  // share of the base's structure that the frame does not show, 0 to 1
  FitQuality quality;  // in full-size pixels
  int32_t matches;     // that the finest levels left in the scratch
};

// What is made of the base once.
struct AlignBase {
  const Pyramid* pyramid;
  int32_t finest;
  int32_t count[kMostLevels];
  Block* blocks[kMostLevels];  // kMostBlocks each
  CoarseBase* coarse;
  NoiseCurve noise;  // of the finest level
};

// blocks: room for kMostBlocks x levels. ZELVAN_ERROR_NOMEM.
Status prepareBase(AlignBase* base, Env* env, const Pyramid* pyramid, Block* blocks, CoarseBase* coarse);

// proposals: full-size motions to try, too. scratch: kMostMatches.
inline constexpr int32_t kMostMatches = 3 * kMostBlocks;
void alignFrame(Alignment* out, const AlignBase& base, const Pyramid& frame, const Mvec8Real* proposals,
                int32_t proposalCount, Match* scratch);

// Tracks the blocks of level k from a motion and a field on top of it (may be null), both of full size, and writes what
// is found to out, at most `most`, in full-size pixels. Returns how many. reach: in pixels of the level. unknowing, if
// not null, grows by the blocks whose noise is all they show.
int32_t trackLevel(Match* out, int32_t most, const AlignBase& base, const Pyramid& frame, int32_t k,
                   const Mvec8Real& full, const ShiftField* field, int32_t rounds, double reach,
                   int32_t* unknowing = nullptr);

}  // namespace fine

#endif  // ZVT4_FINE_ALIGN_H_
