// Writes the seeds of all fuzz targets: one folder per target below the folder that is named. The same bytes each time.
#include <csetjmp>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>

#include <libexif/exif-data.h>
#include <png.h>

#include "image_file_kinds.h"
#include "picture_files.h"

#include <jpeglib.h>
#ifdef TESSALINE4_TIFF
#include <tiffio.h>
#endif

namespace {

using fuzz::Bytes;

std::filesystem::path root;

void put(const std::string& target, const std::string& name, const Bytes& bytes) {
  std::filesystem::create_directories(root / target);
  fuzz::writeAll(root / target / name, bytes);
}
void put(const std::string& target, const std::string& name, const std::string& text) {
  put(target, name, Bytes(text.begin(), text.end()));
}

void append(Bytes* to, const Bytes& from) {
  to->insert(to->end(), from.begin(), from.end());
}

Bytes noise(size_t size, uint32_t seed) {
  fuzz::Noise next(seed);
  Bytes bytes(size);
  for (uint8_t& b : bytes) b = next();
  return bytes;
}

tool::Picture makePicture(int32_t width, int32_t height, uint32_t seed) {
  tool::Picture picture(width, height);
  picture.y = noise(picture.y.size(), seed);
  picture.u = noise(picture.u.size(), seed + 1);
  picture.v = noise(picture.v.size(), seed + 2);
  return picture;
}

// The calls of api.cpp: the first byte says whether a merge may run.
void makeApi() {
  constexpr uint8_t kMayMerge = 7;
  constexpr uint8_t kStay = 0;  // the plain choice everywhere
  constexpr uint8_t kStart[] = {8, kStay, kStay, kStay, kStay};
  constexpr uint8_t kAdd[] = {11, kStay, kStay, kStay, kStay, 2};
  struct Seed {
    const char* name;
    uint8_t format;
    Bytes settings;
    uint8_t merge;  // even: the half road, odd: the whole
    Bytes after;
  };
  const Seed seeds[] = {
      {"merge-nv21", 0, {}, 1, {18, 0, 1, 19, 0, 1}},
      {"merge-enhance", 0, {}, 0, {17, 18, 0, 1}},
      {"merge-nv12", 1, {6, 0, 0}, 1, {}},
      {"merge-i420", 2, {6, 1, 0}, 1, {19, 0, 0}},
      {"merge-yuyv", 3, {6, 3, 0}, 1, {}},
      {"auto-scaling", 0, {2, 1, 0, 1, 0}, 1, {20}},
      {"levels", 0, {2, 3, 0, 7, 0, 2, 4, 0, 5, 0, 2, 5, 0, 3, 0}, 1, {}},
      {"curve", 0, {2, 7, 0, 5, 0}, 1, {}},
      {"fine", 0, {2, 14, 0, 1, 0}, 1, {19, 0, 1}},
      {"fine-enhance", 3, {2, 14, 0, 1, 0, 2, 1, 0, 1, 0, 2, 13, 0, 3, 0}, 0, {17, 19, 0, 0, 20}},
  };
  for (const Seed& seed : seeds) {
    Bytes bytes = {kMayMerge, kStay, kStay};
    append(&bytes, {5, kStay, seed.format});
    append(&bytes, seed.settings);
    append(&bytes, Bytes(std::begin(kStart), std::end(kStart)));
    for (int i = 0; i < 2; ++i) append(&bytes, Bytes(std::begin(kAdd), std::end(kAdd)));
    append(&bytes, {15, seed.merge});
    append(&bytes, seed.after);
    put("api", seed.name, bytes);
    bytes[0] = kStay;
    put("api", std::string("short-") + seed.name, bytes);
  }
  for (uint32_t i = 0; i < 24; ++i) {
    Bytes bytes = noise(40 + 8 * i, 1000 + i);
    bytes[0] = kStay;
    put("api", "calls-" + std::to_string(i), bytes);
  }
}

struct Sampling {
  const char* name;
  int horizontal;
  int vertical;
  bool progressive;
  int restart;
  J_COLOR_SPACE space;
};

Bytes makeJpeg(const Sampling& s, int32_t width, int32_t height) {
  const int components = s.space == JCS_GRAYSCALE ? 1 : s.space == JCS_CMYK ? 4 : 3;
  const Bytes pixels = noise(static_cast<size_t>(width * height * components), 7);
  jpeg_compress_struct info;
  jpeg_error_mgr errors;
  info.err = jpeg_std_error(&errors);
  jpeg_create_compress(&info);
  unsigned char* out = nullptr;
  unsigned long size = 0;
  jpeg_mem_dest(&info, &out, &size);
  info.image_width = static_cast<JDIMENSION>(width);
  info.image_height = static_cast<JDIMENSION>(height);
  info.input_components = components;
  info.in_color_space = s.space == JCS_GRAYSCALE || s.space == JCS_CMYK ? s.space : JCS_RGB;
  jpeg_set_defaults(&info);
  jpeg_set_colorspace(&info, s.space);
  jpeg_set_quality(&info, 50, TRUE);
  info.comp_info[0].h_samp_factor = s.horizontal;
  info.comp_info[0].v_samp_factor = s.vertical;
  info.restart_interval = static_cast<unsigned>(s.restart);
  if (s.progressive) jpeg_simple_progression(&info);
  jpeg_start_compress(&info, TRUE);
  while (info.next_scanline < info.image_height) {
    JSAMPROW row = const_cast<JSAMPROW>(pixels.data()) + info.next_scanline * static_cast<size_t>(width * components);
    jpeg_write_scanlines(&info, &row, 1);
  }
  jpeg_finish_compress(&info);
  const Bytes bytes(out, out + size);
  jpeg_destroy_compress(&info);
  std::free(out);
  return bytes;
}

void makeJpegs() {
  constexpr Sampling kSamplings[] = {
      {"420", 2, 2, false, 0, JCS_YCbCr},
      {"422", 2, 1, false, 0, JCS_YCbCr},
      {"440", 1, 2, false, 0, JCS_YCbCr},
      {"444", 1, 1, false, 0, JCS_YCbCr},
      {"411", 4, 1, false, 0, JCS_YCbCr},
      {"420-progressive", 2, 2, true, 0, JCS_YCbCr},
      {"420-restart", 2, 2, false, 1, JCS_YCbCr},
      {"grey", 1, 1, false, 0, JCS_GRAYSCALE},
      {"grey-progressive", 1, 1, true, 0, JCS_GRAYSCALE},
      {"rgb", 1, 1, false, 0, JCS_RGB},
      {"cmyk", 1, 1, false, 0, JCS_CMYK},
  };
  for (const Sampling& s : kSamplings) {
    put("jpeg", s.name, makeJpeg(s, 33, 17));
    put("jpeg", std::string(s.name) + "-1x1", makeJpeg(s, 1, 1));
  }
  Bytes cut = makeJpeg(kSamplings[0], 40, 40);
  cut.resize(cut.size() * 3 / 4);
  put("jpeg", "cut", cut);
}

Bytes makePng(int type, int depth, bool interlaced, bool transparent, int32_t width, int32_t height) {
  png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
  png_infop info = png_create_info_struct(png);
  Bytes out;
  png_set_write_fn(
      png, &out,
      [](png_structp p, png_bytep bytes, size_t size) {
        append(static_cast<Bytes*>(png_get_io_ptr(p)), Bytes(bytes, bytes + size));
      },
      nullptr);
  png_set_IHDR(png, info, static_cast<png_uint_32>(width), static_cast<png_uint_32>(height), depth, type,
               interlaced ? PNG_INTERLACE_ADAM7 : PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT,
               PNG_FILTER_TYPE_DEFAULT);
  png_color palette[16] = {};
  for (size_t i = 0; i < 16; ++i) palette[i].green = static_cast<png_byte>(16 * i);
  png_byte alpha[16] = {0, 128};
  if (type == PNG_COLOR_TYPE_PALETTE) png_set_PLTE(png, info, palette, 16);
  if (transparent) png_set_tRNS(png, info, alpha, 16, nullptr);
  png_write_info(png, info);
  const int passes = png_set_interlace_handling(png);
  const size_t rowBytes = png_get_rowbytes(png, info);
  for (int pass = 0; pass < passes; ++pass) {
    for (int32_t y = 0; y < height; ++y) {
      Bytes row = noise(rowBytes, static_cast<uint32_t>(y));
      if (type == PNG_COLOR_TYPE_PALETTE && depth == 8) {
        for (uint8_t& b : row) b &= 15;
      }
      png_write_row(png, row.data());
    }
  }
  png_write_end(png, info);
  png_destroy_write_struct(&png, &info);
  return out;
}

void makePngs() {
  struct Kind {
    const char* name;
    int type;
    int depth;
  };
  constexpr Kind kKinds[] = {
      {"rgb", PNG_COLOR_TYPE_RGB, 8},          {"rgb16", PNG_COLOR_TYPE_RGB, 16},
      {"rgba", PNG_COLOR_TYPE_RGB_ALPHA, 8},   {"grey", PNG_COLOR_TYPE_GRAY, 8},
      {"grey1", PNG_COLOR_TYPE_GRAY, 1},       {"grey16", PNG_COLOR_TYPE_GRAY, 16},
      {"greya", PNG_COLOR_TYPE_GRAY_ALPHA, 8}, {"palette", PNG_COLOR_TYPE_PALETTE, 8},
      {"palette4", PNG_COLOR_TYPE_PALETTE, 4},
  };
  for (const Kind& k : kKinds) {
    for (const bool interlaced : {false, true}) {
      put("png", k.name + std::string(interlaced ? "-interlaced" : ""),
          makePng(k.type, k.depth, interlaced, k.type == PNG_COLOR_TYPE_PALETTE, 19, 7));
    }
  }
  put("png", "1x1", makePng(PNG_COLOR_TYPE_RGB, 8, false, false, 1, 1));
}

#ifdef TESSALINE4_TIFF
void makeTiffs() {
  struct Kind {
    const char* name;
    uint16_t photometric;
    uint16_t samples;
    uint16_t bits;
    bool planar;
    bool tiled;
    uint16_t compression;
    const char* mode;
  };
  constexpr Kind kKinds[] = {
      {"rgb", PHOTOMETRIC_RGB, 3, 8, false, false, COMPRESSION_NONE, "w"},
      {"rgb-big-endian-lzw", PHOTOMETRIC_RGB, 3, 8, false, false, COMPRESSION_LZW, "wb"},
      {"rgb-large", PHOTOMETRIC_RGB, 3, 8, false, false, COMPRESSION_NONE, "w8"},
      {"rgba-tiles", PHOTOMETRIC_RGB, 4, 8, false, true, COMPRESSION_ADOBE_DEFLATE, "w"},
      {"rgb16-planar", PHOTOMETRIC_RGB, 3, 16, true, false, COMPRESSION_NONE, "w"},
      {"grey", PHOTOMETRIC_MINISBLACK, 1, 8, false, false, COMPRESSION_PACKBITS, "w"},
      {"grey16-tiles", PHOTOMETRIC_MINISBLACK, 1, 16, false, true, COMPRESSION_NONE, "w"},
      {"grey1", PHOTOMETRIC_MINISWHITE, 1, 1, false, false, COMPRESSION_CCITTFAX4, "w"},
      {"ycc", PHOTOMETRIC_YCBCR, 3, 8, false, false, COMPRESSION_NONE, "w"},
      {"ycc-tiles", PHOTOMETRIC_YCBCR, 3, 8, false, true, COMPRESSION_LZW, "w"},
      {"ycc-jpeg", PHOTOMETRIC_YCBCR, 3, 8, false, false, COMPRESSION_JPEG, "w"},
  };
  std::filesystem::create_directories(root / "tiff");
  for (const Kind& k : kKinds) {
    TIFF* file = TIFFOpen((root / "tiff" / k.name).c_str(), k.mode);
    TIFFSetField(file, TIFFTAG_IMAGEWIDTH, 33);
    TIFFSetField(file, TIFFTAG_IMAGELENGTH, 19);
    TIFFSetField(file, TIFFTAG_BITSPERSAMPLE, k.bits);
    TIFFSetField(file, TIFFTAG_SAMPLESPERPIXEL, k.samples);
    TIFFSetField(file, TIFFTAG_PHOTOMETRIC, k.photometric);
    TIFFSetField(file, TIFFTAG_PLANARCONFIG, k.planar ? PLANARCONFIG_SEPARATE : PLANARCONFIG_CONTIG);
    TIFFSetField(file, TIFFTAG_COMPRESSION, k.compression);
    TIFFSetField(file, TIFFTAG_ORIENTATION, 6);
    TIFFSetField(file, TIFFTAG_MODEL, "Camera");
    if (k.photometric == PHOTOMETRIC_YCBCR) TIFFSetField(file, TIFFTAG_YCBCRSUBSAMPLING, 2, 2);
    if (k.tiled) TIFFSetField(file, TIFFTAG_TILEWIDTH, 16);
    TIFFSetField(file, k.tiled ? TIFFTAG_TILELENGTH : TIFFTAG_ROWSPERSTRIP, 16);
    const uint32_t count = k.tiled ? TIFFNumberOfTiles(file) : TIFFNumberOfStrips(file);
    for (uint32_t i = 0; i < count; ++i) {
      const uint32_t rows = i % 2 == 0 ? 16 : 3;
      Bytes bytes = noise(static_cast<size_t>(k.tiled ? TIFFTileSize(file) : TIFFVStripSize(file, rows)), i);
      const auto size = static_cast<tmsize_t>(bytes.size());
      k.tiled ? TIFFWriteEncodedTile(file, i, bytes.data(), size) : TIFFWriteEncodedStrip(file, i, bytes.data(), size);
    }
    TIFFClose(file);
  }
}
#endif

void makeY4ms() {
  const auto stream = [](const std::string& header, const std::vector<tool::Picture>& frames) {
    Bytes bytes = {10};  // frames allowed
    append(&bytes, Bytes(header.begin(), header.end()));
    for (const tool::Picture& frame : frames) {
      const std::string mark = "FRAME\n";
      append(&bytes, Bytes(mark.begin(), mark.end()));
      for (const Bytes* plane : {&frame.y, &frame.u, &frame.v}) append(&bytes, *plane);
    }
    return bytes;
  };
  put("y4m", "full",
      stream("YUV4MPEG2 W16 H16 F25:1 Ip A1:1 C420jpeg XCOLORRANGE=FULL\n",
             {makePicture(16, 16, 1), makePicture(16, 16, 2)}));
  put("y4m", "limited", stream("YUV4MPEG2 W7 H5\n", {makePicture(7, 5, 1)}));
  put("y4m", "mpeg2", stream("YUV4MPEG2 W2 H2 C420mpeg2 I?\n", {makePicture(2, 2, 1)}));
  put("y4m", "paldv", stream("YUV4MPEG2 H1 W1 C420paldv\n", {makePicture(1, 1, 1), makePicture(1, 1, 3)}));
  put("y4m", "interlaced", stream("YUV4MPEG2 W2 H2 It\n", {makePicture(2, 2, 1)}));
  put("y4m", "444", stream("YUV4MPEG2 W2 H2 C444\n", {makePicture(2, 2, 1)}));
  put("y4m", "no-frame", stream("YUV4MPEG2 W2 H2\n", {}));
  put("y4m", "no-size", stream("YUV4MPEG2 W2\n", {makePicture(2, 2, 1)}));
}

void makeRaws() {
  for (uint8_t format = 0; format < 4; ++format) {
    for (const uint8_t side : {0, 1, 16, 33}) {
      Bytes bytes = {0, format, 0, side, 0, static_cast<uint8_t>(side + 1), 0};
      append(&bytes, noise(64, format));
      put("raw", std::to_string(format) + "-" + std::to_string(side), bytes);
    }
  }
  put("raw", "extreme", Bytes{0, 0, 7, 3, 7, 3, 0, 1});
}

Bytes makeExif(ExifByteOrder order, bool thumbnail) {
  ExifData* data = exif_data_new();
  exif_data_set_byte_order(data, order);
  const auto add = [&](ExifIfd ifd, ExifTag tag) {
    ExifEntry* entry = exif_entry_new();
    exif_content_add_entry(data->ifd[ifd], entry);
    exif_entry_initialize(entry, tag);
    exif_entry_unref(entry);
    return entry->data;
  };
  exif_set_short(add(EXIF_IFD_0, EXIF_TAG_ORIENTATION), order, 6);
  add(EXIF_IFD_0, EXIF_TAG_X_RESOLUTION);
  exif_set_long(add(EXIF_IFD_EXIF, EXIF_TAG_PIXEL_X_DIMENSION), order, 4000);
  exif_set_long(add(EXIF_IFD_EXIF, EXIF_TAG_PIXEL_Y_DIMENSION), order, 3000);
  if (thumbnail) {
    data->size = 60;
    data->data = static_cast<unsigned char*>(std::calloc(data->size, 1));
  }
  unsigned char* saved = nullptr;
  unsigned size = 0;
  exif_data_save_data(data, &saved, &size);
  exif_data_unref(data);
  const Bytes block(saved + 6, saved + size);  // without the name in front
  std::free(saved);
  return block;
}

void makeMetadata() {
  const auto block = [](uint8_t kind, const Bytes& content) {
    Bytes bytes = {kind, static_cast<uint8_t>(content.size() >> 8), static_cast<uint8_t>(content.size())};
    append(&bytes, content);
    return bytes;
  };
  const auto join = [](std::initializer_list<Bytes> parts) {
    Bytes all;
    for (const Bytes& part : parts) append(&all, part);
    return all;
  };
  const Bytes big = block(0, makeExif(EXIF_BYTE_ORDER_MOTOROLA, false));
  const Bytes little = block(0, makeExif(EXIF_BYTE_ORDER_INTEL, true));
  // A profile is known by its length at its head and by a word at place 36.
  Bytes profile(132);
  profile[3] = 132;
  profile[8] = 2;
  for (size_t i = 0; i < 4; ++i) {
    profile[12 + i] = static_cast<uint8_t>("mntr"[i]);
    profile[16 + i] = static_cast<uint8_t>("RGB "[i]);
    profile[20 + i] = static_cast<uint8_t>("XYZ "[i]);
    profile[36 + i] = static_cast<uint8_t>("acsp"[i]);
  }
  const Bytes whole = block(1, join({{1, 1}, profile}));
  const Bytes first = block(1, join({{1, 2}, Bytes(profile.begin(), profile.begin() + 66)}));
  const Bytes second = block(1, join({{2, 2}, Bytes(profile.begin() + 66, profile.end())}));
  const std::string text = "<x:xmpmeta xmlns:x='adobe:ns:meta/'/>";
  const Bytes xmp = block(2, Bytes(text.begin(), text.end()));
  put("metadata", "exif-big-endian", big);
  put("metadata", "exif-thumbnail", little);
  put("metadata", "exif-twice", join({big, little}));
  put("metadata", "icc", whole);
  put("metadata", "icc-parts", join({first, second}));
  put("metadata", "icc-parts-swapped", join({second, first}));
  put("metadata", "icc-part-missing", second);
  put("metadata", "xmp", xmp);
  put("metadata", "all", join({little, whole, xmp, block(3, {'h', 'i'})}));
}

void makeTruths() {
  const std::string unit = "[[1,0,0],[0,1,0],[0,0,1]]";
  const auto frame = [&](const std::string& file, const std::string& clean, const std::string& more = "") {
    return R"({"file":")" + file + R"(","clean":")" + clean + R"(","homography":)" + unit + more + "}";
  };
  const auto truth = [&](const std::string& format, const std::string& frames, const std::string& grain = "0") {
    return R"({"seed":1,"width":24,"height":20,"frameFormat":")" + format +
           R"(","jpegQuality":90,"noise":{"shot":0.7,"read":4,"grain":)" + grain + R"(},"frames":[)" + frames + "]}";
  };
  const auto entry = [&](const std::string& status, const std::string& motion) {
    return R"({"status":")" + status + R"(","motion":)" + motion + "}";
  };
  const auto report = [](const std::string& base, const std::string& frames) {
    return std::string(1, '\0') + R"({"width":24,"height":20,"base":)" + base + R"(,"frames":[)" + frames + "]}";
  };
  const std::string two = truth("png", frame("a.png", "b.png") + "," + frame("b.png", "a.png"));
  put("truth", "plain", two);
  put("truth", "nv21", truth("nv21", frame("a.nv21", "a.png")));
  put("truth", "small", truth("png", frame("a.png", "s.png")));
  put("truth", "missing", truth("png", frame("a.png", "none.png")));
  put("truth", "faults",
      truth("jpg",
            frame("a.png", "b.png", R"(,"sharp":"a.png","blurred":9,"mask":"b.png","average":"c.png")") + "," +
                frame("b.png", "a.png", R"(,"foreign":true,"mask":"s.png")"),
            "0.8"));
  put("truth", "report", two + report("0", entry("merged", unit) + "," + entry("merged", unit)));
  put("truth", "cropped",
      two + report("1", entry("merged", unit) + "," + entry("merged", "[[0.9,0,1],[0,0.9,1],[0,0,1]]")));
  put("truth", "singular",
      two + report("0", entry("merged", "[[0,0,0],[0,0,0],[0,0,0]]") + "," +
                            entry("merged", "[[1e308,0,0],[0,-1e308,0],[1,1,0]]")));
  put("truth", "other-count", two + report("0", entry("merged", unit)));
  put("truth", "base-outside", two + report("2", entry("merged", unit) + "," + entry("blurred", unit)));
}

// Their inputs are numbers alone, and any bytes make a case.
void makeNumbers(const std::string& target, uint32_t count) {
  for (uint32_t i = 0; i < count; ++i) put(target, std::to_string(i), noise(24, 5000 + i));
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "make_fuzz_corpus FOLDER\n");
    return 2;
  }
  root = argv[1];
  makeApi();
  makeJpegs();
  makePngs();
#ifdef TESSALINE4_TIFF
  makeTiffs();
#endif
  makeY4ms();
  makeRaws();
  makeMetadata();
  makeTruths();
  makeNumbers("guided_filter", 200);
  makeNumbers("conversions", 400);
  return 0;
}
