// Metadata through files: what comes back, what is damaged, and what has no place.
#include "metadata.h"

#include <zlib.h>

#include "exif.h"
#include "image_file.h"
#include "metadata_blocks.h"
#include "tool_run.h"

namespace tool {
namespace {

using Bytes = std::vector<uint8_t>;

std::string bigEndian(size_t number, int32_t bytes) {
  std::string out;
  while (bytes-- > 0) out.push_back(static_cast<char>(number >> 8 * bytes & 0xFF));
  return out;
}

std::string segment(char marker, const std::string& content) {
  return std::string("\xFF").append(1, marker).append(bigEndian(content.size() + 2, 2)).append(content);
}
std::string iccSegment(int32_t number, int32_t count, const std::string& part) {
  return segment('\xE2',
                 std::string("ICC_PROFILE\0", 12).append(bigEndian(number, 1)).append(bigEndian(count, 1)) + part);
}
std::string exifSegment(const Bytes& block) {
  return segment('\xE1', std::string("Exif\0\0", 6).append(block.begin(), block.end()));
}
std::string xmpSegment(const std::string& packet) {
  return segment('\xE1', std::string("http://ns.adobe.com/xap/1.0/\0", 29) + packet);
}
std::string extensionSegment(size_t whole, size_t offset, const std::string& part) {
  return segment('\xE1', std::string("http://ns.adobe.com/xmp/extension/\0", 35)
                                 .append(kExtensionName)
                                 .append(bigEndian(whole, 4))
                                 .append(bigEndian(offset, 4)) +
                             part);
}
std::string chunk(const std::string& name, const std::string& content) {
  const std::string named = name + content;
  const auto sum = crc32(0, reinterpret_cast<const Bytef*>(named.data()), static_cast<uInt>(named.size()));
  return bigEndian(content.size(), 4) + named + bigEndian(sum, 4);
}

class MetadataFiles : public ::testing::Test, public ToolFolder {
 protected:
  MetadataFiles() : ToolFolder("metadata") {
    for (size_t i = 0; i < plain_.y.size(); ++i) plain_.y[i] = static_cast<uint8_t>(i % 64 * 4);
  }

  // The plain picture in a file with these bytes put in at a place behind the signature.
  Picture readWith(const std::string& name, size_t at, const std::string& inserted) const {
    writePicture(path(name), plain_);
    return readPicture(write(name, text(name).insert(at, inserted)));
  }
  Picture jpegWith(const std::string& segments) const { return readWith("w.jpg", 2, segments); }
  Picture pngWith(const std::string& chunks) const { return readWith("w.png", 33, chunks); }

