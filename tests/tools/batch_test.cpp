#include <nlohmann/json.hpp>

#include "burst_grouping.h"
#include "exif.h"
#include "image_file.h"
#include "metadata_blocks.h"
#include "sharpest.h"
#include "tool_run.h"

namespace tool {
namespace {

std::string numbered(const char* pattern, int number) {
  char text[128];
  std::snprintf(text, sizeof(text), pattern, number);
  return text;
}

std::vector<std::string> namesIn(const fs::path& folder) {
  std::vector<std::string> names;
  for (const auto& entry : fs::directory_iterator(folder)) names.push_back(entry.path().filename().string());
  std::sort(names.begin(), names.end());
  return names;
}

nlohmann::json jsonOf(const fs::path& path) {
  return nlohmann::json::parse(textOf(path));
}

std::vector<Picture> simulatedFrames(const ToolFolder& folder, int count) {
  EXPECT_EQ(folder.run(numbered("simulate --built-in -o burst --size 640x480 --noise low --frames %d", count)), 0)
      << folder.err();
  std::vector<Picture> frames;
  for (int i = 0; i < count; ++i) {
    frames.push_back(readPicture((folder / numbered("burst/frame0%d.png", i)).string()));
  }
  return frames;
}

// Sixty photos: bursts of 5, 4, 12, 3 and 2, one of 3 whose second frame is cut off, and singles, some between the
// photos of a burst in the order of the names; one file that is no picture.
class Batch : public ::testing::Test {
 protected:
  static constexpr int kBursts[] = {5, 4, 12, 3, 2};

  void SetUp() override {
    const std::vector<Picture> shown = simulatedFrames(folder_, 3);
    fs::create_directories(folder_ / "photos/inner");
    std::vector<int> numbers(60);
    for (int i = 0; i < 60; ++i) numbers[static_cast<size_t>(i)] = i + 10;
    std::shuffle(numbers.begin(), numbers.end(), std::mt19937(7));
    int second = 0;
    const auto add = [&](int index, int tenth, int sharp) {
      Picture photo = shown[static_cast<size_t>(index % 3)];
      if (index != sharp) smear(&photo);
      char time[32];
      std::snprintf(time, sizeof(time), "2024:05:31 12:%02d:%02d", second / 60, second % 60);
      photo.metadata.exif = makeShotExif({time, std::to_string(tenth)});
      const std::string name = numbered("IMG_%d.jpg", numbers.back());
      numbers.pop_back();
      writePicture((folder_ / ("photos/" + name)).string(), photo);
      return name;
    };
    for (const int size : kBursts) {
      second += 40;
      bases_.emplace_back();
      for (int i = 0; i < size; ++i) {
        const std::string name = add(i, i % 10, 1);
        if (i == 1) bases_.back() = name;
        if (i == 9) ++second;  // a burst goes on into the next second
      }
      second += 30;
      add(0, 0, 0);
    }
    second += 40;
    for (int i = 0; i < 3; ++i) cut_ = add(i, i, 1);
    const std::string whole = textOf(folder_ / ("photos/" + cut_));
    std::ofstream(folder_ / ("photos/" + cut_)) << whole.substr(0, whole.size() / 2);
    while (numbers.size() > 1) {
      second += 25;
      add(0, 0, 0);
    }
    none_ = numbered("IMG_%d.jpg", numbers.back());
    std::ofstream(folder_ / ("photos/" + none_)) << "no picture at all";
    std::ofstream(folder_ / "photos/notes.txt") << "no photo";
    std::ofstream(folder_ / "photos/.IMG_1.jpg") << "not to be looked at";
    std::sort(bases_.begin(), bases_.end());
  }

