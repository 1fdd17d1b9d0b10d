// The program as a stranger meets it: good bursts, and every bad input with one clear line.
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <sys/wait.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "image_file.h"
#include "metadata_blocks.h"

namespace tool {
namespace {

namespace fs = std::filesystem;

std::string textOf(const fs::path& path) {
  std::ifstream file(path);
  return {std::istreambuf_iterator<char>(file), {}};
}

class Cli : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    folder_ = fs::temp_directory_path() / ("tessaline4-cli-" + std::to_string(::getpid()));
    fs::create_directories(folder_);
    ASSERT_EQ(run("simulate --built-in -o burst --size 640x480 --frames 3 --seed 2"), 0) << textOf(folder_ / "err");
  }
  static void TearDownTestSuite() { fs::remove_all(folder_); }

  // Exit status of the tool, run in the folder; its standard error lands in err.
  static int run(const std::string& arguments, const std::string& input = "/dev/null") {
    const std::string command =
        "cd '" + folder_.string() + "' && '" TESSALINE4_TOOL "' " + arguments + " >out 2>err <" + input;
    const int status = std::system(command.c_str());
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }
  // Runs what must fail with one line that holds these words.
  static void expectRefused(const std::string& arguments, const std::string& words) {
    SCOPED_TRACE(arguments);
    EXPECT_NE(run(arguments), 0);
    const std::string line = textOf(folder_ / "err");
    EXPECT_EQ(line.rfind("tessaline4: ", 0), 0u) << line;
    EXPECT_EQ(std::count(line.begin(), line.end(), '\n'), 1) << line;
    EXPECT_NE(line.find(words), std::string::npos) << line;
  }
  static void write(const std::string& name, const std::string& bytes) { std::ofstream(folder_ / name) << bytes; }

  static fs::path folder_;
};
fs::path Cli::folder_;

TEST_F(Cli, BadInputGivesOneLineAndNoOutput) {
  const std::string good = "burst/frame00.png burst/frame01.png ";
  writePicture((folder_ / "small.png").string(), Picture(320, 240));
  writePicture((folder_ / "other.png").string(), Picture(800, 600));
  writePicture((folder_ / "whole.jpg").string(), readPicture((folder_ / "burst/frame00.png").string()));
  const std::string jpeg = textOf(folder_ / "whole.jpg");
  write("cut.jpg", jpeg.substr(0, jpeg.size() / 2));
  write("text.png", "no picture at all");
  write("raw.nv21", std::string(1000, 'x'));
  write("bad.y4m", "YUV4MPEG2 W640 H480 F25:1 C444\nFRAME\n");
  fs::create_directories(folder_ / "folder.png");
  const std::pair<std::string, std::string> rows[] = {
      // with what the line must name
      {"merge " + good + "missing.png -o o.png", "missing.png"},
      {"merge " + good + "other.png -o o.png", "other.png"},
      {"merge small.png small.png -o o.png", "small.png"},
      {"merge " + good + "cut.jpg -o o.png", "cut.jpg"},
      {"merge " + good + "text.png -o o.png", "text.png"},
      {"merge raw.nv21 raw.nv21 --size 640x480 --format nv21 -o o.png", "raw.nv21"},
      {"merge bad.y4m -o o.png", "bad.y4m"},
      {"merge burst/frame00.png -o o.png", "burst/frame00.png: one frame only"},
      {"merge " + good + good + good + good + good + "other.png -o o.png", "other.png: is not of the size"},
      {"merge " + good + "-o o.tiff", "o.tiff"},
      {"merge " + good + "-o nowhere/o.png", "nowhere/o.png"},
      {"merge " + good + "-o folder.png", "folder.png"},
      {"merge " + good + "-o o.png --gain 2000", "gain"},
      {"merge " + good + "-o o.png --report nowhere/r.json", "nowhere/r.json"},
      {"compare burst/frame00.png nowhere", "nowhere"},
      {"compare small.png burst", "small.png"},
      {"simulate missing.jpg -o s", "missing.jpg"},
      {"simulate small.png -o s", "small.png"},
      {"frobnicate", ""},
  };
  for (const auto& [arguments, names] : rows) {
    expectRefused(arguments, names);
    for (const char* output : {"o.png", "o.tiff", "r.json", "s/truth.json"}) EXPECT_FALSE(fs::exists(folder_ / output));
  }
}

