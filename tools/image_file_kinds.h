// The file kinds behind image_file.h. name is what error messages call the file. A further kind adds the test of its
// first bytes, the function that opens it and, if need be, its end in a stream of bytes (picture_extent.h).
#ifndef TESSALINE4_TOOLS_IMAGE_FILE_KINDS_H_
#define TESSALINE4_TOOLS_IMAGE_FILE_KINDS_H_

#include <cstdint>
#include <functional>
#include <memory>

#include "file_bytes.h"
#include "file_io.h"
#include "image_decoder.h"
#include "image_file.h"

namespace tool {

using Bytes = std::vector<uint8_t>;
using Decoder = std::unique_ptr<ImageDecoder>;
// Interleaved RGB of a row, asked for from the top down and valid until the next call.
using RowSource = std::function<const uint8_t*(int32_t y)>;

bool isJpeg(ByteView beginning);
// With metadata. The planes as they are stored when the file is 4:2:0; other samplings are averaged down without
// leaving YCbCr.
Decoder openJpeg(const std::string& name, FileBytes bytes);
// Throws Error for a size that the format does not have.
void checkJpegSize(const std::string& name, int64_t width, int64_t height);
// metadata: what goes into the file, made fit for kJpegRoom.
FileBytes encodeJpeg(const std::string& name, const ConstPlanes& picture, const Metadata& metadata, int quality);
// Segments of 65533 bytes, less what tells their kinds apart; a profile in up to 255 of them.
inline constexpr MetadataRoom kJpegRoom = {65533 - 6, 65533 - 29, INT32_MAX, 255 * size_t{65533 - 14}};

bool isPng(ByteView beginning);
// 8 bits a channel; grey and palette are expanded, transparency lies over black. Where a profile goes into metadata,
// samples of decode() are what it describes, as they are stored; otherwise a gamma that the file names is turned into
// that of sRGB.
Decoder openPng(const std::string& name, FileBytes bytes);
// metadata: what goes into the file, made fit for kPngRoom.
FileBytes encodePng(const std::string& name, int32_t width, int32_t height, const RowSource& rows,
                    const Metadata& metadata = {});
// Chunks of 2^31 - 1 bytes, a profile compressed; the extension of XMP is of JPEG alone.
inline constexpr MetadataRoom kPngRoom = {INT32_MAX, INT32_MAX - 64, 0, INT32_MAX / 2};

// HEIC and AVIF, by libheif where the tool was built with it. The planes as they are stored when the file is 4:2:0 of
// BT.601; the decoder turns the picture upright and limited range into full. Only 8 bits a sample.
bool readsHeif();
bool isHeif(ByteView beginning);
inline constexpr size_t kHeifMagic = 12;  // bytes that isHeif looks at
Decoder openHeif(const std::string& name, FileBytes bytes);

// TIFF of one page, by libtiff where the tool was built with it: grey, RGB, palette or YCbCr of up to 16 bits a sample,
// which are rounded to 8; alpha lies over black. The planes as they are stored when the file is 4:2:0 of full range and
// not of JPEG.
bool isTiff(ByteView beginning);
inline constexpr size_t kTiffMagic = 4;  // bytes that isTiff looks at
Decoder openTiff(const std::string& name, FileBytes bytes);

// Raw files of cameras (DNG, CR2, CR3, NEF, ARW, RAF, ...), of which the full-size JPEG inside is taken, by libraw
// where the tool was built with it. EXIF is that of the JPEG or, where it has none, of the raw file. Throws Error where
// the JPEG is smaller than half the sensor's sides.
bool isCameraRawName(const std::string& path);  // by its ending
bool startsCameraRaw(ByteView beginning);       // of those that are no TIFF
inline constexpr size_t kCameraRawMagic = 12;   // bytes that startsCameraRaw looks at
// Many are TIFF files, too: to be asked before isTiff, with the whole file.
bool isCameraRaw(const std::string& name, ByteView file);
Decoder openCameraRaw(const std::string& name, FileBytes bytes);

// A known format name: nv21, nv12, i420 or yuyv.
bool isRawFormat(const std::string& format);
// Bytes of a picture in such a file. Throws Error for an unknown format or a size out of range.
size_t rawBytes(const std::string& name, const RawLayout& layout);
// Rows are dense. Chroma rows of odd widths hold (width + 1) / 2 samples; YUYV rows then hold width + 1 pixels.
// The two rows of chroma that YUYV has for each row of 4:2:0 are averaged on reading and equal on writing.
Decoder openRaw(InputFile file, const RawLayout& layout);
void writeRaw(const ConstPlanes& picture, const std::string& format, const Sink& sink);

bool isY4m(ByteView beginning);
inline constexpr size_t kY4mMagic = 10;  // bytes that isY4m looks at
// C420jpeg, C420, C420mpeg2 and C420paldv; the quarter sample between their chroma sites is ignored. Levels are
// widened to full range unless the header says XCOLORRANGE=FULL. beginning: what has been read of the file.
Decoder openY4m(InputFile file, FileBytes beginning);
// Frames of one size.
void writeY4mFrames(const std::vector<ConstPlanes>& frames, const Sink& sink);

// Refuses sizes that no file of a picture has, before anything is allocated for them.
void checkPictureSize(const std::string& name, int64_t width, int64_t height);

}  // namespace tool

#endif  // TESSALINE4_TOOLS_IMAGE_FILE_KINDS_H_
