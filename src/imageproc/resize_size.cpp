#include "imageproc/resize.h"

namespace {

// The source's shape with one side taken from the box: its width when wide is set, else its height.
void scaleToBox(int32_t* outWidth, int32_t* outHeight, int32_t width, int32_t height, int32_t boxWidth,
                int32_t boxHeight, bool wide) {
  *outWidth = wide ? boxWidth : static_cast<int32_t>(int64_t{boxHeight} * width / height);
  *outHeight = wide ? static_cast<int32_t>(int64_t{boxWidth} * height / width) : boxHeight;
}

}  // namespace

Status ImageProc_getSizeFit(int32_t* outWidth, int32_t* outHeight, int32_t width, int32_t height, int32_t boxWidth,
                            int32_t boxHeight) {
  if (width == 0 || height == 0 || boxWidth == 0 || boxHeight == 0) return ZELVAN_ERROR_GENERAL;
  const bool wide = int64_t{boxHeight} * width >= int64_t{boxWidth} * height;
  scaleToBox(outWidth, outHeight, width, height, boxWidth, boxHeight, wide);
  return ZELVAN_OK;
}

Status ImageProc_getSizeMax(int32_t* outWidth, int32_t* outHeight, int32_t width, int32_t height, int32_t boxWidth,
                            int32_t boxHeight) {
  if (width == 0 || height == 0 || boxWidth == 0 || boxHeight == 0) return ZELVAN_ERROR_GENERAL;
  const bool wide = int64_t{boxHeight} * width <= int64_t{boxWidth} * height;
  scaleToBox(outWidth, outHeight, width, height, boxWidth, boxHeight, wide);
  return ZELVAN_OK;
}

Status ImageProc_getSizeArea(int32_t* outWidth, int32_t* outHeight, int32_t width, int32_t height, int32_t area) {
  int32_t low = 0;
  int32_t high = 0x100000;  // 32.0 in Q15
  for (int32_t round = 0; round < 30; ++round) {
    const int32_t scale = (low + high + 1) >> 1;
    const int64_t w = (int64_t{scale} * width + 32767) >> 15;
    const int64_t h = (int64_t{scale} * height + 32767) >> 15;
    *outWidth = static_cast<int32_t>(w);
    *outHeight = static_cast<int32_t>(h);
    if (w * h < area) {
      low = scale;
      continue;
    }
    high = scale;
    if (w * h == area) break;
  }
  return ZELVAN_OK;
}
