// Where a frame lies, roughly, without a guess: an exhaustive search on the coarsest level of the pyramids.
//
// Both pictures lose their local mean (a box of 17 pixels), so that neither brightness nor a gradient of light counts.
// The base is turned by -3, -1.5, 0, 1.5, 3 degrees and zoomed by -2.5, 0, 2.5 per cent; each form is laid over the
// frame at all shifts of whole pixels up to an eighth of the longer side, and scored by the mean absolute difference of
// what both show. All sums are whole numbers of 32 bits over at most 96 x 96 pixels.
#ifndef ZVT4_FINE_COARSE_SEARCH_H_
#define ZVT4_FINE_COARSE_SEARCH_H_

#include "fine/pyramid.h"

namespace fine {

inline constexpr int32_t kForms = 15;
inline constexpr int32_t kCandidates = 4;

// The base as the search wants it, made once for all frames. Rows of forms stand kCoarsestSide bytes apart.
struct CoarseBase {
  int32_t width;
  int32_t height;
  uint8_t form[kForms][kCoarsestSide * kCoarsestSide];
};

void prepareCoarseBase(CoarseBase* base, const Image& coarsest);

// The best forms, best first, as motions of the coarsest level, base to frame. Returns how many. Two candidates differ
// in their form or by more than two pixels.
int32_t searchCoarse(Mvec8Real* candidates, const CoarseBase& base, const Image& coarsest);

}  // namespace fine

#endif  // ZVT4_FINE_COARSE_SEARCH_H_
