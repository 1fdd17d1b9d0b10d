#include <cstring>

#include "colour.h"
#include "exif.h"
#include "image_file_kinds.h"

#ifdef TESSALINE4_HEIF
#include <libheif/heif.h>
#endif

namespace tool {

bool isHeif(ByteView beginning) {
  if (beginning.size() < kHeifMagic || std::memcmp(beginning.data() + 4, "ftyp", 4) != 0) return false;
  for (const char* brand : {"heic", "heix", "heim", "heis", "hevc", "hevx", "mif1", "msf1", "avif", "avis"}) {
    if (std::memcmp(beginning.data() + 8, brand, 4) == 0) return true;
  }
  return false;
}

#ifdef TESSALINE4_HEIF

namespace {

template <typename T, auto Release>
struct CallsRelease {
  void operator()(T* held) const { Release(held); }
};
using Context = std::unique_ptr<heif_context, CallsRelease<heif_context, heif_context_free>>;
using Handle = std::unique_ptr<heif_image_handle, CallsRelease<const heif_image_handle, heif_image_handle_release>>;
using Image = std::unique_ptr<heif_image, CallsRelease<const heif_image, heif_image_release>>;

class HeifDecoder : public ImageDecoder {
 public:
  HeifDecoder(const std::string& name, FileBytes bytes) : ImageDecoder(name, 0, 0), bytes_(std::move(bytes)) {
    context_.reset(heif_context_alloc());
    if (context_ == nullptr) throw std::bad_alloc();
    check(heif_context_read_from_memory_without_copy(context_.get(), bytes_.data(), bytes_.size(), nullptr));
    heif_image_handle* handle = nullptr;
    check(heif_context_get_primary_image_handle(context_.get(), &handle));
    handle_.reset(handle);
    width_ = heif_image_handle_get_width(handle);
    height_ = heif_image_handle_get_height(handle);
    checkPictureSize(name, width_, height_);
    if (const int bits = heif_image_handle_get_luma_bits_per_pixel(handle); bits > 8) {
      throw Error(name, std::to_string(bits) + " bits a sample; only pictures of 8 are read");
    }
    readMetadata();
  }

  void decode(const Planes& planes) override {
    if (isOurMatrix()) {
      const Image image = decoded(heif_colorspace_YCbCr, heif_chroma_420);
      putPlane(
          image.get(), heif_channel_Y, planes.width, planes.height, [&](int32_t row) { return planes.lumaRow(row); },
          1);
      putPlane(
          image.get(), heif_channel_Cb, planes.chromaWidth(), planes.chromaHeight(),
          [&](int32_t row) { return planes.uRow(row); }, planes.step);
      putPlane(
          image.get(), heif_channel_Cr, planes.chromaWidth(), planes.chromaHeight(),
          [&](int32_t row) { return planes.vRow(row); }, planes.step);
      return;
    }
    const Image image = decoded(heif_colorspace_RGB, heif_chroma_interleaved_RGB);
    size_t pitch = 0;
    const uint8_t* pixels = plane(image.get(), heif_channel_interleaved, planes.width, planes.height, &pitch);
    for (int32_t y = 0; y < planes.height; y += 2) {
      const uint8_t* upper = pixels + pitch * static_cast<size_t>(y);
      putRgbRows(planes, y, upper, y + 1 < planes.height ? upper + pitch : upper);
    }
  }

 private:
  void check(const heif_error& error) const {
    if (error.code == heif_error_Ok) return;
    if (error.code == heif_error_Memory_allocation_error) throw std::bad_alloc();
    throw Error(name_, std::string("damaged, or of a kind that is not read: ") + error.message);
  }

  // The matrix of BT.601, or one that is not told. Others go through RGB.
  bool isOurMatrix() const {
    heif_color_profile_nclx* profile = nullptr;
    if (heif_image_handle_get_nclx_color_profile(handle_.get(), &profile).code != heif_error_Ok) return true;
    const auto matrix = profile->matrix_coefficients;
    heif_nclx_color_profile_free(profile);
    return matrix == heif_matrix_coefficients_unspecified ||
           matrix == heif_matrix_coefficients_ITU_R_BT_470_6_System_B_G ||
           matrix == heif_matrix_coefficients_ITU_R_BT_601_6;
  }

