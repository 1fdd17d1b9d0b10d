#include <array>

#include "api/tessal4_handle.h"
#include "instance.h"

namespace test {
namespace {

template <typename Value>
struct Setting {
  const char* name;
  uint32_t (*set)(zelvan_Tessaline4*, Value);
  uint32_t (*get)(zelvan_Tessaline4*, Value*);
  Value initial;
  std::vector<std::pair<Value, Value>> accepted;  // set, read back
  std::vector<Value> refused;
};

#define SETTING(name) #name, zelvan_Tessaline4_set##name, zelvan_Tessaline4_get##name
const Setting<int32_t> kIntSettings[] = {
    {SETTING(NumberOfMergeImages), 11, {{0, 0}, {1, 1}, {-3, -3}, {100, 100}}, {}},
    {SETTING(AutoScaling), 0, {{0, 0}, {1, 1}, {5, 1}}, {}},
    {SETTING(AutoSorting), 1, {{0, 0}, {1, 1}, {-8, 1}}, {}},
    {SETTING(ObjBlurCorrectionLevel), 1, {{0, 0}, {7, 7}}, {8, -1}},
    {SETTING(LumaNoiseReductionLevel), 0, {{0, 0}, {7, 7}}, {8, -1}},
    {SETTING(ChromaNoiseReductionLevel), 0, {{0, 0}, {7, 7}}, {8, -1}},
    {SETTING(SaturationLevel), 1024, {{0, 0}, {4096, 4096}}, {4097, -1}},
    {SETTING(Gain), 100, {{0, 0}, {1000, 1000}}, {1001, -1}},
    {SETTING(Gamma), 100, {{0, 0}, {1000, 1000}}, {1001, -1}},
    {SETTING(Contrast), 0, {{0, 0}, {2000, 2000}}, {2001, -1}},
    {SETTING(SharpnessEnhanceLevel), 900, {{0, 0}, {10000, 10000}}, {10001, -1}},
    {SETTING(FineMode), 0, {{0, 0}, {1, 1}}, {2, -1}},
    {SETTING(LumaNoiseReductionTimes_internal), 0, {{5, 5}, {-2, -2}}, {}},
    {SETTING(ChromaNoiseReductionTimes_internal), 0, {{5, 5}, {-2, -2}}, {}},
    {SETTING(RemoveSpikeNoiseLevel_internal), 0, {{255, 255}, {-1, -1}}, {}},
};
const Setting<double> kDoubleSettings[] = {
    {SETTING(ObjBlurCorrectionLevel_internal), 0.4, {{2.5, 2.5}, {-1.0, -1.0}}, {}},
    {SETTING(LumaNoiseReductionLevel_internal), 0.0, {{1000.0, 1000.0}, {12.9, 12.0}}, {1000.5, -0.1, NAN}},
    {SETTING(ChromaNoiseReductionLevel_internal), 4.0, {{50.5, 50.5}}, {}},
};

template <typename Value>
void check(const Setting<Value>& setting) {
  SCOPED_TRACE(setting.name);
  Instance handle(640, 480, 1);
  zelvan_Tessaline4 empty = {nullptr};
  Value value = 12345;
  EXPECT_EQ(setting.set(nullptr, Value{}), kParam);
  EXPECT_EQ(setting.set(&empty, Value{}), kParam);
  EXPECT_EQ(setting.get(nullptr, &value), kParam);
  EXPECT_EQ(setting.get(&empty, &value), kParam);
  EXPECT_EQ(setting.get(handle, nullptr), kParam);
  EXPECT_EQ(value, 12345);
  EXPECT_EQ(setting.get(handle, &value), kOk);
  EXPECT_EQ(value, setting.initial);
  for (const auto& [in, out] : setting.accepted) {
    EXPECT_EQ(setting.set(handle, in), kOk);
    for (Value bad : setting.refused) EXPECT_EQ(setting.set(handle, bad), kParam);
    EXPECT_EQ(setting.get(handle, &value), kOk);
    EXPECT_EQ(value, out);
  }
  EXPECT_EQ(handle.start(), kOk);
  EXPECT_EQ(setting.set(handle, Value{}), kState);
  EXPECT_EQ(setting.get(handle, &value), kOk);
}

TEST(Settings, KeepTheirRanges) {
  for (const auto& setting : kIntSettings) check(setting);
  for (const auto& setting : kDoubleSettings) check(setting);
}

TEST(Settings, PairsComeBack) {
  Instance handle(640, 480, 1);
  int32_t threads = 0;
  uint32_t mask = 7;
  double first = 0, second = 0;
  const auto expect = [&](int32_t wantThreads, uint32_t wantMask, double wantFirst, double wantSecond) {
    EXPECT_EQ(zelvan_Tessaline4_getCoreSetting(handle, &threads, &mask), kOk);
    EXPECT_EQ(zelvan_Tessaline4_getSharpnessEnhanceSigma_internal(handle, &first, &second), kOk);
    EXPECT_TRUE(threads == wantThreads && mask == wantMask) << threads << ' ' << mask;
    EXPECT_TRUE(first == wantFirst && second == wantSecond) << first << ' ' << second;
  };
  expect(-1, 0, 0.2, 0.8);
  EXPECT_EQ(zelvan_Tessaline4_setCoreSetting(handle, 3, 0x80000001u), kOk);
  EXPECT_EQ(zelvan_Tessaline4_setSharpnessEnhanceSigma_internal(handle, 0.3, 1.5), kOk);
  expect(3, 0x80000001u, 0.3, 1.5);
  EXPECT_EQ(zelvan_Tessaline4_getCoreSetting(handle, nullptr, &mask), kParam);
  EXPECT_EQ(zelvan_Tessaline4_getCoreSetting(handle, &threads, nullptr), kParam);
  EXPECT_EQ(zelvan_Tessaline4_getSharpnessEnhanceSigma_internal(handle, nullptr, &second), kParam);
  EXPECT_EQ(zelvan_Tessaline4_getSharpnessEnhanceSigma_internal(handle, &first, nullptr), kParam);
}

TEST(Settings, ImageFormats) {
  struct Row {
    const char* name;
    uint32_t status;
    int32_t working;
    int32_t wrapped;
  };
  const Row rows[] = {
      {"YUV422_YUYV", kOk, 27, 16},       {"YUV420_SEMIPLANAR", kOk, 27, -1},      {"YUV420_PLANAR", kOk, 27, 26},
      {"RGB888", kUnsupported, 27, 26},   {"yuv420_planar", kUnsupported, 27, 26}, {nullptr, kUnsupported, 27, 26},
      {"YVU420_SEMIPLANAR", kOk, 29, -1}, {"YUV420_PLANAR", kOk, 27, 26},
  };
  Instance handle(640, 480, 1);
  for (const Row& row : rows) {
    EXPECT_EQ(zelvan_Tessaline4_setImageFormat(handle, row.name), row.status);
    EXPECT_EQ(handle->pointer->imageFormat, row.working);
    EXPECT_EQ(handle->pointer->wrappedFormat, row.wrapped);
  }
  char text[24] = "untouched";
  const auto nameIn = [&](int32_t size) {
    EXPECT_EQ(zelvan_Tessaline4_getImageFormat(handle, text, size), kOk);
    return std::string(text);
  };
  EXPECT_EQ(zelvan_Tessaline4_getImageFormat(handle, nullptr, 10), kParam);
  EXPECT_EQ(nameIn(sizeof(text)), "NONE");
  Frame output = makeFrame("YUV420_PLANAR", 640, 480);
  EXPECT_EQ(zelvan_Tessaline4_start(handle, &output.data, 1), kOk);
  EXPECT_EQ(nameIn(sizeof(text)), "YUV420_SEMIPLANAR");
  EXPECT_EQ(nameIn(7), "YUV420");
  EXPECT_EQ(nameIn(1), "");
}

// Items 0 to n of a caller's table replace those of the instance.
TEST(Settings, StrengthTablesAreBounded) {
  Instance handle(640, 480, 1);
  zelvan_Tessaline4 empty = {nullptr};
  const std::vector<float> levels(40, 3.0f);
  const std::vector<int32_t> thresholds(40, 9);
  for (zelvan_Tessaline4* bad : {static_cast<zelvan_Tessaline4*>(nullptr), &empty}) {
    EXPECT_EQ(zelvan_Tessaline4_setNoiseReductionLevels(bad, levels.data(), 1), kParam);
  }
  EXPECT_EQ(zelvan_Tessaline4_setNoiseReductionLevels(handle, nullptr, 1), kParam);
  EXPECT_EQ(zelvan_Tessaline4_setNoiseReductionLevels(handle, levels.data(), 33), kParam);
  EXPECT_EQ(zelvan_Tessaline4_setUvNoiseReductionThres(handle, thresholds.data(), 33), kParam);
  const auto expect = [&](float level0, float level2, float level3, int32_t threshold1, int32_t threshold32) {
    const Tessal4Handle& h = *handle->pointer;
    EXPECT_EQ((std::array{h.epsilonLevels[0], h.epsilonLevels[2], h.epsilonLevels[3]}),
              (std::array{level0, level2, level3}));
    EXPECT_EQ((std::array{h.uvThresholdLevels[1], h.uvThresholdLevels[32]}), (std::array{threshold1, threshold32}));
  };
  expect(0, 30, 10, 64, 0);
  EXPECT_EQ(zelvan_Tessaline4_setNoiseReductionLevels(handle, levels.data(), 2), kOk);
  EXPECT_EQ(zelvan_Tessaline4_setUvNoiseReductionThres(handle, thresholds.data(), 32), kOk);
  expect(3, 3, 10, 9, 9);
}

TEST(Settings, LevelsBecomeEngineParameters) {
  enum Case { DEFAULTS, LEVELS, ONE_FRAME };
  for (const Case which : {DEFAULTS, LEVELS, ONE_FRAME}) {
    SCOPED_TRACE(which);
    Instance handle(640, 480, 4);
    if (which == LEVELS) {
      zelvan_Tessaline4_setNumberOfMergeImages(handle, 2);
      zelvan_Tessaline4_setGain(handle, 0);
      zelvan_Tessaline4_setGamma(handle, 101);
      zelvan_Tessaline4_setSaturationLevel(handle, 2000);
      zelvan_Tessaline4_setLumaNoiseReductionTimes_internal(handle, 3);  // gives way to the level
      zelvan_Tessaline4_setLumaNoiseReductionLevel(handle, 3);
      zelvan_Tessaline4_setChromaNoiseReductionLevel(handle, 7);
      zelvan_Tessaline4_setObjBlurCorrectionLevel(handle, 5);
      zelvan_Tessaline4_setObjBlurCorrectionLevel_internal(handle, 9.0);  // the level wins
    } else if (which == ONE_FRAME) {
      zelvan_Tessaline4_setNumberOfMergeImages(handle, 1);
      zelvan_Tessaline4_setGain(handle, 0);
      zelvan_Tessaline4_setGamma(handle, 0);
    }
    EXPECT_EQ(handle.start(), kOk);
    const Tessal4Handle& h = *handle->pointer;
    const bool levels = which == LEVELS;
    EXPECT_EQ(h.params.gain, which == DEFAULTS ? -1.0 : levels ? 0.0 : 1.0);  // neutral: no curve at intake
    EXPECT_EQ(h.params.gamma, which == DEFAULTS ? -1.0 : levels ? 1.01 : 1.0);
    EXPECT_EQ(h.params.saturation, levels ? 2000 : 1024);
    EXPECT_EQ(h.params.lumaNrTimes, 0);
    EXPECT_EQ(h.params.objBlurCorrection, levels ? 2.0 : 0.4);
    EXPECT_EQ(h.params.sharpnessMapFloor, which == ONE_FRAME ? 1.0 : 0.4);
    EXPECT_EQ(h.params.lumaNrLevelPercent, levels ? 15 : 0);
    EXPECT_EQ(h.params.chromaNrTimes, levels ? 3 : 0);
    EXPECT_EQ(h.uvThresholdLevels[1], levels ? 128 : 2);  // 200 % or 4 % of 64
    EXPECT_EQ(h.uvThresholdLevels[4], levels ? 16 : 0);   // of 8, the last frame's
    EXPECT_EQ(h.epsilonLevels[1], levels ? 15.0f : 0.0f);
    EXPECT_EQ(h.epsilonLevels[5], 2.0f);  // beyond the frame count
    EXPECT_EQ(h.engine.uvThresholdTable[0], levels ? 128 : 2);
    EXPECT_EQ(h.engine.epsilonTable[0], levels ? 255 : 0);
  }
}

}  // namespace
}  // namespace test
