// An engine over an arena of its own, with frames and an output that belong to the test.
#ifndef ZVT4_TESTS_ENGINE_ENGINE_RIG_H_
#define ZVT4_TESTS_ENGINE_ENGINE_RIG_H_

#include <gtest/gtest.h>

#include <array>
#include <memory>
#include <vector>

#include "engine/tessal4.h"
#include "image/image_if.h"
#include "support/burst.h"
#include "support/test_arena.h"

namespace test {

inline Tessal4Params defaultParams(int32_t width, int32_t height) {
  Tessal4Params params;
  EXPECT_EQ(Tessal4Params_setDefault(&params, width, height), ZELVAN_OK);
  params.autoScaling = 0;
  return params;
}

class EngineRig {
 public:
  EngineRig(int32_t width, int32_t height, int32_t count, const Tessal4Params& params,
            ParallelExecutor* executor = nullptr, Pel* pel = nullptr)
      : arena_(16u << 20), engine_(new Tessal4), storage_(static_cast<size_t>(count) + 1) {
    EXPECT_EQ(construct_Tessal4(engine_.get(), arena_.env()), ZELVAN_OK);
    EXPECT_EQ(Tessal4_setParallelExecutor(get(), executor), ZELVAN_OK);
    get()->pel = pel;
    EXPECT_EQ(Tessal4_init(get(), width, height, count, &params), ZELVAN_OK);
    EXPECT_EQ(Tessal4_clean(get()), ZELVAN_OK);
    for (int32_t i = 0; i <= count; ++i) {
      Frame& frame = storage_[static_cast<size_t>(i)];
      frame = makeFrame(kFormat, width, height);
      EXPECT_EQ(IF_initImage(i < count ? &frames[i] : &output, &frame.data, IMAGE_YVU420_SEMIPLANAR), ZELVAN_OK);
    }
    EXPECT_EQ(Tessal4_setOutput(get(), &output), ZELVAN_OK);
  }
  ~EngineRig() { EXPECT_EQ(destruct_Tessal4(get()), ZELVAN_OK); }  // the arena then checks that all has gone back
  EngineRig(const EngineRig&) = delete;
  EngineRig& operator=(const EngineRig&) = delete;

  Tessal4* get() { return engine_.get(); }
  Tessal4* operator->() { return engine_.get(); }
  Env* env() { return arena_.env(); }
  uint32_t used() const { return arena_.used(); }

  void paint(int32_t id, double shiftX, double shiftY, double noise = 0.0) {
    fillFrame(&storage_[static_cast<size_t>(id)], kFormat, shiftX, shiftY, noise, static_cast<uint32_t>(id));
  }
  std::vector<uint8_t>& bytes(int32_t id) { return storage_[static_cast<size_t>(id)].bytes; }
  std::vector<uint8_t>& outputBytes() { return storage_.back().bytes; }
  void setImages(int32_t count) {
    for (int32_t i = 0; i < count; ++i) EXPECT_EQ(Tessal4_setImage(get(), &frames[i], i), ZELVAN_OK);
  }

  std::array<int32_t, 4> crop() const {  // left, top, right, bottom
    return {engine_->cropLeft, engine_->cropTop, engine_->cropRight, engine_->cropBottom};
  }
  void setAndMerge(int32_t count) {
    setImages(count);
    merge(count);
  }
  void merge(int32_t count) {
    constexpr int32_t kOrder[] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9};
    EXPECT_EQ(Tessal4_merge(get(), frames, kOrder, count), ZELVAN_OK);
  }

  Image frames[10] = {};
  Image output = {};

 private:
  static constexpr const char* kFormat = "YVU420_SEMIPLANAR";
  TestArena arena_;
  std::unique_ptr<Tessal4> engine_;
  std::vector<Frame> storage_;
};

// Luma and the pairs of whole 2x2 blocks of a semi-planar image.
inline std::vector<uint8_t> picture(const Image& image) {
  std::vector<uint8_t> all;
  for (int32_t y = 0; y < image.height; ++y) {
    all.insert(all.end(), imageRow(&image, y), imageRow(&image, y) + image.width);
  }
  for (int32_t y = 0; y < image.height / 2; ++y) {
    all.insert(all.end(), imageChromaRow(&image, y), imageChromaRow(&image, y) + image.width / 2 * 2);
  }
  return all;
}

}  // namespace test

#endif  // ZVT4_TESTS_ENGINE_ENGINE_RIG_H_
