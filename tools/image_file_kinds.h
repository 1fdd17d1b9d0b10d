// The file kinds behind image_file.h, each between bytes and pictures. name is what error messages call the file.
#ifndef TESSALINE4_TOOLS_IMAGE_FILE_KINDS_H_
#define TESSALINE4_TOOLS_IMAGE_FILE_KINDS_H_

#include <cstdint>
#include <utility>

#include "image_file.h"

namespace tool {

using Bytes = std::vector<uint8_t>;

bool isJpeg(const Bytes& bytes);
// With metadata. The planes as they are stored when the file is 4:2:0; other samplings are averaged down without
// leaving YCbCr.
Picture decodeJpeg(const std::string& name, const Bytes& bytes);
RgbPicture decodeJpegRgb(const std::string& name, const Bytes& bytes);
// Throws Error for a size that the format does not have.
void checkJpegSize(const std::string& name, int64_t width, int64_t height);
// metadata: what goes into the file, made fit for kJpegRoom.
Bytes encodeJpeg(const std::string& name, const Picture& picture, const Metadata& metadata, int quality);
// Segments of 65533 bytes, less what tells their kinds apart; a profile in up to 255 of them.
inline constexpr MetadataRoom kJpegRoom = {65533 - 6, 65533 - 29, INT32_MAX, 255 * size_t{65533 - 14}};

bool isPng(const Bytes& bytes);
// 8 bits a channel; grey and palette are expanded, transparency lies over black. Where a profile goes into metadata,
// samples are what it describes, as they are stored; otherwise a gamma that the file names is turned into that of sRGB.
RgbPicture decodePng(const std::string& name, const Bytes& bytes, Metadata* metadata = nullptr);
// metadata: what goes into the file, made fit for kPngRoom.
Bytes encodePng(const std::string& name, const RgbPicture& picture, const Metadata& metadata = {});
// Chunks of 2^31 - 1 bytes, a profile compressed; the extension of XMP is of JPEG alone.
inline constexpr MetadataRoom kPngRoom = {INT32_MAX, INT32_MAX - 64, 0, INT32_MAX / 2};

// A known format name: nv21, nv12, i420 or yuyv.
bool isRawFormat(const std::string& format);
// Bytes of a picture in such a file. Throws Error for an unknown format or a size out of range.
size_t rawBytes(const std::string& name, const RawLayout& layout);
// Rows are dense. Chroma rows of odd widths hold (width + 1) / 2 samples; YUYV rows then hold width + 1 pixels.
// The two rows of chroma that YUYV has for each row of 4:2:0 are averaged on reading and equal on writing.
Picture decodeRaw(const std::string& name, const Bytes& bytes, const RawLayout& layout);
Bytes encodeRaw(const Picture& picture, const std::string& format);

bool isY4m(const Bytes& bytes);
// C420jpeg, C420, C420mpeg2 and C420paldv; the quarter sample between their chroma sites is ignored. Levels are
// widened to full range unless the header says XCOLORRANGE=FULL. Throws Error for more than most frames.
std::vector<Picture> decodeY4m(const std::string& name, const Bytes& bytes, size_t most);
inline constexpr size_t kMostY4mLine = 4096;
// Length with its end of the line at an offset; 0 when it does not end within kMostY4mLine bytes.
size_t y4mLineLength(const Bytes& bytes, size_t at);
// Width and height that the stream's header line, which must be whole, tells.
std::pair<int32_t, int32_t> y4mFrameSize(const std::string& name, const Bytes& beginning);
Bytes encodeY4m(const std::vector<Picture>& frames);

// Refuses sizes that no file of a picture has, before anything is allocated for them.
void checkPictureSize(const std::string& name, int64_t width, int64_t height);

}  // namespace tool

#endif  // TESSALINE4_TOOLS_IMAGE_FILE_KINDS_H_
