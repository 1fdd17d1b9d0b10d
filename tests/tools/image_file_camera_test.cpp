// Raw files of cameras: a DNG made here, with the samples of a sensor in its first directory and a JPEG in the second.
#ifdef TESSALINE4_RAW
#include <gtest/gtest.h>

#include "exif.h"
#include "image_file.h"
#include "image_file_kinds.h"
#include "metadata_blocks.h"
#include "photo.h"
#include "tool_run.h"

namespace tool {
namespace {

struct Dng {
  std::string jpeg;
  int32_t width = 660;  // of the sensor
  int32_t height = 490;
  int32_t orientation = 6;
  int32_t second = 0;  // of the capture time
  bool isTold = true;  // by the version of DNG
};

class TiffWriter {
 public:
  void put(uint32_t value, size_t count) {
    for (size_t i = 0; i < count; ++i) bytes_ += static_cast<char>(value >> (8 * i));
  }
  // Values of more than 4 bytes by what lies in bytes; entries in the order of their tags.
  struct Entry {
    uint32_t tag, type, count, value;
    std::string bytes = {};
  };
  void directory(const std::vector<Entry>& entries, bool hasNext) {
    const size_t end = bytes_.size() + 2 + 12 * entries.size() + 4;
    std::string behind;
    put(static_cast<uint32_t>(entries.size()), 2);
    for (const Entry& entry : entries) {
      put(entry.tag, 2);
      put(entry.type, 2);
      put(entry.count, 4);
      put(entry.bytes.empty() ? entry.value : static_cast<uint32_t>(end + behind.size()), 4);
      behind += entry.bytes;
    }
    put(hasNext ? static_cast<uint32_t>(end + behind.size()) : 0, 4);
    bytes_ += behind;
  }
  std::string bytes_ = std::string("II*\0", 4);
};

std::string bytesOf(const Dng& dng) {
  TiffWriter file;
  const auto width = static_cast<uint32_t>(dng.width);
  const auto height = static_cast<uint32_t>(dng.height);
  const auto jpegBytes = static_cast<uint32_t>(dng.jpeg.size());
  constexpr uint32_t kSensor = 8;
  const uint32_t jpegAt = kSensor + 2 * width * height;
  const uint32_t exifAt = jpegAt + jpegBytes;
  file.put(exifAt + 60, 4);
  file.bytes_ += std::string(2 * width * height, '\x40') + dng.jpeg;
  const std::string time = "2024:05:31 12:30:" + std::to_string(10 + dng.second) + '\0';
  file.directory({{0x9003, 2, 20, 0, std::string(time.c_str(), 20)}, {0x9291, 2, 3, '2' | '5' << 8}}, false);
  file.bytes_.resize(exifAt + 60);
  std::vector<TiffWriter::Entry> first = {{0x0100, 4, 1, width},
                                          {0x0101, 4, 1, height},
                                          {0x0102, 3, 1, 16},
                                          {0x0103, 3, 1, 1},
                                          {0x0106, 3, 1, 32803},
                                          {0x010F, 2, 6, 0, std::string("Maker\0", 6)},
                                          {0x0110, 2, 10, 0, std::string("Camera 1\0\0", 10)},
                                          {0x0111, 4, 1, kSensor},
                                          {0x0112, 3, 1, static_cast<uint32_t>(dng.orientation)},
                                          {0x0115, 3, 1, 1},
                                          {0x0116, 4, 1, height},
                                          {0x0117, 4, 1, 2 * width * height},
                                          {0x828D, 3, 2, 2 | 2 << 16},
                                          {0x828E, 1, 4, 0x02010100},
                                          {0x8769, 4, 1, exifAt}};
  if (dng.isTold) first.push_back({0xC612, 1, 4, 0x00000401});
  file.directory(first, true);
  file.directory(
      {{0x00FE, 4, 1, 1}, {0x0103, 3, 1, 7}, {0x0106, 3, 1, 6}, {0x0111, 4, 1, jpegAt}, {0x0117, 4, 1, jpegBytes}},
      false);
  return file.bytes_;
}

TEST(CameraRaw, TheJpegInsideIsTakenWithWhatTheRawFileTells) {
  const ToolFolder folder("camera-raw");
  const std::string jpeg = folder.path("p.jpg");
  writePicture(jpeg, randomPicture(640, 480));
  const Picture expected = readPicture(jpeg);
  for (const bool isTold : {true, false}) {  // then by the samples of a sensor
    const std::string path =
        folder.write(isTold ? "p.dng" : "p.tif", bytesOf({.jpeg = textOf(jpeg), .isTold = isTold}));
    const Picture read = readPicture(path);
    EXPECT_TRUE(read.y == expected.y && read.u == expected.u && read.v == expected.v);
    EXPECT_EQ(read.metadata.orientation(), 6);
    ASSERT_NE(parseExif(read.metadata.exif), nullptr);
    const Photo photo = readPhoto(path);
    EXPECT_EQ(photo.make + photo.model, "MakerCamera 1");
    EXPECT_EQ(photo.time % 60'000'000, 10'250'000);
    EXPECT_EQ(photo.width, 640);
  }
  // A portrait beside a sensor that lies has been turned; a JPEG that tells its own time speaks for itself.
  writePicture(jpeg, randomPicture(480, 640));
  const std::string path = folder.write("p.dng", bytesOf({.jpeg = textOf(jpeg)}));
  EXPECT_EQ(readPicture(path).metadata.orientation(), 1);
  ExifShot shot;
  shot.model = "Phone";
  shot.time = 86'400'000'000 * 366 + 3'661'000'000;
  shot.exposureSeconds = 0.008;
  shot.iso = 400;
  Picture upright = randomPicture(640, 480);
  upright.metadata.exif = exifOfShot(shot, 3);
  ASSERT_NE(parseExif(upright.metadata.exif), nullptr);
  writePicture(jpeg, upright);
  folder.write("p.dng", bytesOf({.jpeg = textOf(jpeg)}));
  EXPECT_EQ(readPicture(path).metadata.orientation(), 3);
  const Photo photo = readPhoto(path);
  EXPECT_EQ(photo.make + photo.model, "Phone");
  EXPECT_EQ(photo.time, *shot.time);
  EXPECT_DOUBLE_EQ(photo.exposureSeconds.value_or(0), 0.008);
  EXPECT_EQ(photo.iso, 400);

  const auto isRefused = [&](const std::string& bytes, const std::string& words) {
    folder.write("bad.dng", bytes);
    EXPECT_EQ(folder.run("merge bad.dng bad.dng -o o.jpg"), 1);
    expectOneLine(folder.err(), words);
    expectIn(folder.err(), "bad.dng");
  };
  isRefused(bytesOf({.jpeg = textOf(jpeg), .width = 1300, .height = 970}), "thumbnail of 640x480 beside a sensor of");
  isRefused(bytesOf({.jpeg = ""}), "no JPEG inside");
  isRefused(bytesOf({.jpeg = "\xFF\xD8\xFF" + std::string(5000, 'x')}), "JPEG");
  isRefused(textOf(path).substr(0, 20000), "libraw");
}

TEST(CameraRaw, BatchTakesRawFilesAlone) {
  const ToolFolder folder("camera-batch");
  fs::create_directories(folder / "in");
  for (int32_t i = 0; i < 3; ++i) {
    const std::string jpeg = folder.path("in/both" + std::to_string(i) + ".JPG");
    writePicture(jpeg, randomPicture(640, 480, 3));
    const std::string later = bytesOf({.jpeg = textOf(jpeg), .second = 30 + i});
    folder.write("in/both" + std::to_string(i) + ".dng", later);
    if (i < 2) fs::remove(jpeg);  // the last one has its JPEG beside it
  }
  EXPECT_EQ(folder.run("batch in -o stills --gap 2 --html"), 0) << folder.err();
  expectIn(folder.out(), "3 photos: 1 burst, 1 single");
  expectIn(folder.out(), "1 other file left alone");
  for (const auto& entry : fs::directory_iterator(folder / "stills")) {
    if (entry.path().extension() == ".jpg") {
      EXPECT_EQ(readPicture(entry.path().string()).metadata.orientation(), 6);
    } else {
      expectIn(textOf(entry.path()), "the JPEG inside a raw file");
    }
  }
}

}  // namespace
}  // namespace tool
#endif
