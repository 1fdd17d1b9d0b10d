#include "fine/mesh.h"

#include "base/integer.h"
#include "base/raw_double.h"

namespace fine {
namespace {

// Positions beyond this tell no more than that they are outside.
constexpr double kMostPosition = 30000.0;

int32_t toQ15(double v) {
  const double clamped = v < -1000.0 ? -1000.0 : v > kMostPosition ? kMostPosition : v;
  return static_cast<int32_t>(RawDouble_floor(clamped * 32768.0 + 0.5));
}

double shiftAt(const ShiftField& f, const double* shifts, double x, double y) {
  const double gx = x * (f.across - 1) / f.width;
  const double gy = y * (f.down - 1) / f.height;
  const int32_t i = clampInt(truncToInt32(gx), 0, f.across - 2);
  const int32_t j = clampInt(truncToInt32(gy), 0, f.down - 2);
  const double tx = gx < 0.0 ? 0.0 : gx - i > 1.0 ? 1.0 : gx - i;
  const double ty = gy < 0.0 ? 0.0 : gy - j > 1.0 ? 1.0 : gy - j;
  const double* at = shifts + j * f.across + i;
  const double upper = at[0] + (at[1] - at[0]) * tx;
  const double lower = at[f.across] + (at[f.across + 1] - at[f.across]) * tx;
  return upper + (lower - upper) * ty;
}

// Positions at the left and the right edge of cell i on the line of half pixel rows: y2 = 2 y.
struct Edges {
  MeshNode left;
  MeshNode right;
};

Edges edgesAt(const Mesh& mesh, int32_t i, int32_t y2) {
  const int32_t j = clampInt(y2 >> (kMeshShift + 1), 0, mesh.down - 2);
  const int32_t t = y2 - (j << (kMeshShift + 1));
  const MeshNode* upper = mesh.nodes + j * mesh.across + i;
  const MeshNode* lower = upper + mesh.across;
  const auto between = [t](int32_t a, int32_t b) {
    return a + static_cast<int32_t>((int64_t{b - a} * t + kMeshStep) >> (kMeshShift + 1));
  };
  return {{between(upper[0].x, lower[0].x), between(upper[0].y, lower[0].y)},
          {between(upper[1].x, lower[1].x), between(upper[1].y, lower[1].y)}};
}

}  // namespace

void fillMesh(Mesh* mesh, const Mvec8Real& motion, const ShiftField* field, int32_t level, int32_t width,
              int32_t height) {
  mesh->across = meshNodes(width);
  mesh->down = meshNodes(height);
  const double scale = static_cast<double>(1 << level);
  for (int32_t j = 0; j < mesh->down; ++j) {
    for (int32_t i = 0; i < mesh->across; ++i) {
      const double x = (i * kMeshStep + 0.5) * scale - 0.5;
      const double y = (j * kMeshStep + 0.5) * scale - 0.5;
      double u, v;
      Mvec8Real_trans2DReal(&motion, &u, &v, x, y);
      if (field != nullptr && field->x != nullptr) {
        const double sx = shiftAt(*field, field->x, x, y);
        const double sy = shiftAt(*field, field->y, x, y);
        u += sx;
        v += sy;
      }
      mesh->nodes[j * mesh->across + i] = {toQ15((u + 0.5) / scale - 0.5), toQ15((v + 0.5) / scale - 0.5)};
    }
  }
}

MeshLine lumaLine(const Mesh& mesh, int32_t i, int32_t y) {
  const Edges e = edgesAt(mesh, i, 2 * y);
  return {e.left.x, e.left.y, (e.right.x - e.left.x + kMeshStep / 2) >> kMeshShift,
          (e.right.y - e.left.y + kMeshStep / 2) >> kMeshShift};
}

MeshLine chromaLine(const Mesh& mesh, int32_t i, int32_t y) {
  const Edges e = edgesAt(mesh, i, 4 * y + 1);
  MeshLine line = {0, 0, (e.right.x - e.left.x + kMeshStep / 2) >> kMeshShift,
                   (e.right.y - e.left.y + kMeshStep / 2) >> kMeshShift};
  line.x = (e.left.x + (line.dx >> 1) - 0x4000) >> 1;
  line.y = (e.left.y + (line.dy >> 1) - 0x4000) >> 1;
  return line;
}

MeshNode meshPosition(const Mesh& mesh, int32_t x, int32_t y) {
  const int32_t i = clampInt(x >> kMeshShift, 0, mesh.across - 2);
  const MeshLine line = lumaLine(mesh, i, y);
  const int32_t k = x - (i << kMeshShift);
  return {line.x + k * line.dx, line.y + k * line.dy};
}

}  // namespace fine
