// Memory: the stated buffer is enough, nothing is taken beside it, and a refusing arena ends a burst cleanly.
#include <cstdlib>

#include "api/tessal4_handle.h"
#include "instance.h"

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define ZVT4_SANITIZED 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define ZVT4_SANITIZED 1
#endif
#endif
#ifndef ZVT4_SANITIZED
#define ZVT4_SANITIZED 0
#endif

namespace {

long systemRequests = 0;  // calls of the system allocator while counting
bool counting = false;
int64_t arenaRequests = 0;    // calls of Heap2_malloc since the last reset
int64_t arenaRefusesAt = -1;  // which of them is refused; -1 none

}  // namespace

// The linker sends the library's requests to the arena here.
extern "C" void* __real_zvt4_Heap2_malloc(Heap2* heap, uint32_t size);
extern "C" void* __wrap_zvt4_Heap2_malloc(Heap2* heap, uint32_t size) {
  const int64_t request = __atomic_fetch_add(&arenaRequests, 1, __ATOMIC_SEQ_CST);
  return request == __atomic_load_n(&arenaRefusesAt, __ATOMIC_SEQ_CST) ? nullptr : __real_zvt4_Heap2_malloc(heap, size);
}

#if !ZVT4_SANITIZED
namespace {

void countRequest() {
  if (__atomic_load_n(&counting, __ATOMIC_RELAXED)) __atomic_fetch_add(&systemRequests, 1, __ATOMIC_RELAXED);
}

}  // namespace

// Stands in front of the C library's allocator, for its own callers too.
extern "C" void* __libc_malloc(size_t size);
extern "C" void* __libc_calloc(size_t count, size_t size);
extern "C" void* __libc_realloc(void* at, size_t size);
extern "C" void* malloc(size_t size) {
  countRequest();
  return __libc_malloc(size);
}
extern "C" void* calloc(size_t count, size_t size) {
  countRequest();
  return __libc_calloc(count, size);
}
extern "C" void* realloc(void* at, size_t size) {
  countRequest();
  return __libc_realloc(at, size);
}
#endif

