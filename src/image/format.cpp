#include "image/format.h"

#include <array>
#include <cstring>

namespace {

constexpr const char* kNames[] = {
    "NONE",
    "RGB565",
    "RGB888",
    "BGR888",
    "BGRA8888",
    "BRGA8888",
    "GBRA8888",
    "GRBA8888",
    "RBGA8888",
    "RGBA8888",
    "ABGR8888",
    "ABRG8888",
    "AGBR8888",
    "AGRB8888",
    "ARBG8888",
    "ARGB8888",
    "YUV422_YUYV",
    "YUV422_YVYU",
    "YUV422_YYUV",
    "YUV422_YYVU",
    "YUV422_VYUY",
    "YUV422_UYVY",
    "YUV422_VUYY",
    "YUV422_UVYY",
    "YUV422_PLANAR",
    "YUV422_SEMIPLANAR",
    "YUV420_PLANAR",
    "YUV420_SEMIPLANAR",
    "YVU422_SEMIPLANAR",
    "YVU420_SEMIPLANAR",
    "YUV444_YUV",
    "YUV444_YVU",
    "YUV444_UYV",
    "YUV444_VYU",
    "YUV444_UVY",
    "YUV444_VUY",
    "YUV444_PLANAR",
    "BAYER8_RGGB",
    "BAYER8_GRBG",
    "BAYER8_GBRG",
    "BAYER8_BGGR",
    "BAYER10_UNPACKED_RGGB",
    "BAYER10_UNPACKED_GRBG",
    "BAYER10_UNPACKED_GBRG",
    "BAYER10_UNPACKED_BGGR",
    "BAYER10_M8L2PACKED_RGGB",
    "BAYER10_M8L2PACKED_GRBG",
    "BAYER10_M8L2PACKED_GBRG",
    "BAYER10_M8L2PACKED_BGGR",
    "BAYER12_UNPACKED_RGGB",
    "BAYER12_UNPACKED_GRBG",
    "BAYER12_UNPACKED_GBRG",
    "BAYER12_UNPACKED_BGGR",
    "BAYER16_RGGB",
    "BAYER16_GRBG",
    "BAYER16_GBRG",
    "BAYER16_BGGR",
    "UINT8",
    "INT32",
    "HSV",
    "LAB",
    "UINT16",
    "RGB161616",
    "FLOAT",
    "UINT88",
    "INT16",
    "YUV9_44_UV",
    "YUV9_44_VU",
};
static_assert(sizeof(kNames) / sizeof(kNames[0]) == IMAGE_FORMAT_COUNT);

constexpr bool within(int32_t format, int32_t first, int32_t last) {
  return format >= first && format <= last;
}

constexpr ImageFormatDescriptor packed(uint8_t bytes, uint8_t shiftX = 0) {
  return {{{bytes, shiftX, 1, 0}, {}, {}}, 0, shiftX, 0, 0};
}
// An 8-bit luma plane, then chroma planes of the given bytes a unit; the alignment is one chroma unit.
constexpr ImageFormatDescriptor withChroma(uint8_t bytes1, uint8_t bytes2, uint8_t shiftX, uint8_t shiftY) {
  ImageFormatDescriptor row = {{{1, 0, 1, 0}, {bytes1, shiftX, 1, shiftY}, {}}, 0, shiftX, 0, shiftY};
  if (bytes2 != 0) row.planes[2] = {bytes2, shiftX, 1, shiftY};
  return row;
}

constexpr ImageFormatDescriptor describe(int32_t format) {
  switch (format) {
    case IMAGE_NONE:
      return {};
    case IMAGE_YUV422_PLANAR:
      return withChroma(1, 1, 1, 0);
    case IMAGE_YUV422_SEMIPLANAR:
    case IMAGE_YVU422_SEMIPLANAR:
      return withChroma(2, 0, 1, 0);
    case IMAGE_YUV420_PLANAR:
      return withChroma(1, 1, 1, 1);
    case IMAGE_YUV420_SEMIPLANAR:
    case IMAGE_YVU420_SEMIPLANAR:
      return withChroma(2, 0, 1, 1);
    case IMAGE_YUV444_PLANAR:
      return withChroma(1, 1, 0, 0);
    case IMAGE_YUV9_44_UV:
    case IMAGE_YUV9_44_VU:
      return withChroma(2, 0, 2, 2);
    case IMAGE_UINT8:
      return packed(1);
    case IMAGE_RGB888:
    case IMAGE_BGR888:
    case IMAGE_HSV:
      return packed(3);
    case IMAGE_INT32:
    case IMAGE_FLOAT:
      return packed(4);
    case IMAGE_RGB161616:
      return packed(6);
    case IMAGE_LAB:
      return packed(12);
    default:
      break;
  }
  if (within(format, IMAGE_BGRA8888, IMAGE_ARGB8888)) return packed(4);
  if (within(format, IMAGE_YUV422_YUYV, IMAGE_YUV422_UVYY)) return packed(4, 1);
  if (within(format, IMAGE_YUV444_YUV, IMAGE_YUV444_VUY)) return packed(3);
  if (within(format, IMAGE_BAYER8_RGGB, IMAGE_BAYER8_BGGR)) return packed(1);
  if (within(format, IMAGE_BAYER10_M8L2PACKED_RGGB, IMAGE_BAYER10_M8L2PACKED_BGGR)) return packed(5, 2);
  return packed(2);  // RGB565, the unpacked Bayer forms, 16-bit samples, UINT88
}

constexpr auto kDescriptors = [] {
  std::array<ImageFormatDescriptor, IMAGE_FORMAT_COUNT> rows = {};
  for (int32_t i = 0; i < IMAGE_FORMAT_COUNT; ++i) rows[i] = describe(i);
  return rows;
}();

uint64_t unitsOf(int32_t size, uint8_t shift) {
  return (static_cast<uint64_t>(size) + (uint64_t{1} << shift) - 1) >> shift;
}

}  // namespace

