#include "image/image_clear.h"

#include <cstring>

#include "image/image_conv.h"

namespace {

// The bytes that repeat along a row: a pixel, or a group of them that shares samples.
struct Unit {
  uint8_t bytes[8];
  int32_t size;

  template <typename T>
  void set(int32_t place, int32_t value) {
    const T sample = static_cast<T>(value);
    std::memcpy(bytes + static_cast<size_t>(place) * sizeof(T), &sample, sizeof(T));
  }
};

template <typename T>
Unit unitOf(const int32_t* values, int32_t count) {
  Unit unit = {{}, count * static_cast<int32_t>(sizeof(T))};
  for (int32_t i = 0; i < count; ++i) unit.set<T>(i, values[i]);
  return unit;
}

void fillPlane(const Image* image, int32_t plane, const Unit& unit) {
  const ImagePlaneDescriptor& d = imageFormatDescriptor(image->format).planes[plane];
  uint8_t* const base = plane == 0 ? image->plane0 : plane == 1 ? image->plane1 : image->plane2;
  const ptrdiff_t pitch = plane == 0 ? image->pitch0 : plane == 1 ? image->pitch1 : image->pitch2;
  const int32_t bytes = ((image->width + (1 << d.shiftX) - 1) >> d.shiftX) * d.bytes;
  const int32_t rows = (image->height + (1 << d.shiftY) - 1) >> d.shiftY;
  if (rows < 1) return;
  for (int32_t x = 0; x < bytes; ++x) base[x] = unit.bytes[x % unit.size];
  for (int32_t y = 1; y < rows; ++y) std::memcpy(base + y * pitch, base, static_cast<size_t>(bytes));
}

// fill() if the image is one of the family.
template <typename Fill>
Status clearIf(int32_t isMember(int32_t format), const Image* image, const int32_t* values, const Fill& fill) {
  if (image == nullptr || values == nullptr || image->plane0 == nullptr || isMember(image->format) == 0) {
    return ZELVAN_ERROR_PARAM;
  }
  fill();
  return ZELVAN_OK;
}

template <int32_t kFormat, typename T, int32_t kChannels>
Status clearPixels(const Image* image, const int32_t* values) {
  return clearIf([](int32_t format) -> int32_t { return format == kFormat; }, image, values,
                 [&] { fillPlane(image, 0, unitOf<T>(values, kChannels)); });
}

int32_t isYuvPlanes(int32_t format) {
  return Image_isYuvPlanar(format) | Image_isYuvSemiplanar(format) | Image_isYvuSemiplanar(format);
}

}  // namespace

Status ImageRgb565_clear(Image* image, const int32_t* values) {
  return clearIf([](int32_t format) -> int32_t { return format == IMAGE_RGB565; }, image, values,
                 [&] {
                   const int32_t pixel = (values[0] & 0xF8) << 8 | (values[1] & 0xFC) << 3 | (values[2] & 0xFF) >> 3;
                   fillPlane(image, 0, unitOf<uint16_t>(&pixel, 1));
                 });
}

Status ImageRgb888_clear(Image* image, const int32_t* values) {
  return clearIf([](int32_t format) -> int32_t { return format == IMAGE_RGB888 || format == IMAGE_BGR888; }, image,
                 values,
                 [&] {
                   const int32_t first = image->format == IMAGE_RGB888 ? 0 : 2;
                   const int32_t pixel[3] = {values[first], values[1], values[2 - first]};
                   fillPlane(image, 0, unitOf<uint8_t>(pixel, 3));
                 });
}

Status ImageUint8888_clear(Image* image, const int32_t* values) {
  return clearIf(Image_isUint8888, image, values, [&] {
    int32_t place[4];
    ImageUint8888_getUint8888Index(&place[0], &place[1], &place[2], &place[3], image->format);
    Unit unit = {{}, 4};
    for (int32_t i = 0; i < 4; ++i) unit.set<uint8_t>(place[i], values[i]);
    fillPlane(image, 0, unit);
  });
}

Status ImageYuv422Interleaved_clear(Image* image, const int32_t* values) {
  return clearIf(Image_isYuv422Interleaved, image, values, [&] {
    int32_t y0, y1, u, v;
    ImageYuv422Interleaved_getYuvIndex(&y0, &y1, &u, &v, image->format);
    Unit unit = {{}, 4};
    unit.set<uint8_t>(y0, values[0]);
    unit.set<uint8_t>(y1, values[0]);
    unit.set<uint8_t>(u, values[1]);
    unit.set<uint8_t>(v, values[2]);
    fillPlane(image, 0, unit);
  });
}

Status ImageYuv444Interleaved_clear(Image* image, const int32_t* values) {
  return clearIf(Image_isYuv444Interleaved, image, values, [&] {
    int32_t place[3];
    ImageYuv444Interleaved_getYuvIndex(&place[0], &place[1], &place[2], image->format);
    Unit unit = {{}, 3};
    for (int32_t i = 0; i < 3; ++i) unit.set<uint8_t>(place[i], values[i]);
    fillPlane(image, 0, unit);
  });
}

Status ImageYuvPlanarSemiplanar_clear(Image* image, const int32_t* values) {
  return clearIf(isYuvPlanes, image, values, [&] {
    fillPlane(image, 0, unitOf<uint8_t>(values, 1));
    if (Image_isYuvPlanar(image->format) != 0) {
      fillPlane(image, 1, unitOf<uint8_t>(values + 1, 1));
      fillPlane(image, 2, unitOf<uint8_t>(values + 2, 1));
      return;
    }
    const int32_t first = Image_isYvuSemiplanar(image->format) != 0 ? 2 : 1;
    const int32_t pair[2] = {values[first], values[3 - first]};
    fillPlane(image, 1, unitOf<uint8_t>(pair, 2));
  });
}

Status ImageBayer8_clear(Image* image, const int32_t* values) {
  return clearIf(Image_isBayer8, image, values, [&] { fillPlane(image, 0, unitOf<uint8_t>(values, 1)); });
}

Status ImageBayer16_clear(Image* image, const int32_t* values) {
  return clearIf(Image_isBayerUnpacked, image, values, [&] { fillPlane(image, 0, unitOf<uint16_t>(values, 1)); });
}

Status ImageRgb161616_clear(Image* image, const int32_t* values) {
  return clearPixels<IMAGE_RGB161616, uint16_t, 3>(image, values);
}
Status ImageUint8_clear(Image* image, const int32_t* values) {
  return clearPixels<IMAGE_UINT8, uint8_t, 1>(image, values);
}
Status ImageUint16_clear(Image* image, const int32_t* values) {
  return clearPixels<IMAGE_UINT16, uint16_t, 1>(image, values);
}
Status ImageUint88_clear(Image* image, const int32_t* values) {
  return clearPixels<IMAGE_UINT88, uint8_t, 2>(image, values);
}
Status ImageInt32_clear(Image* image, const int32_t* values) {
  return clearPixels<IMAGE_INT32, int32_t, 1>(image, values);
}
Status ImageFloat_clear(Image* image, const int32_t* values) {
  return clearPixels<IMAGE_FLOAT, float, 1>(image, values);
}
