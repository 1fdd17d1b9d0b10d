// Runs of pixels of any colour format as 8-bit RGB, and back: what the conversions between families go through.
//
// Colour is full-range BT.601 in Q15. RGB to YUV: Y = (9798 R + 19235 G + 3735 B) >> 15, saturated; U and V from the
// sums of a horizontal pair. YUV to RGB by pixel with arithmetic shifts, clamped. RGB565 widens without copying high
// bits. Bayer mosaics are interpolated from the nearest samples of each colour, mirrored at the borders.
#ifndef ZVT4_IMAGE_PIXEL_ROWS_H_
#define ZVT4_IMAGE_PIXEL_ROWS_H_

#include "image/image.h"

// Pixels (x, y) to (x + n - 1, y) into 3 n bytes.
using ReadRgbRow = void (*)(const Image* src, int32_t x, int32_t y, int32_t n, uint8_t* rgb);
// The reverse.
using WriteRgbRow = void (*)(Image* dst, int32_t x, int32_t y, int32_t n, const uint8_t* rgb);

struct RgbWriter {
  WriteRgbRow pixels;  // what each pixel has for itself
  // Chroma that pixels share, null for formats without: from x on, which is even, a sample per pair. A last pair that
  // the run holds half of takes its one pixel twice. In 4:2:0 even rows give the chroma and odd rows write nothing.
  WriteRgbRow pairs;
};

// Null for formats without colour.
ReadRgbRow readerOf(int32_t format);
RgbWriter writerOf(int32_t format);

// One raw sample of a Bayer format, at 8 bits.
uint8_t bayerSample(const Image* src, int32_t x, int32_t y);
// Luma of an RGB pixel.
uint8_t lumaOfRgb(const uint8_t* rgb);

#endif  // ZVT4_IMAGE_PIXEL_ROWS_H_
