// An instance of the library in a guarded buffer of its own.
#ifndef ZVT4_TESTS_API_INSTANCE_H_
#define ZVT4_TESTS_API_INSTANCE_H_

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <tuple>
#include <vector>

#include "support/burst.h"

namespace test {

constexpr char kVu[] = "YVU420_SEMIPLANAR";
constexpr char kUv[] = "YUV420_SEMIPLANAR";
constexpr char kPlanar[] = "YUV420_PLANAR";
constexpr char kPacked[] = "YUV422_YUYV";
constexpr uint32_t kOk = ZELVAN_TESSALINE4_OK;
constexpr uint32_t kParam = ZELVAN_TESSALINE4_ERROR_PARAM;
constexpr uint32_t kState = ZELVAN_TESSALINE4_ERROR_STATE;
constexpr uint32_t kUnsupported = ZELVAN_TESSALINE4_ERROR_UNSUPPORTED;
constexpr uint32_t kResource = ZELVAN_TESSALINE4_ERROR_RESOURCE;

using Settings = std::function<void(zelvan_Tessaline4*)>;

class Instance {
 public:
  // fill: what the memory holds beforehand; -1: noise.
  Instance(int32_t width, int32_t height, int32_t frames, const std::string& format = kVu, int32_t fill = 0xA5)
      : output(makeFrame(format, width, height)),
        frames_(frames),
        format_(format),
        size_(zelvan_Tessaline4_getBufferSize(width, height, frames, format.c_str())),
        guard_(static_cast<uint8_t>(fill)),
        memory_(static_cast<size_t>(size_) + 2 * kGuard, guard_) {
    EXPECT_GT(size_, 0);
    std::mt19937 random(9);
    for (size_t i = 0; fill < 0 && i < static_cast<size_t>(size_); ++i) memory_[kGuard + i] = random() >> 8 & 0xFF;
    EXPECT_EQ(zelvan_Tessaline4_initialize(&handle_, memory_.data() + kGuard, size_, width, height), kOk);
  }
  ~Instance() {
    if (handle_.pointer != nullptr) {
      EXPECT_EQ(zelvan_Tessaline4_finalize(&handle_), kOk) << "the arena is not empty";
    }
    for (size_t i = 0; i < kGuard; ++i) EXPECT_TRUE(memory_[i] == guard_ && memory_[memory_.size() - 1 - i] == guard_);
  }
  Instance(const Instance&) = delete;
  Instance& operator=(const Instance&) = delete;

  operator zelvan_Tessaline4*() { return &handle_; }
  zelvan_Tessaline4* operator->() { return &handle_; }

  // Opens a burst of the format into the output.
  uint32_t start(const Settings& settings = {}) {
    EXPECT_EQ(zelvan_Tessaline4_setImageFormat(&handle_, format_.c_str()), kOk);
    if (settings) settings(&handle_);
    return zelvan_Tessaline4_start(&handle_, &output.data, frames_);
  }
  // Adds copies of the frames and takes the result; the statuses of the calls.
  uint32_t addAndMerge(const std::vector<Frame>& burst) {
    std::vector<Frame> frames = copyBurst(burst);
    uint32_t status = kOk;
    for (Frame& frame : frames) status |= zelvan_Tessaline4_addImage(&handle_, &frame.data);
    return status | zelvan_Tessaline4_getResult(&handle_);
  }
  uint32_t run(const std::vector<Frame>& burst, const Settings& settings = {}) {
    const uint32_t status = start(settings);
    return status | addAndMerge(burst);
  }

  Frame output;

 private:
  static constexpr size_t kGuard = 64;
  zelvan_Tessaline4 handle_ = {nullptr};
  int32_t frames_;
  std::string format_;
  int32_t size_;
  uint8_t guard_;
  std::vector<uint8_t> memory_;
};

inline void highestSettings(zelvan_Tessaline4* handle) {
  uint32_t status = zelvan_Tessaline4_setAutoScaling(handle, 1);
  status |= zelvan_Tessaline4_setObjBlurCorrectionLevel(handle, 7);
  status |= zelvan_Tessaline4_setLumaNoiseReductionLevel(handle, 7);
  status |= zelvan_Tessaline4_setChromaNoiseReductionLevel(handle, 7);
  status |= zelvan_Tessaline4_setSaturationLevel(handle, 4096);
  status |= zelvan_Tessaline4_setGain(handle, 1000);
  status |= zelvan_Tessaline4_setGamma(handle, 1000);
  status |= zelvan_Tessaline4_setContrast(handle, 2000);
  status |= zelvan_Tessaline4_setSharpnessEnhanceLevel(handle, 10000);
  status |= zelvan_Tessaline4_setRemoveSpikeNoiseLevel_internal(handle, 255);
  status |= zelvan_Tessaline4_setLumaNoiseReductionTimes_internal(handle, 3);
  EXPECT_EQ(status, kOk);
}

inline void fine(zelvan_Tessaline4* handle) {
  EXPECT_EQ(zelvan_Tessaline4_setFineMode(handle, 1), kOk);
}
inline void fineAndHighest(zelvan_Tessaline4* handle) {
  fine(handle);
  highestSettings(handle);
}

inline std::vector<uint8_t> mergeOnce(const std::vector<Frame>& burst, const std::string& format = kVu,
                                      const Settings& settings = {}, uint8_t fill = 0xA5) {
  Instance instance(burst[0].data.width, burst[0].data.height, static_cast<int32_t>(burst.size()), format, fill);
  EXPECT_EQ(instance.run(burst, settings), kOk);
  return instance.output.bytes;
}

// One picture, whatever the workers and what the memory held. Masks of processors that are not there neither stop nor
// change the work.
inline void expectSameForAnyWorkers(const std::vector<Frame>& burst, const std::string& format,
                                    const Settings& settings) {
  std::vector<uint8_t> expected;
  for (const auto& [workers, mask, fill] : {std::tuple(1, 0u, 0x00),
                                            {2, 0u, 0xFF},
                                            {3, 0u, 0x5A},
                                            {17, 0u, 0},
                                            {-1, 0u, 0},
                                            {0, 0u, 0},
                                            {2, 0xC0000000u, 0},
                                            {40, 0u, 0}}) {
    const Settings all = [&, workers = workers, mask = mask](zelvan_Tessaline4* handle) {
      settings(handle);
      EXPECT_EQ(zelvan_Tessaline4_setCoreSetting(handle, workers, mask), kOk);
    };
    const std::vector<uint8_t> result = mergeOnce(burst, format, all, static_cast<uint8_t>(fill));
    if (expected.empty()) expected = result;
    EXPECT_TRUE(result == expected) << burst[0].data.width << ", " << workers << " workers, mask " << mask;
  }
}

// Mean squared difference of a luma plane of 640 x 480 to the clean scene as a frame of makeBurst shows it.
inline double lumaError(const std::vector<uint8_t>& luma, int32_t frame) {
  double sum = 0;
  for (int32_t y = 0; y < 480; y += 2) {
    for (int32_t x = 0; x < 640; x += 3) {
      const double clean = std::clamp(sceneLuma(x + 1.3 * frame, y - 0.8 * frame), 0.0, 255.0);
      const double d = luma[static_cast<size_t>(y * 640 + x)] - clean;
      sum += d * d;
    }
  }
  return sum / (240 * 214);
}

}  // namespace test

#endif  // ZVT4_TESTS_API_INSTANCE_H_
