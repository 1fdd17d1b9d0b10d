#include <cstring>

#include "image/image_conv.h"
#include "image/pixel_rows.h"

namespace {

struct Member {
  int32_t first;
  int32_t last;
  Status (*shrink)(Image* dst, const Image* src, const ImageRect* rect, int32_t ratio);
};

// Source formats and their members; ids without a row are not supported.
constexpr Member kMembers[] = {
    {IMAGE_RGB565, IMAGE_RGB565, ImageRgb565_toYUint8Shrink},
    {IMAGE_RGB888, IMAGE_BGR888, ImageRgb888_toYUint8Shrink},
    {IMAGE_BGRA8888, IMAGE_ARGB8888, ImageUint8888_toYUint8Shrink},
    {IMAGE_YUV422_YUYV, IMAGE_YUV422_UVYY, ImageYuv422Interleaved_toYUint8Shrink},
    {IMAGE_YUV422_PLANAR, IMAGE_YVU420_SEMIPLANAR, ImageYuvPlanarSemiplanar_toYUint8Shrink},
    {IMAGE_YUV444_YUV, IMAGE_YUV444_VUY, ImageYuv444Interleaved_toYUint8Shrink},
    {IMAGE_YUV444_PLANAR, IMAGE_YUV444_PLANAR, ImageYuv444Planar_toYUint8Shrink},
    {IMAGE_BAYER8_RGGB, 40, ImageBayer8_toYUint8Shrink},
    {41, 44, ImageBayer10Unpacked_toYUint8Shrink},
    {45, 48, ImageBayer10M8L2Packed_toYUint8Shrink},
    {49, 52, ImageBayer12Unpacked_toYUint8Shrink},
    {53, 56, ImageBayer16_toYUint8Shrink},
    {IMAGE_UINT8, IMAGE_UINT8, ImageUint8_toYUint8Shrink},
};

// The row functions take a pointer to the top left pixel of the first block, and the source's pitch.
using RowFunction = void (*)(uint8_t* dst, const uint8_t* src, ptrdiff_t pitch, int32_t count, int32_t ratio);

void copyRow(uint8_t* dst, const uint8_t* src, ptrdiff_t, int32_t count, int32_t) {
  std::memcpy(dst, src, static_cast<size_t>(count));
}

void diagonalRow(uint8_t* __restrict dst, const uint8_t* __restrict src, ptrdiff_t pitch, int32_t count, int32_t) {
  const uint8_t* const below = src + pitch;
  for (int32_t x = 0; x < count; ++x) dst[x] = static_cast<uint8_t>((src[2 * x] + below[2 * x + 1]) >> 1);
}

template <int32_t Ratio>
void cornersRow(uint8_t* __restrict dst, const uint8_t* __restrict src, ptrdiff_t pitch, int32_t count, int32_t) {
  const uint8_t* const below = src + 2 * pitch;
  for (int32_t x = 0; x < count; ++x) {
    const int32_t at = Ratio * x;
    dst[x] = static_cast<uint8_t>((src[at] + src[at + 2] + below[at] + below[at + 2]) >> 2);
  }
}

void nearestRow(uint8_t* __restrict dst, const uint8_t* __restrict src, ptrdiff_t, int32_t count, int32_t ratio) {
  for (int32_t x = 0; x < count; ++x) dst[x] = src[static_cast<ptrdiff_t>(x) * ratio];
}

constexpr RowFunction kRows[] = {copyRow, diagonalRow, cornersRow<3>, cornersRow<4>, nearestRow};

Status initShrunk(Image* dst, const Image* src, const ImageRect* rect, int32_t ratio) {
  if (dst == nullptr || src == nullptr || rect == nullptr || ratio < 1) return ZELVAN_ERROR_PARAM;
  const int64_t width = (int64_t{rect->right} - rect->left) / ratio;
  const int64_t height = (int64_t{rect->bottom} - rect->top) / ratio;
  if (width < 0 || height < 0 || width > INT32_MAX || height > INT32_MAX) return ZELVAN_ERROR_PARAM;
  if (src->plane0 == nullptr && width > 0 && height > 0) return ZELVAN_ERROR_PARAM;
  return Image_init(dst, static_cast<int32_t>(width), static_cast<int32_t>(height), nullptr, IMAGE_UINT8);
}

// The mean of a luma over each block.
template <typename Luma>
Status shrinkMean(Image* dst, const Image* src, const ImageRect* rect, int32_t ratio, const Luma& luma) {
  if (const Status s = initShrunk(dst, src, rect, ratio); s != ZELVAN_OK) return s;
  for (int32_t y = 0; y < dst->height; ++y) {
    for (int32_t x = 0; x < dst->width; ++x) {
      int64_t sum = 0;
      for (int32_t i = 0; i < ratio; ++i) {
        for (int32_t j = 0; j < ratio; ++j) sum += luma(rect->left + ratio * x + j, rect->top + ratio * y + i);
      }
      imageRow(dst, y)[x] = static_cast<uint8_t>(sum / (int64_t{ratio} * ratio));
    }
  }
  return ZELVAN_OK;
}

Status shrinkRgb(Image* dst, const Image* src, const ImageRect* rect, int32_t ratio) {
  const ReadRgbRow read = src != nullptr ? readerOf(src->format) : nullptr;
  if (read == nullptr) return ZELVAN_ERROR_PARAM;
  return shrinkMean(dst, src, rect, ratio, [=](int32_t x, int32_t y) {
    uint8_t rgb[3];
    read(src, x, y, 1, rgb);
    return lumaOfRgb(rgb);
  });
}

Status shrinkBayer(Image* dst, const Image* src, const ImageRect* rect, int32_t ratio) {
  return shrinkMean(dst, src, rect, ratio, [=](int32_t x, int32_t y) { return bayerSample(src, x, y); });
}

Status shrinkPlane0(Image* dst, const Image* src, const ImageRect* rect, int32_t ratio) {
  if (const Status s = initShrunk(dst, src, rect, ratio); s != ZELVAN_OK) return s;
  if (dst->width == 0) return ZELVAN_OK;  // no pixels and maybe no planes
  const RowFunction row = kRows[ratio < 5 ? ratio - 1 : 4];
  for (int32_t y = 0; y < dst->height; ++y) {
    const uint8_t* const from = imageRow(src, rect->top) + ptrdiff_t{y} * ratio * src->pitch0 + rect->left;
    row(imageRow(dst, y), from, src->pitch0, dst->width, ratio);
  }
  return ZELVAN_OK;
}

}  // namespace