namespace test {
namespace {

// A quickly made burst of large frames: bytes of a small one, over and over.
std::vector<Frame> tiledBurst(const std::string& format, int32_t width, int32_t height, int32_t count) {
  const std::vector<Frame> tiles = makeBurst(format, 640, 480, count, 0.0);
  std::vector<Frame> frames;
  for (const Frame& tile : tiles) {
    frames.push_back(makeFrame(format, width, height));
    std::vector<uint8_t>& bytes = frames.back().bytes;
    for (size_t i = 0; i < bytes.size(); ++i) bytes[i] = tile.bytes[i % tile.bytes.size()];
  }
  return frames;
}

TEST(Memory, BufferSizeFollowsTheStatedSum) {
  // The seam of the area term: two bytes a pixel up to 15,872,256 pixels, three beyond.
  const auto terms = [](int32_t w, int32_t h) {
    return zelvan_Tessaline4_getBufferSize(w, h, 4, "YVU420_SEMIPLANAR") -
           Tessal4_getBufferSize(w, h, 4, IMAGE_YVU420_SEMIPLANAR, nullptr) -
           4 * Image_getSize(w, h, IMAGE_YVU420_SEMIPLANAR, 0);
  };
  EXPECT_EQ(terms(1280, 960), 2 * 1280 * 960);
  EXPECT_EQ(terms(4134, 3839), 2 * 4134 * 3839);
  EXPECT_EQ(terms(4096, 3875), 2 * 4096 * 3875);
  EXPECT_EQ(terms(4096, 3876), 3 * 4096 * 3876 - 15872256);
}

TEST(Memory, BufferSizeSuffices) {
  struct Size {
    int32_t width;
    int32_t height;
  };
  std::vector<Size> sizes = {{640, 480}, {481, 641}};
  std::vector<int32_t> counts = {1, 3};
  if (!ZVT4_SANITIZED) {
    sizes.insert(sizes.end(), {{480, 640}, {1278, 958}, {1279, 961}, {1280, 960}, {641, 481}, {4000, 3000}});
    counts = {1, 2, 10};
  }
  for (const char* format : {"YVU420_SEMIPLANAR", "YUV420_SEMIPLANAR", "YUV420_PLANAR", "YUV422_YUYV"}) {
    for (const Size& size : sizes) {
      const bool large = size.width > 2000;
      // A large burst differs from format to format by the conversions alone: the packed one is the widest.
      if (large && std::string(format) != "YUV422_YUYV") continue;
      const std::vector<Frame> all =
          large ? tiledBurst(format, size.width, size.height, 2) : makeBurst(format, size.width, size.height, 2, 0.0);
      for (int32_t count : counts) {
        if (large && count == 2) continue;
        SCOPED_TRACE(std::string(format) + " " + std::to_string(size.width) + "x" + std::to_string(size.height) + " " +
                     std::to_string(count) + " frames");
        std::vector<Frame> burst;
        for (int32_t i = 0; i < count; ++i) burst.push_back(copyBurst({all[static_cast<size_t>(i % 2)]})[0]);
        burst = copyBurst(burst);
        mergeOnce(burst, format, highestSettings);
        if (HasFailure()) return;
      }
    }
  }
}

TEST(Memory, NothingIsTakenFromTheSystemButThreads) {
  if (ZVT4_SANITIZED) GTEST_SKIP() << "the sanitizer's own allocator stands in front";
  const std::string format = "YUV420_PLANAR";
  std::vector<Frame> frames = copyBurst(makeBurst(format, 640, 480, 3));
  Frame output = makeFrame(format, 640, 480);
  Instance instance(640, 480, 3, format);
  zelvan_Tessaline4* handle = instance.handle();
  uint32_t status = zelvan_Tessaline4_setImageFormat(handle, format.c_str());
  highestSettings(handle);
  status |= zelvan_Tessaline4_start(handle, &output.data, 3);  // starts the threads
  systemRequests = 0;
  __atomic_store_n(&counting, true, __ATOMIC_SEQ_CST);
  for (Frame& frame : frames) status |= zelvan_Tessaline4_addImage(handle, &frame.data);
  status |= zelvan_Tessaline4_getResult(handle);
  status |= zelvan_Tessaline4_reset(handle);
  __atomic_store_n(&counting, false, __ATOMIC_SEQ_CST);
  EXPECT_EQ(status, kOk);
  EXPECT_EQ(systemRequests, 0);
  // The counter works.
  __atomic_store_n(&counting, true, __ATOMIC_SEQ_CST);
  void* volatile probe = std::malloc(1);
  __atomic_store_n(&counting, false, __ATOMIC_SEQ_CST);
  std::free(probe);
  EXPECT_EQ(systemRequests, 1);
}

// One burst with the n-th request of the arena refused. Whatever fails, the instance must be able to end.
uint32_t burstWithRefusal(const std::vector<Frame>& burst, const std::string& format, int64_t n) {
  const int32_t count = static_cast<int32_t>(burst.size());
  const int32_t width = burst[0].data.width;
  const int32_t height = burst[0].data.height;
  const int32_t size = zelvan_Tessaline4_getBufferSize(width, height, count, format.c_str());
  std::vector<uint8_t> memory(static_cast<size_t>(size));
  std::vector<Frame> frames = copyBurst(burst);
  Frame output = makeFrame(format, width, height);
  zelvan_Tessaline4 handle = {nullptr};
  uint32_t status = zelvan_Tessaline4_initialize(&handle, memory.data(), size, width, height);
  EXPECT_EQ(status, kOk);
  status |= zelvan_Tessaline4_setImageFormat(&handle, format.c_str());
  highestSettings(&handle);
  status |= zelvan_Tessaline4_setCoreSetting(&handle, 2, 0);
  arenaRequests = 0;
  arenaRefusesAt = n;
  status |= zelvan_Tessaline4_start(&handle, &output.data, count);
  for (Frame& frame : frames) status |= zelvan_Tessaline4_addImage(&handle, &frame.data);
  status |= zelvan_Tessaline4_getResult(&handle);
  arenaRefusesAt = -1;
  EXPECT_EQ(zelvan_Tessaline4_finalize(&handle), kOk) << "request " << n << " refused: the arena is not empty";
  return status;
}

TEST(Memory, ARefusedRequestEndsCleanly) {
  const std::string format = "YUV420_PLANAR";
  const std::vector<Frame> burst = makeBurst(format, 640, 480, 2);
  ASSERT_EQ(burstWithRefusal(burst, format, -1), kOk);
  const int64_t requests = arenaRequests;
  ASSERT_GT(requests, 100);
  // Most requests are the tasks of forks, all alike: every request of the first hundred, then ever wider steps.
  int64_t failures = 0;
  for (int64_t n = 0; n < requests;
       n += n < (ZVT4_SANITIZED ? 60 : 100) ? 1 : requests / (ZVT4_SANITIZED ? 12 : 150) + 1) {
    failures += burstWithRefusal(burst, format, n) != kOk;
    if (HasFailure()) return;
  }
  // The refused tasks of forks are passed over, and pools that cannot start are replaced by work in the caller.
  EXPECT_GE(failures, 15);
}

}  // namespace
}  // namespace test
