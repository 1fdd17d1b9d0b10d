// Takes back what the ends of the range did to the mean of noise.
//
// Where a place is nearly white, noise is cut off at 255, so that the mean of any number of frames stays too dark, and
// likewise too bright where it is nearly black. For Gaussian noise of deviation s about v = 255 - t s, the share of
// cut samples is c = 1 - F(t), and the mean lies s g(t) below 255, with g(t) = t F(t) + f(t), where F and f are the
// normal distribution and its density (A. Foi, Clipped noisy images: heteroskedastic modeling and practical denoising,
// Signal Processing 89, 2009). Hence v = m + (255 - m)(1 - t / g(t)) for a mean m, and c is seen: how often the base
// stands at 255 where the merge shows m. No model of the noise is needed; as its measured curve bounds s, texture that
// reaches white is not taken for noise, and a picture without noise is left as it is.
#ifndef ZVT4_FINE_UNCLIP_H_
#define ZVT4_FINE_UNCLIP_H_

#include "fine/mesh.h"
#include "fine/noise_curve.h"
#include "parallel/pel.h"

namespace fine {

// How often the merge shows v, and of those, how often the base stands at each end.
struct ClipCounts {
  uint32_t shown[256];
  uint32_t black[256];
  uint32_t white[256];
};

// Of places on a grid. mesh: merged to base.
void countClipped(ClipCounts* counts, const Image& merged, const Image& base, const Mesh& mesh);

// What the merge's levels become; never falls. True if any level changes.
bool fillClipTable(uint8_t table[256], const ClipCounts& counts, const NoiseCurve& noise);

// merged: "UINT8", in place. The same bytes for any number of workers.
Status unclip(Pel* pel, Image* merged, const Image& base, const Mesh& mesh, const NoiseCurve& noise);

}  // namespace fine

#endif  // ZVT4_FINE_UNCLIP_H_
