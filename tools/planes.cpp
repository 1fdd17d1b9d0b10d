#include "planes.h"

#include <cstring>

namespace tool {
namespace {

// A step that the compiler knows makes a loop of vectors.
template <size_t kFrom, size_t kTo>
void copyBySteps(const uint8_t* from, uint8_t* to, size_t count) {
  for (size_t i = 0; i < count; ++i) to[kTo * i] = from[kFrom * i];
}

}  // namespace

void copySamples(const uint8_t* from, size_t fromStep, uint8_t* to, size_t toStep, size_t count) {
  if (fromStep == 1 && toStep == 1) {
    std::memcpy(to, from, count);
  } else if (fromStep == 1 && toStep == 2) {
    copyBySteps<1, 2>(from, to, count);
  } else if (fromStep == 2 && toStep == 1) {
    copyBySteps<2, 1>(from, to, count);
  } else if (fromStep == 2 && toStep == 2) {
    copyBySteps<2, 2>(from, to, count);
  } else {
    for (size_t i = 0; i < count; ++i) to[toStep * i] = from[fromStep * i];
  }
}

void copyPlanes(const ConstPlanes& from, const Planes& to) {
  for (int32_t y = 0; y < from.height; ++y) {
    std::memcpy(to.lumaRow(y), from.lumaRow(y), static_cast<size_t>(from.width));
  }
  const auto count = static_cast<size_t>(from.chromaWidth());
  for (int32_t y = 0; y < from.chromaHeight(); ++y) {
    copySamples(from.uRow(y), from.step, to.uRow(y), to.step, count);
    copySamples(from.vRow(y), from.step, to.vRow(y), to.step, count);
  }
}

void clearChroma(const Planes& planes) {
  for (int32_t y = 0; y < planes.chromaHeight(); ++y) {
    for (size_t i = 0; i < static_cast<size_t>(planes.chromaWidth()); ++i) {
      planes.uRow(y)[planes.step * i] = 128;
      planes.vRow(y)[planes.step * i] = 128;
    }
  }
}

}  // namespace tool
