// Planes as files of bare pixels hold them: dense rows.
#ifndef TESSALINE4_TOOLS_PACKED_PLANES_H_
#define TESSALINE4_TOOLS_PACKED_PLANES_H_

#include <algorithm>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>

#include "output_file.h"
#include "planes.h"

namespace tool {

// Reads so many bytes; throws Error where there are fewer.
using Take = std::function<void(uint8_t* to, size_t count)>;
// Calls with each of so many rows of rowBytes, which come in larger pieces.
void takeRows(const Take& take, size_t rowBytes, int32_t rows,
              const std::function<void(int32_t row, const uint8_t* bytes)>& use);
// Luma straight into place where its rows are dense.
void takeLuma(const Take& take, const Planes& planes);
// Luma, all of U, all of V.
void takePlanar(const Take& take, const Planes& planes);

// Rows that become large pieces of a file.
class StagedRows {
 public:
  explicit StagedRows(const Sink& sink) : sink_(sink) {}

  // Where the next so many bytes go.
  uint8_t* room(size_t count) {
    if (capacity_ - size_ < count) {
      flush();
      if (capacity_ < count) {
        capacity_ = std::max(count, kPiece);
        bytes_ = std::make_unique_for_overwrite<uint8_t[]>(capacity_);
      }
    }
    size_ += count;
    return bytes_.get() + size_ - count;
  }
  void addLuma(const ConstPlanes& planes);
  void addPlanar(const ConstPlanes& planes);
  // After the last row.
  void flush() {
    if (size_ != 0) sink_({bytes_.get(), size_});
    size_ = 0;
  }

 private:
  static constexpr size_t kPiece = size_t{1} << 20;
  const Sink& sink_;
  std::unique_ptr<uint8_t[]> bytes_;
  size_t size_ = 0;
  size_t capacity_ = 0;
};

}  // namespace tool

#endif  // TESSALINE4_TOOLS_PACKED_PLANES_H_