// All frames but one are smeared, so that the base is known; its metadata is what the result carries.
TEST_F(Cli, ResultCarriesTheMetadataOfTheBase) {
  for (int32_t i = 0; i < 3; ++i) {
    const std::string number = std::to_string(i);
    Picture frame = readPicture((folder_ / "burst" / ("frame0" + number + ".png")).string());
    if (i != 1) {
      for (size_t at = frame.y.size() - 1; at >= 4; --at) {
        frame.y[at] = static_cast<uint8_t>((frame.y[at] + frame.y[at - 1] + frame.y[at - 2] + frame.y[at - 3]) / 4);
      }
    }
    frame.metadata.exif = makeExif(i < 2 ? i + 3 : 4, true);
    frame.metadata.xmp = makeXmp(number, false);
    frame.metadata.icc = makeIcc(i < 1 ? 3000 : 4000 + i);
    for (const char* ending : {".jpg", ".png"})
      EXPECT_TRUE(writePicture((folder_ / ("e" + number + ending)).string(), frame).empty());
  }
  for (const std::string from : {"jpg", "png"}) {
    const std::string merge = "merge e0." + from + " e1." + from + " e2." + from + " -o ";
    for (const char* to : {"e.jpg", "e.png"}) {
      SCOPED_TRACE(from + " to " + to);
      ASSERT_EQ(run(merge + to), 0) << textOf(folder_ / "err");
      const Metadata found = readPicture((folder_ / to).string()).metadata;
      const ExifOwner data = parseExif(found.exif);
      EXPECT_EQ(exifNumber(data.get(), EXIF_TAG_ORIENTATION), 4);
      EXPECT_EQ(exifNumber(data.get(), EXIF_TAG_PIXEL_X_DIMENSION), 640);
      EXPECT_EQ(found.xmp, makeXmp("1", false));
      EXPECT_EQ(found.icc, makeIcc(4001));
      const std::string warnings = textOf(folder_ / "err");
      EXPECT_EQ(std::count(warnings.begin(), warnings.end(), '\n'), 2) << warnings;
      EXPECT_NE(warnings.find("warning: e0." + from + ": another orientation than the base, e1." + from),
                std::string::npos);
      EXPECT_NE(warnings.find("warning: e0." + from + ", e2." + from + ": another ICC profile"), std::string::npos);

      ASSERT_EQ(run(merge + to + " --ignore-exif --ignore-icc"), 0);
      EXPECT_EQ(textOf(folder_ / "err"), "");
      const Metadata none = readPicture((folder_ / to).string()).metadata;
      EXPECT_TRUE(none.exif.empty() && none.xmp.empty() && none.icc.empty());
    }
  }
  // Bare pixels cannot say how they are to be turned.
  ASSERT_EQ(run("merge e0.jpg e1.jpg e2.jpg -o e.i420 --ignore-icc"), 0);
  EXPECT_NE(textOf(folder_ / "err").find("warning: e1.jpg: its orientation"), std::string::npos);
  // Damage is told of and does no harm.
  std::string bytes = textOf(folder_ / "e1.jpg");
  bytes[bytes.find("acsp")] = 'x';
  write("e1.jpg", bytes);
  ASSERT_EQ(run("merge e0.jpg e1.jpg e2.jpg -o e.jpg"), 0);
  EXPECT_NE(textOf(folder_ / "err").find("warning: e1.jpg: its ICC profile is damaged"), std::string::npos);
}

