#include <algorithm>

#include "image/image_conv.h"
#include "image/pixel_rows.h"

namespace {

using Worker = void (*)(Image* dst, const Image* src, const ImageRect& rect);

// One row of a dispatcher: the source formats first to last go this way. Without a worker they go through RGB.
struct Route {
  int32_t first;
  int32_t last;
  Worker worker;
};

constexpr Route kFromRgb565 = {IMAGE_RGB565, IMAGE_RGB565, nullptr};
constexpr Route kFromRgb888 = {IMAGE_RGB888, IMAGE_RGB888, nullptr};
constexpr Route kFrom8888 = {IMAGE_BGRA8888, IMAGE_ARGB8888, nullptr};

constexpr Route kToRgb888[] = {kFromRgb565, kFrom8888, {IMAGE_YUV422_YUYV, 56, nullptr}};
constexpr Route kToRgb565[] = {kFromRgb888, kFrom8888};
constexpr Route kTo8888[] = {kFromRgb565, kFromRgb888, {IMAGE_YUV422_YUYV, IMAGE_YVU420_SEMIPLANAR, nullptr}};
constexpr Route kToYuv422Interleaved[] = {
    kFromRgb565,
    kFromRgb888,
    kFrom8888,
    {IMAGE_YUV420_SEMIPLANAR, IMAGE_YUV420_SEMIPLANAR, semiplanarToYuyv},
};
constexpr Route kFromRgb[] = {kFromRgb888, kFrom8888};
constexpr Route kToYuv420Planar[] = {
    kFromRgb888,
    kFrom8888,
    {IMAGE_YUV420_SEMIPLANAR, IMAGE_YUV420_SEMIPLANAR, semiplanarToPlanar},
};
constexpr Route kToYuv420Semiplanar[] = {
    kFromRgb888,
    kFrom8888,
    {IMAGE_YUV422_YUYV, IMAGE_YUV422_YUYV, yuyvToSemiplanar},
    {IMAGE_YUV420_PLANAR, IMAGE_YUV420_PLANAR, planarToSemiplanar},
};
constexpr Route kFromRgb888Alone[] = {kFromRgb888};

// Shared chroma is made of whole pairs, and in 4:2:0 of even rows, also where the rectangle cuts them.
Status throughRgb(Image* dst, const Image* src, const ImageRect& rect) {
  const ReadRgbRow read = readerOf(src->format);
  const RgbWriter write = writerOf(dst->format);
  if (read == nullptr || write.pixels == nullptr) return ZELVAN_ERROR_UNSUPPORTED;
  const bool pairs = write.pairs != nullptr;
  const bool rowPairs = pairs && imageFormatDescriptor(dst->format).planes[1].shiftY != 0;
  const int32_t left = pairs ? rect.left & ~1 : rect.left;
  const int32_t right = pairs ? std::min(rect.right + (rect.right & 1), src->width) : rect.right;
  constexpr int32_t kRun = 64;  // even, so that pairs are not cut
  uint8_t rgb[3 * kRun];
  for (int32_t y = rowPairs ? rect.top & ~1 : rect.top; y < rect.bottom; ++y) {
    for (int32_t x = left; x < right; x += kRun) {
      const int32_t n = std::min(kRun, right - x);
      read(src, x, y, n, rgb);
      if (pairs) write.pairs(dst, x, y, n, rgb);
      const int32_t first = std::max(x, rect.left);
      const int32_t last = std::min(x + n, rect.right);
      if (y >= rect.top) write.pixels(dst, first, y, last - first, rgb + 3 * (first - x));
    }
  }
  return ZELVAN_OK;
}

bool isInside(const ImageRect& r, const Image* image) {
  return r.left >= 0 && r.top >= 0 && r.right <= image->width && r.bottom <= image->height;
}

// Target formats first to last, of which packed mosaics are none. rect null: the whole image.
template <size_t N>
Status dispatch(Image* dst, const Image* src, const ImageRect* rect, int32_t first, int32_t last,
                const Route (&routes)[N]) {
  if (dst == nullptr || src == nullptr || dst->format < first || dst->format > last) return ZELVAN_ERROR_PARAM;
  if (Image_isBayer10M8L2Packed(dst->format) != 0) return ZELVAN_ERROR_PARAM;
  if (dst->format == src->format) return ZELVAN_OK;
  const ImageRect whole = {0, 0, src->width, src->height};
  const ImageRect& r = rect != nullptr ? *rect : whole;
  if (!isInside(r, src)) return ZELVAN_ERROR_PARAM;
  if (r.right <= r.left || r.bottom <= r.top) return ZELVAN_OK;
  for (const Route& route : routes) {
    if (src->format < route.first || src->format > route.last) continue;
    if (route.worker == nullptr) return throughRgb(dst, src, r);
    route.worker(dst, src, r);
    return ZELVAN_OK;
  }
  return ZELVAN_ERROR_UNSUPPORTED;
}

Status betweenDepths(Image* dst, const Image* src, const ImageRect* rect, int32_t target) {
  if (dst == nullptr || src == nullptr || dst->format != target) return ZELVAN_ERROR_PARAM;
  if (src->format == target) return ZELVAN_OK;
  if (src->format != IMAGE_UINT8 && src->format != IMAGE_UINT16) return ZELVAN_ERROR_UNSUPPORTED;
  const ImageRect whole = {0, 0, src->width, src->height};
  const ImageRect& r = rect != nullptr ? *rect : whole;
  if (!isInside(r, src)) return ZELVAN_ERROR_PARAM;
  for (int32_t y = r.top; y < r.bottom; ++y) {
    for (int32_t x = r.left; x < r.right; ++x) {
      if (target == IMAGE_UINT16) {
        imageRow<uint16_t>(dst, y)[x] = imageRow(src, y)[x];
      } else {
        const uint16_t value = imageRow<const uint16_t>(src, y)[x];
        imageRow(dst, y)[x] = static_cast<uint8_t>(value < 255 ? value : 255);
      }
    }
  }
  return ZELVAN_OK;
}

}  // namespace

