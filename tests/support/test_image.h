// An external image of any format over noise, with guard bytes in front of, between and behind its planes and rows.
#ifndef ZVT4_TESTS_SUPPORT_TEST_IMAGE_H_
#define ZVT4_TESTS_SUPPORT_TEST_IMAGE_H_

#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "image/image.h"
#include "support/golden.h"

class TestImage : public Image {
 public:
  // Each pitch is the row bytes of the format plus gap. The same seed gives the same bytes.
  TestImage(int32_t w, int32_t h, int32_t id, uint32_t seed = 1, int32_t gap = 5) {
    construct_Image(this, nullptr);
    const int32_t count = imagePlaneCount(id);
    size_t starts[3] = {};
    intptr_t descriptor[6] = {};
    size_t next = kGuard;
    for (int32_t p = 0; p < count; ++p) {
      const auto pitch = static_cast<size_t>(imagePlaneRowBytes(id, p, w)) + gap;
      starts[p] = next;
      next += pitch * imagePlaneRows(id, p, h) + kGuard;
      descriptor[count + p] = static_cast<intptr_t>(pitch);
    }
    bytes_.resize(next);
    std::mt19937 random(seed);
    for (uint8_t& b : bytes_) b = static_cast<uint8_t>(random() >> 8);
    before_ = bytes_;
    for (int32_t p = 0; p < count; ++p) descriptor[p] = reinterpret_cast<intptr_t>(bytes_.data() + starts[p]);
    EXPECT_EQ(Image_initWithPitch(this, w, h, descriptor, id), ZELVAN_OK);
  }
  TestImage(const TestImage&) = delete;
  TestImage& operator=(const TestImage&) = delete;

  uint8_t* plane(int32_t p) const { return p == 0 ? plane0 : p == 1 ? plane1 : plane2; }
  int32_t pitch(int32_t p) const { return p == 0 ? pitch0 : p == 1 ? pitch1 : pitch2; }
  uint8_t* row(int32_t p, int32_t y) const { return plane(p) + static_cast<ptrdiff_t>(y) * pitch(p); }

  // Bytes and rows of the pixels of a plane, without the padding of odd sizes.
  int32_t pixelBytes(int32_t p) const {
    const ImagePlaneDescriptor& d = imageFormatDescriptor(format).planes[p];
    return ((width + (1 << d.shiftX) - 1) >> d.shiftX) * d.bytes;
  }
  int32_t pixelRows(int32_t p) const {
    const ImagePlaneDescriptor& d = imageFormatDescriptor(format).planes[p];
    return ((height + (1 << d.shiftY) - 1) >> d.shiftY) * d.rows;
  }

  // Pixels, padding and guards; for two images of one shape.
  bool sameBytes(const TestImage& other) const { return bytes_ == other.bytes_; }
  bool unchanged() const { return bytes_ == before_; }
  void addTo(test::Hash* hash) const { hash->bytes(bytes_.data(), bytes_.size()); }  // likewise all bytes
  // Whether all bytes but the pixels are those of the beginning.
  bool guardsUnchanged() const {
    std::vector<uint8_t> now = bytes_;
    for (int32_t p = 0; p < imagePlaneCount(format); ++p) {
      for (int32_t y = 0; y < pixelRows(p); ++y) {
        const ptrdiff_t at = row(p, y) - bytes_.data();
        std::copy_n(before_.begin() + at, pixelBytes(p), now.begin() + at);
      }
    }
    return now == before_;
  }

 private:
  static constexpr size_t kGuard = 32;
  std::vector<uint8_t> bytes_;
  std::vector<uint8_t> before_;
};

// value(x, y) in plane 0.
template <typename Sample = uint8_t, typename Value>
void drawPixels(const Image* image, const Value& value) {
  for (int32_t y = 0; y < image->height; ++y) {
    for (int32_t x = 0; x < image->width; ++x) imageRow<Sample>(image, y)[x] = static_cast<Sample>(value(x, y));
  }
}

// Over the planes of two images of one shape, but for margin rows and twice as many bytes at each edge.
inline int32_t worstDifference(const TestImage& a, const TestImage& b, int32_t margin = 0) {
  int32_t worst = 0;
  for (int32_t p = 0; p < imagePlaneCount(a.format); ++p) {
    for (int32_t y = margin; y < a.pixelRows(p) - margin; ++y) {
      for (int32_t x = 2 * margin; x < a.pixelBytes(p) - 2 * margin; ++x) {
        worst = std::max(worst, std::abs(a.row(p, y)[x] - b.row(p, y)[x]));
      }
    }
  }
  return worst;
}

#endif  // ZVT4_TESTS_SUPPORT_TEST_IMAGE_H_
