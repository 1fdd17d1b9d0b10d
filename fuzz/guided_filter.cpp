// The guided filter at any size, window, rectangle and strength: the arena that it asks for suffices, nothing but the
// rectangle changes, a pool of workers gives the caller's bytes, and flat pictures stay flat.
#include "imageproc/guided_filter.h"
#include "guarded_image.h"
#include "parallel/pel.h"

namespace {

using fuzz::GuardedImage;

// A Pel of two workers for the life of the process.
Pel* workers() {
  static Pel* const pel = [] {
    static fuzz::Guarded block(1 << 16);
    static Env env;
    static Pel instance;
    REQUIRE(construct_Env(&env, block.data(), 1 << 16) == ZELVAN_OK);
    REQUIRE(construct_Pel(&instance, &env) == ZELVAN_OK);
    instance.requested.numberOfWorkers = 2;
    REQUIRE(Pel_init(&instance) == ZELVAN_OK);
    std::atexit([] { destruct_Pel(&instance); });
    return &instance;
  }();
  return pel;
}

struct Case {
  int32_t width;
  int32_t height;
  int32_t gap;
  GuidedFilterParam param;
  int32_t form;  // of the functions that execute
  float epsilon;
  float epsilon2;
  int32_t window;
  bool inPlace;
  bool flat;
  bool cut;
  ImageRect rect;
  int32_t mapWidth;
  int32_t mapHeight;
  uint32_t seed;
};

Status execute(GuidedFilter* filter, const Case& c, Image* dst, Image* src, const Image* map) {
  switch (c.form) {
    case 0:
      return GuidedFilter_execute(filter, dst, src, c.epsilon, c.window);
    case 1:
      return GuidedFilter_execute_with_epsilon_map(filter, dst, src, c.epsilon, map, c.window);
    case 2:
      return GuidedFilter_execute_square(filter, dst, src, c.epsilon, c.window);
    case 3:
      return GuidedFilter_execute_two_step(filter, dst, src, c.epsilon, c.epsilon2, c.window);
    case 4:
      return GuidedFilter_execute_two_step_lite(filter, dst, src, c.epsilon, c.epsilon2, c.window);
    default: {
      const Status first = GuidedFilter_execute_first_step(filter, dst, src, c.epsilon, c.window);
      if (first != ZELVAN_OK) return first;
      return GuidedFilter_execute_second_step(filter, dst, src, c.epsilon2, c.window);
    }
  }
}

// The rectangle as the filter widens it.
ImageRect widened(const Case& c) {
  if (!c.cut) return {0, 0, c.width, c.height};
  const int32_t block = 1 << c.param.numShrink;
  const auto up = [block](int32_t v, int32_t most) { return std::min((v + block - 1) / block * block, most); };
  return {c.rect.left / block * block, c.rect.top / block * block, up(c.rect.right, c.width),
          up(c.rect.bottom, c.height)};
}

Status run(const Case& c, Pel* pel, GuardedImage* dst, GuardedImage* src) {
  const int32_t bytes = GuidedFilter_getBufferSize(c.width, c.height, 0, &c.param);
  REQUIRE(bytes >= 0);
  // What the arena itself takes for its blocks comes on top.
  fuzz::Arena arena(static_cast<uint32_t>(bytes) + 8192);
  GuardedImage map(c.mapWidth, c.mapHeight, IMAGE_UINT8, c.gap, c.seed + 2);
  GuidedFilter filter;
  REQUIRE(construct_GuidedFilter(&filter, arena.env()) == ZELVAN_OK);
  Status status = GuidedFilter_init(&filter, c.width, c.height, &c.param);
  if (status == ZELVAN_OK) {
    REQUIRE(GuidedFilter_setPel(&filter, pel) == ZELVAN_OK);
    if (c.cut) status = GuidedFilter_setRect(&filter, &c.rect);
    status |= execute(&filter, c, c.inPlace ? nullptr : dst, c.inPlace ? dst : src, &map);
  }
  REQUIRE(map.unchanged());
  REQUIRE(destruct_GuidedFilter(&filter) == ZELVAN_OK);
  return status;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  constexpr float kEpsilons[] = {0.0f, 1e-13f, 1e-6f, 0.5f, 10.0f, 100.0f, 1e4f, 3e38f, -1.0f, -1e-6f};
  constexpr int32_t kFormats[] = {IMAGE_YVU420_SEMIPLANAR, IMAGE_UINT8, IMAGE_YUV420_PLANAR, IMAGE_YUV420_SEMIPLANAR};
  constexpr int32_t kOthers[] = {IMAGE_RGB888, IMAGE_UINT16, IMAGE_YUV422_YUYV, IMAGE_YUV444_PLANAR};
  fuzz::Input input(data, size);
  Case c;
  c.form = input.byte() % 6;
  c.width = input.between(1, 72);
  c.height = input.between(1, 72);
  c.gap = input.between(0, 9);
  c.param.useEpsilonMap = c.form == 1 || input.oneIn(2);
  c.param.numShrink = input.oneIn(16) ? input.between(-2, 4) : input.between(0, 2);
  c.epsilon = input.pick(kEpsilons);
  c.epsilon2 = input.pick(kEpsilons);
  c.window = input.oneIn(16) ? input.between(-2, 300) : input.between(0, 101);
  c.inPlace = input.oneIn(4);
  c.flat = input.oneIn(4);
  c.cut = input.oneIn(4);
  if (c.cut) {
    c.rect.left = input.between(0, c.width);
    c.rect.top = input.between(0, c.height);
    c.rect.right = input.between(c.rect.left, c.width);
    c.rect.bottom = input.between(c.rect.top, c.height);
  }
  c.mapWidth = input.between(1, 40);
  c.mapHeight = input.between(1, 40);
  c.seed = input.byte();
  const bool served = !input.oneIn(16);
  const int32_t format = served ? input.pick(kFormats) : input.pick(kOthers);
  const uint8_t level = input.oneIn(2) ? 255 : input.byte();

  GuardedImage src(c.width, c.height, format, c.gap, c.seed);
  GuardedImage alone(c.width, c.height, format, c.gap, c.inPlace ? c.seed : c.seed + 1);
  GuardedImage shared(c.width, c.height, format, c.gap, c.inPlace ? c.seed : c.seed + 1);
  if (c.flat) {
    for (GuardedImage* image : {&src, &alone, &shared}) image->fill(level);
  }
  const Status status = run(c, nullptr, &alone, &src);
  REQUIRE(status == ZELVAN_OK || status == ZELVAN_ERROR_PARAM || status == ZELVAN_ERROR_UNSUPPORTED);
  REQUIRE(src.unchanged());
  const bool off = c.window < 2 || std::abs(c.epsilon) < 2e-12f || std::abs(c.epsilon2) < 2e-12f;
  // Of two steps run apart one may have copied before the other refused.
  if (!off || (status != ZELVAN_OK && c.form != 5)) {
    REQUIRE(alone.changedOutside(status == ZELVAN_OK ? widened(c) : ImageRect{0, 0, 0, 0}) == 0);
    // Chroma belongs to nobody here.
    for (int32_t p = 1; p < imagePlaneCount(format); ++p) {
      REQUIRE(std::memcmp(alone.block(p)->data(), shared.block(p)->data(), alone.block(p)->size()) == 0);
    }
  }
  const Status again = run(c, workers(), &shared, &src);
  REQUIRE(again == status);
  REQUIRE(alone.sameBytes(&shared));
  // White and black stay, even where rounding makes the variance of a flat window negative. Other levels can only be
  // held where the strength is far above that rounding, and of two steps run apart where the first has run.
  const bool strong = c.form != 1 && c.epsilon >= 10 && c.epsilon2 >= 10;
  const bool extreme = (level == 0 || level == 255) && c.epsilon >= 0 && c.epsilon2 >= 0 && c.form != 5;
  if (c.flat && (strong || extreme)) {
    for (size_t i = 0; i < alone.block(0)->size(); ++i) {
      REQUIRE(std::abs(alone.block(0)->data()[i] - level) <= 1);
    }
  }
  return 0;
}
