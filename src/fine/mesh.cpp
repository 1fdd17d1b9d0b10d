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

LatticePlace latticePlace(const ShiftField& field, double x, double y) {
  const double most = 1e6;
  const double gx = (x < 0.0 ? 0.0 : x > most ? most : x) / field.step;
  const double gy = (y < 0.0 ? 0.0 : y > most ? most : y) / field.step;
  const int32_t i = clampInt(truncToInt32(gx), 0, field.across - 2);
  const int32_t j = clampInt(truncToInt32(gy), 0, field.down - 2);
  const double tx = gx - i > 1.0 ? 1.0 : gx - i;
  const double ty = gy - j > 1.0 ? 1.0 : gy - j;
  return {j * field.across + i, {(1 - tx) * (1 - ty), tx * (1 - ty), (1 - tx) * ty, tx * ty}};
}

double shiftAt(const ShiftField& field, const double* shifts, const LatticePlace& place) {
  const double* at = shifts + place.node;
  const double* below = at + field.across;
  return at[0] * place.share[0] + at[1] * place.share[1] + (below[0] * place.share[2] + below[1] * place.share[3]);
}

void fillMesh(Mesh* mesh, const Mvec8Real& motion, const ShiftField* field, int32_t level, int32_t width,
              int32_t height, const Mvec8Real* crop) {
  mesh->across = meshNodes(width);
  mesh->down = meshNodes(height);
  const double scale = static_cast<double>(1 << level);
  for (int32_t j = 0; j < mesh->down; ++j) {
    for (int32_t i = 0; i < mesh->across; ++i) {
      const double x = (i * kMeshStep + 0.5) * scale - 0.5;
      const double y = (j * kMeshStep + 0.5) * scale - 0.5;
      double u, v;
      Mvec8Real_trans2DReal(&motion, &u, &v, x, y);
      if (field != nullptr) {
        double bx = x, by = y;
        if (crop != nullptr) Mvec8Real_trans2DReal(crop, &bx, &by, x, y);
        const LatticePlace place = latticePlace(*field, bx, by);
        u += shiftAt(*field, field->x, place);
        v += shiftAt(*field, field->y, place);
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
