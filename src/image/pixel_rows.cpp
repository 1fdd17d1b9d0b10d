#include "image/pixel_rows.h"

#include "base/integer.h"
#include "image/image_conv.h"

namespace {

struct Yuv {
  int32_t y;
  int32_t u;
  int32_t v;
};

void writeRgb(const Yuv& p, uint8_t* rgb) {
  const int32_t u = p.u - 128;
  const int32_t v = p.v - 128;
  rgb[0] = clampByte(p.y + ((45941 * v) >> 15));
  rgb[1] = clampByte(p.y - ((11272 * u + 23396 * v) >> 15));
  rgb[2] = clampByte(p.y + ((58065 * u) >> 15));
}

// Where the samples of a YUV pixel lie.
struct Samples {
  uint8_t* y;
  uint8_t* u;
  uint8_t* v;
};

Samples samplesAt(const Image* image, int32_t x, int32_t y) {
  const int32_t format = image->format;
  if (Image_isYuv422Interleaved(format) != 0) {
    int32_t y0, y1, u, v;
    ImageYuv422Interleaved_getYuvIndex(&y0, &y1, &u, &v, format);
    uint8_t* group = imageRow(image, y) + x / 2 * 4;
    return {group + ((x & 1) != 0 ? y1 : y0), group + u, group + v};
  }
  if (Image_isYuv444Interleaved(format) != 0) {
    int32_t py, pu, pv;
    ImageYuv444Interleaved_getYuvIndex(&py, &pu, &pv, format);
    uint8_t* pixel = imageRow(image, y) + 3 * x;
    return {pixel + py, pixel + pu, pixel + pv};
  }
  const ImagePlaneDescriptor& chroma = imageFormatDescriptor(format).planes[1];
  const int32_t cx = x >> chroma.shiftX;
  const int32_t cy = y >> chroma.shiftY;
  uint8_t* first = imageChromaRow(image, cy);
  if (image->plane2 != nullptr) {
    return {imageRow(image, y) + x, first + cx, image->plane2 + static_cast<ptrdiff_t>(cy) * image->pitch2 + cx};
  }
  const int32_t uByte = Image_isYvuSemiplanar(format) != 0 ? 1 : 0;
  return {imageRow(image, y) + x, first + 2 * cx + uByte, first + 2 * cx + 1 - uByte};
}

void readYuv(const Image* src, int32_t x, int32_t y, int32_t n, uint8_t* rgb) {
  for (int32_t i = 0; i < n; ++i) {
    const Samples s = samplesAt(src, x + i, y);
    writeRgb({*s.y, *s.u, *s.v}, rgb + 3 * i);
  }
}

void writeChroma(const Samples& s, const uint8_t* p, const uint8_t* q) {
  const int32_t r2 = p[0] + q[0];
  const int32_t g2 = p[1] + q[1];
  const int32_t b2 = p[2] + q[2];
  *s.u = static_cast<uint8_t>(clampInt((-5538 * r2 - 10846 * g2 + 16384 * b2) >> 16, -128, 127) + 128);
  *s.v = static_cast<uint8_t>(clampInt((16384 * r2 - 13730 * g2 - 2654 * b2) >> 16, -128, 127) + 128);
}

void writeLuma(Image* dst, int32_t x, int32_t y, int32_t n, const uint8_t* rgb) {
  for (int32_t i = 0; i < n; ++i) *samplesAt(dst, x + i, y).y = lumaOfRgb(rgb + 3 * i);
}

void writeYuv444(Image* dst, int32_t x, int32_t y, int32_t n, const uint8_t* rgb) {
  writeLuma(dst, x, y, n, rgb);
  for (int32_t i = 0; i < n; ++i) writeChroma(samplesAt(dst, x + i, y), rgb + 3 * i, rgb + 3 * i);
}

void writePairs(Image* dst, int32_t x, int32_t y, int32_t n, const uint8_t* rgb) {
  if (imageFormatDescriptor(dst->format).planes[1].shiftY != 0 && (y & 1) != 0) return;
  for (int32_t i = 0; i < n; i += 2) {
    const uint8_t* p = rgb + 3 * i;
    writeChroma(samplesAt(dst, x + i, y), p, i + 1 < n ? p + 3 : p);
  }
}

void readRgb565(const Image* src, int32_t x, int32_t y, int32_t n, uint8_t* rgb) {
  const uint16_t* row = imageRow<const uint16_t>(src, y) + x;
  for (int32_t i = 0; i < n; ++i) {
    const uint32_t v = row[i];
    rgb[3 * i] = static_cast<uint8_t>((v >> 8) & 248);
    rgb[3 * i + 1] = static_cast<uint8_t>((v >> 3) & 252);
    rgb[3 * i + 2] = static_cast<uint8_t>(v << 3);
  }
}

void writeRgb565(Image* dst, int32_t x, int32_t y, int32_t n, const uint8_t* rgb) {
  uint16_t* row = imageRow<uint16_t>(dst, y) + x;
  for (int32_t i = 0; i < n; ++i) {
    const uint8_t* p = rgb + 3 * i;
    row[i] = static_cast<uint16_t>((p[0] >> 3) << 11 | (p[1] >> 2) << 5 | p[2] >> 3);
  }
}

void readRgb888(const Image* src, int32_t x, int32_t y, int32_t n, uint8_t* rgb) {
  const uint8_t* row = imageRow(src, y) + 3 * x;
  const int32_t red = src->format == IMAGE_RGB888 ? 0 : 2;
  for (int32_t i = 0; i < n; ++i) {
    rgb[3 * i] = row[3 * i + red];
    rgb[3 * i + 1] = row[3 * i + 1];
    rgb[3 * i + 2] = row[3 * i + 2 - red];
  }
}

void writeRgb888(Image* dst, int32_t x, int32_t y, int32_t n, const uint8_t* rgb) {
  uint8_t* row = imageRow(dst, y) + 3 * x;
  const int32_t red = dst->format == IMAGE_RGB888 ? 0 : 2;
  for (int32_t i = 0; i < n; ++i) {
    row[3 * i + red] = rgb[3 * i];
    row[3 * i + 1] = rgb[3 * i + 1];
    row[3 * i + 2 - red] = rgb[3 * i + 2];
  }
}

void writeRgb161616(Image* dst, int32_t x, int32_t y, int32_t n, const uint8_t* rgb) {
  uint16_t* row = imageRow<uint16_t>(dst, y) + 3 * x;
  for (int32_t i = 0; i < 3 * n; ++i) row[i] = rgb[i];
}

void read8888(const Image* src, int32_t x, int32_t y, int32_t n, uint8_t* rgb) {
  int32_t r, g, b, a;
  ImageUint8888_getUint8888Index(&r, &g, &b, &a, src->format);
  const uint8_t* row = imageRow(src, y) + 4 * x;
  for (int32_t i = 0; i < n; ++i) {
    rgb[3 * i] = row[4 * i + r];
    rgb[3 * i + 1] = row[4 * i + g];
    rgb[3 * i + 2] = row[4 * i + b];
  }
}

void write8888(Image* dst, int32_t x, int32_t y, int32_t n, const uint8_t* rgb) {
  int32_t r, g, b, a;
  ImageUint8888_getUint8888Index(&r, &g, &b, &a, dst->format);
  uint8_t* row = imageRow(dst, y) + 4 * x;
  for (int32_t i = 0; i < n; ++i) {
    row[4 * i + r] = rgb[3 * i];
    row[4 * i + g] = rgb[3 * i + 1];
    row[4 * i + b] = rgb[3 * i + 2];
    row[4 * i + a] = 255;
  }
}

bool isBayer(int32_t format) {
  return format >= IMAGE_BAYER8_RGGB && format < IMAGE_UINT8;
}

// Bits of a sample beyond 8, in the formats of two bytes a sample.
int32_t extraBits(int32_t format) {
  return Image_isBayer10Unpacked(format) != 0 ? 2 : Image_isBayer12Unpacked(format) != 0 ? 4 : 8;
}

// 0 red, 1 green, 2 blue: patterns RGGB, GRBG, GBRG, BGGR.
int32_t colourAt(int32_t format, int32_t x, int32_t y) {
  const int32_t pattern = (format - IMAGE_BAYER8_RGGB) & 3;
  return ((x ^ pattern) & 1) + ((y ^ (pattern >> 1)) & 1);
}

int32_t mirrored(int32_t i, int32_t size) {
  if (size == 1) return 0;
  return i < 0 ? -i : i >= size ? 2 * size - 2 - i : i;
}

void readBayer(const Image* src, int32_t x, int32_t y, int32_t n, uint8_t* rgb) {
  for (int32_t i = 0; i < n; ++i) {
    int32_t sums[3] = {};
    int32_t counts[3] = {};
    const int32_t own = colourAt(src->format, x + i, y);
    for (int32_t dy = -1; dy <= 1; ++dy) {
      for (int32_t dx = -1; dx <= 1; ++dx) {
        const int32_t colour = colourAt(src->format, x + i + dx, y + dy);
        if (colour == own && (dx != 0 || dy != 0)) continue;  // its own sample is exact
        sums[colour] += bayerSample(src, mirrored(x + i + dx, src->width), mirrored(y + dy, src->height));
        ++counts[colour];
      }
    }
    for (int32_t c = 0; c < 3; ++c) rgb[3 * i + c] = static_cast<uint8_t>((sums[c] + counts[c] / 2) / counts[c]);
  }
}

void writeBayer(Image* dst, int32_t x, int32_t y, int32_t n, const uint8_t* rgb) {
  for (int32_t i = 0; i < n; ++i) {
    const uint8_t value = rgb[3 * i + colourAt(dst->format, x + i, y)];
    if (Image_isBayer8(dst->format) != 0) {
      imageRow(dst, y)[x + i] = value;
    } else {
      imageRow<uint16_t>(dst, y)[x + i] = static_cast<uint16_t>(value << extraBits(dst->format));
    }
  }
}

}  // namespace