TEST_F(Cli, MergesComparesAndReports) {
  ASSERT_EQ(run("merge burst/frame00.png burst/frame01.png burst/frame02.png -o m.png --report r.json --quiet"), 0)
      << textOf(folder_ / "err");
  EXPECT_EQ(textOf(folder_ / "err"), "");
  const std::string report = textOf(folder_ / "r.json");
  for (const char* key : {"\"base\"", "\"score\"", "\"order\"", "\"status\"", "\"motion\"", "merged"}) {
    EXPECT_NE(report.find(key), std::string::npos) << key;
  }
  ASSERT_EQ(run("compare m.png burst --report r.json --json c.json"), 0) << textOf(folder_ / "err");
  EXPECT_NE(textOf(folder_ / "out").find("the result"), std::string::npos);
  EXPECT_NE(textOf(folder_ / "c.json").find("cornerErrors"), std::string::npos);

  // A cropped and scaled result is compared as such: it is as near to the truth as the other.
  ASSERT_EQ(
      run("merge burst/frame00.png burst/frame01.png burst/frame02.png -o s.png --report rs.json --auto-scaling 1"), 0);
  ASSERT_EQ(run("compare s.png burst --report rs.json --json cs.json"), 0) << textOf(folder_ / "err");
  const auto psnr = [&](const char* name) {
    const std::string json = textOf(folder_ / name), key = "\"lumaPsnr\": ";
    return std::stod(json.substr(json.find(key, json.find("\"result\"")) + key.size()));
  };
  EXPECT_NEAR(psnr("cs.json"), psnr("c.json"), 2.0);
}

// Pictures and numbers of a folder are checked before anything is counted with them.
TEST_F(Cli, CompareTrustsNoFolder) {
  ASSERT_EQ(run("merge burst/frame00.png burst/frame01.png burst/frame02.png -o t.png --report t.json"), 0);
  fs::create_directories(folder_ / "odd");
  const std::string truth = textOf(folder_ / "burst/truth.json"), report = textOf(folder_ / "t.json");
  // The text with what follows the n-th of these words, up to the end, replaced.
  const auto edited = [](const std::string& text, const std::string& word, const std::string& end,
                         const std::string& by, int32_t n = 0) {
    size_t at = text.find(word);
    for (; n > 0; --n) at = text.find(word, at + 1);
    at += word.size();
    return text.substr(0, at) + by + text.substr(text.find(end, at));
  };
  const std::string zero = "[[0,0,0],[0,0,0],[0,0,0]]", flat = "[[1,1,0],[1,1,0],[0,0,1]]";
  const std::string horizon = "[[1,0,0],[0,1,0],[0.01,0,-1]]", huge = "[[1e308,1e308,0],[0,1e308,0],[0,0,1]]";
  const std::string matrix = "\"homography\":", motion = "\"motion\":", after = "\n    }";
  for (const std::string& odd :
       {edited(truth, "\"width\":", ",", "1e30"), edited(truth, "\"width\":", ",", "-640"),
        edited(truth, "\"height\":", ",", "480.5"), edited(truth, matrix, after, zero, 1),
        edited(truth, matrix, after, flat, 1), edited(truth, matrix, after, horizon, 1),
        edited(truth, matrix, after, huge, 2), edited(truth, matrix, after, "[[1,0],[0,1]]", 0),
        edited(truth, "\"clean\":", ",", "\"../burst/clean00.png\""), edited(truth, "\"frames\":", "\n}", " []"),
        edited(truth, "\"clean\":", ",", "\"clean00.png\", \"mask\": \"../odd\""),
        edited(truth, "\"seed\":", ",", "4294967296"), edited(truth, "\"shot\":", ",", "1e300"),
        edited(truth, "\"frameFormat\":", ",", "\"gif\""), std::string(3 << 20, ' ')}) {
    write("odd/truth.json", odd);
    expectRefused("compare t.png odd", "odd/truth.json");
  }
  for (const std::string& odd : {edited(report, "\"base\":", ",", "-1"), edited(report, "\"base\":", ",", "0.5"),
                                 edited(report, "\"width\":", ",", "480"), edited(report, motion, after, zero, 0),
                                 edited(report, motion, after, zero, 1), edited(report, motion, after, zero, 2),
                                 edited(report, "\"frames\":", "\n}", " []")}) {
    write("odd.json", odd);
    expectRefused("compare t.png burst --report odd.json", "odd.json");
  }
  // A frame that was left out may have any motion, or none.
  write("odd.json", edited(edited(report, motion, after, "null", 2), "\"status\":", ",", "\"too blurred\"", 2));
  EXPECT_EQ(run("compare t.png burst --report odd.json"), report.find("\"base\": 2") == std::string::npos ? 0 : 1);

  for (const auto& entry : fs::directory_iterator(folder_ / "burst")) {
    fs::copy(entry, folder_ / "odd", fs::copy_options::overwrite_existing);
  }
  for (const char* file : {"odd/clean01.png", "odd/frame01.png"}) {
    writePicture((folder_ / file).string(), Picture(640, 240));
    write("odd.json", edited(report, "\"base\":", ",", "1"));
    expectRefused("compare t.png odd --report odd.json", file);
    fs::copy(folder_ / "burst" / fs::path(file).filename(), folder_ / file, fs::copy_options::overwrite_existing);
  }
  writePicture((folder_ / "odd/clean02.png").string(), Picture(640, 240));
  expectRefused("compare t.png odd", "odd/clean02.png");
}