const ImageFormatDescriptor& imageFormatDescriptor(int32_t format) {
  return kDescriptors[format];
}

int32_t imagePlaneCount(int32_t format) {
  const ImageFormatDescriptor& row = kDescriptors[format];
  return row.planes[2].bytes != 0 ? 3 : row.planes[1].bytes != 0 ? 2 : 1;
}

uint64_t imagePlaneRowBytes(int32_t format, int32_t plane, int32_t width) {
  const ImageFormatDescriptor& row = kDescriptors[format];
  const ImagePlaneDescriptor& p = row.planes[plane];
  return unitsOf(width, row.alignX) * p.bytes << (row.alignX - p.shiftX);
}

uint64_t imagePlaneRows(int32_t format, int32_t plane, int32_t height) {
  const ImageFormatDescriptor& row = kDescriptors[format];
  const ImagePlaneDescriptor& p = row.planes[plane];
  return unitsOf(height, row.alignY) * p.rows << (row.alignY - p.shiftY);
}

uint64_t imageBytes(int32_t format, int32_t width, int32_t height) {
  if (!isImageFormat(format)) return 0;
  uint64_t bytes = 0;
  for (int32_t p = 0; p < 3; ++p) {
    bytes += imagePlaneRowBytes(format, p, width) * imagePlaneRows(format, p, height);
  }
  return bytes;
}

int32_t Image_getImageFormat(const char* name) {
  if (name == nullptr) return IMAGE_NONE;
  for (int32_t i = 0; i < IMAGE_FORMAT_COUNT; ++i) {
    if (std::strcmp(name, kNames[i]) == 0) return i;
  }
  return IMAGE_NONE;
}

const char* Image_getImageFormatStr(int32_t format) {
  return isImageFormat(format) ? kNames[format] : "(unknown)";
}