  ToolFolder folder_{"batch"};
  std::vector<std::string> bases_;  // of the good bursts
  std::string cut_;
  std::string none_;
};

TEST_F(Batch, MakesAStillOfEachBurst) {
  ASSERT_EQ(folder_.run("batch photos -o stills --dry-run"), 1);  // a file cannot be read
  expectIn(folder_.out(), "59 photos: 6 bursts, 30 singles (gap 1");
  expectIn(folder_.out(), "1 other file left alone");
  EXPECT_FALSE(fs::exists(folder_ / "stills"));

  ASSERT_EQ(folder_.run("batch photos -o stills -j 2"), 1);
  expectIn(folder_.out(), "\n5 stills made, 0 there already\n");
  std::string failures = folder_.err();
  expectIn(failures, "/" + cut_ + ": ");
  failures = failures.substr(failures.rfind('\n', failures.size() - 2) + 1);
  EXPECT_EQ(failures.rfind("tessaline4: 2 failed: photos/" + none_ + ", ", 0), 0u) << failures;
  std::vector<std::string> expected;
  for (const std::string& base : bases_) {
    expected.push_back(base);
    expected.push_back(base.substr(0, base.size() - 3) + "json");
    EXPECT_EQ(exifNumber(parseExif(readPicture((folder_ / ("stills/" + base)).string()).metadata.exif).get(),
                         EXIF_TAG_ISO_SPEED_RATINGS),
              100);
  }
  EXPECT_EQ(namesIn(folder_ / "stills"), expected);
  const auto isLong = [&](const std::string& base) {
    return jsonOf(folder_ / ("stills/" + base.substr(0, base.size() - 3) + "json"))["frames"].size() == 12;
  };
  EXPECT_EQ(std::count_if(bases_.begin(), bases_.end(), isLong), 1);

  // Side by side or not, the stills are the same, and what is there is left as it is.
  const std::string kept = textOf(folder_ / ("stills/" + bases_[2]));
  fs::remove(folder_ / ("stills/" + bases_[0]));
  std::ofstream(folder_ / ("stills/" + bases_[1])) << "mine";
  ASSERT_EQ(folder_.run("batch photos -o stills"), 1);
  expectIn(folder_.out(), "\n1 still made, 4 there already\n");
  EXPECT_EQ(textOf(folder_ / ("stills/" + bases_[1])), "mine");
  ASSERT_EQ(folder_.run("batch photos -o stills --again"), 1);
  expectIn(folder_.out(), "\n5 stills made, 0 there already\n");
  EXPECT_EQ(textOf(folder_ / ("stills/" + bases_[2])), kept);

  fs::remove(folder_ / ("photos/" + none_));
  fs::remove(folder_ / ("photos/" + cut_));  // the two that are left are a burst
  EXPECT_EQ(folder_.run("batch photos -o stills --quiet"), 0) << folder_.err();
  EXPECT_EQ(folder_.run("batch photos -o stills"), 0);
  expectIn(folder_.out(), "\n0 stills made, 6 there already\n");

  // Originals are never in the way of stills.
  EXPECT_EQ(folder_.run("batch photos -o photos"), 1);
  expectIn(folder_.err(), "is a folder of photos");
  EXPECT_EQ(folder_.run("batch photos nowhere -o stills"), 1);
  expectIn(folder_.err(), "nowhere: ");
}

TEST(Merge, TakesTheSharpestOfMoreThanTen) {
  const ToolFolder folder("sharpest");
  const std::vector<Picture> shown = simulatedFrames(folder, 4);
  std::string names;
  std::vector<Picture> all, ten;
  for (int i = 0; i < 13; ++i) {
    Picture frame = shown[static_cast<size_t>(i % 4)];
    const bool isBlurred = i == 2 || i == 5 || i == 11;
    if (isBlurred) smear(&frame);
    all.push_back(frame);
    if (!isBlurred) ten.push_back(frame);
    const std::string name = numbered("f%d.png", i);
    writePicture((folder / name).string(), frame);
    names.append(" ").append(name);
  }
  writeY4m(folder.path("all.y4m"), all);
  writeY4m(folder.path("ten.y4m"), ten);
  ASSERT_EQ(folder.run("merge" + names + " -o all.png --report all.json"), 0) << folder.err();
  ASSERT_EQ(folder.run("merge - -o stream.png --report stream.json", folder.path("all.y4m")), 0) << folder.err();
  for (const bool isStream : {false, true}) {
    const auto report = jsonOf(folder / (isStream ? "stream.json" : "all.json"));
    ASSERT_EQ(report["frames"].size(), 13u);
    for (size_t i = 0; i < 13; ++i) {
      const auto& frame = report["frames"][i];
      EXPECT_EQ(frame["index"], i);
      EXPECT_EQ(frame["file"], isStream ? "standard input" : numbered("f%d.png", static_cast<int>(i)));
      EXPECT_EQ(frame["status"] == "not among the sharpest", i == 2 || i == 5 || i == 11) << frame;
    }
    EXPECT_EQ(report["frames"][report["base"].get<size_t>()]["order"], 0);
  }
  // The same as of these ten alone.
  ASSERT_EQ(folder.run("merge f0.png f1.png f3.png f4.png f6.png f7.png f8.png f9.png f10.png f12.png -o ten.png"), 0);
  EXPECT_EQ(textOf(folder / "all.png"), textOf(folder / "ten.png"));
  ASSERT_EQ(folder.run("merge ten.y4m -o ten.png"), 0);
  EXPECT_EQ(textOf(folder / "stream.png"), textOf(folder / "ten.png"));
  ASSERT_EQ(folder.run("merge all.y4m -o stream.png --report page.html"), 0) << folder.err();
  expectIn(folder.text("page.html"), "13: all.y4m");
}

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
  const struct {
    const char* what;
    std::vector<double> times;
    bool wholeSeconds;
    const char* groups;
  } cases[] = {
      {"fast bursts and singles", {0, .1, .2, .35, 60, 65, 200, 200.1, 3000}, false, "4 1 1 2 1"},
      {"bursts by hand, one a second", {0, 1, 2, 3.5, 30, 31, 32, 100}, false, "4 3 1"},
      {"one burst, uneven", {0, .1, .4, .5, .9, 1.0}, false, "6"},
      {"pauses of a whole day", {0, .2, .4, 86400, 86400.2}, false, "3 2"},
      {"singles alone", {0, 20, 70, 400}, false, "1 1 1 1"},
      {"a clock of whole seconds", {0, 0, 0, 1, 1, 9, 9, 10, 50}, true, "5 3 1"},
      {"one photo", {5}, false, "1"},
      {"none", {}, false, ""},
  };
  for (const auto& c : cases) EXPECT_EQ(sizes(groupPhotos(photosAt(c.times, c.wholeSeconds), {})), c.groups) << c.what;
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
