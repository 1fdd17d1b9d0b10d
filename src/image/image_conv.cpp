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

// Columns left to right - 1. Cut groups get both chroma bytes, which the two pixels share, but one luma byte.
void yuyvRow(uint8_t* __restrict yuyv, const uint8_t* __restrict luma, const uint8_t* __restrict uv, int32_t left,
             int32_t right) {
  const int32_t first = left + (left & 1);
  const int32_t last = right & ~1;
  for (int32_t x = first; x < last; ++x) {
    yuyv[2 * x] = luma[x];
    yuyv[2 * x + 1] = uv[x];
  }
  const auto cutGroup = [=](int32_t x) {
    yuyv[2 * x] = luma[x];
    yuyv[2 * (x & ~1) + 1] = uv[x & ~1];
    yuyv[2 * (x & ~1) + 3] = uv[x | 1];
  };
  if (first != left) cutGroup(left);
  if (last != right) cutGroup(last);
}

uint8_t* rowOf(uint8_t* plane, int32_t pitch, int32_t y) {
  return plane + ptrdiff_t{y} * pitch;
}

void copyLuma(const Image* dst, const Image* src, const ImageRect& rect) {
  const auto width = static_cast<size_t>(rect.right - rect.left);
  if (width == 0) return;  // maybe without planes
  for (int32_t y = rect.top; y < rect.bottom; ++y) {
    std::memcpy(imageRow(dst, y) + rect.left, imageRow(src, y) + rect.left, width);
  }
}

// The chroma pairs that a rectangle touches.
struct Pairs {
  explicit Pairs(const ImageRect& rect)
      : left(rect.left / 2),
        top(rect.top / 2),
        bottom(rect.bottom / 2 + rect.bottom % 2),
        count(rect.right / 2 + rect.right % 2 - left) {}
  int32_t left, top, bottom, count;
};

ImageRect wholeOf(const Image* image) {
  return {0, 0, image->width, image->height};
}

}  // namespace

void planarToSemiplanar(Image* dst, const Image* src, const ImageRect& rect) {
  copyLuma(dst, src, rect);
  const Pairs pairs(rect);
  for (int32_t y = pairs.top; y < pairs.bottom; ++y) {
    interleaveRow(imageChromaRow(dst, y) + 2 * pairs.left, imageChromaRow(src, y) + pairs.left,
                  rowOf(src->plane2, src->pitch2, y) + pairs.left, pairs.count);
  }
}

void semiplanarToPlanar(Image* dst, const Image* src, const ImageRect& rect) {
  copyLuma(dst, src, rect);
  const Pairs pairs(rect);
  for (int32_t y = pairs.top; y < pairs.bottom; ++y) {
    deinterleaveRow(imageChromaRow(dst, y) + pairs.left, rowOf(dst->plane2, dst->pitch2, y) + pairs.left,
                    imageChromaRow(src, y) + 2 * pairs.left, pairs.count);
  }
}

void yuyvToSemiplanar(Image* dst, const Image* src, const ImageRect& rect) {
  const Pairs pairs(rect);
  for (int32_t y = 2 * pairs.top; y < rect.bottom; ++y) {  // from the even row that has the chroma
    const uint8_t* const from = imageRow(src, y);
    if (y >= rect.top) {
      lumaOfYuyvRow(imageRow(dst, y) + rect.left, from + 2 * rect.left, rect.right - rect.left);
    }
    if (y % 2 == 0) {
      chromaOfYuyvRow(imageChromaRow(dst, y / 2) + 2 * pairs.left, from + 4 * pairs.left, pairs.count);
    }
  }
}

void semiplanarToYuyv(Image* dst, const Image* src, const ImageRect& rect) {
  if (src->height < 2) return;
  for (int32_t y = rect.top; y < rect.bottom; ++y) {
    yuyvRow(imageRow(dst, y), imageRow(src, y), imageChromaRow(src, y / 2), rect.left, rect.right);
  }
}

Status ImageYuv420Planar_toYuv420Semiplanar(Image* dst, const Image* src) {
  planarToSemiplanar(dst, src, wholeOf(src));
  return ZELVAN_OK;
}

Status ImageYuv420Semiplanar_toYuv420Planar(Image* dst, const Image* src) {
  semiplanarToPlanar(dst, src, wholeOf(src));
  return ZELVAN_OK;
}

Status ImageYuv422yuyv_toYuv420Semiplanar(Image* dst, const Image* src) {
  yuyvToSemiplanar(dst, src, wholeOf(src));
  return ZELVAN_OK;
}

Status ImageYuv420Semiplanar_toYuv422yuyv(Image* dst, const Image* src) {
  semiplanarToYuyv(dst, src, wholeOf(src));
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