int32_t Image_getSize(int32_t width, int32_t height, int32_t format, int32_t kind) {
  enum Measure : uint8_t { kBytes, kRows, kRowBytes };
  struct Kind {
    uint8_t plane;
    Measure measure;
  };
  static constexpr Kind kKinds[14] = {{0, kBytes},    {0, kRows},  {0, kBytes},    {0, kRows},    {0, kRowBytes},
                                      {1, kBytes},    {1, kRows},  {1, kRowBytes}, {2, kBytes},   {2, kRows},
                                      {2, kRowBytes}, {1, kBytes}, {1, kRows},     {1, kRowBytes}};
  if (width < 0 || height < 0 || !isImageFormat(format) || static_cast<uint32_t>(kind) > 13) return 0;

  const auto measure = [=](int32_t plane, Measure what) -> uint64_t {
    const uint64_t rowBytes = what == kRows ? 1 : imagePlaneRowBytes(format, plane, width);
    const uint64_t rows = what == kRowBytes ? 1 : imagePlaneRows(format, plane, height);
    return rowBytes * rows;
  };
  const uint64_t size =
      kind == 0 ? imageBytes(format, width, height) : measure(kKinds[kind].plane, kKinds[kind].measure);
  return static_cast<int32_t>(static_cast<uint32_t>(size));
}

int32_t Image_isRgb(int32_t format) {
  return within(format, IMAGE_RGB565, IMAGE_BGR888);
}
int32_t Image_isUint8888(int32_t format) {
  return within(format, IMAGE_BGRA8888, IMAGE_ARGB8888);
}
int32_t Image_isYuv(int32_t format) {
  return within(format, IMAGE_YUV422_YUYV, IMAGE_YUV444_PLANAR);
}
int32_t Image_isYuv422Interleaved(int32_t format) {
  return within(format, IMAGE_YUV422_YUYV, IMAGE_YUV422_UVYY);
}
int32_t Image_isYuv422(int32_t format) {
  return within(format, IMAGE_YUV422_YUYV, IMAGE_YUV422_SEMIPLANAR);
}
int32_t Image_isYvu422(int32_t format) {
  return format == IMAGE_YVU422_SEMIPLANAR;
}
int32_t Image_isYuv420(int32_t format) {
  return format == IMAGE_YUV420_PLANAR || format == IMAGE_YUV420_SEMIPLANAR;
}
int32_t Image_isYvu420(int32_t format) {
  return format == IMAGE_YVU420_SEMIPLANAR;
}
int32_t Image_isYuv444Interleaved(int32_t format) {
  return within(format, IMAGE_YUV444_YUV, IMAGE_YUV444_VUY);
}
int32_t Image_isYuv444(int32_t format) {
  return within(format, IMAGE_YUV444_YUV, IMAGE_YUV444_PLANAR);
}
int32_t Image_isYuvPlanar(int32_t format) {
  return format == IMAGE_YUV422_PLANAR || format == IMAGE_YUV420_PLANAR || format == IMAGE_YUV444_PLANAR;
}
int32_t Image_isYuvSemiplanar(int32_t format) {
  return format == IMAGE_YUV422_SEMIPLANAR || format == IMAGE_YUV420_SEMIPLANAR;
}
int32_t Image_isYvuSemiplanar(int32_t format) {
  return format == IMAGE_YVU422_SEMIPLANAR || format == IMAGE_YVU420_SEMIPLANAR;
}
int32_t Image_isBayer8(int32_t format) {
  return within(format, IMAGE_BAYER8_RGGB, IMAGE_BAYER8_BGGR);
}
int32_t Image_isBayer10M8L2Packed(int32_t format) {
  return within(format, IMAGE_BAYER10_M8L2PACKED_RGGB, IMAGE_BAYER10_M8L2PACKED_BGGR);
}
int32_t Image_isBayer10Unpacked(int32_t format) {
  return within(format, IMAGE_BAYER10_UNPACKED_RGGB, IMAGE_BAYER10_UNPACKED_BGGR);
}
int32_t Image_isBayer12Unpacked(int32_t format) {
  return within(format, IMAGE_BAYER12_UNPACKED_RGGB, IMAGE_BAYER12_UNPACKED_BGGR);
}
int32_t Image_isBayer16(int32_t format) {
  return within(format, IMAGE_BAYER16_RGGB, IMAGE_BAYER16_BGGR);
}
int32_t Image_isBayerUnpacked(int32_t format) {
  return Image_isBayer10Unpacked(format) | within(format, IMAGE_BAYER12_UNPACKED_RGGB, IMAGE_BAYER16_BGGR);
}
