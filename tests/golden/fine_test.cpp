// Hashes of what a burst is in the fine mode, step by step. They may change with the method; on all machines and with
// all compilers they are the same.
#include "api/tessal4_handle.h"
#include "support/burst.h"
#include "support/golden.h"

namespace test {
namespace {

TEST(FineGolden, EveryStepIsTheSameEverywhere) {
  constexpr uint32_t kOk = ZELVAN_TESSALINE4_OK;
  constexpr int32_t kFrames = 4;
  for (const auto& [width, height, scaling] : {std::tuple(641, 483, 1u), std::tuple(1280, 960, 0u)}) {
    const std::string format = "YVU420_SEMIPLANAR";
    std::vector<uint8_t> memory(
        static_cast<size_t>(zelvan_Tessaline4_getBufferSize(width, height, kFrames, format.c_str())));
    std::vector<Frame> frames = makeBurst(format, width, height, kFrames);
    Frame output = makeFrame(format, width, height);
    zelvan_Tessaline4 handle = {nullptr};
    ASSERT_EQ(zelvan_Tessaline4_initialize(&handle, memory.data(), static_cast<int32_t>(memory.size()), width, height),
              kOk);
    zelvan_Tessaline4_setFineMode(&handle, 1);
    zelvan_Tessaline4_setAutoScaling(&handle, scaling);
    ASSERT_EQ(zelvan_Tessaline4_start(&handle, &output.data, kFrames), kOk);
    for (Frame& frame : frames) ASSERT_EQ(zelvan_Tessaline4_addImage(&handle, &frame.data), kOk);
    ASSERT_EQ(zelvan_Tessaline4_getResult(&handle), kOk);

    const fine::Burst& burst = handle.pointer->fine;
    const std::string name = "fine-" + std::to_string(width);
    const auto note = [&](const char* step, const Hash& hash) { expectGolden("fine.txt", name + "." + step, hash); };
    Hash intake, motions, weights;
    for (int32_t i = 0; i < kFrames; ++i) {
      const fine::FrameRecord& frame = burst.frames[i];
      intake.image(frame.pyramid.level[1]).image(frame.pyramid.colour).bytes(&frame.score, sizeof(frame.score));
      motions.bytes(frame.alignment.motion.h, sizeof(frame.alignment.motion.h));
      if (frame.status == fine::MERGED && frame.weights.plane0 != nullptr) weights.image(frame.weights);
    }
    note("1-intake", intake.bytes(burst.order, kFrames * sizeof(int32_t)));
    note("2-motions", motions);
    note("3-noise",
         Hash().bytes(burst.noise.full, sizeof(burst.noise.full)).bytes(burst.noise.map, sizeof(burst.noise.map)));
    note("4-weights", weights);
    note("5-result", Hash().bytes(output.bytes.data(), output.bytes.size()));
    EXPECT_EQ(zelvan_Tessaline4_finalize(&handle), kOk);
  }
}

}  // namespace
}  // namespace test
