// Recorded hashes of results, so that a change of bits is seen and has a name. scripts/renew-golden writes them anew.
#ifndef ZVT4_TESTS_SUPPORT_GOLDEN_H_
#define ZVT4_TESTS_SUPPORT_GOLDEN_H_

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <map>
#include <string>

#include "image/image.h"

namespace test {

// FNV-1a, 64 bits.
class Hash {
 public:
  Hash& bytes(const void* data, size_t size) {
    const auto* at = static_cast<const uint8_t*>(data);
    for (size_t i = 0; i < size; ++i) value_ = (value_ ^ at[i]) * 0x100000001b3u;
    return *this;
  }
  Hash& image(const Image& image) {  // its pixels
    const ImageFormatDescriptor& d = imageFormatDescriptor(image.format);
    const uint8_t* planes[3] = {image.plane0, image.plane1, image.plane2};
    const int32_t pitches[3] = {image.pitch0, image.pitch1, image.pitch2};
    for (int32_t p = 0; p < 3; ++p) {
      const ImagePlaneDescriptor& plane = d.planes[p];
      if (plane.bytes == 0) continue;
      const size_t row = static_cast<size_t>(((image.width + (1 << plane.shiftX) - 1) >> plane.shiftX) * plane.bytes);
      const int32_t rows = ((image.height + (1 << plane.shiftY) - 1) >> plane.shiftY) * plane.rows;
      for (int32_t y = 0; y < rows; ++y) bytes(planes[p] + static_cast<ptrdiff_t>(y) * pitches[p], row);
    }
    return *this;
  }
  uint64_t value() const { return value_; }

 private:
  uint64_t value_ = 0xcbf29ce484222325u;
};

// file: one of tests/golden, with a line "name hash" for each result.
inline void expectGolden(const std::string& file, const std::string& name, const Hash& hash) {
  const std::string path = ZVT4_TESTS_DIR "/golden/" + file;
  std::map<std::string, uint64_t> recorded;
  std::ifstream in(path);
  std::string key;
  for (uint64_t value; in >> key >> std::hex >> value;) recorded[key] = value;
  if (std::getenv("ZVT4_RENEW_GOLDEN") != nullptr) {
    recorded[name] = hash.value();
    std::ofstream out(path);
    for (const auto& [each, value] : recorded) out << each << ' ' << std::hex << value << '\n';
    ASSERT_TRUE(out.good());
  }
  EXPECT_EQ(recorded[name], hash.value()) << name;
}

}  // namespace test

#endif  // ZVT4_TESTS_SUPPORT_GOLDEN_H_
