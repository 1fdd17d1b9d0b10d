#include "burst_grouping.h"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <map>
#include <tuple>

#include "file_io.h"
#include "picture.h"

namespace tool {
namespace {

namespace fs = std::filesystem;

// Microseconds, which are whole numbers: ratios of them are the same in every program.
constexpr double kSecond = 1e6;
constexpr double kShortestGap = 0.05 * kSecond;
constexpr double kLongestGap = 10.0 * kSecond;
constexpr double kTick = 1.0 * kSecond;  // of clocks that tell whole seconds
constexpr double kLeastPause = 1.0 * kSecond;
constexpr double kLeastJump = 3.0;
constexpr double kUsualGap = 2.0 * kSecond;
constexpr double kSameExposure = 2.0;

double timeBetween(const Photo& a, const Photo& b) {
  return static_cast<double>(b.time - a.time);
}

bool differ(const std::optional<double>& a, const std::optional<double>& b) {
  return a && b && std::max(*a, *b) > kSameExposure * std::min(*a, *b);
}

bool startsGroup(const Photo& last, const Photo& next, double gap) {
  return timeBetween(last, next) > gap * kSecond || last.make != next.make || last.model != next.model ||
         last.width != next.width || last.height != next.height || differ(last.exposureSeconds, next.exposureSeconds) ||
         differ(last.iso, next.iso);
}

void sortByTime(std::vector<Photo>* photos) {
  std::vector<std::pair<std::string, Photo>> named;
  for (Photo& photo : *photos) {
    std::string name = fs::path(photo.path).filename().string();
    named.emplace_back(std::move(name), std::move(photo));
  }
  std::sort(named.begin(), named.end(), [](const auto& a, const auto& b) {
    return std::tie(a.second.time, a.first, a.second.path) < std::tie(b.second.time, b.first, b.second.path);
  });
  for (size_t i = 0; i < named.size(); ++i) (*photos)[i] = std::move(named[i].second);
}

// Where names repeat, those of another make take their place.
template <typename Rename>
bool renameShared(std::vector<std::string>* names, const Rename& rename) {
  std::map<std::string, size_t> uses;
  for (const std::string& name : *names) ++uses[name];
  bool shared = false;
  for (size_t i = 0; i < names->size(); ++i) {
    if (uses[(*names)[i]] == 1) continue;
    shared = true;
    rename(i);
  }
  return shared;
}

}  // namespace

double findGap(const std::vector<Photo>& photos) {
  const bool coarse = std::any_of(photos.begin(), photos.end(), [](const Photo& photo) { return photo.wholeSeconds; });
  std::vector<double> gaps;
  for (size_t i = 1; i < photos.size(); ++i) {
    gaps.push_back(std::clamp(timeBetween(photos[i - 1], photos[i]), coarse ? kTick : kShortestGap, kLongestGap));
  }
  std::sort(gaps.begin(), gaps.end());
  double best = kLeastJump;
  double found = kUsualGap;
  for (size_t i = 1; i < gaps.size(); ++i) {
    const double jump = gaps[i] / gaps[i - 1];
    if (gaps[i] < kLeastPause || jump < best) continue;
    best = jump;
    found = std::sqrt(gaps[i - 1] * gaps[i]);
  }
  return found / kSecond;
}

Grouping groupPhotos(std::vector<Photo> photos, const GroupingRules& rules) {
  sortByTime(&photos);
  Grouping grouping;
  grouping.gap = rules.gap ? *rules.gap : findGap(photos);
  const auto endsGroup = [&](const std::vector<Photo>& group, const Photo& next) {
    return rules.count ? group.size() >= *rules.count : startsGroup(group.back(), next, grouping.gap);
  };
  std::vector<Photo> group;
  const auto close = [&] {
    if (group.size() == 1) grouping.singles.push_back(std::move(group.front()));
    if (group.size() > 1) grouping.bursts.push_back(std::move(group));
    group.clear();
  };
  for (Photo& photo : photos) {
    if (!group.empty() && endsGroup(group, photo)) close();
    group.push_back(std::move(photo));
  }
  close();
  return grouping;
}

std::vector<std::string> stillNames(const std::vector<Photo>& photos) {
  std::vector<std::string> names;
  for (const Photo& photo : photos) names.push_back(fs::path(photo.path).stem().string());
  renameShared(&names, [&](size_t i) {
    const fs::path folder = fs::absolute(photos[i].path).lexically_normal().parent_path();
    names[i] = folder.filename().string().append("-").append(names[i]);
  });
  renameShared(&names, [&](size_t i) { names[i].append("-").append(endingOf(photos[i].path)); });
  renameShared(&names, [&](size_t i) -> void {
    throw Error(photos[i].path,
                "another photo has the same name, in a folder of the same name: their stills would be "
                "one file; take these folders one by one");
  });
  return names;
}

}  // namespace tool
