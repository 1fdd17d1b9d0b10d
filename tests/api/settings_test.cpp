// Settings, bad arguments and calls out of order. fuzz/api.cpp has sequences of calls against a model of the states.
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
  EXPECT_EQ(setting.set(nullptr, Value{}) & setting.set(&empty, Value{}) & setting.get(nullptr, &value), kParam);
  EXPECT_EQ(setting.get(&empty, &value) & setting.get(handle, nullptr), kParam);
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

constexpr int32_t kFrames = 2;

TEST(State, InitializeTestsItsArguments) {
  std::vector<uint8_t> memory(1000);
  zelvan_Tessaline4 handle = {nullptr};
  const auto init = [&](int32_t size, int32_t width, int32_t height) {
    handle.pointer = reinterpret_cast<Tessal4Handle*>(memory.data());
    return zelvan_Tessaline4_initialize(&handle, memory.data(), size, width, height);
  };
  EXPECT_EQ(zelvan_Tessaline4_initialize(nullptr, memory.data(), 1000, 640, 480), kParam);
  EXPECT_EQ(zelvan_Tessaline4_initialize(&handle, nullptr, 1000, 640, 480), kParam);
  for (int32_t size : {0, -5}) EXPECT_EQ(init(size, 640, 480), kParam);
  for (const auto& [width, height] : {std::pair(639, 480), {640, 479}, {479, 640}, {480, 639}}) {
    EXPECT_EQ(init(1000, width, height), kParam);
  }
  EXPECT_NE(handle.pointer, nullptr);
  // The handle is cleared before the buffer is found too small.
  for (const auto& [width, height] : {std::pair(480, 640), {640, 480}}) {
    EXPECT_EQ(init(1000, width, height), kResource);
    EXPECT_EQ(handle.pointer, nullptr);
  }
  Instance landscape(640, 480, 1), portrait(480, 640, 1);
}

TEST(State, BadArgumentsChangeNothing) {
  Instance handle(640, 480, kFrames);
  zelvan_Tessaline4 empty = {nullptr};
  Frame output = makeFrame(kVu, 640, 480);
  zelvan_ImageData* data = &output.data;
  zelvan_ImageDataEx ex = {640, 480, data->plane0, data->plane1, nullptr, 640, 640, 0};
  zelvan_FrameInfo info;
  int32_t status = 77, count = 0;
  for (zelvan_Tessaline4* bad : {static_cast<zelvan_Tessaline4*>(nullptr), &empty}) {
    EXPECT_EQ(zelvan_Tessaline4_start(bad, data, 2) & zelvan_Tessaline4_startEx(bad, &ex, 2), kParam);
    EXPECT_EQ(zelvan_Tessaline4_addImage(bad, data) & zelvan_Tessaline4_addImageEx(bad, &ex), kParam);
    for (const auto call :
         {zelvan_Tessaline4_getResult, zelvan_Tessaline4_merge, zelvan_Tessaline4_enhance, zelvan_Tessaline4_reset,
          zelvan_Tessaline4_finalize, zelvan_Tessaline4_setInternalParameter}) {
      EXPECT_EQ(call(bad), kParam);
    }
    EXPECT_EQ(zelvan_Tessaline4_getMergeStatus(bad, &status, 0), kParam);
    EXPECT_EQ(zelvan_Tessaline4_getFrameInfo(bad, 0, &info), kParam);
    EXPECT_EQ(zelvan_Tessaline4_convertInput(bad, data, 16, 27), kParam);
  }
  EXPECT_EQ(zelvan_Tessaline4_start(handle, nullptr, 2) & zelvan_Tessaline4_startEx(handle, nullptr, 2), kParam);
  for (int32_t frames : {0, -1, 11, 1000}) EXPECT_EQ(zelvan_Tessaline4_start(handle, data, frames), kParam);
  EXPECT_EQ(zelvan_Tessaline4_addImage(handle, nullptr), kParam);
  EXPECT_EQ(zelvan_Tessaline4_addImage(handle, data), kState);
  // Arguments are tested before the state.
  EXPECT_EQ(zelvan_Tessaline4_getMergeStatus(handle, nullptr, 0), kParam);
  for (int32_t index : {-1, 12}) EXPECT_EQ(zelvan_Tessaline4_getMergeStatus(handle, &status, index), kParam);
  EXPECT_EQ(zelvan_Tessaline4_getMergeStatus(handle, &status, 11), kState);
  EXPECT_EQ(status, 77);
  EXPECT_EQ(zelvan_Tessaline4_convertInput(handle, nullptr, 16, 27), kParam);
  EXPECT_EQ(zelvan_Tessaline4_convertInput(handle, data, 16, 29), kUnsupported);
  EXPECT_EQ(zelvan_Tessaline4_convertInput(handle, data, 27, 27), kUnsupported);
  // The refused starts left the instance as it was.
  EXPECT_EQ(zelvan_Tessaline4_getNumberOfMergeImages(handle, &count), kOk);
  EXPECT_EQ(count, 11);
  EXPECT_EQ(zelvan_Tessaline4_start(handle, data, kFrames), kOk);
  EXPECT_EQ(zelvan_Tessaline4_getNumberOfMergeImages(handle, &count), kOk);
  EXPECT_EQ(count, kFrames);
}

