// What the kernel tests share: an arena with both pools, and pictures as plain numbers for slow references.
#ifndef ZVT4_TESTS_IMAGEPROC_KERNEL_RIG_H_
#define ZVT4_TESTS_IMAGEPROC_KERNEL_RIG_H_

#include <cstring>
#include <memory>

#include "imageproc/image_proc.h"
#include "support/test_arena.h"
#include "support/test_image.h"

// workers 0: null pools.
class KernelRig {
 public:
  explicit KernelRig(int32_t workers, uint32_t arenaSize = 8u << 20) : arena_(arenaSize) {
    EXPECT_EQ(construct_ImageProc(&proc, arena_.env()), ZELVAN_OK);
    EXPECT_EQ(construct_ImageProc2(&proc2, arena_.env()), ZELVAN_OK);
    construct_ParallelExecutor(&executor_, arena_.env());
    pel_ = std::make_unique<Pel>();
    construct_Pel(pel_.get(), arena_.env());
    if (workers == 0) return;
    executor_.threadCount = workers;
    executor_.pin = 0;
    EXPECT_EQ(ParallelExecutor_init(&executor_, 64, 64), ZELVAN_OK);
    pel_->requested.numberOfWorkers = workers;
    pel_->requested.pinWorkers = 0;
    EXPECT_EQ(Pel_init(pel_.get()), ZELVAN_OK);
    ImageProc_setParallelExecutor(&proc, &executor_);
    ImageProc2_setPel(&proc2, pel_.get());
  }
  ~KernelRig() {
    destruct_Pel(pel_.get());
    destruct_ParallelExecutor(&executor_);
  }
  TestArena& arena() { return arena_; }

  ImageProc proc;
  ImageProc2 proc2;

 private:
  TestArena arena_;
  ParallelExecutor executor_;
  std::unique_ptr<Pel> pel_;
};

// The numbers of workers that every result must be the same for; made once per test.
struct KernelRigs {
  KernelRig rigs[3] = {KernelRig(0), KernelRig(1), KernelRig(3)};
  KernelRig* begin() { return rigs; }
  KernelRig* end() { return rigs + 3; }
};

// One plane as numbers, channels interleaved; reads repeat the edge.
struct Plane {
  int32_t width;
  int32_t height;
  int32_t channels = 1;
  std::vector<double> values;

  Plane(int32_t w, int32_t h, int32_t c) : width(w), height(h), channels(c) {
    values.resize(static_cast<size_t>(w) * h * c);
  }
  double& at(int32_t x, int32_t y, int32_t c) { return values[(static_cast<size_t>(y) * width + x) * channels + c]; }
  int64_t edge(int64_t x, int64_t y, int32_t c) const {
    x = std::min<int64_t>(std::max<int64_t>(x, 0), width - 1);
    y = std::min<int64_t>(std::max<int64_t>(y, 0), height - 1);
    return static_cast<int64_t>(values[(static_cast<size_t>(y) * width + static_cast<size_t>(x)) * channels + c]);
  }
  bool operator==(const Plane&) const = default;
};

inline int32_t sampleBytes(int32_t format) {
  return format == IMAGE_INT32 || format == IMAGE_FLOAT ? 4 : format == IMAGE_UINT16 ? 2 : 1;
}

// The planes that kernels see: chroma of 4:2:0 has floor(size / 2) samples.
inline std::vector<Plane> planesOf(const Image& image) {
  std::vector<Plane> planes;
  const int32_t bytes = sampleBytes(image.format);
  for (int32_t p = 0; p < imagePlaneCount(image.format); ++p) {
    const ImagePlaneDescriptor& d = imageFormatDescriptor(image.format).planes[p];
    Plane plane(image.width >> d.shiftX, image.height >> d.shiftY, d.bytes / bytes);
    const uint8_t* base = p == 0 ? image.plane0 : p == 1 ? image.plane1 : image.plane2;
    const ptrdiff_t pitch = p == 0 ? image.pitch0 : p == 1 ? image.pitch1 : image.pitch2;
    const int32_t perRow = plane.width * plane.channels;
    for (int32_t i = 0; i < perRow * plane.height; ++i) {
      const uint8_t* at = base + i / perRow * pitch + i % perRow * bytes;
      int32_t word = 0;
      memcpy(&word, at, static_cast<size_t>(bytes));
      float real = 0;
      memcpy(&real, &word, 4);
      plane.values[static_cast<size_t>(i)] = image.format == IMAGE_FLOAT ? double{real} : word;
    }
    planes.push_back(std::move(plane));
  }
  return planes;
}

// Turns noise into the two extreme values.
inline void makeExtreme(const Image& image) {
  for (int32_t y = 0; y < image.height; ++y) {
    uint8_t* row = imageRow(&image, y);
    const int32_t bytes = sampleBytes(image.format);
    for (int32_t x = 0; x < image.width; ++x) {
      const uint8_t high = row[x * bytes] & 1 ? 255 : 0;
      for (int32_t b = 0; b < bytes; ++b) row[x * bytes + b] = high;
      if (image.format == IMAGE_INT32) row[x * 4 + 3] ^= 0x80;
    }
  }
}

inline void fillPixels(const TestImage& image, uint8_t value) {
  for (int32_t p = 0; p < imagePlaneCount(image.format); ++p) {
    for (int32_t y = 0; y < image.pixelRows(p); ++y) {
      memset(image.row(p, y), value, static_cast<size_t>(image.pixelBytes(p)));
    }
  }
}

#endif  // ZVT4_TESTS_IMAGEPROC_KERNEL_RIG_H_