  // Turned, cropped and of full range: the decoder sees to that.
  Image decoded(heif_colorspace space, heif_chroma chroma) const {
    heif_image* image = nullptr;
    check(heif_decode_image(handle_.get(), &image, space, chroma, nullptr));
    return Image(image);
  }

  const uint8_t* plane(const heif_image* image, heif_channel channel, int32_t width, int32_t height,
                       size_t* pitch) const {
    int rowBytes = 0;
    const uint8_t* samples = heif_image_get_plane_readonly(image, channel, &rowBytes);
    if (samples == nullptr || heif_image_get_width(image, channel) != width ||
        heif_image_get_height(image, channel) != height) {
      throw Error(name_, "damaged: its picture is not of the size that it tells");
    }
    *pitch = static_cast<size_t>(rowBytes);
    return samples;
  }

  template <typename RowOf>
  void putPlane(const heif_image* image, heif_channel channel, int32_t width, int32_t height, const RowOf& rowOf,
                size_t step) const {
    size_t pitch = 0;
    const uint8_t* samples = plane(image, channel, width, height, &pitch);
    for (int32_t row = 0; row < height; ++row) {
      copySamples(samples + pitch * static_cast<size_t>(row), 1, rowOf(row), step, static_cast<size_t>(width));
    }
  }

  Bytes block(heif_item_id id) const {
    Bytes bytes(heif_image_handle_get_metadata_size(handle_.get(), id));
    if (!bytes.empty()) check(heif_image_handle_get_metadata(handle_.get(), id, bytes.data()));
    return bytes;
  }

  void readMetadata() {
    std::vector<heif_item_id> ids(
        static_cast<size_t>(heif_image_handle_get_number_of_metadata_blocks(handle_.get(), nullptr)));
    heif_image_handle_get_list_of_metadata_block_IDs(handle_.get(), nullptr, ids.data(), static_cast<int>(ids.size()));
    for (const heif_item_id id : ids) {
      const std::string type = heif_image_handle_get_metadata_type(handle_.get(), id);
      const std::string content = heif_image_handle_get_metadata_content_type(handle_.get(), id);
      if (type == "Exif" && metadata_.exif.empty()) {
        // Four bytes tell how far behind them the block begins.
        const Bytes bytes = block(id);
        if (bytes.size() < 4) continue;
        const size_t skip = size_t{bytes[0]} << 24 | size_t{bytes[1]} << 16 | size_t{bytes[2]} << 8 | bytes[3];
        if (skip > bytes.size() - 4) continue;
        metadata_.exif = exifOriented({bytes.begin() + static_cast<ptrdiff_t>(4 + skip), bytes.end()}, 1);
      } else if (content == "application/rdf+xml" && metadata_.xmp.empty()) {
        const Bytes bytes = block(id);
        takeXmp(std::string(bytes.begin(), bytes.end()), {}, &metadata_);
      }
    }
    if (const size_t size = heif_image_handle_get_raw_color_profile_size(handle_.get()); size != 0) {
      Bytes profile(size);
      check(heif_image_handle_get_raw_color_profile(handle_.get(), profile.data()));
      takeIcc(std::move(profile), &metadata_);
    }
  }

  FileBytes bytes_;
  Context context_;
  Handle handle_;
};

}  // namespace

bool readsHeif() {
  return true;
}

Decoder openHeif(const std::string& name, FileBytes bytes) {
  return std::make_unique<HeifDecoder>(name, std::move(bytes));
}

#else

bool readsHeif() {
  return false;
}

Decoder openHeif(const std::string& name, FileBytes) {
  throw Error(name, "a HEIC or AVIF file; this tool was built without libheif, which reads them");
}

#endif

}  // namespace tool
