// An Image of any format over noise, its rows with gaps, its planes in guarded memory.
#ifndef TESSALINE4_FUZZ_GUARDED_IMAGE_H_
#define TESSALINE4_FUZZ_GUARDED_IMAGE_H_

#include <memory>

#include "image/image.h"
#include "support.h"

namespace fuzz {

class GuardedImage : public Image {
 public:
  GuardedImage(int32_t w, int32_t h, int32_t id, int32_t gap, uint32_t seed) {
    construct_Image(this, nullptr);
    const int32_t count = imagePlaneCount(id);
    intptr_t descriptor[6] = {};
    Noise noise(seed);
    for (int32_t p = 0; p < count; ++p) {
      const size_t row = static_cast<size_t>(imagePlaneRowBytes(id, p, w));
      const size_t rows = static_cast<size_t>(imagePlaneRows(id, p, h));
      const size_t pitch = row + static_cast<size_t>(gap);
      // The last row has no gap behind it.
      blocks_[p] = std::make_unique<Guarded>(rows == 0 ? 0 : pitch * (rows - 1) + row);
      std::generate_n(blocks_[p]->data(), blocks_[p]->size(), [&] { return noise(); });
      before_[p].assign(blocks_[p]->data(), blocks_[p]->data() + blocks_[p]->size());
      descriptor[p] = reinterpret_cast<intptr_t>(blocks_[p]->data());
      descriptor[count + p] = static_cast<intptr_t>(pitch);
    }
    REQUIRE(Image_initWithPitch(this, w, h, descriptor, id) == ZELVAN_OK);
  }
  GuardedImage(const GuardedImage&) = delete;
  GuardedImage& operator=(const GuardedImage&) = delete;

  Guarded* block(int32_t p) { return blocks_[p].get(); }
  void fill(uint8_t value) {
    for (int32_t p = 0; p < imagePlaneCount(format); ++p) {
      std::memset(blocks_[p]->data(), value, blocks_[p]->size());
      before_[p].assign(blocks_[p]->size(), value);
    }
  }

  bool sameBytes(GuardedImage* other) {
    for (int32_t p = 0; p < imagePlaneCount(format); ++p) {
      if (std::memcmp(blocks_[p]->data(), other->blocks_[p]->data(), blocks_[p]->size()) != 0) return false;
    }
    return true;
  }
  bool unchanged() { return changedOutside({0, 0, 0, 0}) == 0; }
  // Bytes that are not as they were at the beginning, other than those of the units that hold pixels of the rectangle.
  int64_t changedOutside(const ImageRect& rect) {
    int64_t changed = 0;
    for (int32_t p = 0; p < imagePlaneCount(format); ++p) {
      blocks_[p]->check();
      const ImagePlaneDescriptor& d = imageFormatDescriptor(format).planes[p];
      const auto up = [](int32_t v, int32_t shift) { return (v + (1 << shift) - 1) >> shift; };
      const size_t left = static_cast<size_t>((rect.left >> d.shiftX) * d.bytes);
      const size_t right = static_cast<size_t>(up(rect.right, d.shiftX) * d.bytes);
      const size_t top = static_cast<size_t>((rect.top >> d.shiftY) * d.rows);
      const size_t bottom = static_cast<size_t>(up(rect.bottom, d.shiftY) * d.rows);
      const bool empty = rect.right <= rect.left || rect.bottom <= rect.top;
      const auto pitch = static_cast<size_t>(p == 0 ? pitch0 : p == 1 ? pitch1 : pitch2);
      for (size_t i = 0; i < before_[p].size(); ++i) {
        const size_t x = i % pitch;
        const size_t y = i / pitch;
        if (!empty && x >= left && x < right && y >= top && y < bottom) continue;
        changed += blocks_[p]->data()[i] != before_[p][i];
      }
    }
    return changed;
  }

 private:
  std::unique_ptr<Guarded> blocks_[3];
  std::vector<uint8_t> before_[3];
};

// An environment over guarded memory that must be empty at the end.
class Arena {
 public:
  explicit Arena(uint32_t size) : block_(size) { REQUIRE(construct_Env(&env_, block_.data(), size) == ZELVAN_OK); }
  ~Arena() {
    REQUIRE(destruct_Env(&env_) == ZELVAN_OK);
    block_.check();
  }
  Arena(const Arena&) = delete;
  Arena& operator=(const Arena&) = delete;

  Env* env() { return &env_; }

 private:
  Guarded block_;
  Env env_;
};

}  // namespace fuzz

#endif  // TESSALINE4_FUZZ_GUARDED_IMAGE_H_