// The plain form of each target, and the one with a rectangle.
#define DISPATCHER(name, first, last, routes)                                                    \
  Status Image_conv_to##name(Image* dst, const Image* src) {                                     \
    return dispatch(dst, src, nullptr, first, last, routes);                                     \
  }                                                                                              \
  Status Image_conv_to##name##_withRect(Image* dst, const Image* src, const ImageRect* rect) {   \
    return rect == nullptr ? ZELVAN_ERROR_PARAM : dispatch(dst, src, rect, first, last, routes); \
  }

DISPATCHER(Rgb888, IMAGE_RGB888, IMAGE_RGB888, kToRgb888)
DISPATCHER(Rgb565, IMAGE_RGB565, IMAGE_RGB565, kToRgb565)
DISPATCHER(Uint8888, IMAGE_BGRA8888, IMAGE_ARGB8888, kTo8888)
DISPATCHER(Yuv422Planar, IMAGE_YUV422_PLANAR, IMAGE_YUV422_PLANAR, kFromRgb)
DISPATCHER(Yuv422Semiplanar, IMAGE_YUV422_SEMIPLANAR, IMAGE_YUV422_SEMIPLANAR, kFromRgb)
DISPATCHER(Yuv420Planar, IMAGE_YUV420_PLANAR, IMAGE_YUV420_PLANAR, kToYuv420Planar)
DISPATCHER(Yuv420Semiplanar, IMAGE_YUV420_SEMIPLANAR, IMAGE_YUV420_SEMIPLANAR, kToYuv420Semiplanar)
DISPATCHER(Yvu422Semiplanar, IMAGE_YVU422_SEMIPLANAR, IMAGE_YVU422_SEMIPLANAR, kFromRgb)
DISPATCHER(Yvu420Semiplanar, IMAGE_YVU420_SEMIPLANAR, IMAGE_YVU420_SEMIPLANAR, kFromRgb)
DISPATCHER(Bayer8, IMAGE_BAYER8_RGGB, 40, kFromRgb888Alone)
DISPATCHER(Bayer16, 41, 56, kFromRgb888Alone)
DISPATCHER(Rgb161616, IMAGE_RGB161616, IMAGE_RGB161616, kFromRgb888Alone)
#undef DISPATCHER

// The format of dst is not tested here: what comes from 4:2:0 is always YUYV.
Status Image_conv_toYuv422Interleaved(Image* dst, const Image* src) {
  if (src == nullptr || Image_isYuv422Interleaved(src->format) != 0) return ZELVAN_ERROR_PARAM;
  return dispatch(dst, src, nullptr, IMAGE_NONE, IMAGE_FORMAT_COUNT - 1, kToYuv422Interleaved);
}
Status Image_conv_toYuv422Interleaved_withRect(Image* dst, const Image* src, const ImageRect* rect) {
  if (src == nullptr || rect == nullptr || Image_isYuv422Interleaved(src->format) != 0) return ZELVAN_ERROR_PARAM;
  return dispatch(dst, src, rect, IMAGE_NONE, IMAGE_FORMAT_COUNT - 1, kToYuv422Interleaved);
}

Status Image_conv_toUint8(Image* dst, const Image* src) {
  return betweenDepths(dst, src, nullptr, IMAGE_UINT8);
}
Status Image_conv_toUint8_withRect(Image* dst, const Image* src, const ImageRect* rect) {
  return rect == nullptr ? ZELVAN_ERROR_PARAM : betweenDepths(dst, src, rect, IMAGE_UINT8);
}
Status Image_conv_toUint16(Image* dst, const Image* src) {
  return betweenDepths(dst, src, nullptr, IMAGE_UINT16);
}
Status Image_conv_toUint16_withRect(Image* dst, const Image* src, const ImageRect* rect) {
  return rect == nullptr ? ZELVAN_ERROR_PARAM : betweenDepths(dst, src, rect, IMAGE_UINT16);
}

Status ImageBayer8_toRgb888(Image* dst, const Image* src) {
  if (dst == nullptr || src == nullptr || dst->format != IMAGE_RGB888 || Image_isBayer8(src->format) == 0) {
    return ZELVAN_ERROR_PARAM;
  }
  return throughRgb(dst, src, {0, 0, src->width, src->height});
}

// Names of the formats spell the bytes in memory: position of each letter.
Status ImageYuv444Interleaved_getYuvIndex(int32_t* y, int32_t* u, int32_t* v, int32_t format) {
  if (Image_isYuv444Interleaved(format) == 0) return ZELVAN_ERROR_UNSUPPORTED;
  const char* letters = Image_getImageFormatStr(format) + sizeof("YUV444_") - 1;
  for (int32_t i = 0; i < 3; ++i) *(letters[i] == 'Y' ? y : letters[i] == 'U' ? u : v) = i;
  return ZELVAN_OK;
}

Status ImageUint8888_getUint8888Index(int32_t* r, int32_t* g, int32_t* b, int32_t* a, int32_t format) {
  if (Image_isUint8888(format) == 0) return ZELVAN_ERROR_UNSUPPORTED;
  const char* letters = Image_getImageFormatStr(format);
  for (int32_t i = 0; i < 4; ++i) *(letters[i] == 'R' ? r : letters[i] == 'G' ? g : letters[i] == 'B' ? b : a) = i;
  return ZELVAN_OK;
}
