#include "packed_planes.h"

namespace tool {
namespace {

// In the first-level cache or near it, and few calls.
constexpr size_t kPieceIn = size_t{1} << 18;

}  // namespace

void takeRows(const Take& take, size_t rowBytes, int32_t rows,
              const std::function<void(int32_t row, const uint8_t* bytes)>& use) {
  const auto atOnce =
      static_cast<int32_t>(std::clamp<size_t>(kPieceIn / rowBytes, 1, static_cast<size_t>(std::max(rows, 1))));
  const auto piece = std::make_unique_for_overwrite<uint8_t[]>(rowBytes * static_cast<size_t>(atOnce));
  for (int32_t top = 0; top < rows; top += atOnce) {
    const int32_t count = std::min(atOnce, rows - top);
    take(piece.get(), rowBytes * static_cast<size_t>(count));
    for (int32_t i = 0; i < count; ++i) use(top + i, piece.get() + rowBytes * static_cast<size_t>(i));
  }
}

void takeLuma(const Take& take, const Planes& planes) {
  const auto width = static_cast<size_t>(planes.width);
  if (planes.lumaPitch == width) return take(planes.y, width * static_cast<size_t>(planes.height));
  takeRows(take, width, planes.height,
           [&](int32_t row, const uint8_t* bytes) { std::copy_n(bytes, width, planes.lumaRow(row)); });
}

void takePlanar(const Take& take, const Planes& planes) {
  takeLuma(take, planes);
  const auto width = static_cast<size_t>(planes.chromaWidth());
  for (uint8_t* plane : {planes.u, planes.v}) {
    takeRows(take, width, planes.chromaHeight(), [&](int32_t row, const uint8_t* bytes) {
      copySamples(bytes, 1, plane + planes.chromaPitch * static_cast<size_t>(row), planes.step, width);
    });
  }
}

void StagedRows::addLuma(const ConstPlanes& planes) {
  const auto width = static_cast<size_t>(planes.width);
  for (int32_t y = 0; y < planes.height; ++y) std::copy_n(planes.lumaRow(y), width, room(width));
}

void StagedRows::addPlanar(const ConstPlanes& planes) {
  addLuma(planes);
  const auto width = static_cast<size_t>(planes.chromaWidth());
  for (const uint8_t* plane : {planes.u, planes.v}) {
    for (int32_t y = 0; y < planes.chromaHeight(); ++y) {
      copySamples(plane + planes.chromaPitch * static_cast<size_t>(y), planes.step, room(width), 1, width);
    }
  }
}

}  // namespace tool
