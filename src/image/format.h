// The 68 pixel formats: ids, names and layout descriptors.
#ifndef ZVT4_IMAGE_FORMAT_H_
#define ZVT4_IMAGE_FORMAT_H_

#include <cstdint>

#include "base/export.h"

enum ImageFormat : int32_t {
  IMAGE_NONE = 0,
  IMAGE_RGB565 = 1,
  IMAGE_RGB888 = 2,
  IMAGE_BGR888 = 3,
  IMAGE_BGRA8888 = 4,
  IMAGE_RGBA8888 = 9,
  IMAGE_ARGB8888 = 15,
  IMAGE_YUV422_YUYV = 16,
  IMAGE_YUV422_UVYY = 23,
  IMAGE_YUV422_PLANAR = 24,
  IMAGE_YUV422_SEMIPLANAR = 25,
  IMAGE_YUV420_PLANAR = 26,
  IMAGE_YUV420_SEMIPLANAR = 27,
  IMAGE_YVU422_SEMIPLANAR = 28,
  IMAGE_YVU420_SEMIPLANAR = 29,
  IMAGE_YUV444_YUV = 30,
  IMAGE_YUV444_VUY = 35,
  IMAGE_YUV444_PLANAR = 36,
  IMAGE_BAYER8_RGGB = 37,
  IMAGE_UINT8 = 57,
  IMAGE_INT32 = 58,
  IMAGE_UINT16 = 61,
  IMAGE_RGB161616 = 62,
  IMAGE_FLOAT = 63,
  IMAGE_UINT88 = 64,
  IMAGE_INT16 = 65,
  IMAGE_YUV9_44_VU = 67,
  IMAGE_FORMAT_COUNT = 68,
};

// Layout of one plane: units across = width in units of 2^SX pixels, B bytes each; R rows per unit of 2^SY pixels.
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

// Row of the table; format must lie in 0 to 67.
const ImageFormatDescriptor& imageFormatDescriptor(int32_t format);

extern "C" {
int32_t Image_getImageFormat(const char* name) ZVT4_NAME(Image_getImageFormat);
const char* Image_getImageFormatStr(int32_t format) ZVT4_NAME(Image_getImageFormatStr);
int32_t Image_getSize(int32_t width, int32_t height, int32_t format, int32_t kind) ZVT4_NAME(Image_getSize);

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
