#include <limits>

#include "api/tessal4_handle.h"
#include "instance.h"
#include "support/sanitized.h"

namespace test {
namespace {

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
  for (const char* format : {kVu, kPlanar, kPacked, "LAB"}) {
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
  for (const std::string format : {kVu, kUv, kPlanar, kPacked}) {
    for (const auto& [width, height] : sizes) {
      const bool large = width > 2000;
      // A large burst differs from format to format by the conversions alone: the packed one is the widest.
      if (large && format != kPacked) continue;
      const std::vector<Frame> two =
          large ? tiledBurst(format, width, height, 2) : makeBurst(format, width, height, 2, 0.0);
      for (const size_t count : counts) {
        if (large && count == 2) continue;
        SCOPED_TRACE(testing::Message() << format << ' ' << width << 'x' << height << ", " << count << " frames");
        std::vector<Frame> burst;
        while (burst.size() < count) burst.push_back(two[burst.size() % 2]);
        mergeOnce(burst, format, highestSettings);
        // The fine mode, whose scratch is a worker's own.
        const Settings fineSettings = [](zelvan_Tessaline4* handle) {
          fineAndHighest(handle);
          EXPECT_EQ(zelvan_Tessaline4_setCoreSetting(handle, 17, 0), kOk);
        };
        if (!large && count != 2 && (format == kVu || format == kPacked)) mergeOnce(burst, format, fineSettings);
        if (HasFailure()) return;
      }
    }
  }
}

}  // namespace
}  // namespace test
