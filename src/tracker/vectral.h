// Vectral: measures how a frame has moved against a base frame, coarse to fine over a pyramid of luma images.
//
//   construct -> init(size) -> setBaseImage(base) -> addImage(frame), outputMvecReal(motion), addImage(..), ...
//
// The base is shrunk to level 0 and halved to resoNum levels, each with a list of feature points of its own. A point is
// never followed from level to level: what passes on is the motion. It predicts where the blocks of a level lie in the
// frame, block alignment corrects each prediction within a few pixels, and a least-squares solve turns the corrected
// positions into a better motion, which is rescaled to the next finer level.
//
// One thread drives a record; inside a call the shrinks, the detection and the block updates fork to `executor` and
// join before it returns. All memory comes from the arena of `env`. The result is the same for any number of workers.
//
// Statuses are ORed over the steps of a call, and the call goes on: only zero against nonzero has a meaning. A bad
// frame is no error but a bit in failureCode. ZELVAN_ERROR_PARAM for null records comes before ZELVAN_ERROR_STATE.
#ifndef ZVT4_TRACKER_VECTRAL_H_
#define ZVT4_TRACKER_VECTRAL_H_

#include "motion/milsm.h"
#include "tracker/vectral_fp_list.h"

// Bits of failureCode: verdicts on the last base or frame. The motion stays usable as far as it was computed.
enum VectralFailure : uint32_t {
  VECTRAL_FAIL_FEW_POINTS = 1,    // too few points found, tracked or kept as inliers
  VECTRAL_FAIL_LOW_STRENGTH = 2,  // mean strength of a level below minStrengthStat
  VECTRAL_FAIL_SOLVER = 4,        // the solver failed, or no random sample had an inlier
  VECTRAL_FAIL_COARSE = 8,        // the coarse search found nothing alike
};

enum VectralState : int32_t {
  VECTRAL_NEW = 0,
  VECTRAL_READY = 1,  // sized by Vectral_init
  VECTRAL_BASED = 2,  // has a base
};

// Solve modes; every other value is the plain solve.
enum VectralSolveMode : int32_t {
  VECTRAL_SOLVE_WEIGHTED = 1,
  VECTRAL_SOLVE_RANDOM_SAMPLE = 2,
  VECTRAL_SOLVE_TWO_PASS = 3,
  VECTRAL_SOLVE_HISTORY_WEIGHTED = 4,
  VECTRAL_SOLVE_ALL_LEVELS = 5,
};

// Settings that are read in Vectral_init: shrinkRatio, targetArea, minResoArea, lsmType, rect, fieldOfView and the
// full-resolution pair. All others are read where they are used. Images are UINT8 arrays of one record per level.
struct Vectral {
  int32_t width;  // nominal frame size
  int32_t height;
  int32_t shrinkRatio;  // from the frame to level 0; 0 or less: computed, and kept at a later init
  int32_t resoNum;      // levels, always computed
  int32_t targetArea;   // level 0 has at least this area, if a ratio of 2 or more allows it
  int32_t minResoArea;  // the coarsest level has about this area at least
  int32_t maxFeatPnt;   // per level
  int32_t lsmType;      // MILsmType of the levels
  int32_t resetMvecPerFrame;
  int32_t solveMode;
  int32_t coarseMode;  // below 0: tracks all levels; 0: all but the coarsest; above: the coarsest only gives a shift
  int32_t blockType;
  int32_t coarseChained;  // the coarse search compares with the frame before, not with the base
  ImageRect rect;         // used part of the frame; an empty one becomes the whole
  int32_t coarseRange;    // Q15, radius of the coarse search as a share of the smaller side
  int32_t blockRange[2];  // alignment radius in pixels: inverse compositional blocks, block matching
  Image* baseImages;
  Image* curImages;
  Image prevCoarseImage;
  MILsm* lsms;
  double fieldOfView;  // degrees, diagonal
  int32_t coarseLimit;
  int32_t minStrengthStat;
  int32_t state;  // VectralState
  int32_t failureEnabled;
  uint32_t failureCode;
  int32_t* levelStats;  // per level: tracked share of all, tracked or inlier share of valid (Q15), mean strength (x128)
  VectralFPList* fpLists;
  uint32_t randomSeed;
  Mvec8Real mvec;          // base to frame, at level 0 scale
  int32_t fullResEnabled;  // tracks a further list on the unshrunk frame
  int32_t fullResLsmType;
  int32_t fullResValid;
  VectralFPList fullResFpList;
  MILsm fullResLsm;
  Mvec8Real fullResMvec;  // with its rotation angles
  int32_t fullResBlockRange[2];
  int32_t normalizeBase;  // stretches the contrast of level 0, unless lutMode
  int32_t lutMode;        // levels keep their pixels; blocks see the frame through `lut`
  int32_t lutMean;
  int32_t lutStddev;
  int32_t lut[256];
  int32_t externalPyramid;  // a base without image: level 0 is in place already
  ParallelExecutor* executor;
  Mvec8Real* predictedMvecs;  // motion entering each level
  Mvec8Real* resultMvecs;     // motion leaving each level
  double coarseShiftX;
  double coarseShiftY;
  double inlierRatioScale;
  int32_t coarseBandpass;  // the coarsest level becomes an INT32 band-pass image
  int32_t inlierLimit;     // squared pixels, of the two-pass solve
  void* lensContext;       // not null: positions pass through the lens functions
  VectralLensFunction lensUndistort;
  VectralLensFunction lensDistort;
  Env* env;
};

