// Where the pixels of the result lie in a frame: positions on a lattice of nodes, in between bilinear.
//
// A node stands at every kMeshStep-th pixel of the result in both directions; positions are Q15 pixels of the frame.
// What a homography bends within a cell is below 1/100 pixel for hands' motions. A field of local shifts adds to it.
//
// A row of the result passes through cells; in each its samples stand on a line: position of the first one and step,
// both Q15. Chroma samples stand in the middle of their 2x2 luma pixels, so that chroma sample c is luma position 2c +
// 0.5, and a position p of the frame is chroma position (p - 0.5) / 2; the step is that of luma.
#ifndef ZVT4_FINE_MESH_H_
#define ZVT4_FINE_MESH_H_

#include "motion/mvec8_real.h"

namespace fine {

inline constexpr int32_t kMeshShift = 5;
inline constexpr int32_t kMeshStep = 1 << kMeshShift;

struct MeshNode {
  int32_t x;
  int32_t y;
};

struct Mesh {
  int32_t across;  // nodes
  int32_t down;
  MeshNode* nodes;
};

// Lines of cells beside each other: x, then y of each.
inline constexpr int32_t kMeshRowCells = 32;
struct MeshRow {
  int32_t at[2 * kMeshRowCells + 2];
  int32_t step[2 * kMeshRowCells];
};

constexpr int32_t meshNodes(int32_t side) {
  return (side + kMeshStep - 1) / kMeshStep + 1;
}

// Shifts on top of a homography, in full-size pixels, on a lattice over the base: node (i, j) stands at (i step, j
// step), in between bilinear; at least 2 x 2 nodes.
struct ShiftField {
  int32_t across;
  int32_t down;
  int32_t step;
  double* x;
  double* y;
};

// A place on the lattice: four nodes from the index on, in rows, and what each counts for. Outside, the nearest.
struct LatticePlace {
  int32_t node;
  double share[4];
};
LatticePlace latticePlace(const ShiftField& field, double x, double y);
// What node and share make of shifts: one of the field's arrays.
double shiftAt(const ShiftField& field, const double* shifts, const LatticePlace& place);

// The mesh of the pixels of level k of the result, in pixels of level k of the frame. width, height: of that level.
// motion: result to frame. field: null for none, else crop leads from the result to the base, where the field is at
// home; a null crop is the identity. mesh: nodes has room for meshNodes(width) x meshNodes(height).
void fillMesh(Mesh* mesh, const Mvec8Real& motion, const ShiftField* field, int32_t level, int32_t width,
              int32_t height, const Mvec8Real* crop = nullptr);

// Luma row y in the cells from i on, at most kMeshRowCells of them; a cell is kMeshStep samples wide.
void lumaLines(MeshRow* row, const Mesh& mesh, int32_t i, int32_t cells, int32_t y);
// The same of chroma row y, with kMeshStep / 2 samples in a cell.
void chromaLines(MeshRow* row, const Mesh& mesh, int32_t i, int32_t cells, int32_t y);
// Full-size position of luma pixel (x, y), for coarse tests.
MeshNode meshPosition(const Mesh& mesh, int32_t x, int32_t y);

}  // namespace fine

#endif  // ZVT4_FINE_MESH_H_
