// Stages on a Pel whose waits run out long before its work is done.
#include <chrono>
#include <functional>
#include <thread>

#include "filters/denoiser.h"
#include "filters/denoiser2.h"
#include "filters/sharpen.h"
#include "filters/weak_uv_nr.h"
#include "parallel/pel_kernel.h"
#include "pixels/image_func.h"
#include "support/pixel_scene.h"

namespace {

Status sleepAWhile(int32_t* millis, const PelContext*) {
  std::this_thread::sleep_for(std::chrono::milliseconds(*millis));
  return ZELVAN_OK;
}
constexpr PelKernel kSleep = pelTask<int32_t, sleepAWhile>();

// The jobs of these stages live on the stack or in scratch: a stage ends when its last job has ended, with its result.
TEST(SlowPel, NoStageReturnsWhileAJobIsOpen) {
  constexpr int32_t kWidth = 160, kHeight = 128;
  TestArena arena(1 << 22);
  Env* const env = arena.env();
  TestPel slow(1, 0, 1);
  TestImage src(kWidth, kHeight, IMAGE_YUV420_SEMIPLANAR), map(kWidth, kHeight, IMAGE_UINT8);
  TestImage mask(kWidth / 8 + 1, kHeight / 8 + 1, IMAGE_UINT8);
  fillScene(src, 3, 20);
  fillMap(map, 5, 128);
  fillMap(mask, 6, 128);
  Tessal4Denoiser2Params two = {};
  two.spike = two.lumaPasses = two.chromaPasses = 1;
  two.chromaStrength[0] = 5.0;
  two.blend = 700;
  const int32_t kinds[] = {1};
  const double strengths[] = {4.0, 4.0, 4.0};
  const WeakUvNrParams weak = {1, 4, 25, 2.0f, 2.0f, 1.0f, 1.0f};
  uint8_t table[256];
  for (int32_t i = 0; i < 256; ++i) table[i] = static_cast<uint8_t>(255 - i);
  const std::function<Status(Pel*, Image*)> stages[] = {
      [&](Pel* pel, Image* dst) {
        return Tessal4ImageFunc_deconv_withmap(pel, env, &src, dst, &map, 0.8, 0.2, 900, 0.25);
      },
      [&](Pel* pel, Image* dst) {
        Image_copy(dst, &src);
        return Tessal4Denoiser_denoiseInplace(pel, env, dst, &map, 0, kinds, 1, 4, 1, strengths);
      },
      [&](Pel* pel, Image* dst) { return Tessal4Denoiser_removeSpikePEL(pel, dst, &src, &map, 9.0); },
      [&](Pel* pel, Image* dst) { return Tessal4Denoiser_denoiseYPEL(pel, &src, dst, &map, 5.0, 2, 3); },
      [&](Pel* pel, Image* dst) { return Tessal4Denoiser_denoiseUVPEL(pel, &src, dst, &src, &map, 2.0, 2.0); },
      [&](Pel* pel, Image* dst) {
        Tessal4Denoiser2 denoiser = {env, nullptr, pel};
        return Tessal4Denoiser2_reduceNoise(&denoiser, dst, &src, &mask, &two);
      },
      [&](Pel* pel, Image* dst) { return weakUvNr(env, pel, dst, &src, &map, &weak); },
      [&](Pel* pel, Image* dst) { return Tessal4ImageFunc_table(pel, dst, &map, table); },
  };
  for (const auto& stage : stages) {
    SCOPED_TRACE(&stage - stages);
    TestImage expected(kWidth, kHeight, IMAGE_YUV420_SEMIPLANAR), dst(kWidth, kHeight, IMAGE_YUV420_SEMIPLANAR);
    ASSERT_EQ(stage(nullptr, &expected), ZELVAN_OK);
    int32_t millis = 40;  // the only thread is busy at first
    ASSERT_EQ(Pel_enqueueTask(slow.get(), &kSleep, &millis, 0, nullptr, nullptr), ZELVAN_OK);
    EXPECT_EQ(stage(slow.get(), &dst), ZELVAN_OK);
    EXPECT_EQ(slow.get()->enqueuedJobs, slow.get()->completedJobs);
    EXPECT_TRUE(dst.sameBytes(expected));
  }
}

}  // namespace
