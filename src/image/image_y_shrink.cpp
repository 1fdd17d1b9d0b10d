#include <cstring>

#include "image/image_conv.h"

namespace {

struct Member {
  int32_t first;
  int32_t last;
  Status (*shrink)(Image* dst, const Image* src, const ImageRect* rect, int32_t ratio);
};

// Source formats and their members; ids without a row are not supported.
constexpr Member kMembers[] = {
    {IMAGE_YUV422_PLANAR, IMAGE_YVU420_SEMIPLANAR, ImageYuvPlanarSemiplanar_toYUint8Shrink},
    {IMAGE_YUV444_PLANAR, IMAGE_YUV444_PLANAR, ImageYuvPlanarSemiplanar_toYUint8Shrink},
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

Status shrinkPlane0(Image* dst, const Image* src, const ImageRect* rect, int32_t ratio) {
  if (dst == nullptr || src == nullptr || rect == nullptr || ratio < 1) return ZELVAN_ERROR_PARAM;
  const int64_t width = (int64_t{rect->right} - rect->left) / ratio;
  const int64_t height = (int64_t{rect->bottom} - rect->top) / ratio;
  if (width < 0 || height < 0 || width > INT32_MAX || height > INT32_MAX) return ZELVAN_ERROR_PARAM;
  const Status status =
      Image_init(dst, static_cast<int32_t>(width), static_cast<int32_t>(height), nullptr, IMAGE_UINT8);
  if (status != ZELVAN_OK) return status;

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
