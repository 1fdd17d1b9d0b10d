// GuidedFilterCoeff: the coefficient stage of the guided filter, on the shrunk grid.
#ifndef ZVT4_IMAGEPROC_GUIDED_FILTER_COEFF_H_
#define ZVT4_IMAGEPROC_GUIDED_FILTER_COEFF_H_

#include "image/image.h"
#include "parallel/pel.h"

struct GuidedFilterCoeff {
  Env* env;
  Pel* pel;
  int32_t width;
  int32_t height;
  Image a[4];  // per direction: horizontal, vertical, diagonal, anti-diagonal
  Image b[4];
  Image sumGuide;   // window sums of the guide
  Image sumSquare;  // of the square
  Image wideScratch;
  Image byteScratch;
  Image rowScratch;
  Image sumGuideRect;
  Image sumSquareRect;
  ImageRect rect;
  int32_t numShrink;
};

extern "C" {
int32_t GuidedFilterCoeff_getBufferSize(int32_t width, int32_t height, int32_t maxWindow)
    ZVT4_NAME(GuidedFilterCoeff_getBufferSize);
Status construct_GuidedFilterCoeff(GuidedFilterCoeff* coeff, Env* env) ZVT4_NAME(construct_GuidedFilterCoeff);
Status destruct_GuidedFilterCoeff(GuidedFilterCoeff* coeff) ZVT4_NAME(destruct_GuidedFilterCoeff);
Status GuidedFilterCoeff_init(GuidedFilterCoeff* coeff, int32_t width, int32_t height, int32_t maxWindow)
    ZVT4_NAME(GuidedFilterCoeff_init);
Status GuidedFilterCoeff_setNumShrink(GuidedFilterCoeff* coeff, int32_t numShrink)
    ZVT4_NAME(GuidedFilterCoeff_setNumShrink);
Status GuidedFilterCoeff_setRect(GuidedFilterCoeff* coeff, const ImageRect* rect) ZVT4_NAME(GuidedFilterCoeff_setRect);
Status GuidedFilterCoeff_calcCoeff(GuidedFilterCoeff* coeff, Image* a, Image* b, Image* guide, Image* square,
                                   float epsilon, int32_t window) ZVT4_NAME(GuidedFilterCoeff_calcCoeff);
Status GuidedFilterCoeff_calcCoeff_with_epsilon_map(GuidedFilterCoeff* coeff, Image* a, Image* b, Image* guide,
                                                    Image* square, float epsilon, const Image* map, int32_t window)
    ZVT4_NAME(GuidedFilterCoeff_calcCoeff_with_epsilon_map);
}

#endif  // ZVT4_IMAGEPROC_GUIDED_FILTER_COEFF_H_
