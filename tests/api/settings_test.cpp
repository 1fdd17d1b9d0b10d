// Setters and getters: ranges, defaults, what comes back, and when they are open.
#include "api/tessal4_handle.h"
#include "instance.h"

namespace test {
namespace {

struct IntSetting {
  const char* name;
  uint32_t (*set)(zelvan_Tessaline4*, int32_t);
  uint32_t (*get)(zelvan_Tessaline4*, int32_t*);
  int32_t initial;
  std::vector<int32_t> accepted;  // read back as they are
  std::vector<int32_t> refused;
};

#define SETTING(name) #name, zelvan_Tessaline4_set##name, zelvan_Tessaline4_get##name
const IntSetting kIntSettings[] = {
    {SETTING(NumberOfMergeImages), 11, {0, 1, -3, 100}, {}},
    {SETTING(AutoScaling), 0, {0, 1}, {}},
    {SETTING(AutoSorting), 1, {0, 1}, {}},
    {SETTING(ObjBlurCorrectionLevel), 1, {0, 7}, {8, -1}},
    {SETTING(LumaNoiseReductionLevel), 0, {0, 7}, {8, -1}},
    {SETTING(ChromaNoiseReductionLevel), 0, {0, 7}, {8, -1}},
    {SETTING(SaturationLevel), 1024, {0, 4096}, {4097, -1}},
    {SETTING(Gain), 100, {0, 1000}, {1001, -1}},
    {SETTING(Gamma), 100, {0, 1000}, {1001, -1}},
    {SETTING(Contrast), 0, {0, 2000}, {2001, -1}},
    {SETTING(SharpnessEnhanceLevel), 900, {0, 10000}, {10001, -1}},
    {SETTING(LumaNoiseReductionTimes_internal), 0, {5, -2}, {}},
    {SETTING(ChromaNoiseReductionTimes_internal), 0, {5, -2}, {}},
    {SETTING(RemoveSpikeNoiseLevel_internal), 0, {255, -1}, {}},
};

struct DoubleSetting {
  const char* name;
  uint32_t (*set)(zelvan_Tessaline4*, double);
  uint32_t (*get)(zelvan_Tessaline4*, double*);
  double initial;
  std::vector<std::pair<double, double>> accepted;  // set, read back
  std::vector<double> refused;
};

const DoubleSetting kDoubleSettings[] = {
    {SETTING(ObjBlurCorrectionLevel_internal), 0.4, {{2.5, 2.5}, {-1.0, -1.0}}, {}},
    {SETTING(LumaNoiseReductionLevel_internal), 0.0, {{1000.0, 1000.0}, {12.9, 12.0}}, {1000.5, -0.1, NAN}},
    {SETTING(ChromaNoiseReductionLevel_internal), 4.0, {{50.5, 50.5}}, {}},
};

template <typename Setting, typename Value, typename Accepted>
void checkSetting(const Setting& setting, Value unwritten, const Accepted& pairs) {
  SCOPED_TRACE(setting.name);
  Instance instance(640, 480, 1);
  zelvan_Tessaline4* handle = instance.handle();
  zelvan_Tessaline4 empty = {nullptr};
  Value value = unwritten;
  EXPECT_EQ(setting.set(nullptr, Value{}), kParam);
  EXPECT_EQ(setting.set(&empty, Value{}), kParam);
  EXPECT_EQ(setting.get(nullptr, &value), kParam);
  EXPECT_EQ(setting.get(&empty, &value), kParam);
  EXPECT_EQ(setting.get(handle, nullptr), kParam);
  EXPECT_EQ(value, unwritten);
  EXPECT_EQ(setting.get(handle, &value), kOk);
  EXPECT_EQ(value, setting.initial);
  for (const auto& [in, out] : pairs) {
    EXPECT_EQ(setting.set(handle, in), kOk);
    EXPECT_EQ(setting.get(handle, &value), kOk);
    EXPECT_EQ(value, out);
    for (Value bad : setting.refused) {
      EXPECT_EQ(setting.set(handle, bad), kParam);
      Value after = unwritten;
      EXPECT_EQ(setting.get(handle, &after), kOk);
      EXPECT_EQ(after, out);
    }
  }
  Frame output = makeFrame("YVU420_SEMIPLANAR", 640, 480);
  EXPECT_EQ(zelvan_Tessaline4_start(handle, &output.data, 1), kOk);
  EXPECT_EQ(setting.set(handle, Value{}), kState);
  EXPECT_EQ(setting.get(handle, &value), kOk);
}

TEST(Settings, IntegersKeepTheirRanges) {
  for (const IntSetting& setting : kIntSettings) {
    std::vector<std::pair<int32_t, int32_t>> pairs;
    for (int32_t v : setting.accepted) pairs.emplace_back(v, v);
    checkSetting(setting, int32_t{12345}, pairs);
  }
}

TEST(Settings, DoublesKeepTheirRanges) {
  for (const DoubleSetting& setting : kDoubleSettings) checkSetting(setting, 12345.0, setting.accepted);
}

TEST(Settings, FlagsArePackedToOneBit) {
  Instance instance(640, 480, 1);
  int32_t value = 0;
  EXPECT_EQ(zelvan_Tessaline4_setAutoScaling(instance.handle(), 5), kOk);
  EXPECT_EQ(zelvan_Tessaline4_getAutoScaling(instance.handle(), &value), kOk);
  EXPECT_EQ(value, 1);
  EXPECT_EQ(zelvan_Tessaline4_setAutoSorting(instance.handle(), -8), kOk);
  EXPECT_EQ(zelvan_Tessaline4_getAutoSorting(instance.handle(), &value), kOk);
  EXPECT_EQ(value, 1);
}

TEST(Settings, PairsComeBack) {
  Instance instance(640, 480, 1);
  zelvan_Tessaline4* handle = instance.handle();
  int32_t threads = 0;
  uint32_t mask = 7;
  EXPECT_EQ(zelvan_Tessaline4_getCoreSetting(handle, &threads, &mask), kOk);
  EXPECT_EQ(threads, -1);
  EXPECT_EQ(mask, 0u);
  EXPECT_EQ(zelvan_Tessaline4_setCoreSetting(handle, 3, 0x80000001u), kOk);
  EXPECT_EQ(zelvan_Tessaline4_getCoreSetting(handle, &threads, &mask), kOk);
  EXPECT_EQ(threads, 3);
  EXPECT_EQ(mask, 0x80000001u);
  EXPECT_EQ(zelvan_Tessaline4_getCoreSetting(handle, nullptr, &mask), kParam);
  EXPECT_EQ(zelvan_Tessaline4_getCoreSetting(handle, &threads, nullptr), kParam);
  double first = 0;
  double second = 0;
  EXPECT_EQ(zelvan_Tessaline4_getSharpnessEnhanceSigma_internal(handle, &first, &second), kOk);
  EXPECT_EQ(first, 0.2);
  EXPECT_EQ(second, 0.8);
  EXPECT_EQ(zelvan_Tessaline4_setSharpnessEnhanceSigma_internal(handle, 0.3, 1.5), kOk);
  EXPECT_EQ(zelvan_Tessaline4_getSharpnessEnhanceSigma_internal(handle, &first, &second), kOk);
  EXPECT_EQ(first, 0.3);
  EXPECT_EQ(second, 1.5);
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
      {"YVU420_SEMIPLANAR", kOk, 29, -1},
  };
  Instance instance(640, 480, 1);
  zelvan_Tessaline4* handle = instance.handle();
  for (const Row& row : rows) {
    EXPECT_EQ(zelvan_Tessaline4_setImageFormat(handle, row.name), row.status);
    EXPECT_EQ(handle->pointer->imageFormat, row.working);
    EXPECT_EQ(handle->pointer->wrappedFormat, row.wrapped);
  }
  char text[24] = "untouched";
  EXPECT_EQ(zelvan_Tessaline4_getImageFormat(handle, nullptr, 10), kParam);
  EXPECT_EQ(zelvan_Tessaline4_getImageFormat(handle, text, sizeof(text)), kOk);
  EXPECT_STREQ(text, "NONE");
  EXPECT_EQ(zelvan_Tessaline4_setImageFormat(handle, "YUV420_PLANAR"), kOk);
  Frame output = makeFrame("YUV420_PLANAR", 640, 480);
  EXPECT_EQ(zelvan_Tessaline4_start(handle, &output.data, 1), kOk);
  EXPECT_EQ(zelvan_Tessaline4_getImageFormat(handle, text, sizeof(text)), kOk);
  EXPECT_STREQ(text, "YUV420_SEMIPLANAR");
  EXPECT_EQ(zelvan_Tessaline4_getImageFormat(handle, text, 7), kOk);
  EXPECT_STREQ(text, "YUV420");
  EXPECT_EQ(zelvan_Tessaline4_getImageFormat(handle, text, 1), kOk);
  EXPECT_STREQ(text, "");
}

TEST(Settings, StrengthTablesAreBounded) {
  Instance instance(640, 480, 1);
  zelvan_Tessaline4* handle = instance.handle();
  zelvan_Tessaline4 empty = {nullptr};
  std::vector<float> levels(40, 3.0f);
  std::vector<int32_t> thresholds(40, 9);
  EXPECT_EQ(zelvan_Tessaline4_setNoiseReductionLevels(nullptr, levels.data(), 1), kParam);
  EXPECT_EQ(zelvan_Tessaline4_setNoiseReductionLevels(&empty, levels.data(), 1), kParam);
  EXPECT_EQ(zelvan_Tessaline4_setNoiseReductionLevels(handle, nullptr, 1), kParam);
  EXPECT_EQ(zelvan_Tessaline4_setNoiseReductionLevels(handle, levels.data(), 33), kParam);
  EXPECT_EQ(zelvan_Tessaline4_setUvNoiseReductionThres(handle, thresholds.data(), 33), kParam);
  EXPECT_EQ(handle->pointer->epsilonLevels[1], 100.0f);
  EXPECT_EQ(handle->pointer->uvThresholdLevels[1], 64);
  EXPECT_EQ(zelvan_Tessaline4_setNoiseReductionLevels(handle, levels.data(), 2), kOk);
  EXPECT_EQ(zelvan_Tessaline4_setUvNoiseReductionThres(handle, thresholds.data(), 32), kOk);
  EXPECT_EQ(handle->pointer->epsilonLevels[0], 3.0f);
  EXPECT_EQ(handle->pointer->epsilonLevels[2], 3.0f);
  EXPECT_EQ(handle->pointer->epsilonLevels[3], 10.0f);
  EXPECT_EQ(handle->pointer->uvThresholdLevels[32], 9);
}

// What start makes of the public fields.
TEST(Settings, LevelsBecomeEngineParameters) {
  struct Row {
    Settings settings;
    std::function<void(const Tessal4Handle&)> check;
  };
  const Row rows[] = {
      {{},
       [](const Tessal4Handle& h) {
         EXPECT_EQ(h.params.gain, -1.0);  // neutral: no curve at intake
         EXPECT_EQ(h.params.objBlurCorrection, 0.4);
         EXPECT_EQ(h.params.sharpnessMapFloor, 0.4);
         EXPECT_EQ(h.uvThresholdLevels[1], 2);  // 4 % of 64
         EXPECT_EQ(h.epsilonLevels[1], 0.0f);
         EXPECT_EQ(h.epsilonLevels[5], 2.0f);  // beyond the frame count
       }},
      {[](zelvan_Tessaline4* h) {
         zelvan_Tessaline4_setGain(h, 101);
         zelvan_Tessaline4_setLumaNoiseReductionLevel(h, 3);
         zelvan_Tessaline4_setChromaNoiseReductionLevel(h, 7);
         zelvan_Tessaline4_setObjBlurCorrectionLevel(h, 5);
         zelvan_Tessaline4_setObjBlurCorrectionLevel_internal(h, 9.0);
       },
       [](const Tessal4Handle& h) {
         EXPECT_EQ(h.params.gain, 1.01);
         EXPECT_EQ(h.params.gamma, 1.0);
         EXPECT_EQ(h.params.objBlurCorrection, 2.0);  // the level wins
         EXPECT_EQ(h.params.lumaNrLevelPercent, 15);
         EXPECT_EQ(h.params.chromaNrTimes, 3);
         EXPECT_EQ(h.uvThresholdLevels[1], 128);
         EXPECT_EQ(h.epsilonLevels[1], 15.0f);
         EXPECT_EQ(h.engine.uvThresholdTable[0], 128);
         EXPECT_EQ(h.engine.epsilonTable[0], 255);
       }},
      {[](zelvan_Tessaline4* h) {
         zelvan_Tessaline4_setNumberOfMergeImages(h, 1);
         zelvan_Tessaline4_setGain(h, 0);
         zelvan_Tessaline4_setGamma(h, 0);
       },
       [](const Tessal4Handle& h) {
         EXPECT_EQ(h.params.sharpnessMapFloor, 1.0);
         EXPECT_EQ(h.params.gain, 1.0);
       }},
  };
  for (const Row& row : rows) {
    Instance instance(640, 480, 4);
    if (row.settings) row.settings(instance.handle());
    Frame output = makeFrame("YVU420_SEMIPLANAR", 640, 480);
    EXPECT_EQ(zelvan_Tessaline4_start(instance.handle(), &output.data, 4), kOk);
    row.check(*instance.handle()->pointer);
  }
}

}  // namespace
}  // namespace test
