#include <cstring>

#include "filters/denoiser.h"
#include "filters/denoiser_kernels.h"
#include "parallel/pel_kernel.h"

namespace {

using namespace denoiser;

constexpr int32_t kGrid = 20;
constexpr int32_t kTiles = kGrid * kGrid;
constexpr int32_t kReach = 20;         // the farthest tap
constexpr int32_t kPassesAtOnce = 32;  // their events fit the table of Pel
// What all passes together would take of the arena; records count as on 32-bit platforms, the same everywhere.
constexpr int64_t kSpikeTaskBytes = 20 * kTiles;
constexpr int64_t kPassTaskBytes = 24 * kTiles;
constexpr int64_t kEventBytes = 4 * kTiles;
constexpr int64_t kBoundaryBytes = 2 * 4 * (kGrid + 1);

enum Stage : int32_t { STAGE_SPIKE, STAGE_LUMA, STAGE_CHROMA };

struct TileShared {
  Image* image;
  const Image* map;
  int32_t boundX[kGrid + 1];
  int32_t boundY[kGrid + 1];
  int32_t centreWeight;
  int32_t first;
  int32_t lumaStrength;
  int32_t chromaStrength0;
  int32_t chromaStrength1;
};

struct TileTask {
  const TileShared* shared;
  Stage stage;
  int32_t kind;    // of a luma pass; of a chroma pass its index
  int32_t column;  // the run's tiles: column to endColumn of a row
  int32_t endColumn;
  int32_t row;
};

// What one task covers: runs of tiles of a row, long ones for few workers. A row's tiles wait for the row above as far
// as the next run, so that workers in a pass find 20 * runs in a row / (40 + runs in a row) runs to do at a time.
struct Runs {
  int32_t tiles;  // in a run
  int32_t inRow;
  int32_t inPass;

  explicit Runs(int32_t workers) : tiles(workers < 2 ? kGrid : workers < 3 ? 4 : workers < 5 ? 2 : 1) {
    inRow = kGrid / tiles;
    inPass = inRow * kGrid;
  }
  int32_t index(int32_t pass, int32_t row, int32_t column) const {
    return pass * inPass + row * inRow + column / tiles;
  }
};

// The part of a side that tile i covers begins at boundary i.
void fillBoundaries(int32_t* bounds, int32_t side) {
  for (int32_t i = 0; i < kGrid; ++i) bounds[i] = clampInt(((((i - 1) * (side - 96)) / 18) + 48) & ~15, 0, side);
  bounds[kGrid] = side;
}

// Last tile that lies within reach behind tile i.
int32_t lastWithinReach(const int32_t* bounds, int32_t i) {
  int32_t last = i + 1 < kGrid ? i + 1 : kGrid - 1;
  while (last + 1 < kGrid && bounds[last + 1] < bounds[i + 1] + kReach) ++last;
  return last;
}

// In place, row by row: a pixel sees its left and upper neighbours already filtered.
template <bool Clamp>
void runLumaTile(const TileTask& task) {
  const TileShared& shared = *task.shared;
  const Plane<Clamp> luma(shared.image);
  const int32_t left = shared.boundX[task.column];
  const int32_t right = shared.boundX[task.column + 1];
  const LumaKind& kind = lumaKind(task.kind);
  for (int32_t y = shared.boundY[task.row]; y < shared.boundY[task.row + 1]; ++y) {
    const uint8_t* map = imageRow(shared.map, y);
    uint8_t* row = imageRow(shared.image, y);
    for (int32_t x = left; x < right; ++x) {
      row[x] = task.stage == STAGE_LUMA ? lumaMean(luma, x, y, map[x], shared.lumaStrength, kind, shared.centreWeight)
                                        : withoutDarkSpike(luma, x, y, static_cast<uint32_t>(shared.first), map[x]);
    }
  }
}

void runChromaTile(const TileTask& task) {
  const TileShared& shared = *task.shared;
  const ChromaPass pass = {chromaTaps(task.kind), shared.chromaStrength0, shared.chromaStrength1};
  chromaTileInplace(shared.image, shared.map, pass, shared.boundX[task.column], shared.boundX[task.column + 1],
                    shared.boundY[task.row], shared.boundY[task.row + 1]);
}

// Whether all taps of the tile lie inside the image. The grid keeps most tiles off the border; in small images the
// tiles behind the outer ones can still be nearer to it than the farthest tap.
bool isInside(const TileTask& task) {
  const TileShared& shared = *task.shared;
  return shared.boundX[task.column] >= kReach && shared.boundY[task.row] >= kReach &&
         shared.boundX[task.column + 1] <= shared.image->width - kReach - 1 &&
         shared.boundY[task.row + 1] <= shared.image->height - kReach - 1;
}

Status runTask(TileTask* task, const PelContext*) {
  for (; task->column < task->endColumn; ++task->column) {
    if (task->stage == STAGE_CHROMA) {
      runChromaTile(*task);
    } else if (isInside(*task)) {
      runLumaTile<false>(*task);
    } else {
      runLumaTile<true>(*task);
    }
  }
  return ZELVAN_OK;
}

constexpr PelKernel kRun = pelTask<TileTask, runTask>();

// Orders each run behind all earlier runs that it shares pixels with, so that the picture is that of the tiles filtered
// one after the other. Left neighbour and the run above at the end of the reach: with the same rule there, these stand
// for all earlier tiles of the pass within reach. The run of the previous pass at the lower right end of the reach
// stands for that pass.
int32_t dependencies(uint32_t* list, const uint32_t* events, const Runs& runs, int32_t pass, const TileTask& task) {
  int32_t n = 0;
  const int32_t reachColumn = lastWithinReach(task.shared->boundX, task.endColumn - 1);
  if (task.column > 0) list[n++] = events[runs.index(pass, task.row, task.column - 1)];
  if (task.row > 0) list[n++] = events[runs.index(pass, task.row - 1, reachColumn)];
  if (pass > 0) {
    list[n++] = events[runs.index(pass - 1, lastWithinReach(task.shared->boundY, task.row), reachColumn)];
  }
  return n;
}

struct Pass {
  Stage stage;
  int32_t kind;
};

// Runs the passes tile by tile in the caller.
void runInCaller(const TileShared& shared, const Pass* passes, int32_t count) {
  for (int32_t i = 0; i < count * kGrid; ++i) {
    const Pass& pass = passes[i / kGrid];
    TileTask task = {&shared, pass.stage, pass.kind, 0, kGrid, i % kGrid};
    runTask(&task, nullptr);
  }
}

// Runs up to kPassesAtOnce passes as one graph of tasks.
Status runPasses(Pel* pel, const TileShared& shared, const Pass* passes, int32_t count, TileTask* tasks,
                 uint32_t* events, const Runs& runs) {
  Status status = ZELVAN_OK;
  int32_t issued = 0;
  for (; issued < count * runs.inPass && status == ZELVAN_OK; ++issued) {
    const int32_t pass = issued / runs.inPass;
    const int32_t row = issued % runs.inPass / runs.inRow;
    const int32_t column = issued % runs.inRow * runs.tiles;
    TileTask* task = &tasks[issued];
    *task = {&shared, passes[pass].stage, passes[pass].kind, column, column + runs.tiles, row};
    uint32_t waits[3];
    const int32_t n = dependencies(waits, events, runs, pass, *task);
    status = Pel_enqueueTask(pel, &kRun, task, n, n > 0 ? waits : nullptr, &events[issued]);
  }
  if (issued > 0) status |= waitToEnd(pel, events[issued - 1]);  // by then the others have ended
  for (int32_t i = 0; i < issued; ++i) status |= endEvent(pel, events[i]);
  return status;
}

}  // namespace