uint8_t lumaOfRgb(const uint8_t* rgb) {
  const int32_t sum = 9798 * rgb[0] + 19235 * rgb[1] + 3735 * rgb[2];
  return sum >= 0x7F8000 ? 255 : static_cast<uint8_t>(sum >> 15);
}

uint8_t bayerSample(const Image* src, int32_t x, int32_t y) {
  if (Image_isBayer8(src->format) != 0) return imageRow(src, y)[x];
  if (Image_isBayer10M8L2Packed(src->format) != 0) return imageRow(src, y)[x / 4 * 5 + x % 4];
  const int32_t value = imageRow<const uint16_t>(src, y)[x] >> extraBits(src->format);
  return static_cast<uint8_t>(value < 255 ? value : 255);
}

ReadRgbRow readerOf(int32_t format) {
  if (format == IMAGE_RGB565) return readRgb565;
  if (format == IMAGE_RGB888 || format == IMAGE_BGR888) return readRgb888;
  if (Image_isUint8888(format) != 0) return read8888;
  if (Image_isYuv(format) != 0) return readYuv;
  return isBayer(format) ? readBayer : nullptr;
}

RgbWriter writerOf(int32_t format) {
  if (format == IMAGE_RGB565) return {writeRgb565, nullptr};
  if (format == IMAGE_RGB888 || format == IMAGE_BGR888) return {writeRgb888, nullptr};
  if (format == IMAGE_RGB161616) return {writeRgb161616, nullptr};
  if (Image_isUint8888(format) != 0) return {write8888, nullptr};
  if (Image_isYuv444(format) != 0) return {writeYuv444, nullptr};
  if (Image_isYuv(format) != 0) return {writeLuma, writePairs};
  if (isBayer(format) && Image_isBayer10M8L2Packed(format) == 0) return {writeBayer, nullptr};
  return {nullptr, nullptr};
}