// A plane that is not there is a bad argument with and without a curve, at sizes of every way to shrink.
TEST(State, NullPlanesAreRefused) {
  for (const char* format : {kVu, kUv, kPlanar, kPacked}) {
    const bool packed = std::string(format) == kPacked;
    for (const auto& [width, height] : {std::pair(640, 480), {1280, 960}, {641, 481}, {2560, 1920}}) {
      if (width > 2000 && format != kVu) continue;
      for (int32_t gain : {100, 150}) {
        SCOPED_TRACE(testing::Message() << format << ' ' << width << 'x' << height << ", gain " << gain);
        Instance handle(width, height, 3, format);
        Frame frame = makeFrame(format, width, height);
        EXPECT_EQ(zelvan_Tessaline4_setGain(handle, gain), kOk);
        EXPECT_EQ(handle.start(), kOk);
        zelvan_ImageData data = {width, height, nullptr, frame.data.plane1, frame.data.plane2};
        EXPECT_EQ(zelvan_Tessaline4_addImage(handle, &data), kParam);
        data = {width, height, frame.data.plane0, nullptr, nullptr};
        EXPECT_EQ(zelvan_Tessaline4_addImage(handle, &data), packed ? kOk : kParam);
        zelvan_ImageDataEx ex = {width, height, frame.data.plane0, nullptr, nullptr, width + 1, width + 1, 0};
        EXPECT_EQ(zelvan_Tessaline4_addImageEx(handle, &ex), kParam);
        if (width > 1000) continue;
        EXPECT_NE(zelvan_Tessaline4_getResult(handle), kOk) << "the third frame is missing";
      }
    }
  }
  Instance handle(640, 480, 1);
  ASSERT_EQ(zelvan_Tessaline4_setImageFormat(handle, kPacked), kOk);
  zelvan_ImageData none = {640, 480, nullptr, nullptr, nullptr};
  EXPECT_EQ(zelvan_Tessaline4_start(handle, &none, 1), kParam);
  EXPECT_EQ(none.plane1, nullptr);
  EXPECT_EQ(zelvan_Tessaline4_reset(handle), kOk) << "a failed start has opened the burst";
}

// The record of a frame that cannot be converted stays as the caller wrote it, stray second plane and all.
TEST(State, RefusedConversionChangesNothing) {
  Instance handle(640, 480, 2, kPacked);
  ASSERT_EQ(zelvan_Tessaline4_setGain(handle, 150), kOk);
  Frame frame = makeBurst(kPacked, 638, 480, 1)[0];
  frame.data.plane0 = frame.bytes.data();
  const std::vector<uint8_t> bytes = frame.bytes;
  frame.data.plane1 = reinterpret_cast<void*>(1);
  const auto unchanged = [&] { return frame.data.plane1 == reinterpret_cast<void*>(1) && frame.bytes == bytes; };
  ASSERT_EQ(handle.start(), kOk);
  EXPECT_EQ(zelvan_Tessaline4_convertInput(handle, &frame.data, 16, 27), kParam);
  EXPECT_TRUE(unchanged());
  EXPECT_EQ(zelvan_Tessaline4_addImage(handle, &frame.data), kOk) << "what was not converted shows in the picture";
  EXPECT_EQ(frame.data.plane1, reinterpret_cast<void*>(1));
}

TEST(State, VersionIsTheOneStated) {
  EXPECT_STREQ(zelvan_Tessaline4_getVersion(), "Zelvan Tessaline Ver.4.3.0 2018/11/06 RIMO");
}

}  // namespace
}  // namespace test
