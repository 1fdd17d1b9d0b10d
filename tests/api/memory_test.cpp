// Memory: the stated buffer is enough, and a refusing arena ends a burst cleanly.
#include <limits>

#include "api/tessal4_handle.h"
#include "instance.h"

namespace {

// The sanitizers are slow: fewer cases then.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kSanitized = true;
#else
constexpr bool kSanitized = false;
#endif

int64_t arenaRequests = 0;    // calls of Heap2_malloc since the last reset
int64_t arenaRefusesAt = -1;  // which of them is refused; -1 none
uint32_t refusedSize = 0;

}  // namespace

// The linker sends the library's requests to the arena here.
extern "C" void* __real_zvt4_Heap2_malloc(Heap2* heap, uint32_t size);
extern "C" void* __wrap_zvt4_Heap2_malloc(Heap2* heap, uint32_t size) {
  const int64_t request = __atomic_fetch_add(&arenaRequests, 1, __ATOMIC_SEQ_CST);
  if (request != __atomic_load_n(&arenaRefusesAt, __ATOMIC_SEQ_CST)) return __real_zvt4_Heap2_malloc(heap, size);
  refusedSize = size;
  return nullptr;
}

namespace test {
namespace {

constexpr char kPlanar[] = "YUV420_PLANAR";

// A quickly made burst of large frames: bytes of a small one, over and over.
std::vector<Frame> tiledBurst(const std::string& format, int32_t width, int32_t height, int32_t count) {
  std::vector<Frame> frames;
  for (const Frame& tile : makeBurst(format, 640, 480, count, 0.0)) {
    frames.push_back(makeFrame(format, width, height));
    std::vector<uint8_t>& bytes = frames.back().bytes;
    for (size_t i = 0; i < bytes.size(); ++i) bytes[i] = tile.bytes[i % tile.bytes.size()];
  }
  return frames;
}

// The seam of the area term: two bytes a pixel up to 15,872,256 pixels, three beyond.
TEST(Memory, BufferSizeFollowsTheStatedSum) {
  for (const auto& [w, h] : {std::pair(1280, 960), {4134, 3839}, {4096, 3875}, {4096, 3876}}) {
    const int32_t frames = 4 * Image_getSize(w, h, IMAGE_YVU420_SEMIPLANAR, 0);
    const int32_t engine = Tessal4_getBufferSize(w, h, 4, IMAGE_YVU420_SEMIPLANAR, nullptr);
    EXPECT_EQ(zelvan_Tessaline4_getBufferSize(w, h, 4, kVu) - engine - frames,
              h == 3876 ? 3 * w * h - 15872256 : 2 * w * h);
  }
}

// A sum is never below its parts: it is negative where it does not fit 31 bits, and for negative sides.
TEST(Memory, BufferSizeIsNeverAWrappedSum) {
  for (const char* format : {kVu, kPlanar, "YUV422_YUYV", "LAB"}) {
    int64_t most = 0;
    bool fits = true;
    for (int64_t side = 64; side < 70000; side += 32) {
      const auto length = static_cast<int32_t>(side);
      const int32_t bytes = zelvan_Tessaline4_getBufferSize(length, length, 10, format);
      const int32_t engine = Tessal4_getBufferSize(length, length, 10, Image_getImageFormat(format), nullptr);
      ASSERT_TRUE(engine < 0 || engine > side * side) << format << ' ' << side;
      ASSERT_TRUE(bytes < 0 || (fits && engine > 0 && bytes > engine + 7 * side * side)) << format << ' ' << side;
      fits = bytes > 0;
      if (fits) most = side * side;
    }
    EXPECT_FALSE(fits);
    if (format == kVu) {
      EXPECT_NEAR(static_cast<double>(most), 160e6, 3e6);
    }
  }
  constexpr int32_t kLeast = std::numeric_limits<int32_t>::min(), kMost = std::numeric_limits<int32_t>::max();
  for (int32_t width : {kLeast, -46341, -640, -1, 0, 1, 640, 46341, 65536, kMost}) {
    for (int32_t height : {kLeast, -46341, -480, -1, 0, 1, 480, 46341, 65536, kMost}) {
      for (int32_t frames : {kLeast, -1, 0, 10, kMost}) {
        const int32_t bytes = zelvan_Tessaline4_getBufferSize(width, height, frames, kVu);
        const int64_t area = int64_t{width} * height;
        const bool none = width < 0 || height < 0 || area > 200000000;
        const bool fits = !none && area < 64000000 && std::max(width, height) < 100000 && frames <= 10;
        EXPECT_TRUE(none ? bytes < 0 : bytes > 0 || !fits) << width << 'x' << height << ' ' << frames;
      }
    }
  }
}

TEST(Memory, BufferSizeSuffices) {
  std::vector<std::pair<int32_t, int32_t>> sizes = {{640, 480}, {481, 641}};
  std::vector<size_t> counts = {1, 3};
  if (!kSanitized) {
    sizes.insert(sizes.end(), {{480, 640}, {1278, 958}, {1279, 961}, {1280, 960}, {641, 481}, {4000, 3000}});
    counts = {1, 2, 10};
  }
  for (const std::string format : {kVu, kUv, kPlanar, "YUV422_YUYV"}) {
    for (const auto& [width, height] : sizes) {
      const bool large = width > 2000;
      // A large burst differs from format to format by the conversions alone: the packed one is the widest.
      if (large && format != "YUV422_YUYV") continue;
      const std::vector<Frame> two =
          large ? tiledBurst(format, width, height, 2) : makeBurst(format, width, height, 2, 0.0);
      for (const size_t count : counts) {
        if (large && count == 2) continue;
        SCOPED_TRACE(testing::Message() << format << ' ' << width << 'x' << height << ", " << count << " frames");
        std::vector<Frame> burst;
        while (burst.size() < count) burst.push_back(two[burst.size() % 2]);
        mergeOnce(copyBurst(burst), format, highestSettings);
        if (HasFailure()) return;
      }
    }
  }
}

// One burst with the n-th request of the arena refused. Whatever fails, the instance ends with an empty arena.
uint32_t burstWithRefusal(const std::vector<Frame>& burst, int64_t n, std::vector<uint8_t>* picture) {
  SCOPED_TRACE(testing::Message() << "request " << n << " refused");
  Instance instance(640, 480, static_cast<int32_t>(burst.size()), kPlanar);
  const Settings settings = [n](zelvan_Tessaline4* handle) {
    highestSettings(handle);
    EXPECT_EQ(zelvan_Tessaline4_setCoreSetting(handle, 2, 0), kOk);
    arenaRequests = 0;
    arenaRefusesAt = n;
  };
  Frame output;
  const uint32_t status = run(&instance, burst, kPlanar, settings, &output);
  arenaRefusesAt = -1;
  *picture = std::move(output.bytes);
  return status;
}

TEST(Memory, ARefusedRequestEndsCleanly) {
  const std::vector<Frame> burst = makeBurst(kPlanar, 640, 480, 2);
  std::vector<uint8_t> expected, picture;
  ASSERT_EQ(burstWithRefusal(burst, -1, &expected), kOk);
  const int64_t requests = arenaRequests;
  ASSERT_GT(requests, 100);
  // Most requests are the tasks of forks, all alike: every request of the first hundred, then wider steps.
  int64_t failures = 0;
  for (int64_t n = 0; n < requests; n += n < (kSanitized ? 60 : 100) ? 1 : requests / (kSanitized ? 12 : 150) + 1) {
    const bool failed = burstWithRefusal(burst, n, &picture) != kOk;
    failures += failed;
    // What is dropped without a word (a conversion, a feature image, a picture of the comparison) is at least a row.
    EXPECT_TRUE(failed || picture == expected || refusedSize > 256) << "another picture without a word, request " << n;
  }
  // Refused tasks run in the caller, as does the work of pools that cannot start.
  EXPECT_GE(failures, 15);
}

}  // namespace
}  // namespace test
