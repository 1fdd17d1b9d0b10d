// What the kernel tests share: an arena with both pools, and pictures as plain numbers for slow references.
#ifndef ZVT4_TESTS_IMAGEPROC_KERNEL_RIG_H_
#define ZVT4_TESTS_IMAGEPROC_KERNEL_RIG_H_

#include <cstring>
#include <memory>

#include "imageproc/image_proc.h"
#include "support/test_executor.h"
#include "support/test_image.h"
#include "support/test_pel.h"

// workers 0: null pools.
struct KernelRig {
  explicit KernelRig(int32_t workers, uint32_t arenaSize = 8u << 20) : arena(arenaSize) {
    EXPECT_EQ(construct_ImageProc(&proc, arena.env()) | construct_ImageProc2(&proc2, arena.env()), ZELVAN_OK);
    if (workers == 0) return;
    executor = std::make_unique<TestExecutor>(workers);
    pel = std::make_unique<TestPel>(workers);
    ImageProc_setParallelExecutor(&proc, executor->get());
    ImageProc2_setPel(&proc2, pel->get());
  }

  TestArena arena;
  std::unique_ptr<TestExecutor> executor;
  std::unique_ptr<TestPel> pel;
  ImageProc proc;
  ImageProc2 proc2;
};

// The numbers of workers that every result must be the same for; made once per test.
struct KernelRigs {
  KernelRig rigs[3] = {KernelRig(0), KernelRig(1), KernelRig(3)};
  KernelRig* begin() { return rigs; }
  KernelRig* end() { return rigs + 3; }
};

// One plane as numbers, channels interleaved; reads of edge() repeat the edge.
struct Plane {
  int32_t width, height, channels;
  std::vector<int64_t> values;

  Plane(int32_t w, int32_t h, int32_t c = 1)
      : width(w), height(h), channels(c), values(static_cast<size_t>(w) * h * c) {}
  bool holds(int64_t x, int64_t y) const { return x >= 0 && x < width && y >= 0 && y < height; }
  int64_t& at(int64_t x, int64_t y, int32_t c = 0) {
    return values[static_cast<size_t>((y * width + x) * channels + c)];
  }
  int64_t edge(int64_t x, int64_t y, int32_t c = 0) const {
    return const_cast<Plane*>(this)->at(std::clamp<int64_t>(x, 0, width - 1), std::clamp<int64_t>(y, 0, height - 1), c);
  }
  // Sum of 2r + 1 samples along (dx, dy); one that falls outside comes back along the line to the last inside.
  int64_t lineSum(int64_t x, int64_t y, int32_t dx, int32_t dy, int32_t radius, int32_t c = 0) const {
    int64_t sum = 0;
    for (int32_t k = -radius; k <= radius; ++k) {
      int32_t t = k;
      while (!holds(x + t * dx, y + t * dy)) t -= t > 0 ? 1 : -1;
      sum += edge(x + t * dx, y + t * dy, c);
    }
    return sum;
  }
  // values = f(x, y, channel).
  template <typename F>
  void fill(const F& f) {
    for (int32_t i = 0; i < static_cast<int32_t>(values.size()); ++i) {
      values[static_cast<size_t>(i)] = f(i / channels % width, i / channels / width, i % channels);
    }
  }
  bool operator==(const Plane&) const = default;
};

inline int32_t sampleBytes(int32_t format) {
  if (format == IMAGE_INT32 || format == IMAGE_FLOAT) return 4;
  return format == IMAGE_UINT16 || format == IMAGE_INT16 ? 2 : 1;
}

// The planes that kernels see: chroma of 4:2:0 has floor(size / 2) samples. FLOAT must hold whole numbers.
inline std::vector<Plane> planesOf(const Image& image) {
  std::vector<Plane> planes;
  const int32_t bytes = sampleBytes(image.format);
  for (int32_t p = 0; p < imagePlaneCount(image.format); ++p) {
    const ImagePlaneDescriptor& d = imageFormatDescriptor(image.format).planes[p];
    Plane plane(image.width >> d.shiftX, image.height >> d.shiftY, d.bytes / bytes);
    const uint8_t* base = p == 0 ? image.plane0 : p == 1 ? image.plane1 : image.plane2;
    const ptrdiff_t pitch = p == 0 ? image.pitch0 : p == 1 ? image.pitch1 : image.pitch2;
    plane.fill([&](int32_t x, int32_t y, int32_t c) -> int64_t {
      int32_t word = 0;
      memcpy(&word, base + y * pitch + (x * plane.channels + c) * bytes, static_cast<size_t>(bytes));
      float real = 0;
      memcpy(&real, &word, 4);
      if (image.format == IMAGE_INT16) return static_cast<int16_t>(word);
      return image.format == IMAGE_FLOAT ? static_cast<int64_t>(real) : word;
    });
    planes.push_back(std::move(plane));
  }
  return planes;
}

// Turns the noise of plane 0 into the two extreme values.
inline void makeExtreme(const Image& image) {
  const int32_t bytes = sampleBytes(image.format);
  for (int32_t y = 0; y < image.height; ++y) {
    for (int32_t x = 0; x < image.width; ++x) {
      uint8_t* sample = imageRow(&image, y) + x * bytes;
      memset(sample, *sample & 1 ? 255 : 0, static_cast<size_t>(bytes));
      if (bytes == 4) sample[3] ^= 0x80;
    }
  }
}

inline void fillLuma(const Image& image, uint8_t value) {
  drawPixels(&image, [value](int32_t, int32_t) { return value; });
}

#endif  // ZVT4_TESTS_IMAGEPROC_KERNEL_RIG_H_
