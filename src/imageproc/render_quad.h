// A convex quad of a plane, filled row by row from a quad of another: the part that the tiles and the four-point form
// of the executor's warp share.
//
// An edge has the source position s(y) = s(top) + ((step (y - y(top))) >> 15) with the step per row
// (s(bottom) - s(top)) 2^15 / (y(bottom) - y(top)), cut toward zero, and its destination x likewise; a row runs in the
// same manner from its left to its right edge. For quads along the pixel grid these are whole divisions by the numbers
// of rows and columns. All coordinates are Q15; a pixel stands at its whole coordinates.
#ifndef ZVT4_IMAGEPROC_RENDER_QUAD_H_
#define ZVT4_IMAGEPROC_RENDER_QUAD_H_

#include <utility>

#include "imageproc/render_span.h"

struct RenderCorner {
  int64_t dstX;
  int64_t dstY;
  RenderPoint src;  // within 2^30
};

// In order round the quad.
struct RenderQuad {
  RenderCorner corners[4];
};

// The quad on planes of half the size.
inline RenderQuad renderHalved(const RenderQuad& quad) {
  RenderQuad half = quad;
  for (RenderCorner& corner : half.corners) {
    corner = {corner.dstX >> 1, corner.dstY >> 1, {corner.src.x >> 1, corner.src.y >> 1}};
  }
  return half;
}

// Whether the turns at all corners go one way. Corners within 2^30.
inline bool isConvex(const RenderQuad& quad) {
  bool left = false;
  bool right = false;
  for (int32_t i = 0; i < 4; ++i) {
    const RenderCorner& a = quad.corners[i];
    const RenderCorner& b = quad.corners[(i + 1) & 3];
    const RenderCorner& c = quad.corners[(i + 2) & 3];
    // Compared, not subtracted: each product may need 63 bits.
    const int64_t one = (b.dstX - a.dstX) * (c.dstY - b.dstY);
    const int64_t other = (b.dstY - a.dstY) * (c.dstX - b.dstX);
    left = left || one < other;
    right = right || one > other;
  }
  return left != right;
}

// A point of an outline: a destination coordinate and the source position that belongs to it.
struct RenderStop {
  int64_t at;
  int64_t srcX;
  int64_t srcY;
};

// value(from) to value(to) over the way from `from` to `to`, seen at `at` on that way.
class RenderSlope {
 public:
  RenderSlope(int64_t from, int64_t to, int64_t start, int64_t end)
      : from_(from), start_(start), step_(to == from ? 0 : (end - start) * kRenderOne / (to - from)) {}
  int64_t at(int64_t position) const { return start_ + ((step_ * (position - from_)) >> 15); }
  int64_t step() const { return step_; }

 private:
  int64_t from_;
  int64_t start_;
  int64_t step_;
};

struct RenderEdge {
  int64_t top;
  int64_t bottom;
  RenderSlope dstX;
  RenderSlope srcX;
  RenderSlope srcY;

  bool crosses(int64_t y) const { return y >= top && y < bottom; }
  RenderStop at(int64_t y) const { return {dstX.at(y), srcX.at(y), srcY.at(y)}; }
};

inline RenderEdge renderEdge(const RenderCorner& a, const RenderCorner& b) {
  const RenderCorner& from = a.dstY <= b.dstY ? a : b;
  const RenderCorner& to = a.dstY <= b.dstY ? b : a;
  const auto slope = [&](int64_t start, int64_t end) { return RenderSlope(from.dstY, to.dstY, start, end); };
  return {from.dstY, to.dstY, slope(from.dstX, to.dstX), slope(from.src.x, to.src.x), slope(from.src.y, to.src.y)};
}

// First pixel at or behind a coordinate.
inline int64_t renderCeil(int64_t coordinate) {
  return (coordinate + kRenderOne - 1) >> 15;
}

// The part of the quad in rows begin to end of dst.
template <typename Pixel, typename Rounding>
void renderQuad(const Image* dst, const Image* src, const RenderQuad& quad, int32_t begin, int32_t end,
                const ImageProcRenderParam& param) {
  const RenderCorner* c = quad.corners;
  const RenderEdge edges[4] = {renderEdge(c[0], c[1]), renderEdge(c[1], c[2]), renderEdge(c[2], c[3]),
                               renderEdge(c[3], c[0])};
  const auto [first, last] = std::minmax({c[0].dstY, c[1].dstY, c[2].dstY, c[3].dstY});
  const bool wellInside =
      std::all_of(c, c + 4, [&](const RenderCorner& corner) { return isWellInside(corner.src, src); });
  const auto bottom = static_cast<int32_t>(std::min<int64_t>(renderCeil(last), end));
  for (auto y = static_cast<int32_t>(std::max<int64_t>(renderCeil(first), begin)); y < bottom; ++y) {
    const int64_t rowAt = int64_t{y} * kRenderOne;
    RenderStop stops[2] = {};
    int32_t found = 0;
    for (const RenderEdge& edge : edges) {  // two of them cross a row of a convex quad
      if (found < 2 && edge.crosses(rowAt)) stops[found++] = edge.at(rowAt);
    }
    auto& [left, right] = stops;
    if (left.at > right.at) std::swap(left, right);
    const auto from = static_cast<int32_t>(std::max<int64_t>(renderCeil(left.at), 0));
    const auto to = static_cast<int32_t>(std::min<int64_t>(renderCeil(right.at), dst->width));
    if (from >= to) continue;
    const RenderSlope srcX(left.at, right.at, left.srcX, right.srcX);
    const RenderSlope srcY(left.at, right.at, left.srcY, right.srcY);
    const int64_t columnAt = int64_t{from} * kRenderOne;
    // A step that needs more than 32 bits belongs to a single pixel.
    const RenderLine line = {static_cast<int32_t>(srcX.at(columnAt)), static_cast<int32_t>(srcY.at(columnAt)),
                             static_cast<int32_t>(srcX.step()), static_cast<int32_t>(srcY.step())};
    renderRow<Pixel, Rounding>(imageRow<typename Pixel::Sample>(dst, y) + ptrdiff_t{from} * Pixel::kChannels, src, line,
                               to - from, wellInside, param);
  }
}

#endif  // ZVT4_IMAGEPROC_RENDER_QUAD_H_