Status Image_toYUint8Shrink(Image* dst, const Image* src, const ImageRect* rect, int32_t ratio) {
  if (dst == nullptr || src == nullptr || rect == nullptr || ratio < 1) return ZELVAN_ERROR_PARAM;
  for (const Member& member : kMembers) {
    if (src->format >= member.first && src->format <= member.last) return member.shrink(dst, src, rect, ratio);
  }
  return ZELVAN_ERROR_UNSUPPORTED;
}

Status ImageYuvPlanarSemiplanar_toYUint8Shrink(Image* dst, const Image* src, const ImageRect* rect, int32_t ratio) {
  return shrinkPlane0(dst, src, rect, ratio);
}

Status ImageUint8_toYUint8Shrink(Image* dst, const Image* src, const ImageRect* rect, int32_t ratio) {
  return shrinkPlane0(dst, src, rect, ratio);
}

Status ImageYuv444Planar_toYUint8Shrink(Image* dst, const Image* src, const ImageRect* rect, int32_t ratio) {
  return shrinkPlane0(dst, src, rect, ratio);
}

Status ImageRgb565_toYUint8Shrink(Image* dst, const Image* src, const ImageRect* rect, int32_t ratio) {
  return shrinkRgb(dst, src, rect, ratio);
}
Status ImageRgb888_toYUint8Shrink(Image* dst, const Image* src, const ImageRect* rect, int32_t ratio) {
  return shrinkRgb(dst, src, rect, ratio);
}
Status ImageUint8888_toYUint8Shrink(Image* dst, const Image* src, const ImageRect* rect, int32_t ratio) {
  return shrinkRgb(dst, src, rect, ratio);
}

Status ImageYuv422Interleaved_toYUint8Shrink(Image* dst, const Image* src, const ImageRect* rect, int32_t ratio) {
  int32_t y0, y1, u, v;
  if (src == nullptr || ImageYuv422Interleaved_getYuvIndex(&y0, &y1, &u, &v, src->format) != ZELVAN_OK) {
    return ZELVAN_ERROR_PARAM;
  }
  return shrinkMean(dst, src, rect, ratio,
                    [=](int32_t x, int32_t y) { return imageRow(src, y)[x / 2 * 4 + ((x & 1) != 0 ? y1 : y0)]; });
}

Status ImageYuv444Interleaved_toYUint8Shrink(Image* dst, const Image* src, const ImageRect* rect, int32_t ratio) {
  int32_t at, u, v;
  if (src == nullptr || ImageYuv444Interleaved_getYuvIndex(&at, &u, &v, src->format) != ZELVAN_OK) {
    return ZELVAN_ERROR_PARAM;
  }
  return shrinkMean(dst, src, rect, ratio, [=](int32_t x, int32_t y) { return imageRow(src, y)[3 * x + at]; });
}

Status ImageBayer8_toYUint8Shrink(Image* dst, const Image* src, const ImageRect* rect, int32_t ratio) {
  return shrinkBayer(dst, src, rect, ratio);
}
Status ImageBayer10Unpacked_toYUint8Shrink(Image* dst, const Image* src, const ImageRect* rect, int32_t ratio) {
  return shrinkBayer(dst, src, rect, ratio);
}
Status ImageBayer10M8L2Packed_toYUint8Shrink(Image* dst, const Image* src, const ImageRect* rect, int32_t ratio) {
  return shrinkBayer(dst, src, rect, ratio);
}
Status ImageBayer12Unpacked_toYUint8Shrink(Image* dst, const Image* src, const ImageRect* rect, int32_t ratio) {
  return shrinkBayer(dst, src, rect, ratio);
}
Status ImageBayer16_toYUint8Shrink(Image* dst, const Image* src, const ImageRect* rect, int32_t ratio) {
  return shrinkBayer(dst, src, rect, ratio);
}
