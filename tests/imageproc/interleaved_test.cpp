#include "imageproc/blur.h"
#include "imageproc/kernel_rig.h"
#include "imageproc/resize.h"

namespace {

// Channels never mix: pixels of three and four bytes are resized and blurred as pairs of the same bytes are.
TEST(Interleaved, ChannelsGoTheWayOfPairs) {
  KernelRig rig(0);
  for (const int32_t format : {IMAGE_RGB888, IMAGE_BGR888, IMAGE_RGBA8888}) {
    for (const auto& [w, h] : {std::pair{23, 60}, {90, 31}, {70, 40}}) {
      const bool blurs = w == 70 && format == IMAGE_RGB888;
      TestImage src(70, 40, format, 1, 8), dst(w, h, format, 2, 8), pairs(70, 40, IMAGE_UINT88, 3, 8);
      const auto run = [&, w = w](Image* out, const Image* in) {
        return w != 70 ? ImageProc_resizeImage(&rig.proc, out, in) : ImageProc_pgaussBlur(&rig.proc, out, in, 5.0);
      };
      if (w == 70 && !blurs) continue;
      ASSERT_EQ(run(&dst, &src), ZELVAN_OK) << format;
      Plane from = planesOf(src)[0], to = planesOf(dst)[0];
      for (int32_t c = 0; c < from.channels; ++c) {
        TestImage expected(w, h, IMAGE_UINT88, 4, 8);
        planesOf(pairs)[0].fill([&](int32_t x, int32_t y, int32_t i) {
          return imageRow(&pairs, y)[2 * x + i] = static_cast<uint8_t>(from.at(x, y, c));
        });
        ASSERT_EQ(run(&expected, &pairs), ZELVAN_OK);
        planesOf(expected)[0].fill([&](int32_t x, int32_t y, int32_t i) {
          EXPECT_EQ(to.at(x, y, c), imageRow(&expected, y)[2 * x + i]) << format << ' ' << x << ' ' << y;
          return 0;
        });
      }
      if (blurs) {
        EXPECT_EQ(ImageProc2_pgaussBlur(&rig.proc2, &dst, &src, 5.0), ZELVAN_ERROR_UNSUPPORTED);
      }
    }
  }
}

}  // namespace
