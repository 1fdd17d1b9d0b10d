// Conversions between any two formats at any size and rectangle: only the rectangle's units are written, a plain form
// is its rectangle form over the whole image, refusals write nothing.
#include "guarded_image.h"
#include "image/image_conv.h"
#include "imageproc/arithmetic.h"

namespace {

using fuzz::GuardedImage;

struct Way {
  Status (*plain)(Image*, const Image*);
  Status (*cut)(Image*, const Image*, const ImageRect*);  // null: there is none
  int32_t first, last;                                    // formats that it is for
};
constexpr Way kWays[] = {
    {Image_conv_toRgb888, Image_conv_toRgb888_withRect, 2, 2},
    {Image_conv_toRgb565, Image_conv_toRgb565_withRect, 1, 1},
    {Image_conv_toUint8888, Image_conv_toUint8888_withRect, 4, 15},
    {Image_conv_toYuv422Interleaved, Image_conv_toYuv422Interleaved_withRect, 16, 23},
    {Image_conv_toYuv422Planar, Image_conv_toYuv422Planar_withRect, 24, 24},
    {Image_conv_toYuv422Semiplanar, Image_conv_toYuv422Semiplanar_withRect, 25, 25},
    {Image_conv_toYuv420Planar, Image_conv_toYuv420Planar_withRect, 26, 26},
    {Image_conv_toYuv420Semiplanar, Image_conv_toYuv420Semiplanar_withRect, 27, 27},
    {Image_conv_toYvu422Semiplanar, Image_conv_toYvu422Semiplanar_withRect, 28, 28},
    {Image_conv_toYvu420Semiplanar, Image_conv_toYvu420Semiplanar_withRect, 29, 29},
    {Image_conv_toBayer8, Image_conv_toBayer8_withRect, 37, 40},
    {Image_conv_toBayer16, Image_conv_toBayer16_withRect, 53, 56},
    {Image_conv_toUint8, Image_conv_toUint8_withRect, 57, 57},
    {Image_conv_toUint16, Image_conv_toUint16_withRect, 61, 61},
    {Image_conv_toRgb161616, Image_conv_toRgb161616_withRect, 62, 62},
};

bool isLegal(Status status) {
  return status == ZELVAN_OK || status == ZELVAN_ERROR_PARAM || status == ZELVAN_ERROR_UNSUPPORTED;
}

void convert(fuzz::Input* input, int32_t width, int32_t height, int32_t gap) {
  const Way& way = kWays[input->byte() % std::size(kWays)];
  const int32_t from = input->between(1, IMAGE_FORMAT_COUNT - 1);
  // What comes from 4:2:0 is packed without a look at the destination's format, which must have the room.
  const bool trusts = way.plain == Image_conv_toYuv422Interleaved && from == IMAGE_YUV420_SEMIPLANAR;
  const bool other = input->oneIn(16) && !trusts;
  const int32_t to = other ? input->between(1, IMAGE_FORMAT_COUNT - 1) : input->between(way.first, way.last);
  ImageRect rect = {input->between(0, width), input->between(0, height), width, height};
  rect.right = input->between(rect.left, width);
  rect.bottom = input->between(rect.top, height);
  if (input->oneIn(16)) rect.right = width + input->between(1, 3);
  const uint32_t seed = input->byte();

  GuardedImage src(width, height, from, gap, seed);
  GuardedImage part(width, height, to, gap, seed + 1);
  GuardedImage whole(width, height, to, gap, seed + 1);
  GuardedImage all(width, height, to, gap, seed + 1);
  const Status partly = way.cut(&part, &src, &rect);
  const Status plainly = way.plain(&whole, &src);
  REQUIRE(isLegal(partly) && isLegal(plainly));
  REQUIRE(src.unchanged());
  REQUIRE(part.changedOutside(partly == ZELVAN_OK ? rect : ImageRect{0, 0, 0, 0}) == 0);
  if (plainly != ZELVAN_OK) REQUIRE(whole.unchanged());
  const ImageRect everything = {0, 0, width, height};
  REQUIRE(whole.changedOutside(everything) == 0);
  REQUIRE(way.cut(&all, &src, &everything) == plainly);
  REQUIRE(whole.sameBytes(&all));
}

void arithmetic(fuzz::Input* input, int32_t width, int32_t height, int32_t gap) {
  const int32_t from = input->between(1, IMAGE_FORMAT_COUNT - 1);
  const bool shift = input->oneIn(2);
  const int32_t to = shift ? from : input->between(1, IMAGE_FORMAT_COUNT - 1);
  const int32_t by = input->between(-40, 40);
  const uint32_t seed = input->byte();
  GuardedImage src(width, height, from, gap, seed);
  GuardedImage dst(width, height, to, gap, seed + 1);
  fuzz::Arena arena(1 << 16);
  ImageProc proc;
  REQUIRE(construct_ImageProc(&proc, arena.env()) == ZELVAN_OK);
  const Status status = shift ? ImageProc_n_shift(&proc, &dst, &src, by) : ImageProc_cvt(&proc, &dst, &src);
  REQUIRE(isLegal(status) || status == ZELVAN_ERROR_GENERAL);  // the last: a pair without a way
  REQUIRE(src.unchanged());
  REQUIRE(dst.changedOutside(status == ZELVAN_OK ? ImageRect{0, 0, width, height} : ImageRect{0, 0, 0, 0}) == 0);
  REQUIRE(destruct_ImageProc(&proc) == ZELVAN_OK);
}

void shrinkLuma(fuzz::Input* input, int32_t width, int32_t height, int32_t gap) {
  const int32_t from = input->between(1, IMAGE_FORMAT_COUNT - 1);
  ImageRect rect = {input->between(0, width), input->between(0, height), width, height};
  rect.right = input->between(rect.left, width);
  rect.bottom = input->between(rect.top, height);
  const int32_t ratio = input->between(-1, 9);
  GuardedImage src(width, height, from, gap, input->byte());
  fuzz::Arena arena(1 << 16);
  Image dst;
  REQUIRE(construct_Image(&dst, arena.env()) == ZELVAN_OK);
  const Status status = Image_toYUint8Shrink(&dst, &src, &rect, ratio);
  REQUIRE(isLegal(status));
  if (status == ZELVAN_OK) {
    REQUIRE(dst.width == (rect.right - rect.left) / ratio && dst.height == (rect.bottom - rect.top) / ratio);
  }
  REQUIRE(src.unchanged());
  REQUIRE(destruct_Image(&dst) == ZELVAN_OK);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz::Input input(data, size);
  const int32_t width = input.between(1, 150);
  const int32_t height = input.between(1, 40);
  const int32_t gap = 4 * input.between(0, 2);  // so that rows stay aligned for wide samples
  switch (input.byte() % 4) {
    case 0:
      arithmetic(&input, width, height, gap);
      break;
    case 1:
      shrinkLuma(&input, width, height, gap);
      break;
    default:
      convert(&input, width, height, gap);
      break;
  }
  return 0;
}
