// Denoising and sharpening of a plane in overlapping blocks of 8x8 pixels, by their cosine transform.
//
// Blocks stand at every fourth pixel in both directions, so that four of them cover each pixel; each is transformed
// (orthonormal DCT of type 2), every coefficient c but the mean is shrunk by its noise and amplified, transformed back,
// and the four results are summed under a window that adds up to one:
//   |c'| = gain (u, v) x min(|c|, max(0, 2 |c| - 2 T)),  T = sigma x threshold(u, v)
// Published: Yaroslavsky, Egiazarian, Astola, "Transform domain image restoration methods", 2001; Yu and Sapiro, "DCT
// image denoising", 2011. The firm shrinkage is that of Gao and Bruce, 1997, with its upper limit at twice the lower.
//
// Samples are 8 (s - 128) in 16 bits, between the passes too; products are rounded to nearest. Lanes run over blocks of
// a row of blocks, so that every loop is over contiguous 16-bit values.
#ifndef ZVT4_FINE_DCT_SHRINK_H_
#define ZVT4_FINE_DCT_SHRINK_H_

#include <cstddef>
#include <cstdint>

namespace fine {

inline constexpr int32_t kDctPad = 4;  // samples of padding at the left; rows of it above and below a band

struct ShrinkTable {        // item [0][0] of both is 0: means stay
  int16_t threshold[8][8];  // 2048 x the threshold by sigma
  int16_t gain[8][8];       // 32768 x (gain - 1)
};

// Row stride of a padded plane: width rounded up to four, and padding on both sides.
constexpr int32_t dctStride(int32_t width) {
  return ((width + 3) & ~3) + 2 * kDctPad;
}
// What the blocks beyond the right edge read behind a plane, and behind a row of sigmas.
inline constexpr int32_t kDctSlack = 160;

// One row of blocks: in is the first of eight padded rows. out: eight padded rows that the results are added to.
// sigma: of each block, 128 x the standard deviation of a pixel; dctStride(width) / 4 - 1 blocks.
void shrinkBlocks(int16_t* out, const int16_t* in, const int16_t* sigma, const ShrinkTable& table, int32_t width);

}  // namespace fine

#endif  // ZVT4_FINE_DCT_SHRINK_H_