// A burst in any kind of files that lose nothing merges to the same picture.
TEST_F(Cli, KindsOfFilesAgree) {
  std::vector<Picture> frames;
  for (const char* name : {"burst/frame00.png", "burst/frame01.png", "burst/frame02.png"}) {
    frames.push_back(readPicture((folder_ / name).string()));
  }
  ASSERT_EQ(run("merge burst/frame00.png burst/frame01.png burst/frame02.png -o expected.i420"), 0);
  for (const std::string kind : {"nv21", "nv12", "i420", "y4m"}) {
    SCOPED_TRACE(kind);
    std::string names;
    for (size_t i = 0; i < frames.size(); ++i) {
      const std::string name = std::string("f").append(std::to_string(i)).append(".").append(kind);
      writePicture((folder_ / name).string(), frames[i]);
      names += " " + name;
    }
    std::string input = "/dev/null", arguments = "merge" + names + " --size 640x480 --format " + kind;
    if (kind == "y4m") {
      // One stream of three frames, through standard input.
      std::ofstream stream(folder_ / "all.y4m");
      stream << textOf(folder_ / "f0.y4m");
      for (const char* name : {"f1.y4m", "f2.y4m"}) {
        const std::string text = textOf(folder_ / name);
        stream << text.substr(text.find("FRAME"));
      }
      arguments = "merge -";
      input = "all.y4m";
    }
    ASSERT_EQ(run(arguments + " -o result.i420", input), 0) << textOf(folder_ / "err");
    EXPECT_EQ(textOf(folder_ / "result.i420"), textOf(folder_ / "expected.i420"));
  }
}

// PNG frames carry the noise of the chroma planes undiminished, and a second run leaves no frame of the first.
TEST_F(Cli, SimulatedFramesAreTheSameInAnyKind) {
  const std::string again = "simulate --built-in -o again --size 640x480 --seed 2 --frame-format nv21 --frames ";
  ASSERT_EQ(run(again + "3"), 0) << textOf(folder_ / "err");
  const Picture png = readPicture((folder_ / "burst/frame01.png").string());
  const Picture raw = readPicture((folder_ / "again/frame01.nv21").string(), RawLayout{640, 480, "nv21"});
  for (const auto plane : {&Picture::y, &Picture::u, &Picture::v}) {
    double square = 0;
    for (size_t i = 0; i < (png.*plane).size(); ++i) {
      const double d = static_cast<double>((png.*plane)[i]) - (raw.*plane)[i];
      square += d * d;
    }
    EXPECT_LT(square / static_cast<double>((png.*plane).size()), 4) << "the noise has a mean square near 100";
  }
  write("again/frame00.png", "not of a burst that truth.json tells of");
  ASSERT_EQ(run(again + "2"), 0) << textOf(folder_ / "err");
  EXPECT_TRUE(fs::exists(folder_ / "again/frame01.nv21"));
  EXPECT_FALSE(fs::exists(folder_ / "again/frame02.nv21"));
  EXPECT_TRUE(fs::exists(folder_ / "again/frame00.png"));
}

}  // namespace
}  // namespace tool
