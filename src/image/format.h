// The 68 pixel formats: ids, names and layout descriptors.
#ifndef ZVT4_IMAGE_FORMAT_H_
#define ZVT4_IMAGE_FORMAT_H_

#include <cstdint>

#include "base/export.h"

// The values are the public ids; the names without IMAGE_ are the vocabulary that callers choose formats with.
// 4 to 15 are all orders of the colour channels in memory, alpha last or first. UINT88 is a pair of bytes a pixel, for
// interleaved chroma. BAYER10_M8L2PACKED holds 4 pixels in 5 bytes. LAB takes 12 bytes a pixel.
enum ImageFormat : int32_t {
  IMAGE_NONE = 0,
  IMAGE_RGB565 = 1,
  IMAGE_RGB888 = 2,
  IMAGE_BGR888 = 3,
  IMAGE_BGRA8888 = 4,
  IMAGE_BRGA8888 = 5,
  IMAGE_GBRA8888 = 6,
  IMAGE_GRBA8888 = 7,
  IMAGE_RBGA8888 = 8,
  IMAGE_RGBA8888 = 9,
  IMAGE_ABGR8888 = 10,
  IMAGE_ABRG8888 = 11,
  IMAGE_AGBR8888 = 12,
  IMAGE_AGRB8888 = 13,
  IMAGE_ARBG8888 = 14,
  IMAGE_ARGB8888 = 15,
  IMAGE_YUV422_YUYV = 16,
  IMAGE_YUV422_YVYU = 17,
  IMAGE_YUV422_YYUV = 18,
  IMAGE_YUV422_YYVU = 19,
  IMAGE_YUV422_VYUY = 20,
  IMAGE_YUV422_UYVY = 21,
  IMAGE_YUV422_VUYY = 22,
  IMAGE_YUV422_UVYY = 23,
  IMAGE_YUV422_PLANAR = 24,
  IMAGE_YUV422_SEMIPLANAR = 25,
  IMAGE_YUV420_PLANAR = 26,
  IMAGE_YUV420_SEMIPLANAR = 27,
  IMAGE_YVU422_SEMIPLANAR = 28,
  IMAGE_YVU420_SEMIPLANAR = 29,
  IMAGE_YUV444_YUV = 30,
  IMAGE_YUV444_YVU = 31,
  IMAGE_YUV444_UYV = 32,
  IMAGE_YUV444_VYU = 33,
  IMAGE_YUV444_UVY = 34,
  IMAGE_YUV444_VUY = 35,
  IMAGE_YUV444_PLANAR = 36,
  IMAGE_BAYER8_RGGB = 37,
  IMAGE_BAYER8_GRBG = 38,
  IMAGE_BAYER8_GBRG = 39,
  IMAGE_BAYER8_BGGR = 40,
  IMAGE_BAYER10_UNPACKED_RGGB = 41,
  IMAGE_BAYER10_UNPACKED_GRBG = 42,
  IMAGE_BAYER10_UNPACKED_GBRG = 43,
  IMAGE_BAYER10_UNPACKED_BGGR = 44,
  IMAGE_BAYER10_M8L2PACKED_RGGB = 45,
  IMAGE_BAYER10_M8L2PACKED_GRBG = 46,
  IMAGE_BAYER10_M8L2PACKED_GBRG = 47,
  IMAGE_BAYER10_M8L2PACKED_BGGR = 48,
  IMAGE_BAYER12_UNPACKED_RGGB = 49,
  IMAGE_BAYER12_UNPACKED_GRBG = 50,
  IMAGE_BAYER12_UNPACKED_GBRG = 51,
  IMAGE_BAYER12_UNPACKED_BGGR = 52,
  IMAGE_BAYER16_RGGB = 53,
  IMAGE_BAYER16_GRBG = 54,
  IMAGE_BAYER16_GBRG = 55,
  IMAGE_BAYER16_BGGR = 56,
  IMAGE_UINT8 = 57,
  IMAGE_INT32 = 58,
  IMAGE_HSV = 59,
  IMAGE_LAB = 60,
  IMAGE_UINT16 = 61,
  IMAGE_RGB161616 = 62,
  IMAGE_FLOAT = 63,
  IMAGE_UINT88 = 64,
  IMAGE_INT16 = 65,
  IMAGE_YUV9_44_UV = 66,
  IMAGE_YUV9_44_VU = 67,
  IMAGE_FORMAT_COUNT = 68,
};

// Layout of one plane: units of 2^SX pixels across, B bytes each, and of 2^SY pixels down, R rows each.
struct ImagePlaneDescriptor {
  uint8_t bytes;   // B; 0: the format has no such plane
  uint8_t shiftX;  // SX
  uint8_t rows;    // R
  uint8_t shiftY;  // SY
};

