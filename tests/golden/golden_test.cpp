// Hashes of every stage of one burst, so that a change of bits names the stage where it came in.
// scripts/renew-golden writes the file anew.
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <map>

#include "api/tessal4_handle.h"
#include "support/burst.h"

namespace test {
namespace {

constexpr int32_t kFrames = 4;
constexpr int32_t kWidth = 1280;  // stored at half size
constexpr int32_t kHeight = 960;
const char* const kFile = ZVT4_TESTS_DIR "/golden/hashes.txt";

// FNV-1a, 64 bits.
class Hash {
 public:
  Hash& bytes(const void* data, size_t size) {
    const auto* at = static_cast<const uint8_t*>(data);
    for (size_t i = 0; i < size; ++i) value_ = (value_ ^ at[i]) * 0x100000001b3u;
    return *this;
  }
  Hash& image(const Image& image) {
    const ImageFormatDescriptor& d = imageFormatDescriptor(image.format);
    const uint8_t* planes[3] = {image.plane0, image.plane1, image.plane2};
    const int32_t pitches[3] = {image.pitch0, image.pitch1, image.pitch2};
    for (int32_t p = 0; p < 3; ++p) {
      const ImagePlaneDescriptor& plane = d.planes[p];
      if (plane.bytes == 0) continue;
      const size_t row = static_cast<size_t>(((image.width + (1 << plane.shiftX) - 1) >> plane.shiftX) * plane.bytes);
      const int32_t rows = ((image.height + (1 << plane.shiftY) - 1) >> plane.shiftY) * plane.rows;
      for (int32_t y = 0; y < rows; ++y) bytes(planes[p] + static_cast<ptrdiff_t>(y) * pitches[p], row);
    }
    return *this;
  }
  uint64_t value() const { return value_; }

 private:
  uint64_t value_ = 0xcbf29ce484222325u;
};

using Hashes = std::map<std::string, uint64_t>;

// The road with stops, for one format and one kind of settings.
void runBurst(const std::string& name, const std::string& format, bool strong, Hashes* hashes) {
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
  const auto note = [&](const char* stage, const Hash& hash) { (*hashes)[name + "." + stage] = hash.value(); };

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
  Hashes hashes;
  runBurst("defaults-vu", "YVU420_SEMIPLANAR", false, &hashes);
  runBurst("strong-uv", "YUV420_SEMIPLANAR", true, &hashes);
  ASSERT_EQ(hashes.size(), 16u);
  if (std::getenv("ZVT4_RENEW_GOLDEN") != nullptr) {
    std::ofstream file(kFile);
    for (const auto& [stage, hash] : hashes) file << stage << ' ' << std::hex << hash << '\n';
    ASSERT_TRUE(file.good());
  }
  std::ifstream file(kFile);
  Hashes golden;
  std::string stage;
  uint64_t hash;
  while (file >> stage >> std::hex >> hash) golden[stage] = hash;
  for (const auto& [name, value] : hashes) EXPECT_EQ(golden[name], value) << name;
}

}  // namespace
}  // namespace test