Status Tessal4Denoiser_denoiseInplace(Pel* pel, Env* env, Image* image, const Image* map, int32_t first,
                                      const int32_t* kinds, int32_t lumaPasses, int32_t centreWeight,
                                      int32_t chromaPasses, const double* strengths) {
  const int32_t spike = first != 0 ? 1 : 0;
  const int32_t luma = lumaPasses > 0 ? lumaPasses : 0;
  const int32_t chroma = chromaPasses > 0 ? chromaPasses : 0;
  const int64_t total = int64_t{spike} + luma + chroma;
  if (total == 0) return ZELVAN_OK;
  const int64_t need =
      spike * kSpikeTaskBytes + (int64_t{luma} + chroma) * kPassTaskBytes + total * kEventBytes + kBoundaryBytes;
  if (need > Heap2_getFreeSize(&env->heap)) return ZELVAN_ERROR_NOMEM;

  TileShared shared = {};
  shared.image = image;
  shared.map = map;
  fillBoundaries(shared.boundX, image->width);
  fillBoundaries(shared.boundY, image->height);
  shared.centreWeight = clampInt(centreWeight, 0, kMaxCentreWeight);
  shared.first = first;
  const auto byteStrength = [](double v) { return clampInt(truncToInt32(v), 0, 255); };
  shared.lumaStrength = byteStrength(strengths[0]);
  shared.chromaStrength0 = byteStrength(strengths[1]);
  shared.chromaStrength1 = byteStrength(strengths[2]);

  const int32_t atOnce = static_cast<int32_t>(total < kPassesAtOnce ? total : kPassesAtOnce);
  const Runs runs(Pel_getNumberOfWorkers(pel));
  const size_t taskCount = static_cast<size_t>(atOnce * runs.inPass);
  const ScopedBlock<TileTask> tasks(env, taskCount);
  const ScopedBlock<uint32_t> events(env, taskCount);
  for (int64_t done = 0; done < total; done += atOnce) {
    Pass passes[kPassesAtOnce];
    int32_t count = 0;
    for (; count < atOnce && done + count < total; ++count) {
      const int64_t at = done + count - spike;
      if (at < 0) {
        passes[count] = {STAGE_SPIKE, 0};
      } else if (at < luma) {
        passes[count] = {STAGE_LUMA, kinds[at]};
      } else {
        const int64_t pass = at - luma;
        passes[count] = {STAGE_CHROMA, static_cast<int32_t>(pass < 6 ? pass : 6)};
      }
    }
    if (!tasks || !events) {  // the order of the tiles is the same, and so is the picture
      runInCaller(shared, passes, count);
      continue;
    }
    std::memset(events.data(), 0, taskCount * sizeof(uint32_t));
    const Status status = runPasses(pel, shared, passes, count, tasks.data(), events.data(), runs);
    if (status != ZELVAN_OK) return status;
  }
  return ZELVAN_OK;
}