struct ImageFormatDescriptor {
  ImagePlaneDescriptor planes[3];
  uint8_t reserved0;
  uint8_t alignX;  // AX, log2 of the width alignment
  uint8_t reserved1;
  uint8_t alignY;  // AY
};
static_assert(sizeof(ImageFormatDescriptor) == 16);

// Row of the table; format must lie in 0 to 67.
const ImageFormatDescriptor& imageFormatDescriptor(int32_t format);

// Formats are 32-bit words that callers may fill with anything.
constexpr bool isImageFormat(int32_t format) {
  return static_cast<uint32_t>(format) < IMAGE_FORMAT_COUNT;
}

// The two formats with one plane of chroma pairs for 2x2 pixels.
constexpr bool isSemiplanar420(int32_t format) {
  return format == IMAGE_YUV420_SEMIPLANAR || format == IMAGE_YVU420_SEMIPLANAR;
}

// Planes that a format has; one for every format without chroma planes, IMAGE_NONE too.
int32_t imagePlaneCount(int32_t format);

// The two factors of a plane's size, in 64 bits: sizes are non-negative 32-bit numbers, so neither overflows.
//   row bytes = ceil(width / 2^AX) * (B << (AX - SX))      rows = ceil(height / 2^AY) * (R << (AY - SY))
// A size thus rounds up to the alignment of the format: 4:2:0 images have an even number of luma columns and rows.
uint64_t imagePlaneRowBytes(int32_t format, int32_t plane, int32_t width);
uint64_t imagePlaneRows(int32_t format, int32_t plane, int32_t height);
// Bytes of all planes, for non-negative sides whose product fits 32 bits; 0 for an unknown format.
uint64_t imageBytes(int32_t format, int32_t width, int32_t height);

extern "C" {
// The id of a name, by exact comparison; 0 for a null or unknown one.
int32_t Image_getImageFormat(const char* name) ZVT4_NAME(Image_getImageFormat);
// The name of an id, "(unknown)" outside the table.
const char* Image_getImageFormatStr(int32_t format) ZVT4_NAME(Image_getImageFormatStr);
// One size of an image; the low 32 bits where it needs more, 0 for a negative size, an unknown format or kind.
//   kind    0: bytes of all planes
//   plane   bytes   rows    row bytes
//     0       2     1, 3        4
//     1     5, 11   6, 12     7, 13
//     2       8       9        10
int32_t Image_getSize(int32_t width, int32_t height, int32_t format, int32_t kind) ZVT4_NAME(Image_getSize);

// Families of formats; each 1 for its ids and 0 for every other value. A YVU semi-planar format counts as YUV but
// neither as 4:2:2 or 4:2:0 nor as YUV semi-planar: those names mean U in front of V.
int32_t Image_isRgb(int32_t format) ZVT4_NAME(Image_isRgb);
int32_t Image_isUint8888(int32_t format) ZVT4_NAME(Image_isUint8888);
int32_t Image_isYuv(int32_t format) ZVT4_NAME(Image_isYuv);
int32_t Image_isYuv422Interleaved(int32_t format) ZVT4_NAME(Image_isYuv422Interleaved);
int32_t Image_isYuv422(int32_t format) ZVT4_NAME(Image_isYuv422);
int32_t Image_isYvu422(int32_t format) ZVT4_NAME(Image_isYvu422);
int32_t Image_isYuv420(int32_t format) ZVT4_NAME(Image_isYuv420);
int32_t Image_isYvu420(int32_t format) ZVT4_NAME(Image_isYvu420);
int32_t Image_isYuv444Interleaved(int32_t format) ZVT4_NAME(Image_isYuv444Interleaved);
int32_t Image_isYuv444(int32_t format) ZVT4_NAME(Image_isYuv444);
int32_t Image_isYuvPlanar(int32_t format) ZVT4_NAME(Image_isYuvPlanar);
int32_t Image_isYuvSemiplanar(int32_t format) ZVT4_NAME(Image_isYuvSemiplanar);
int32_t Image_isYvuSemiplanar(int32_t format) ZVT4_NAME(Image_isYvuSemiplanar);
int32_t Image_isBayer8(int32_t format) ZVT4_NAME(Image_isBayer8);
int32_t Image_isBayer10M8L2Packed(int32_t format) ZVT4_NAME(Image_isBayer10M8L2Packed);
int32_t Image_isBayer10Unpacked(int32_t format) ZVT4_NAME(Image_isBayer10Unpacked);
int32_t Image_isBayer12Unpacked(int32_t format) ZVT4_NAME(Image_isBayer12Unpacked);
int32_t Image_isBayer16(int32_t format) ZVT4_NAME(Image_isBayer16);
int32_t Image_isBayerUnpacked(int32_t format) ZVT4_NAME(Image_isBayerUnpacked);
}

#endif  // ZVT4_IMAGE_FORMAT_H_
