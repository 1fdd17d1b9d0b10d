#include "sharpest.h"

#include <algorithm>
#include <numeric>
#include <tuple>

#include "burst.h"
#include "file_io.h"

namespace tool {

double sharpnessOf(const Picture& picture) {
  const size_t width = static_cast<size_t>(picture.width) / 2;
  const size_t height = static_cast<size_t>(picture.height) / 2;
  if (width < 3 || height < 3) return 0.0;
  // Three rows of sums of 2x2, one after the other in turn.
  std::vector<int32_t> rows[3] = {std::vector<int32_t>(width), std::vector<int32_t>(width),
                                  std::vector<int32_t>(width)};
  uint64_t sum = 0;
  for (size_t y = 0; y < height; ++y) {
    const uint8_t* upper = picture.y.data() + 2 * y * static_cast<size_t>(picture.width);
    const uint8_t* lower = upper + picture.width;
    int32_t* low = rows[y % 3].data();
    for (size_t x = 0; x < width; ++x) low[x] = upper[2 * x] + upper[2 * x + 1] + lower[2 * x] + lower[2 * x + 1];
    if (y < 2) continue;
    const int32_t* middle = rows[(y - 1) % 3].data();
    const int32_t* high = rows[(y - 2) % 3].data();
    for (size_t x = 1; x + 1 < width; ++x) {
      const int32_t gx = middle[x + 1] - middle[x - 1];
      const int32_t gy = low[x] - high[x];
      sum += static_cast<uint32_t>(gx * gx + gy * gy);
    }
  }
  constexpr double kSumOfFour = 16.0;  // squared
  return static_cast<double>(sum) / kSumOfFour / static_cast<double>((width - 2) * (height - 2));
}

std::vector<std::string> Choice::takenFiles() const {
  if (!isChoice() || files.size() == 1) return files;
  std::vector<std::string> names;
  for (const size_t place : taken) names.push_back(files[place]);
  return names;
}

Choice chooseSharpest(const std::vector<std::string>& files, const std::optional<RawLayout>& raw, size_t most,
                      const SizeCheck& check, const std::function<void(size_t done)>& progress) {
  Choice choice;
  choice.files = files;
  if (files.size() <= most) return choice;
  int64_t size[2] = {0, 0};
  const SizeCheck checkSize = [&](const std::string& name, int64_t width, int64_t height) {
    if (size[0] == 0) std::tie(size[0], size[1]) = std::pair(width, height);
    if (width != size[0] || height != size[1]) {
      throw Error(name, "is not of the size of " + displayName(files[0]) + "; all frames must have one size");
    }
    checkFrameSize(name, width, height, most);
    if (check) check(name, width, height);
  };
  for (const std::string& file : files) {
    if (progress) progress(choice.sharpness.size());
    // One by one through the way of a burst, which looks at sizes before it takes memory for them.
    const Picture frame = std::move(readFrames({.paths = {file}, .raw = raw, .most = 1, .check = checkSize}).front());
    choice.sharpness.push_back(sharpnessOf(frame));
  }
  choice.taken.resize(files.size());
  std::iota(choice.taken.begin(), choice.taken.end(), size_t{0});
  std::stable_sort(choice.taken.begin(), choice.taken.end(),
                   [&](size_t a, size_t b) { return choice.sharpness[a] > choice.sharpness[b]; });
  choice.taken.resize(most);
  std::sort(choice.taken.begin(), choice.taken.end());
  return choice;
}

}  // namespace tool
