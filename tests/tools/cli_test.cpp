// The program as a stranger meets it: good bursts, and every bad input with one clear line.
#include "image_file.h"
#include "metadata_blocks.h"
#include "tool_run.h"

namespace tool {
namespace {

class Cli : public ::testing::Test, public ToolFolder {
 protected:
  Cli() : ToolFolder("cli") {
    EXPECT_EQ(run("simulate --built-in -o burst --size 640x480 --frames 3 --seed 2"), 0) << err();
  }
  void expectRefused(const std::string& arguments, const std::string& words) const {
    SCOPED_TRACE(arguments);
    EXPECT_NE(run(arguments), 0);
    expectOneLine(err(), words);
  }
};

TEST_F(Cli, BadInputGivesOneLineAndNoOutput) {
  const std::string good = "burst/frame00.png burst/frame01.png ";
  writePicture(path("small.png"), Picture(320, 240));
  writePicture(path("other.png"), Picture(800, 600));
  writePicture(path("whole.jpg"), readPicture(path("burst/frame00.png")));
  const std::string jpeg = text("whole.jpg");
  write("cut.jpg", jpeg.substr(0, jpeg.size() / 2));
  write("text.png", "no picture at all");
  write("raw.nv21", std::string(1000, 'x'));
  write("bad.y4m", "YUV4MPEG2 W640 H480 F25:1 C444\nFRAME\n");
  fs::create_directories(path("folder.png"));
  const std::pair<std::string, std::string> rows[] = {
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
    for (const char* output : {"o.png", "o.tiff", "r.json", "s/truth.json"}) EXPECT_FALSE(fs::exists(path(output)));
  }
}

// All frames but one are smeared, so that the base is known; its metadata is what the result carries.
TEST_F(Cli, ResultCarriesTheMetadataOfTheBase) {
  for (int32_t i = 0; i < 3; ++i) {
    const std::string number = std::to_string(i);
    Picture frame = readPicture(path("burst/frame0" + number + ".png"));
    if (i != 1) smear(&frame);
    frame.metadata.exif = makeExif(i < 2 ? i + 3 : 4, true);
    frame.metadata.xmp = makeXmp(number, false);
    frame.metadata.icc = makeIcc(i < 1 ? 3000 : 4000 + i);
    for (const char* ending : {".jpg", ".png"}) EXPECT_TRUE(writePicture(path("e" + number + ending), frame).empty());
  }
  for (const std::string from : {"jpg", "png"}) {
    const std::string merge = "merge e0." + from + " e1." + from + " e2." + from + " -o ";
    for (const char* to : {"e.jpg", "e.png"}) {
      SCOPED_TRACE(from + " to " + to);
      ASSERT_EQ(run(merge + to), 0) << err();
      const Metadata found = readPicture(path(to)).metadata;
      const ExifOwner data = parseExif(found.exif);
      EXPECT_EQ(exifNumber(data.get(), EXIF_TAG_ORIENTATION), 4);
      EXPECT_EQ(exifNumber(data.get(), EXIF_TAG_PIXEL_X_DIMENSION), 640);
      EXPECT_EQ(found.xmp, makeXmp("1", false));
      EXPECT_EQ(found.icc, makeIcc(4001));
      const std::string warnings = err();
      EXPECT_EQ(std::count(warnings.begin(), warnings.end(), '\n'), 2) << warnings;
      expectIn(warnings, "warning: e0." + from + ": another orientation than the base, e1." + from);
      expectIn(warnings, "warning: e0." + from + ", e2." + from + ": another ICC profile");

      ASSERT_EQ(run(merge + to + " --ignore-exif --ignore-icc"), 0);
      EXPECT_EQ(err(), "");
      const Metadata none = readPicture(path(to)).metadata;
      EXPECT_TRUE(none.exif.empty() && none.xmp.empty() && none.icc.empty());
    }
  }
  // Bare pixels cannot say how they are to be turned.
  ASSERT_EQ(run("merge e0.jpg e1.jpg e2.jpg -o e.i420 --ignore-icc"), 0);
  expectIn(err(), "warning: e1.jpg: its orientation");
  // Damage is told of and does no harm.
  std::string bytes = text("e1.jpg");
  bytes[bytes.find("acsp")] = 'x';
  write("e1.jpg", bytes);
  ASSERT_EQ(run("merge e0.jpg e1.jpg e2.jpg -o e.jpg"), 0);
  expectIn(err(), "warning: e1.jpg: its ICC profile is damaged");
}

TEST_F(Cli, MergesComparesAndReports) {
  ASSERT_EQ(run("merge burst/frame00.png burst/frame01.png burst/frame02.png -o m.png --report r.json --quiet"), 0)
      << err();
  EXPECT_EQ(err(), "");
  const std::string report = text("r.json");
  for (const char* key : {"\"base\"", "\"score\"", "\"order\"", "\"status\"", "\"motion\"", "merged"}) {
    expectIn(report, key);
  }
  ASSERT_EQ(run("compare m.png burst --report r.json --json c.json"), 0) << err();
  expectIn(out(), "the result");
  expectIn(text("c.json"), "cornerErrors");

  // A cropped and scaled result is compared as such: it is as near to the truth as the other.
  ASSERT_EQ(
      run("merge burst/frame00.png burst/frame01.png burst/frame02.png -o s.png --report rs.json --auto-scaling 1"), 0);
  ASSERT_EQ(run("compare s.png burst --report rs.json --json cs.json"), 0) << err();
  const auto psnr = [&](const char* name) {
    const std::string json = text(name), key = "\"lumaPsnr\": ";
    return std::stod(json.substr(json.find(key, json.find("\"result\"")) + key.size()));
  };
  EXPECT_NEAR(psnr("cs.json"), psnr("c.json"), 2.0);
}

// Pictures and numbers of a folder are checked before anything is counted with them.
TEST_F(Cli, CompareTrustsNoFolder) {
  ASSERT_EQ(run("merge burst/frame00.png burst/frame01.png burst/frame02.png -o t.png --report t.json"), 0);
  fs::create_directories(path("odd"));
  const std::string truth = text("burst/truth.json"), report = text("t.json");
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

  for (const auto& entry : fs::directory_iterator(path("burst"))) {
    fs::copy(entry, path("odd"), fs::copy_options::overwrite_existing);
  }
  for (const char* file : {"odd/clean01.png", "odd/frame01.png"}) {
    writePicture(path(file), Picture(640, 240));
    write("odd.json", edited(report, "\"base\":", ",", "1"));
    expectRefused("compare t.png odd --report odd.json", file);
    fs::copy(path("burst") / fs::path(file).filename(), path(file), fs::copy_options::overwrite_existing);
  }
  writePicture(path("odd/clean02.png"), Picture(640, 240));
  expectRefused("compare t.png odd", "odd/clean02.png");
}

// A burst in any kind of files that lose nothing merges to the same picture, also as one stream through standard input.
TEST_F(Cli, KindsOfFilesAgree) {
  ASSERT_EQ(run("merge burst/frame00.png burst/frame01.png burst/frame02.png -o expected.i420"), 0);
  for (const std::string kind : {"nv21", "nv12", "i420", "y4m"}) {
    SCOPED_TRACE(kind);
    std::string names, stream;
    for (const char* number : {"0", "1", "2"}) {
      const std::string name = std::string("f") + number + "." + kind;
      writePicture(path(name), readPicture(path(std::string("burst/frame0") + number + ".png")));
      names += " " + name;
      if (kind == "y4m") stream += text(name).substr(stream.empty() ? 0 : text(name).find("FRAME"));
    }
    const std::string raw = "merge" + names + " --size 640x480 --format " + kind;
    ASSERT_EQ(kind == "y4m" ? run("merge - -o result.i420", write("all.y4m", stream)) : run(raw + " -o result.i420"), 0)
        << err();
    EXPECT_EQ(text("result.i420"), text("expected.i420"));
  }
}

// PNG frames carry the noise of the chroma planes undiminished.
TEST_F(Cli, SimulatedFramesAreTheSameInAnyKind) {
  const std::string again = "simulate --built-in -o again --size 640x480 --seed 2 --frame-format nv21 --frames ";
  ASSERT_EQ(run(again + "3"), 0) << err();
  const Picture png = readPicture(path("burst/frame01.png"));
  const Picture raw = readPicture(path("again/frame01.nv21"), RawLayout{640, 480, "nv21"});
  for (const auto plane : {&Picture::y, &Picture::u, &Picture::v}) {
    double square = 0;
    for (size_t i = 0; i < (png.*plane).size(); ++i) {
      const double d = static_cast<double>((png.*plane)[i]) - (raw.*plane)[i];
      square += d * d;
    }
    EXPECT_LT(square / static_cast<double>((png.*plane).size()), 4) << "the noise has a mean square near 100";
  }
}

}  // namespace
}  // namespace tool
