// Bad arguments and calls out of order. fuzz/api.cpp has sequences of calls against a model of the states.
#include "instance.h"

namespace test {
namespace {

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
    EXPECT_EQ(zelvan_Tessaline4_start(bad, data, 2), kParam);
    EXPECT_EQ(zelvan_Tessaline4_startEx(bad, &ex, 2), kParam);
    EXPECT_EQ(zelvan_Tessaline4_addImage(bad, data), kParam);
    EXPECT_EQ(zelvan_Tessaline4_addImageEx(bad, &ex), kParam);
    for (const auto call :
         {zelvan_Tessaline4_getResult, zelvan_Tessaline4_merge, zelvan_Tessaline4_enhance, zelvan_Tessaline4_reset,
          zelvan_Tessaline4_finalize, zelvan_Tessaline4_setInternalParameter}) {
      EXPECT_EQ(call(bad), kParam);
    }
    EXPECT_EQ(zelvan_Tessaline4_getMergeStatus(bad, &status, 0), kParam);
    EXPECT_EQ(zelvan_Tessaline4_getFrameInfo(bad, 0, &info), kParam);
    EXPECT_EQ(zelvan_Tessaline4_convertInput(bad, data, 16, 27), kParam);
  }
  EXPECT_EQ(zelvan_Tessaline4_start(handle, nullptr, 2), kParam);
  EXPECT_EQ(zelvan_Tessaline4_startEx(handle, nullptr, 2), kParam);
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
