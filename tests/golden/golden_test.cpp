// Hashes of every stage of one burst, so that a change of bits names the stage where it came in.
#include "support/golden.h"
#include "api/tessal4_handle.h"
#include "support/burst.h"

namespace test {
namespace {

constexpr int32_t kFrames = 4;
constexpr int32_t kWidth = 1280;  // stored at half size
constexpr int32_t kHeight = 960;

// The road with stops, for one format and one kind of settings.
void runBurst(const std::string& name, const std::string& format, bool strong) {
  constexpr uint32_t kOk = ZELVAN_TESSALINE4_OK;
  std::vector<uint8_t> memory(
      static_cast<size_t>(zelvan_Tessaline4_getBufferSize(kWidth, kHeight, kFrames, format.c_str())));
  std::vector<Frame> frames = makeBurst(format, kWidth, kHeight, kFrames);
  Frame output = makeFrame(format, kWidth, kHeight);
  zelvan_Tessaline4 handle = {nullptr};
  ASSERT_EQ(zelvan_Tessaline4_initialize(&handle, memory.data(), static_cast<int32_t>(memory.size()), kWidth, kHeight),
            kOk);
  ASSERT_EQ(zelvan_Tessaline4_setImageFormat(&handle, format.c_str()), kOk);
  if (strong) {
    zelvan_Tessaline4_setGamma(&handle, 90);
    zelvan_Tessaline4_setAutoScaling(&handle, 1);
    zelvan_Tessaline4_setLumaNoiseReductionLevel(&handle, 6);
    zelvan_Tessaline4_setChromaNoiseReductionLevel(&handle, 7);
    zelvan_Tessaline4_setSaturationLevel(&handle, 1200);
    zelvan_Tessaline4_setRemoveSpikeNoiseLevel_internal(&handle, 2);
  }
  ASSERT_EQ(zelvan_Tessaline4_start(&handle, &output.data, kFrames), kOk);
  for (Frame& frame : frames) ASSERT_EQ(zelvan_Tessaline4_addImage(&handle, &frame.data), kOk);
  Tessal4Handle* self = handle.pointer;
  Tessal4* engine = &self->engine;
  const auto note = [&](const char* stage, const Hash& hash) { expectGolden("hashes.txt", name + "." + stage, hash); };

  Hash intake;
  for (int32_t i = 0; i < kFrames; ++i) intake.image(engine->shrunk[i]);
  note("1-intake", intake);
  int32_t order[kTessal4Frames];
  ASSERT_EQ(Tessal4_getRecommendedOrder(engine, order, nullptr), kOk);
  note("2-order", Hash().bytes(engine->blurScore, kFrames * sizeof(int32_t)).bytes(order, kFrames * sizeof(int32_t)));
  ASSERT_EQ(Tessal4_solve(engine, order[0]), kOk);
  Hash solve;
  for (int32_t i = 0; i < kFrames; ++i) solve.bytes(engine->motions[i].h, sizeof(engine->motions[i].h));
  note("3-solve", solve);
  ASSERT_EQ(Tessal4_merge(engine, self->frames, order, self->mergeCount), kOk);
  note("4-differences", Hash().image(engine->diffMap));
  note("5-weights", Hash().image(engine->accWeight));
  note("6-merge", Hash().image(*engine->accumulatorPtr));
  ASSERT_EQ(Tessal4_noiseReduction(engine), kOk);
  note("7-finish", Hash().image(self->output));
  ASSERT_EQ(zelvan_Tessaline4Internal_weakUvNr(engine, &self->output, &self->output, nullptr, &self->weakUvNrParams),
            kOk);
  note("8-chroma", Hash().image(self->output));
  EXPECT_EQ(zelvan_Tessaline4_finalize(&handle), kOk);
}

TEST(Golden, EveryStageKeepsItsBits) {
  runBurst("defaults-vu", "YVU420_SEMIPLANAR", false);
  runBurst("strong-uv", "YUV420_SEMIPLANAR", true);
}

}  // namespace
}  // namespace test
