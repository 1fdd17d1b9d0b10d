// What one homography does not explain of a frame's motion: near things shift against far ones, and a rolling shutter
// shifts the rows against each other. A field of shifts u on a lattice of nodes, on top of the homography H.
//
// Model: the energy of a mesh of local motions (after Liu, Yuan, Tan and Sun, "Bundled camera paths for video
// stabilization", 2013), with shifts instead of homographies and with edges that may break (Black and Anandan, "The
// robust estimation of multiple motions", 1996):
//   E(u) = sum_b rho(e_b - B_b u; k) + sum_edges rho((u_i - u_j) / s; c) + mu sum |u_i|^2
// e_b is a block's position less H's, weighed by its information matrix, B_b the bilinear interpolation at the block,
// rho(q; k) = k^2 q / (k^2 + q) of the squared length q. E is brought down by reweighted least squares, k and c
// starting wide, each round a fixed number of steps of conjugate gradients from the round before.
//
// Whether a field is needed is told by cross-validation: the cells of the lattice are coloured as a chessboard, a field
// fitted to the matches of one colour has to explain those of the other, where it says anything beyond their noise.
// Noise alone fails that, and so do blocks that went astray; then the homography stays plain.
//
// A field that is needed is sharpened: the blocks are tracked again from H + u, from the third finest level on, so that
// blocks which were beyond reach at first are found; last, small blocks draw the outlines.
//
// Shifts are in full-size pixels. Everything is done in doubles in a fixed order: the same bits on any machine.
#ifndef ZVT4_FINE_LOCAL_MOTION_H_
#define ZVT4_FINE_LOCAL_MOTION_H_

#include "fine/align.h"
#include "fine/mesh.h"

namespace fine {

inline constexpr int32_t kMostShiftNodes = 1400;

// A match as the fit sees it.
struct LocalMatch {
  LatticePlace place;
  double x, y;           // e
  double wxx, wxy, wyy;  // its information
  double weight;         // of the robust fit
  int32_t colour;        // of its cell: 0 or 1
};

struct LocalScratch {
  LocalMatch matches[kMostMatches];
  double shifts[4][kMostShiftNodes];                      // fields of the cross-validation
  double right[kMostShiftNodes], below[kMostShiftNodes];  // weights of edges
  Block small[kMostSmallBlocks];
  double solver[4][2 * kMostShiftNodes];
};

// The lattice for a picture: steps of kMeshStep times the least power of two with which kMostShiftNodes are enough.
// Its arrays are null.
ShiftField shiftLattice(int32_t width, int32_t height);

struct Evidence {
  double gain;          // share of the robust cost of matches that fields which have not seen them take away
  double significance;  // mean of what a match gains by the standard deviation of that mean
};
// field: the lattice; its arrays are not used.
Evidence localEvidence(const ShiftField& field, const Mvec8Real& motion, const Match* matches, int32_t count,
                       LocalScratch* scratch);

// The field that brings E down for these matches.
void fitShifts(ShiftField* field, const Mvec8Real& motion, const Match* matches, int32_t count, LocalScratch* scratch);

// The field on top of an accepted motion, from the matches that alignFrame left; they are overwritten. Returns whether
// one is needed; if not, field is as it was.
bool findLocalMotion(ShiftField* field, const AlignBase& base, const Pyramid& frame, const Mvec8Real& motion,
                     Match* matches, int32_t count, LocalScratch* scratch);

}  // namespace fine

#endif  // ZVT4_FINE_LOCAL_MOTION_H_
