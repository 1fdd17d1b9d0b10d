#include "fine/mesh.h"

#include "base/cpu_level.h"
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

// Rows of nodes as x, y, x, y, ..; t: 0 to 2 kMeshStep, from the upper to the lower.
ALWAYS_INLINE void lineBody(MeshRow* __restrict row, const int32_t* __restrict upper, const int32_t* __restrict lower,
                            int32_t cells, int32_t t) {
  constexpr int32_t kWhole = kMeshShift + 1;
  for (int32_t k = 0; k < 2 * cells + 2; ++k) {
    // (lower - upper) t, rounded, in two parts that stay below 32 bits.
    const int32_t d = lower[k] - upper[k];
    const int32_t rest = d & ((1 << kWhole) - 1);
    row->at[k] = upper[k] + (d >> kWhole) * t + ((rest * t + kMeshStep) >> kWhole);
  }
  for (int32_t k = 0; k < 2 * cells; ++k) row->step[k] = (row->at[k + 2] - row->at[k] + kMeshStep / 2) >> kMeshShift;
}
constexpr CpuRow<lineBody> kLine;

// On the line of half pixel rows: y2 = 2 y.
void linesAt(MeshRow* row, const Mesh& mesh, int32_t i, int32_t cells, int32_t y2) {
  static_assert(sizeof(MeshNode) == 2 * sizeof(int32_t));
  const int32_t j = clampInt(y2 >> (kMeshShift + 1), 0, mesh.down - 2);
  const MeshNode* upper = mesh.nodes + j * mesh.across + i;
  kLine(row, &upper->x, &upper[mesh.across].x, cells, y2 - (j << (kMeshShift + 1)));
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

void lumaLines(MeshRow* row, const Mesh& mesh, int32_t i, int32_t cells, int32_t y) {
  linesAt(row, mesh, i, cells, 2 * y);
}

void chromaLines(MeshRow* row, const Mesh& mesh, int32_t i, int32_t cells, int32_t y) {
  linesAt(row, mesh, i, cells, 4 * y + 1);
  for (int32_t k = 0; k < 2 * cells; ++k) row->at[k] = (row->at[k] + (row->step[k] >> 1) - 0x4000) >> 1;
}

MeshNode meshPosition(const Mesh& mesh, int32_t x, int32_t y) {
  const int32_t i = clampInt(x >> kMeshShift, 0, mesh.across - 2);
  MeshRow row;
  lumaLines(&row, mesh, i, 1, y);
  const int32_t k = x - (i << kMeshShift);
  return {row.at[0] + k * row.step[0], row.at[1] + k * row.step[1]};
}

}  // namespace fine