extern "C" {
// construct_Vectral sets the defaults and takes no memory; mvec starts as identity, so that a tracker that only loads
// feature data can go on from there. Vectral_memClear gives back all that Vectral_init and later calls took, on a
// partly built record too; the state stays. destruct_Vectral also zeroes the record.
Status construct_Vectral(Vectral* self, Env* env) ZVT4_NAME(construct_Vectral);
Status destruct_Vectral(Vectral* self) ZVT4_NAME(destruct_Vectral);
Status Vectral_memClear(Vectral* self) ZVT4_NAME(Vectral_memClear);

// Builds everything for a frame size, after a Vectral_memClear.
// ZELVAN_ERROR_PARAM, the record cleared and the state as it was: a frame so small that not one level reaches
// minResoArea. ZELVAN_ERROR_NOMEM: likewise. Other statuses come from single levels and leave a usable record.
Status Vectral_init(Vectral* self, int32_t width, int32_t height) ZVT4_NAME(Vectral_init);

// The pyramid, point lists and blocks of the base; motions start from identity again. With a null image the levels are
// taken as they stand, and with externalPyramid all but level 0 are built from it.
// ZELVAN_ERROR_STATE: not initialised, or no pixels in level 0.
Status Vectral_setBaseImage(Vectral* self, const Image* image) ZVT4_NAME(Vectral_setBaseImage);

// Tracks a frame; with a null image, the frame that curImages holds. A frame of another size than that of Vectral_init
// is shrunk by the ratio that makes its width match level 0.
// ZELVAN_ERROR_STATE: no base. ZELVAN_ERROR_UNSUPPORTED: the full-resolution stage in VECTRAL_SOLVE_ALL_LEVELS, which
// is then left out; always in VECTRAL_SOLVE_RANDOM_SAMPLE.
Status Vectral_addImage(Vectral* self, const Image* image) ZVT4_NAME(Vectral_addImage);

// images[0] is given; contrast, the levels below it, and the special form of the coarsest one.
//   coarseBandpass 0, coarseMode not 0: local contrast (ImageUint8_calcLocalY)
//   coarseBandpass not 0: INT32, a 9x9 Gaussian of the next finer level, times 81, minus its 7x7 Gaussian mean
// ZELVAN_ERROR_UNSUPPORTED: coarseBandpass on a single level.
Status Vectral_buildPyramid(Vectral* self, Image* images, int32_t levels) ZVT4_NAME(Vectral_buildPyramid);

// Finds a pure shift between two images of the coarsest level, UINT8 or INT32, and adds it to motion. Candidates stand
// in a square spiral round the predicted shift; the one with the least mean absolute difference over the overlap wins,
// the first among equals. Products of sums and areas are compared in 32 bits and wrap.
Status Vectral_coarseSearch(Vectral* self, Mvec8Real* motion, const Image* a, const Image* b)
    ZVT4_NAME(Vectral_coarseSearch);

// The last motion: nine Q15 numbers at level 0 scale, or the matrix at the scale of the frame.
Status Vectral_outputMvec(Vectral* self, int32_t* out) ZVT4_NAME(Vectral_outputMvec);
Status Vectral_outputMvecReal(Vectral* self, Mvec8Real* out) ZVT4_NAME(Vectral_outputMvecReal);
// Sets the last motion, at the scale of the frame, and the coarsest level of the last frame if an image is given.
Status Vectral_setState(Vectral* self, const Image* image, const Mvec8Real* mvec) ZVT4_NAME(Vectral_setState);
Status Vectral_getFailureCode(Vectral* self, uint32_t* out) ZVT4_NAME(Vectral_getFailureCode);

// The lists of the base as a stream of 32-bit integers in the machine's byte order and packed blocks:
//   levels, per level {points, blocks}, full-resolution flag, {points, blocks} if set, image flag, pixels if set
// with the pixels being the w*h bytes of the coarsest base level. The size is rounded up to a multiple of 4, the
// written bytes are not. Loading trusts the stream but for the counts: levels above resoNum and negative numbers are
// refused with ZELVAN_ERROR_PARAM. Failures of single lists are not reported.
Status Vectral_getFeatDataSize(Vectral* self, int32_t* outSize, int32_t withImage) ZVT4_NAME(Vectral_getFeatDataSize);
Status Vectral_dumpFeatData(Vectral* self, void* buffer, int32_t withImage) ZVT4_NAME(Vectral_dumpFeatData);
Status Vectral_loadFeatData(Vectral* self, const void* buffer) ZVT4_NAME(Vectral_loadFeatData);

// One more solve, by any MILsm variant, on the inliers of level 0; out is untouched when the solver fails. The solver
// lives for the call only, whatever comes of it.
Status Vectral_recalcMvec(Vectral* self, Mvec8Real* out, int32_t type) ZVT4_NAME(Vectral_recalcMvec);

// How well a level of the frame, warped by motion, fits that of the base: the variance of their difference per cell of
// cell x cell pixels (cell = 2^shift), averaged over all samples; 0x40000000 when no sample lies inside the frame.
// The motion is evaluated at the corners of the cells and interpolated between them. Incomplete cells at the right and
// bottom are left out. Scratch: one row of corners.
Status Vectral_calcYDiff(Vectral* self, int32_t* out, const Mvec8Real* motion, int32_t level, int32_t cell,
                         int32_t shift) ZVT4_NAME(Vectral_calcYDiff);

// The solves of one level. Each clears lsm, adds the points of the list whose current position is tracked, from the
// last to the first, starts from motion and leaves the result there; a failure of the solver sets VECTRAL_FAIL_SOLVER.
//   plain            integer positions, weight 1
//   weighted         Q15 positions, strength as weight; all points become inliers
//   random sample    the best of 256 solves on 16 random points, by the points within a pixel
//   two-pass         weighted by strength, then again with those points that fit the first result
//   history          positions to 1/32 pixel, weight by the residuals of earlier frames
//   all levels       two passes over the points of this level and of all coarser ones but the last
Status Vectral_solvePlain(Vectral* self, Mvec8Real* motion, VectralFPList* list, MILsm* lsm)
    ZVT4_NAME(Vectral_solvePlain);
Status Vectral_solveWeighted(Vectral* self, Mvec8Real* motion, VectralFPList* list, MILsm* lsm)
    ZVT4_NAME(Vectral_solveWeighted);
Status Vectral_solveRandomSample(Vectral* self, Mvec8Real* motion, VectralFPList* list, MILsm* lsm)
    ZVT4_NAME(Vectral_solveRandomSample);
Status Vectral_solveTwoPass(Vectral* self, Mvec8Real* motion, VectralFPList* list, int32_t width, int32_t height,
                            MILsm* lsm) ZVT4_NAME(Vectral_solveTwoPass);
Status Vectral_solveHistoryWeighted(Vectral* self, Mvec8Real* motion, VectralFPList* list, MILsm* lsm)
    ZVT4_NAME(Vectral_solveHistoryWeighted);
Status Vectral_solveAllLevels(Vectral* self, Mvec8Real* motion, VectralFPList* list, MILsm* lsm)
    ZVT4_NAME(Vectral_solveAllLevels);
}

// Runs the solve of solveMode. width and height are those of the image that the list was tracked on.
Status vectralSolve(Vectral* self, Mvec8Real* motion, VectralFPList* list, int32_t width, int32_t height, MILsm* lsm);

#endif  // ZVT4_TRACKER_VECTRAL_H_