  Picture plain_{64, 48};
};

TEST_F(MetadataFiles, ComesBackFromJpegAndPng) {
  Picture picture = plain_;
  picture.metadata.exif = makeExif(6, true);
  picture.metadata.xmp = makeXmp("much", true);
  picture.metadata.extendedXmpName = kExtensionName;
  picture.metadata.extendedXmp = Bytes(150000, 'x');
  picture.metadata.icc = makeIcc(200000);  // four segments
  for (const auto& [file, losses] : {std::pair{"a.jpg", 0}, {"b.jpg", 0}, {"c.png", 1}, {"d.png", 0}, {"e.jpg", 0}}) {
    SCOPED_TRACE(file);
    EXPECT_EQ(writePicture(path(file), picture).size(), static_cast<size_t>(losses));
    picture = readPicture(path(file));
    const ExifOwner data = parseExif(picture.metadata.exif);
    EXPECT_EQ(exifNumber(data.get(), EXIF_TAG_ORIENTATION), 6);
    EXPECT_EQ(exifNumber(data.get(), EXIF_TAG_PIXEL_X_DIMENSION), 64);
    EXPECT_EQ(exifNumber(data.get(), EXIF_TAG_PIXEL_Y_DIMENSION), 48);
    EXPECT_EQ(data->data, nullptr) << "the thumbnail shows another picture";
    EXPECT_EQ(std::count(picture.metadata.exif.begin(), picture.metadata.exif.end(), 0xAB), 0);
    EXPECT_EQ(picture.metadata.icc, makeIcc(200000));
    // The extension is of JPEG alone, and a packet without it does not name it.
    const bool extended = file[0] < 'c';
    EXPECT_EQ(picture.metadata.xmp, makeXmp("much", extended));
    EXPECT_EQ(picture.metadata.extendedXmp, Bytes(extended ? 150000 : 0, 'x'));
  }
}

TEST_F(MetadataFiles, PartsMayComeInAnyOrder) {
  const Bytes icc = makeIcc(500);
  const std::string text(icc.begin(), icc.end());
  const std::string note = "<xmpNote:HasExtendedXMP>" + kExtensionName + "</xmpNote:HasExtendedXMP>";
  std::string packet = makeXmp("element", false);
  packet.insert(packet.find("<rdf:Description"), note);
  const Metadata found = jpegWith(iccSegment(3, 3, text.substr(300)) + extensionSegment(5, 3, "lo") +
                                  iccSegment(1, 3, text.substr(0, 200)) + segment('\xE2', std::string("MPF\0", 4)) +
                                  iccSegment(2, 3, text.substr(200, 100)) + extensionSegment(5, 0, "hel") +
                                  xmpSegment(packet) + exifSegment(makeExif(3, false)))
                             .metadata;
  EXPECT_EQ(found.icc, icc);
  EXPECT_EQ(found.extendedXmp, (Bytes{'h', 'e', 'l', 'l', 'o'}));
  EXPECT_EQ(found.orientation(), 3);
  Picture picture = plain_;
  picture.metadata = found;
  EXPECT_EQ(writePicture(path("n.png"), picture).size(), 1u);
  EXPECT_EQ(readPicture(path("n.png")).metadata.xmp, makeXmp("element", false));
}

// One line tells of it, the picture is read and written all the same, and the result is sound.
TEST_F(MetadataFiles, DamageIsLeftOut) {
  const Bytes icc = makeIcc(300), grey = makeIcc(300, "GRAY"), exif = makeExif(6, true);
  const std::string profile(icc.begin(), icc.end()), packet = makeXmp("note", true);
  std::string far = profile;
  far[138] = 1;  // a tag behind the end
  Bytes cut = exif, upright = makeExif(1, false);
  cut.resize(60);
  upright.resize(60);
  const Bytes lost = {'M', 'M', 0, 42, 255, 255, 255, 255, 1, 2, 3};
  std::string badSum = chunk("eXIf", std::string(exif.begin(), exif.end()));
  badSum.back() = static_cast<char>(badSum.back() + 1);
  const std::string xmpText = std::string("XML:com.adobe.xmp\0", 18);

  struct Row {
    bool jpeg;
    std::string inserted;
    const char* told;
    int32_t orientation = 1;
  };
  for (const Row& row :
       {Row{true, iccSegment(1, 2, profile), "ICC profile is damaged"},
        Row{true, iccSegment(1, 1, profile) + iccSegment(1, 1, profile), "ICC profile is damaged"},
        Row{true, iccSegment(0, 1, profile), "ICC profile is damaged"},
        Row{true, iccSegment(1, 1, profile.substr(1)), "ICC profile is damaged"},
        Row{true, iccSegment(1, 1, profile.substr(0, 250)), "ICC profile is damaged"},
        Row{true, iccSegment(1, 1, far), "ICC profile is damaged"},
        Row{true, segment('\xE2', std::string("ICC_PROFILE\0", 12)), "ICC profile is damaged"},
        Row{true, iccSegment(1, 1, std::string(grey.begin(), grey.end())), "not for RGB"},
        Row{true, xmpSegment("no packet"), "XMP packet is damaged"},
        Row{true, xmpSegment(packet), "extended part"},
        Row{true, xmpSegment(packet) + extensionSegment(9, 0, "gap") + extensionSegment(9, 4, "after"),
            "extended part"},
        Row{true, xmpSegment(packet) + extensionSegment(0xFFFFFFFF, 0, "short"), "extended part"},
        Row{true, exifSegment(lost), "EXIF block is damaged"},
        Row{true, exifSegment({}), ""},
        Row{true, exifSegment(upright), "EXIF block is damaged; it"},
        Row{true, exifSegment(cut), "EXIF block is damaged; all but", 6},
        Row{false, badSum, "EXIF block is damaged"},
        Row{false, chunk("iCCP", std::string("name\0\0no stream", 15)), "ICC profile is damaged"},
        Row{false, chunk("iCCP", "name without end"), "ICC profile is damaged"},
        Row{false, chunk("iTXt", xmpText), "XMP packet is damaged"},
        Row{false, chunk("iTXt", xmpText + std::string("\1\0\0\0no stream", 13)), "XMP packet is damaged"},
        Row{false, chunk("iTXt", xmpText + std::string("\0\0no zeros", 10)), "XMP packet is damaged"}}) {
    SCOPED_TRACE(row.told);
    const Picture read = row.jpeg ? jpegWith(row.inserted) : pngWith(row.inserted);
    EXPECT_EQ(read.width, 64);
    for (const char* file : {"o.jpg", "o.png"}) {
      const std::vector<std::string> losses = writePicture(path(file), read);
      ASSERT_EQ(losses.size(), *row.told == '\0' ? 0u : 1u);
      for (const std::string& loss : losses) EXPECT_NE(loss.find(row.told), std::string::npos) << loss;
      const Picture result = readPicture(path(file));
      EXPECT_EQ(result.metadata.orientation(), row.orientation);
      EXPECT_TRUE(result.metadata.icc.empty() && result.metadata.extendedXmp.empty());
      EXPECT_TRUE(writePicture(path(file), result).empty());
    }
  }
}

TEST_F(MetadataFiles, TooLargeForAJpeg) {
  Picture picture = plain_;
  picture.metadata.exif = makeExif(8, false);
  picture.metadata.exif.resize(65528);
  picture.metadata.xmp = makeXmp(std::string(65504, 'x'), false);
  picture.metadata.icc = makeIcc(255 * 65519 + 1);
  EXPECT_EQ(writePicture(path("l.png"), picture).size(), 0u);
  picture = readPicture(path("l.png"));
  EXPECT_EQ(picture.metadata.icc.size(), 255u * 65519 + 1);
  EXPECT_EQ(writePicture(path("l.jpg"), picture).size(), 3u);
  const Metadata found = readPicture(path("l.jpg")).metadata;
  EXPECT_EQ(found.orientation(), 8);
  EXPECT_TRUE(found.xmp.empty() && found.icc.empty());

  // The largest that fit.
  picture.metadata.exif.resize(65527);
  picture.metadata.xmp.erase(picture.metadata.xmp.find('x', 200), picture.metadata.xmp.size() - 65504);
  picture.metadata.icc = makeIcc(255 * 65519);
  EXPECT_EQ(writePicture(path("m.jpg"), picture).size(), 0u);
  const Metadata most = readPicture(path("m.jpg")).metadata;
  EXPECT_EQ(most.exif.size(), 65527u);
  EXPECT_EQ(most.xmp, picture.metadata.xmp);
  EXPECT_TRUE(most.icc == picture.metadata.icc);
}

// A profile describes the samples as they are stored; a gamma beside it is for readers that know no profiles.
TEST_F(MetadataFiles, ProfileGoesBeforeGamma) {
  const Bytes icc = makeIcc(300);
  Bytes packed(1000);
  uLongf length = packed.size();
  ASSERT_EQ(compress(packed.data(), &length, icc.data(), icc.size()), Z_OK);
  const std::string gamma = chunk("gAMA", bigEndian(100000, 4));
  const std::string profile =
      chunk("iCCP", std::string("name\0\0", 6).append(packed.begin(), packed.begin() + static_cast<ptrdiff_t>(length)));
  const Picture expected = pngWith("");
  EXPECT_EQ(pngWith(gamma + profile).y, expected.y);
  EXPECT_EQ(readPicture(path("w.png")).metadata.icc, icc);
}

// Makers' notes point into the block by offsets of their own.
TEST(Exif, BytesKeepTheirPlaces) {
  for (const bool little : {false, true}) {
    Bytes block;
    const auto put = [&](size_t number, int32_t bytes) {
      for (int32_t i = 0; i < bytes; ++i) {
        block.push_back(static_cast<uint8_t>(number >> 8 * (little ? i : bytes - 1 - i) & 0xFF));
      }
    };
    const auto entry = [&](size_t tag, size_t type, size_t count, size_t value) {
      put(tag, 2), put(type, 2), put(count, 4);
      put(value, type == 3 && count == 1 ? 2 : 4);
      if (type == 3 && count == 1) put(0, 2);
    };
    block.assign(2, little ? 'I' : 'M');
    put(42, 2), put(8, 4);
    put(2, 2), entry(0x0112, 3, 1, 5), entry(0x8769, 4, 1, 38), put(120, 4);  // 8: main, the next is at 120
    put(2, 2), entry(0xA002, 3, 1, 4000), entry(0x927C, 7, 20, 100);          // 38: photo
    put(0, 4);
    block.resize(100), block.insert(block.end(), 20, 0xCD);                    // 100: the maker's note
    put(2, 2), entry(0x0201, 4, 1, 150), entry(0x0202, 4, 1, 30), put(0, 4);   // 120: thumbnail
    block.insert(block.end(), 30, 0xAB), block.insert(block.end(), 10, 0xEF);  // 150, and what lies behind it
    Bytes expected = block;
    std::fill(expected.begin() + 34, expected.begin() + 38, uint8_t{0});  // no next directory
    expected[little ? 48 : 48] = little ? 0x00 : 0x01;
    expected[49] = little ? 0x01 : 0x00;  // 256 pixels wide
    std::fill(expected.begin() + 150, expected.begin() + 180, uint8_t{0});
    EXPECT_EQ(exifForSize(block, 256, 100), expected);
    EXPECT_EQ(exifOrientation(block), 5);
    // At the end it is cut off; where something else lies, that stays.
    block.resize(180);
    expected.resize(150);
    EXPECT_EQ(exifForSize(block, 256, 100), expected);
  }
}

}  // namespace
}  // namespace tool
