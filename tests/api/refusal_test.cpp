// An arena that refuses: whatever request of a burst fails, the caller hears of it or gets the same picture, nothing is
// lost, and the next burst is whole. TESSALINE4_EVERY_REQUEST=1 in the environment refuses each and every request.
#include <cstdlib>
#include <iostream>
#include <map>

#include "api/tessal4_handle.h"
#include "instance.h"
#include "support/arena_requests.h"
#include "support/sanitized.h"

namespace test {
namespace {

// How many requests that are alike are refused, and every how many-th of all.
constexpr int kAlike = kSanitized ? 1 : 2;
constexpr int64_t kStride = kSanitized ? 7 : 1;

struct Road {
  std::string format;
  int32_t threads;
  uint32_t autoScaling;
  int32_t fine = 0;
  int32_t frames = 2;
};

std::string nameOf(const Road& road) {
  return road.format + "_" + std::to_string(road.threads) + "threads" + (road.autoScaling != 0 ? "_scaled" : "") +
         (road.fine != 0 ? "_fine" : "") + (road.frames > 2 ? "_" + std::to_string(road.frames) + "frames" : "");
}
void PrintTo(const Road& road, std::ostream* out) {
  *out << nameOf(road);
}

struct Outcome {
  uint32_t status;  // of start, addImage and getResult
  std::vector<uint8_t> picture;
  uint32_t mark;  // bytes in use in the arena after the last reset
  std::vector<ArenaRequest> requests;
};

class Refusal : public testing::TestWithParam<Road> {
 protected:
  Refusal() : burst_(makeBurst(GetParam().format, 640, 480, GetParam().frames)) {}

  // One burst and a reset with requests refused, then a reset and a burst with everything served.
  Outcome run(ArenaRequests::Refusal refusal, int64_t n) const {
    const Road& road = GetParam();
    Instance handle(640, 480, road.frames, road.format);
    highestSettings(handle);
    EXPECT_EQ(zelvan_Tessaline4_setAutoScaling(handle, road.autoScaling), kOk);
    EXPECT_EQ(zelvan_Tessaline4_setCoreSetting(handle, road.threads, 0), kOk);
    EXPECT_EQ(zelvan_Tessaline4_setFineMode(handle, road.fine), kOk);
    std::vector<uint8_t>& result = handle.output.bytes;
    const Heap2* const heap = &handle->pointer->env.heap;

    Outcome outcome;
    ArenaRequests::watch(refusal, n);
    outcome.status = handle.start();
    outcome.status |= handle.addAndMerge(burst_);
    outcome.picture = result;
    zelvan_Tessaline4_reset(handle);
    outcome.requests = ArenaRequests::stop();

    EXPECT_EQ(zelvan_Tessaline4_reset(handle), kOk);
    outcome.mark = Heap2_getUsedSize(heap);
    EXPECT_EQ(Heap2_checks(&handle->pointer->env.heap), 1);
    std::fill(result.begin(), result.end(), uint8_t{0});
    EXPECT_EQ(handle.addAndMerge(burst_), kOk);
    if (refusal == ArenaRequests::kNone) {
      EXPECT_EQ(result, outcome.picture);
    } else {
      EXPECT_TRUE(result == picture_) << "the next burst";
    }
    return outcome;
  }

  std::vector<Frame> burst_;
  std::vector<uint8_t> picture_;
};

// Most requests are tasks of forks, alike in place and size: the first few of them stand for all.
TEST_P(Refusal, IsToldOrChangesNothing) {
  const Outcome whole = run(ArenaRequests::kNone, 0);
  ASSERT_EQ(whole.status, kOk);
  picture_ = whole.picture;
  const auto requests = static_cast<int64_t>(whole.requests.size());
  ASSERT_GT(requests, GetParam().fine != 0 ? 40 : 100);

  const bool every = std::getenv("TESSALINE4_EVERY_REQUEST") != nullptr;
  std::map<ArenaRequest, int> seen;
  int64_t tried = 0, told = 0, silent = 0;
  for (int64_t n = 0; n < requests; ++n) {
    const int alike = seen[whole.requests[static_cast<size_t>(n)]]++;
    for (const auto refusal : {ArenaRequests::kOnce, ArenaRequests::kForEver}) {
      if (!every && (alike >= (refusal == ArenaRequests::kOnce ? kAlike : 1) || (n + refusal) % kStride != 0)) continue;
      SCOPED_TRACE(testing::Message() << "request " << n << " of " << requests << ", "
                                      << whole.requests[static_cast<size_t>(n)].size << " bytes, refused "
                                      << (refusal == ArenaRequests::kOnce ? "once" : "for ever"));
      const Outcome outcome = run(refusal, n);
      const bool same = outcome.picture == picture_;
      ++tried;
      told += outcome.status != kOk;
      silent += outcome.status == kOk && !same;
      // What the engine drops without a word (a conversion on the way in, a feature image, a picture of the comparison)
      // is at least a row; tasks and tables are smaller.
      EXPECT_TRUE(outcome.status != kOk || same || whole.requests[static_cast<size_t>(n)].size > 256)
          << "another picture, and nobody is told";
      // What was refused and done without takes no memory: less may be held, never more.
      EXPECT_LE(outcome.mark, whole.mark);
    }
  }
  std::cout << requests << " requests, " << tried << " refusals: " << told << " told, " << silent << " silent\n";
  EXPECT_GT(told, 5);
}

INSTANTIATE_TEST_SUITE_P(Roads, Refusal,
                         testing::Values(Road{kUv, 0, 0}, Road{kUv, 0, 1}, Road{kUv, 2, 0}, Road{kUv, 2, 1},
                                         Road{kVu, 2, 0, 0, 5}, Road{kPlanar, 2, 1}, Road{kPacked, 0, 1},
                                         Road{kUv, 0, 1, 1}, Road{kPlanar, 2, 0, 1}),
                         [](const testing::TestParamInfo<Road>& info) { return nameOf(info.param); });

}  // namespace
}  // namespace test
