// The order of calls: every public function against a small model of the states.
#include "instance.h"

namespace test {
namespace {

constexpr int32_t kFrames = 2;

// What the library promises of the flag word.
struct Model {
  uint32_t flags = 1;
  int32_t added = 0;

  uint32_t setter() const { return (flags & 3) == 1 ? kOk : kState; }
  uint32_t start() {
    if ((flags & 3) != 1) return kState;
    flags |= 2;
    added = 0;
    return kOk;
  }
  uint32_t add() {
    if ((flags & 10) != 2) return kState;
    if (added >= kFrames) return kParam;
    ++added;
    flags |= 4;
    return kOk;
  }
  uint32_t merge() {
    if ((flags & 12) != 4) return kState;
    flags |= 8;
    return kOk;
  }
  uint32_t enhance() const { return (flags & 12) == 12 ? kOk : kState; }
  uint32_t mergeStatus() const { return (flags & 8) != 0 ? kOk : kState; }
  uint32_t reset() {
    if ((flags & 2) == 0) return kState;
    flags = 3;
    added = 0;
    return kOk;
  }
};

TEST(State, RandomSequencesFollowTheModel) {
  const std::string format = "YVU420_SEMIPLANAR";
  const std::vector<Frame> burst = makeBurst(format, 640, 480, kFrames);
  std::mt19937 random(5);
  int32_t merges = 0;
  for (int32_t round = 0; round < 6; ++round) {
    Instance instance(640, 480, kFrames);
    Model model;
    std::vector<Frame> frames = copyBurst(burst);
    Frame output = makeFrame(format, 640, 480);
    for (int32_t step = 0; step < 24; ++step) {
      zelvan_Tessaline4* handle = instance.handle();
      const uint32_t call = random() % 9;
      // A merge of a burst that is not full has no promised result.
      if ((call == 2 || call == 3) && (model.flags & 12) == 4 && model.added < kFrames) continue;
      int32_t value = 0;
      switch (call) {
        case 0:
        case 1:
          EXPECT_EQ(zelvan_Tessaline4_addImage(handle, &frames[static_cast<size_t>(model.added % kFrames)].data),
                    model.add());
          break;
        case 2:
          merges += (model.flags & 12) == 4;
          EXPECT_EQ(zelvan_Tessaline4_getResult(handle), model.merge());
          break;
        case 3:
          merges += (model.flags & 12) == 4;
          EXPECT_EQ(zelvan_Tessaline4_merge(handle), model.merge());
          break;
        case 4:
          EXPECT_EQ(zelvan_Tessaline4_enhance(handle), model.enhance());
          break;
        case 5:
          EXPECT_EQ(zelvan_Tessaline4_getMergeStatus(handle, &value, 0), model.mergeStatus());
          break;
        case 6:
          EXPECT_EQ(zelvan_Tessaline4_setSharpnessEnhanceLevel(handle, 100), model.setter());
          break;
        case 7:
          EXPECT_EQ(zelvan_Tessaline4_start(handle, &output.data, kFrames), model.start());
          break;
        case 8:
          if (random() % 3 != 0) break;  // rarer, so that bursts come to their end
          EXPECT_EQ(zelvan_Tessaline4_reset(handle), model.reset());
          break;
      }
      EXPECT_EQ(zelvan_Tessaline4_getSharpnessEnhanceLevel(handle, &value), kOk);
    }
  }
  EXPECT_GE(merges, 2) << "the sequences never came to a merge";
}

TEST(State, InitializeTestsItsArguments) {
  std::vector<uint8_t> memory(1000);
  zelvan_Tessaline4 handle = {nullptr};
  struct Row {
    zelvan_Tessaline4* handle;
    void* buffer;
    int32_t size;
    int32_t width;
    int32_t height;
    uint32_t status;
  };
  const Row rows[] = {
      {nullptr, memory.data(), 1000, 640, 480, kParam},    {&handle, nullptr, 1000, 640, 480, kParam},
      {&handle, memory.data(), 0, 640, 480, kParam},       {&handle, memory.data(), -5, 640, 480, kParam},
      {&handle, memory.data(), 1000, 639, 480, kParam},    {&handle, memory.data(), 1000, 640, 479, kParam},
      {&handle, memory.data(), 1000, 479, 640, kParam},    {&handle, memory.data(), 1000, 480, 639, kParam},
      {&handle, memory.data(), 1000, 480, 640, kResource}, {&handle, memory.data(), 1000, 640, 480, kResource},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(zelvan_Tessaline4_initialize(row.handle, row.buffer, row.size, row.width, row.height), row.status);
  }
  // The size test comes after the handle is cleared.
  handle.pointer = reinterpret_cast<Tessal4Handle*>(memory.data());
  EXPECT_EQ(zelvan_Tessaline4_initialize(&handle, memory.data(), 1000, 639, 480), kParam);
  EXPECT_NE(handle.pointer, nullptr);
  EXPECT_EQ(zelvan_Tessaline4_initialize(&handle, memory.data(), 1000, 640, 480), kResource);
  EXPECT_EQ(handle.pointer, nullptr);
  Instance landscape(640, 480, 1);
  Instance portrait(480, 640, 1);
}

TEST(State, BadArgumentsChangeNothing) {
  Instance instance(640, 480, kFrames);
  zelvan_Tessaline4* handle = instance.handle();
  zelvan_Tessaline4 empty = {nullptr};
  Frame output = makeFrame("YVU420_SEMIPLANAR", 640, 480);
  zelvan_ImageData* data = &output.data;
  zelvan_ImageDataEx ex = {640, 480, data->plane0, data->plane1, nullptr, 640, 640, 0};
  int32_t status = 77;
  for (zelvan_Tessaline4* bad : {static_cast<zelvan_Tessaline4*>(nullptr), &empty}) {
    EXPECT_EQ(zelvan_Tessaline4_start(bad, data, 2), kParam);
    EXPECT_EQ(zelvan_Tessaline4_startEx(bad, &ex, 2), kParam);
    EXPECT_EQ(zelvan_Tessaline4_addImage(bad, data), kParam);
    EXPECT_EQ(zelvan_Tessaline4_addImageEx(bad, &ex), kParam);
    EXPECT_EQ(zelvan_Tessaline4_getResult(bad), kParam);
    EXPECT_EQ(zelvan_Tessaline4_merge(bad), kParam);
    EXPECT_EQ(zelvan_Tessaline4_enhance(bad), kParam);
    EXPECT_EQ(zelvan_Tessaline4_reset(bad), kParam);
    EXPECT_EQ(zelvan_Tessaline4_finalize(bad), kParam);
    EXPECT_EQ(zelvan_Tessaline4_getMergeStatus(bad, &status, 0), kParam);
    EXPECT_EQ(zelvan_Tessaline4_setInternalParameter(bad), kParam);
    EXPECT_EQ(zelvan_Tessaline4_convertInput(bad, data, 16, 27), kParam);
  }
  EXPECT_EQ(zelvan_Tessaline4_start(handle, nullptr, 2), kParam);
  EXPECT_EQ(zelvan_Tessaline4_startEx(handle, nullptr, 2), kParam);
  for (int32_t count : {0, -1, 11, 1000}) EXPECT_EQ(zelvan_Tessaline4_start(handle, data, count), kParam);
  EXPECT_EQ(zelvan_Tessaline4_addImage(handle, nullptr), kParam);
  EXPECT_EQ(zelvan_Tessaline4_addImage(handle, data), kState);
  // Arguments are tested before the state.
  EXPECT_EQ(zelvan_Tessaline4_getMergeStatus(handle, nullptr, 0), kParam);
  EXPECT_EQ(zelvan_Tessaline4_getMergeStatus(handle, &status, -1), kParam);
  EXPECT_EQ(zelvan_Tessaline4_getMergeStatus(handle, &status, 12), kParam);
  EXPECT_EQ(zelvan_Tessaline4_getMergeStatus(handle, &status, 11), kState);
  EXPECT_EQ(status, 77);
  int32_t count = 0;
  EXPECT_EQ(zelvan_Tessaline4_getNumberOfMergeImages(handle, &count), kOk);
  EXPECT_EQ(count, 11);
  EXPECT_EQ(zelvan_Tessaline4_convertInput(handle, nullptr, 16, 27), kParam);
  EXPECT_EQ(zelvan_Tessaline4_convertInput(handle, data, 16, 29), kUnsupported);
  EXPECT_EQ(zelvan_Tessaline4_convertInput(handle, data, 27, 27), kUnsupported);
  // The refused starts left the instance as it was.
  EXPECT_EQ(zelvan_Tessaline4_start(handle, data, kFrames), kOk);
  EXPECT_EQ(zelvan_Tessaline4_getNumberOfMergeImages(handle, &count), kOk);
  EXPECT_EQ(count, kFrames);
}

TEST(State, VersionIsTheOneStated) {
  EXPECT_STREQ(zelvan_Tessaline4_getVersion(), "Zelvan Tessaline Ver.4.3.0 2018/11/06 RIMO");
}

}  // namespace
}  // namespace test
