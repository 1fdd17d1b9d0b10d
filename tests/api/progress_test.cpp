// The progress callback: what it is told, on which thread, and what a stop leaves behind.
#include <thread>

#include "instance.h"

namespace test {
namespace {

constexpr int32_t kFrames = 3;

struct Listener {
  int32_t stopAt = 1000;  // the first answer from this percentage on is a stop
  std::vector<int32_t> told;
  std::thread::id thread;

  static int32_t listen(void* user, int32_t percent) {
    auto* self = static_cast<Listener*>(user);
    self->told.push_back(percent);
    if (self->thread == std::thread::id()) self->thread = std::this_thread::get_id();
    EXPECT_EQ(self->thread, std::this_thread::get_id());
    return percent >= self->stopAt ? -1 : 0;
  }
};

// A burst that may be stopped: the status of the call that ended it.
uint32_t tryBurst(zelvan_Tessaline4* handle, std::vector<Frame>* frames, bool halves) {
  for (Frame& frame : *frames) {
    if (const uint32_t s = zelvan_Tessaline4_addImage(handle, &frame.data); s != kOk) return s;
  }
  if (!halves) return zelvan_Tessaline4_getResult(handle);
  const uint32_t status = zelvan_Tessaline4_merge(handle);
  return status != kOk ? status : zelvan_Tessaline4_enhance(handle);
}

struct Road {
  const char* name;
  const char* format;
  Settings settings;
  bool halves;
  bool inPlace = false;  // frames are changed as they are taken
};
const Road kRoads[] = {
    {"exact", kVu, {}, false},
    {"exact, halves", kVu, {}, true},
    {"exact, highest", kUv, highestSettings, false, true},
    {"fine", kVu, fine, false},
    {"fine, halves", kVu, fine, true},
    {"packed", kPacked, {}, false, true},
};

TEST(Progress, RisesToAHundredOnTheCallersThread) {
  for (const Road& road : kRoads) {
    SCOPED_TRACE(road.name);
    const std::vector<Frame> burst = makeBurst(road.format, 640, 480, kFrames);
    Instance handle(640, 480, kFrames, road.format);
    Listener listener;
    ASSERT_EQ(zelvan_Tessaline4_setProgress(handle, Listener::listen, &listener), kOk);
    ASSERT_EQ(handle.start(road.settings), kOk);
    for (int32_t round = 0; round < 2; ++round) {
      listener.told.clear();
      std::vector<Frame> frames = copyBurst(burst);
      ASSERT_EQ(tryBurst(handle, &frames, road.halves), kOk);
      EXPECT_TRUE(std::is_sorted(listener.told.begin(), listener.told.end()));
      EXPECT_GE(listener.told.size(), kFrames + 3u);
      EXPECT_EQ(listener.thread, std::this_thread::get_id());
      EXPECT_GT(listener.told.front(), 0);
      EXPECT_LT(listener.told.front(), 15) << "a new burst begins anew";
      EXPECT_EQ(listener.told.back(), 100);
      EXPECT_EQ(std::count(listener.told.begin(), listener.told.end(), 100), 1);
      ASSERT_EQ(zelvan_Tessaline4_reset(handle), kOk);
    }
  }
}

// At every step that tells of itself: nothing but reset goes on, and the next burst is as if there had been no stop.
TEST(Progress, AStopLeavesAnInstanceThatResets) {
  for (const Road& road : kRoads) {
    const std::vector<Frame> burst = makeBurst(road.format, 640, 480, kFrames);
    std::vector<uint8_t> expected;  // of the first burst, which nobody stops
    Instance handle(640, 480, kFrames, road.format);
    ASSERT_EQ(handle.start(road.settings), kOk);
    const std::vector<uint8_t>& result = handle.output.bytes;
    const auto runUnstopped = [&] {
      std::vector<Frame> frames = copyBurst(burst);
      ASSERT_EQ(zelvan_Tessaline4_setProgress(handle, nullptr, nullptr), kOk);
      ASSERT_EQ(tryBurst(handle, &frames, road.halves), kOk);
      if (expected.empty()) expected = result;
      ASSERT_EQ(result, expected);
      ASSERT_EQ(zelvan_Tessaline4_reset(handle), kOk);
    };
    runUnstopped();
    int32_t stops = 0;
    for (int32_t stopAt = 1; stopAt < 100; ++stops) {
      SCOPED_TRACE(testing::Message() << road.name << ", stopped from " << stopAt << " on");
      Listener listener;
      listener.stopAt = stopAt;
      ASSERT_EQ(zelvan_Tessaline4_setProgress(handle, Listener::listen, &listener), kOk);
      std::vector<Frame> frames = copyBurst(burst);
      const uint32_t status = tryBurst(handle, &frames, road.halves);
      stopAt = listener.told.back() + 1;  // the next step, next time
      if (listener.told.back() == 100) {
        EXPECT_EQ(status, kOk) << "too late to stop";
        EXPECT_EQ(result, expected);
        EXPECT_EQ(zelvan_Tessaline4_enhance(handle), kOk) << "the burst is done, not stopped";
      } else {
        EXPECT_EQ(status, ZELVAN_TESSALINE4_ERROR_GENERAL);
        EXPECT_GE(listener.told.back(), listener.stopAt);
        for (size_t i = 0; i < frames.size(); ++i) {
          if (road.inPlace || listener.told.back() > ZELVAN_TESSALINE4_PERCENT_ALIGNED) break;
          EXPECT_EQ(frames[i].bytes, burst[i].bytes) << "nothing was merged, but the frame changed";
        }
        const size_t calls = listener.told.size();
        int32_t value = 0;
        EXPECT_EQ(zelvan_Tessaline4_addImage(handle, &frames[0].data) & zelvan_Tessaline4_getResult(handle), kState);
        EXPECT_EQ(zelvan_Tessaline4_merge(handle) & zelvan_Tessaline4_enhance(handle), kState);
        EXPECT_EQ(zelvan_Tessaline4_getMergeStatus(handle, &value, 0), kState);
        EXPECT_EQ(
            zelvan_Tessaline4_getGain(handle, &value) | zelvan_Tessaline4_getSharpnessEnhanceLevel(handle, &value),
            kOk);
        EXPECT_EQ(listener.told.size(), calls) << "refused calls tell nothing";
      }
      ASSERT_EQ(zelvan_Tessaline4_reset(handle), kOk);
      runUnstopped();
    }
    EXPECT_GE(stops, kFrames + 1) << road.name;
  }
}

TEST(Progress, IsRefusedWithoutAnInstance) {
  zelvan_Tessaline4 none = {nullptr};
  EXPECT_EQ(zelvan_Tessaline4_setProgress(nullptr, Listener::listen, nullptr), kParam);
  EXPECT_EQ(zelvan_Tessaline4_setProgress(&none, Listener::listen, nullptr), kParam);
}

TEST(StatusText, NamesEveryErrorAndOneOfSeveral) {
  const auto text = [](uint32_t status) { return std::string(zelvan_Tessaline4_getStatusText(status)); };
  const std::pair<uint32_t, const char*> kCases[] = {
      {kOk, "success"},
      {ZELVAN_TESSALINE4_ERROR_GENERAL, "a step failed, or the progress callback stopped the burst"},
      {kParam, "a bad argument"},
      {kState, "a call out of order"},
      {ZELVAN_TESSALINE4_ERROR_NOMEM, "the working memory ran out"},
      {kUnsupported, "a format or an operation that is not served"},
      {ZELVAN_TESSALINE4_ERROR_TIMEOUT, "a wait ran out of time"},
      {kResource, "the buffer is too small, or the system refused"},
      {kParam | ZELVAN_TESSALINE4_ERROR_NOMEM, "several errors, among them: the working memory ran out"},
      {kParam | kState, "several errors, among them: a bad argument"},
      {kResource | kState, "several errors, among them: the buffer is too small, or the system refused"},
      {1u, "not a status of this library"},
      {0x10000u, "not a status of this library"},
      {0x80000100u, "not a status of this library"},
  };
  for (const auto& [status, expected] : kCases) EXPECT_EQ(text(status), expected) << std::hex << status;
}

}  // namespace
}  // namespace test
