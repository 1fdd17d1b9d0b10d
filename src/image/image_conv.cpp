#include "image/image_conv.h"

#include <cstring>

namespace {

void interleaveRow(uint8_t* __restrict uv, const uint8_t* __restrict u, const uint8_t* __restrict v, int32_t pairs) {
  for (int32_t x = 0; x < pairs; ++x) {
    uv[2 * x] = u[x];
    uv[2 * x + 1] = v[x];
  }
}

void deinterleaveRow(uint8_t* __restrict u, uint8_t* __restrict v, const uint8_t* __restrict uv, int32_t pairs) {
  for (int32_t x = 0; x < pairs; ++x) {
    u[x] = uv[2 * x];
    v[x] = uv[2 * x + 1];
  }
}

// The luma of a packed row: every second byte, from the first.
void lumaOfYuyvRow(uint8_t* __restrict luma, const uint8_t* __restrict yuyv, int32_t width) {
  for (int32_t x = 0; x < width; ++x) luma[x] = yuyv[2 * x];
}
void chromaOfYuyvRow(uint8_t* __restrict uv, const uint8_t* __restrict yuyv, int32_t pairs) {
  for (int32_t x = 0; x < 2 * pairs; ++x) uv[x] = yuyv[2 * x + 1];
}

void yuyvRow(uint8_t* __restrict yuyv, const uint8_t* __restrict luma, const uint8_t* __restrict uv, int32_t width) {
  const int32_t even = width & ~1;
  for (int32_t x = 0; x < even; ++x) {
    yuyv[2 * x] = luma[x];
    yuyv[2 * x + 1] = uv[x];
  }
  if (even == width) return;
  // The group of an odd last column still has both chroma bytes; its second luma byte is padding.
  yuyv[2 * even] = luma[even];
  yuyv[2 * even + 1] = uv[even];
  yuyv[2 * even + 3] = uv[even + 1];
}

uint8_t* rowOf(uint8_t* plane, int32_t pitch, int32_t y) {
  return plane + ptrdiff_t{y} * pitch;
}

int32_t halfUp(int32_t size) {
  return size / 2 + size % 2;
}

void copyLuma(const Image* dst, const Image* src) {
  const auto width = static_cast<size_t>(src->width);
  for (int32_t y = 0; y < src->height; ++y) std::memcpy(imageRow(dst, y), imageRow(src, y), width);
}

}  // namespace

Status ImageYuv420Planar_toYuv420Semiplanar(Image* dst, const Image* src) {
  copyLuma(dst, src);
  for (int32_t y = 0; y < halfUp(src->height); ++y) {
    interleaveRow(imageChromaRow(dst, y), imageChromaRow(src, y), rowOf(src->plane2, src->pitch2, y),
                  halfUp(src->width));
  }
  return ZELVAN_OK;
}

Status ImageYuv420Semiplanar_toYuv420Planar(Image* dst, const Image* src) {
  copyLuma(dst, src);
  for (int32_t y = 0; y < halfUp(src->height); ++y) {
    deinterleaveRow(imageChromaRow(dst, y), rowOf(dst->plane2, dst->pitch2, y), imageChromaRow(src, y),
                    halfUp(src->width));
  }
  return ZELVAN_OK;
}

Status ImageYuv422yuyv_toYuv420Semiplanar(Image* dst, const Image* src) {
  for (int32_t y = 0; y < src->height; ++y) {
    lumaOfYuyvRow(imageRow(dst, y), imageRow(src, y), src->width);
    if (y % 2 == 0) chromaOfYuyvRow(imageChromaRow(dst, y / 2), imageRow(src, y), halfUp(src->width));
  }
  return ZELVAN_OK;
}

Status ImageYuv420Semiplanar_toYuv422yuyv(Image* dst, const Image* src) {
  if (src->height < 2) return ZELVAN_OK;
  for (int32_t y = 0; y < src->height; ++y) {
    yuyvRow(imageRow(dst, y), imageRow(src, y), imageChromaRow(src, y / 2), src->width);
  }
  return ZELVAN_OK;
}

Status ImageYuv422Interleaved_getYuvIndex(int32_t* y0, int32_t* y1, int32_t* u, int32_t* v, int32_t format) {
  struct Positions {
    uint8_t y0, y1, u, v;
  };
  static constexpr Positions kPositions[] = {
      {0, 2, 1, 3}, {0, 2, 3, 1}, {0, 1, 2, 3}, {0, 1, 3, 2}, {1, 3, 2, 0}, {1, 3, 0, 2}, {2, 3, 1, 0}, {2, 3, 0, 1},
  };
  if (Image_isYuv422Interleaved(format) == 0) return ZELVAN_ERROR_UNSUPPORTED;
  const Positions& at = kPositions[format - IMAGE_YUV422_YUYV];
  *y0 = at.y0;
  *y1 = at.y1;
  *u = at.u;
  *v = at.v;
  return ZELVAN_OK;
}
