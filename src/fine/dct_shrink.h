// Denoising and sharpening of a plane in overlapping blocks of 8x8 pixels, by their cosine transform.
//
// Blocks stand at every fourth pixel in both directions, so that four of them cover each pixel; each is transformed
// (orthonormal DCT of type 2), every coefficient c but the mean is shrunk by its noise and amplified, transformed back,
// and the four results are summed under a window that adds up to one:
//   c' = gain (u, v) x c x clamp((m - 1.3) / 0.94, 0, 1),
// m being the mean of |c| / noise over the 5x5 coefficients around (edges repeated, the block's mean left out), and to
// three tenths that of the blocks at both sides. Pure noise has 0.8 there, whatever its single coefficients are; lines
// and texture have many large coefficients together, so that the small ones among them stay.
// Published: Yaroslavsky, Egiazarian, Astola, "Transform domain image restoration methods", 2001; Yu and Sapiro, "DCT
// image denoising", 2011. Coefficients that are judged with their neighbours: Cai and Silverman, "Incorporating
// information on neighbouring coefficients into wavelet estimation", 2001.
//
// Samples are 8 (s - 128) in 16 bits, between the passes too; products are rounded to nearest. Lanes run over blocks of
// a row of blocks, so that every loop is over contiguous 16-bit values.
#ifndef ZVT4_FINE_DCT_SHRINK_H_
#define ZVT4_FINE_DCT_SHRINK_H_

#include <cstddef>
#include <cstdint>

namespace fine {

inline constexpr int32_t kDctPad = 4;  // samples of padding at the left; rows of it above and below a band

struct ShrinkTable {
  int16_t noise;       // 2048 x the noise of a coefficient with even = 1 by sigma; 0: nothing is shrunk
  int16_t even[8][8];  // 32768 x what makes the noise of all coefficients the same, at most 32767
  int16_t gain[8][8];  // 32768 x (gain - 1); the mean stays as it is
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
