#include <nlohmann/json.hpp>

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
  for (int i = 0; i < 13; ++i) {
    Picture frame = shown[static_cast<size_t>(i % 4)];
    if (i == 2 || i == 5 || i == 11) smear(&frame);
    const std::string name = numbered("f%d.png", i);
    writePicture((folder / name).string(), frame);
    names.append(" ").append(name);
  }
  ASSERT_EQ(folder.run("merge" + names + " -o all.png --report all.json"), 0) << folder.err();
  const auto report = jsonOf(folder / "all.json");
  ASSERT_EQ(report["frames"].size(), 13u);
  for (size_t i = 0; i < 13; ++i) {
    const auto& frame = report["frames"][i];
    EXPECT_EQ(frame["index"], i);
    EXPECT_EQ(frame["file"], numbered("f%d.png", static_cast<int>(i)));
    EXPECT_EQ(frame["status"] == "not among the sharpest", i == 2 || i == 5 || i == 11) << frame;
  }
  EXPECT_EQ(report["frames"][report["base"].get<size_t>()]["order"], 0);
  // The same as of these ten alone.
  ASSERT_EQ(folder.run("merge f0.png f1.png f3.png f4.png f6.png f7.png f8.png f9.png f10.png f12.png -o ten.png"), 0);
  EXPECT_EQ(textOf(folder / "all.png"), textOf(folder / "ten.png"));
}

}  // namespace
}  // namespace tool
