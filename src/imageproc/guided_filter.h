// GuidedFilter: the directional self-guided smoother of the luma plane.
#ifndef ZVT4_IMAGEPROC_GUIDED_FILTER_H_
#define ZVT4_IMAGEPROC_GUIDED_FILTER_H_

#include "imageproc/guided_filter_coeff.h"
#include "imageproc/image_proc.h"

struct GuidedFilterParam {
  int32_t useEpsilonMap;  // default 1
  int32_t numShrink;      // default 2; log2 of the grid shrink, 0 to 2
};

struct GuidedFilter {
  Env* env;
  Pel* pel;
  GuidedFilterCoeff coeff;
  int32_t width;
  int32_t height;
  int32_t maxWindow;  // 101
  Image dstY;
  Image srcY;
  Image dstYRect;
  Image srcYRect;
  Image aRect;
  Image bRect;
  Image guideRect;
  Image squareRect;
  Image a;
  Image b;
  Image guide;
  Image square;
  ImageRect rect;
  ImageRect shrunkRect;
  int32_t useEpsilonMap;
  int32_t numShrink;
  ImageProc2 resize;
  Image epsilonMap;
  Image epsilonMapRect;
};

extern "C" {
Status GuidedFilterParam_setDefault(GuidedFilterParam* param) ZVT4_NAME(GuidedFilterParam_setDefault);
int32_t GuidedFilter_getBufferSize(int32_t width, int32_t height, int32_t unused, const GuidedFilterParam* param)
    ZVT4_NAME(GuidedFilter_getBufferSize);
Status construct_GuidedFilter(GuidedFilter* filter, Env* env) ZVT4_NAME(construct_GuidedFilter);
Status destruct_GuidedFilter(GuidedFilter* filter) ZVT4_NAME(destruct_GuidedFilter);
Status GuidedFilter_init(GuidedFilter* filter, int32_t width, int32_t height, const GuidedFilterParam* param)
    ZVT4_NAME(GuidedFilter_init);
Status GuidedFilter_recycle(GuidedFilter* filter) ZVT4_NAME(GuidedFilter_recycle);
Status GuidedFilter_setPel(GuidedFilter* filter, Pel* pel) ZVT4_NAME(GuidedFilter_setPel);
Status GuidedFilter_setRect(GuidedFilter* filter, const ImageRect* rect) ZVT4_NAME(GuidedFilter_setRect);
Status GuidedFilter_execute(GuidedFilter* filter, Image* dst, Image* src, float epsilon, int32_t window)
    ZVT4_NAME(GuidedFilter_execute);
Status GuidedFilter_execute_with_epsilon_map(GuidedFilter* filter, Image* dst, Image* src, float epsilon,
                                             const Image* map, int32_t window)
    ZVT4_NAME(GuidedFilter_execute_with_epsilon_map);
}

#endif  // ZVT4_IMAGEPROC_GUIDED_FILTER_H_
