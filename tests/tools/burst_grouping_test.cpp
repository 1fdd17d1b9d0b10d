#include <gtest/gtest.h>

#include <cmath>

#include "burst_grouping.h"
#include "exif.h"
#include "metadata_blocks.h"
#include "picture.h"

namespace tool {
namespace {

std::vector<Photo> photosAt(const std::vector<double>& seconds, bool wholeSeconds = false) {
  std::vector<Photo> photos;
  for (const double s : seconds) {
    Photo photo;
    photo.path = std::string("d/").append(std::to_string(1000 + photos.size()));
    photo.time = static_cast<int64_t>(s * 1e6 + 0.5);
    photo.wholeSeconds = wholeSeconds;
    photo.width = 4000;
    photo.height = 3000;
    photos.push_back(photo);
  }
  return photos;
}

// "3 1 2": sizes of the groups, singles included, in order of time.
std::string sizes(const Grouping& grouping) {
  std::vector<std::pair<int64_t, size_t>> groups;
  for (const auto& burst : grouping.bursts) groups.emplace_back(burst[0].time, burst.size());
  for (const Photo& photo : grouping.singles) groups.emplace_back(photo.time, 1);
  std::sort(groups.begin(), groups.end());
  std::string text;
  for (const auto& [time, size] : groups) text.append(text.empty() ? "" : " ").append(std::to_string(size));
  return text;
}

TEST(BurstGrouping, FindsTheGapInTheTimes) {
  struct Case {
    const char* what;
    std::vector<double> times;
    bool wholeSeconds;
    const char* groups;
  };
  const Case cases[] = {
      {"fast bursts and singles", {0, .1, .2, .35, 60, 65, 200, 200.1, 3000}, false, "4 1 1 2 1"},
      {"bursts by hand, one a second", {0, 1, 2, 3.5, 30, 31, 32, 100}, false, "4 3 1"},
      {"one burst, uneven", {0, .1, .4, .5, .9, 1.0}, false, "6"},
      {"pauses of a whole day", {0, .2, .4, 86400, 86400.2}, false, "3 2"},
      {"singles alone", {0, 20, 70, 400}, false, "1 1 1 1"},
      {"a clock of whole seconds", {0, 0, 0, 1, 1, 9, 9, 10, 50}, true, "5 3 1"},
      {"one photo", {5}, false, "1"},
      {"none", {}, false, ""},
  };
  for (const Case& c : cases) EXPECT_EQ(sizes(groupPhotos(photosAt(c.times, c.wholeSeconds), {})), c.groups) << c.what;
  EXPECT_NEAR(findGap(photosAt({0, .1, .2, 60})), 1.0, 1e-9);                 // between 0.1 s and the limit
  EXPECT_NEAR(findGap(photosAt({0, 20, 40})), 2.0, 1e-9);                     // no jump
  EXPECT_NEAR(findGap(photosAt({0, .1, 1.1, 11.1})), std::sqrt(10.0), 1e-9);  // the last of equal jumps
}

TEST(BurstGrouping, ToldRulesBeatTheData) {
  const std::vector<Photo> photos = photosAt({0, .1, 3, 3.1, 3.2, 10});
  EXPECT_EQ(sizes(groupPhotos(photos, {5.0, {}})), "5 1");
  EXPECT_EQ(sizes(groupPhotos(photos, {0.05, {}})), "1 1 1 1 1 1");
  EXPECT_EQ(sizes(groupPhotos(photos, {2.9, {}})), "5 1");  // the gap itself is no pause
  EXPECT_EQ(sizes(groupPhotos(photos, {{}, size_t{4}})), "4 2");
  EXPECT_EQ(sizes(groupPhotos(photosAt({0, 1, 2, 3, 4}), {{}, size_t{2}})), "2 2 1");
}

TEST(BurstGrouping, AnotherCameraSizeOrExposureEndsABurst) {
  const auto groupsWith = [](const std::function<void(std::vector<Photo>&)>& change) {
    std::vector<Photo> photos = photosAt({0, .1, .2, .3, .4, .5});
    for (Photo& photo : photos) {
      photo.exposureSeconds = 0.01;
      photo.iso = 100;
    }
    change(photos);
    return sizes(groupPhotos(photos, {}));
  };
  EXPECT_EQ(groupsWith([](auto&) {}), "6");
  EXPECT_EQ(groupsWith([](auto& p) { p[2].make = p[3].make = p[4].make = p[5].make = std::string("M"); }), "2 4");
  EXPECT_EQ(groupsWith([](auto& p) { p[5].model = std::string("M"); }), "5 1");
  EXPECT_EQ(groupsWith([](auto& p) { std::swap(p[1].width, p[1].height); }), "1 1 4");
  EXPECT_EQ(groupsWith([](auto& p) { p[3].exposureSeconds = 0.02; }), "6");
  EXPECT_EQ(groupsWith([](auto& p) { p[3].exposureSeconds = 0.0201; }), "3 1 2");
  EXPECT_EQ(groupsWith([](auto& p) { p[3].iso = 49; }), "3 1 2");
  EXPECT_EQ(groupsWith([](auto& p) { p[3].iso.reset(); }), "6");  // what is not known does not differ
}

TEST(BurstGrouping, OrderIsThatOfTimeThenOfNames) {
  std::vector<Photo> photos = photosAt({7, 7, 7, 6.99});
  photos[0].path = "a/3.jpg";
  photos[1].path = "b/1.jpg";
  photos[2].path = "a/1.jpg";
  photos[3].path = "z/9.jpg";
  const Grouping grouping = groupPhotos(photos, {});
  ASSERT_EQ(grouping.bursts.size(), 1u);
  std::string order;
  for (const Photo& photo : grouping.bursts[0]) order.append(photo.path).append(" ");
  EXPECT_EQ(order, "z/9.jpg a/1.jpg b/1.jpg a/3.jpg ");
}

TEST(BurstGrouping, StillsHaveNamesOfTheirOwn) {
  std::vector<Photo> photos = photosAt({1, 2, 3, 4, 5});
  const char* paths[] = {"/p/a/1.jpg", "/p/b/1.jpg", "/p/b/1.png", "/p/b/2.v2.jpg", "/p/c/3.JPG"};
  for (size_t i = 0; i < photos.size(); ++i) photos[i].path = paths[i];
  EXPECT_EQ(stillNames(photos), (std::vector<std::string>{"a-1", "b-1-jpg", "b-1-png", "2.v2", "3"}));
  photos[1].path = std::string("/q/a/1.jpg");
  photos[2].path = std::string("/p/d/1.png");
  EXPECT_THROW(stillNames(photos), Error);
}

TEST(ExifShot, TellsWhenAndHow) {
  for (const ExifByteOrder order : {EXIF_BYTE_ORDER_INTEL, EXIF_BYTE_ORDER_MOTOROLA}) {
    const ExifShot shot = exifShot(makeShotExif({"2024:02:29 12:34:56", "0625", "Ab", {1, 125}, 6400}, order));
    EXPECT_EQ(shot.time, 1709210096'062500);
    EXPECT_FALSE(shot.wholeSeconds);
    EXPECT_EQ(shot.make, "Maker");  // padding is not part of it
    EXPECT_EQ(shot.model, "Ab");    // so short that it stands in its entry
    EXPECT_DOUBLE_EQ(shot.exposureSeconds.value(), 0.008);
    EXPECT_EQ(shot.iso, 6400.0);
  }
  EXPECT_TRUE(exifShot(makeShotExif({"1969:12:31 23:59:59", ""})).wholeSeconds);
  EXPECT_EQ(exifShot(makeShotExif({"1969:12:31 23:59:59", ""})).time, -1'000'000);
  EXPECT_FALSE(exifShot(makeShotExif({"2024:13:01 00:00:00", "1"})).time);
  EXPECT_FALSE(exifShot(makeShotExif({"0000:00:00 00:00:00", "1"})).time);  // what a camera without a set clock writes
  EXPECT_FALSE(exifShot(makeShotExif({"yesterday at eight", "1"})).time);
  EXPECT_FALSE(exifShot(makeShotExif({"2024:01:01 00:00:00", "", "M", {0, 0}, 0})).exposureSeconds);

  // Wherever the block is cut: what is left is read, and nothing beyond it.
  const std::vector<uint8_t> whole =
      makeShotExif({"2024:02:29 12:34:56", "0625", "A long name of a model", {1, 125}, 6400});
  for (size_t length = 0; length < whole.size(); ++length) {
    const std::vector<uint8_t> cut(whole.begin(), whole.begin() + static_cast<ptrdiff_t>(length));
    const ExifShot shot = exifShot(cut);
    EXPECT_TRUE(!shot.time || shot.time == 1709210096'062500 || shot.wholeSeconds) << length;
  }
}

}  // namespace
}  // namespace tool
