#include "fine/burst.h"

#include <algorithm>

#include "base/integer.h"
#include "base/raw_double.h"
#include "base/scoped.h"
#include "filters/denoiser.h"
#include "filters/sharpen.h"
#include "parallel/pel_kernel.h"

namespace fine {
namespace {

// By the ratio of a frame's sharpness to the base's: below kBlurRatio it is refused, from kSoft to kSharp its pixels
// count more and more, so that a blurred frame does not soften the result.
constexpr double kBlurRatio = 0.35;
constexpr double kSoft = 0.5;
constexpr double kSharp = 0.9;
constexpr int32_t kLeastStrength = 8;
constexpr float kLeastShare = 0.08f;  // a frame that adds less is refused

// False for a frame that could not be taken in.
bool isPresent(const FrameRecord& frame) {
  return frame.pyramid.count > 0;
}

struct AlignJob {
  Burst* burst;
  const AlignBase* base;
  Match* matches;  // kMostMatches a frame
  int32_t baseId;
};

Status alignOne(AlignJob* job, int32_t id, const PelContext*) {
  FrameRecord& frame = job->burst->frames[id];
  Match* matches = job->matches + static_cast<ptrdiff_t>(id) * kMostMatches;
  if (id != job->baseId && isPresent(frame))
    alignFrame(&frame.alignment, *job->base, frame.pyramid, nullptr, 0, matches);
  return ZELVAN_OK;
}

// A pointer to the field of a frame that has one.
const ShiftField* fieldOf(const FrameRecord& frame) {
  return frame.bent != 0 ? &frame.field : nullptr;
}

// Local motion of an accepted frame, from the matches that aligned it.
Status bendOne(AlignJob* job, int32_t id, const PelContext*) {
  FrameRecord& frame = job->burst->frames[id];
  frame.bent = 0;
  if (id == job->baseId || frame.alignment.verdict != ALIGNED) return ZELVAN_OK;
  const ScopedBlock<LocalScratch> scratch(job->burst->env, 1);
  if (!scratch) return ZELVAN_ERROR_NOMEM;
  Match* matches = job->matches + static_cast<ptrdiff_t>(id) * kMostMatches;
  frame.bent = findLocalMotion(&frame.field, *job->base, frame.pyramid, frame.alignment.motion, matches,
                               frame.alignment.matches, scratch.data())
                   ? 1
                   : 0;
  return ZELVAN_OK;
}

// Of the accepted frames; 0 without any.
double medianCornerSigma(const Burst& burst, int32_t baseId) {
  double sigmas[kMostFrames];
  int32_t count = 0;
  for (int32_t i = 0; i < burst.added; ++i) {
    const Alignment& a = burst.frames[i].alignment;
    if (i == baseId || a.verdict != ALIGNED) continue;
    int32_t at = count++;
    for (; at > 0 && sigmas[at - 1] > a.quality.cornerSigma; --at) sigmas[at] = sigmas[at - 1];
    sigmas[at] = a.quality.cornerSigma;
  }
  return count > 0 ? sigmas[count / 2] : 0.0;
}

// All frames against a base. Returns how many are accepted.
Status alignAll(Burst* burst, int32_t baseId, int32_t* accepted) {
  Env* env = burst->env;
  const ScopedBlock<Block> blocks(env, static_cast<size_t>(kMostBlocks) * kMostLevels);
  const ScopedBlock<CoarseBase> coarse(env, 1);
  const ScopedBlock<Match> matches(env, static_cast<size_t>(kMostMatches) * kMostFrames);
  if (!blocks || !coarse || !matches) return ZELVAN_ERROR_NOMEM;
  AlignBase base;
  if (const Status s = prepareBase(&base, env, &burst->frames[baseId].pyramid, blocks.data(), coarse.data());
      s != ZELVAN_OK) {
    return s;
  }
  Alignment* own = &burst->frames[baseId].alignment;
  *own = {};
  Mvec8Real_setIdentity(&own->motion);
  AlignJob job = {burst, &base, matches.data(), baseId};
  static constexpr PelKernel kKernel = pelIndexed<AlignJob, alignOne>();
  Status status = executeToEnd(burst->pel, &kKernel, &job, burst->added);
  *accepted = 0;
  // A frame that failed, or is far less certain than the others, is tried again from where its neighbours in time lie.
  const double usual = medianCornerSigma(*burst, baseId);
  const double doubtful = 1.6 * usual;
  for (int32_t i = 0; i < burst->added; ++i) {
    Alignment& first = burst->frames[i].alignment;
    if (i == baseId || !isPresent(burst->frames[i])) continue;
    if (first.verdict == ALIGNED && first.quality.cornerSigma <= doubtful) continue;
    Mvec8Real proposals[2];
    int32_t count = 0;
    for (int32_t step = -1; step <= 1; step += 2) {
      for (int32_t j = i + step; j >= 0 && j < burst->added; j += step) {
        const Alignment& other = burst->frames[j].alignment;
        if (j == baseId || other.verdict != ALIGNED || other.quality.cornerSigma > doubtful) continue;
        proposals[count++] = other.motion;
        break;
      }
    }
    if (count == 0) continue;
    Alignment again;
    Match* spare = job.matches + static_cast<ptrdiff_t>(baseId) * kMostMatches;
    alignFrame(&again, base, burst->frames[i].pyramid, proposals, count, spare);
    if (again.verdict == ALIGNED &&
        (first.verdict != ALIGNED || again.quality.cornerSigma < first.quality.cornerSigma)) {
      first = again;
      std::copy(spare, spare + again.matches, job.matches + static_cast<ptrdiff_t>(i) * kMostMatches);
    }
    // Alone with its doubts: some other place looked right to it.
    if (first.verdict == ALIGNED && first.quality.cornerSigma > 2.5 * usual) first.verdict = NOT_DETERMINED;
  }
  for (int32_t i = 0; i < burst->added; ++i) *accepted += i != baseId && burst->frames[i].alignment.verdict == ALIGNED;
  if (status != ZELVAN_OK) return status;
  static constexpr PelKernel kBend = pelIndexed<AlignJob, bendOne>();
  status = executeToEnd(burst->pel, &kBend, &job, burst->added);
  return status;
}

Status placeFields(Burst* burst) {
  const ShiftField lattice = shiftLattice(burst->width, burst->height);
  const size_t nodes = static_cast<size_t>(lattice.across) * static_cast<size_t>(lattice.down);
  burst->shifts = static_cast<double*>(
      Heap2_malloc(&burst->env->heap, static_cast<uint32_t>(2 * nodes * kMostFrames * sizeof(double))));
  if (burst->shifts == nullptr) return ZELVAN_ERROR_NOMEM;
  for (size_t i = 0; i < kMostFrames; ++i) {
    ShiftField& field = burst->frames[i].field;
    field = lattice;
    field.x = burst->shifts + 2 * i * nodes;
    field.y = field.x + nodes;
  }
  return ZELVAN_OK;
}

// Sharpest first, the earlier one on a tie. A frame that is not there is none.
void rank(Burst* burst) {
  burst->ranked = 0;
  for (int32_t i = 0; i < burst->added; ++i) {
    FrameRecord& frame = burst->frames[i];
    if (!isPresent(frame)) {
      frame.alignment.verdict = FEW_BLOCKS;
      Mvec8Real_setIdentity(&frame.alignment.motion);
      frame.status = NOT_USED;
      continue;
    }
    int32_t at = burst->ranked;
    if (burst->settings.sorting != 0) {
      while (at > 0 && burst->frames[burst->order[at - 1]].score < frame.score) --at;
    }
    std::copy_backward(burst->order + at, burst->order + burst->ranked, burst->order + burst->ranked + 1);
    burst->order[at] = i;
    ++burst->ranked;
  }
}

Status chooseBase(Burst* burst) {
  int32_t best = burst->order[0];
  int32_t bestAccepted = -1;
  int32_t last = -1;
  for (int32_t k = 0; k < burst->ranked; ++k) {
    int32_t accepted = 0;
    last = burst->order[k];
    if (const Status s = alignAll(burst, last, &accepted); s != ZELVAN_OK) return s;
    if (accepted > bestAccepted) {
      bestAccepted = accepted;
      best = last;
    }
    if (2 * accepted >= burst->ranked - 1 || burst->settings.sorting == 0) break;
  }
  if (best != last) {
    int32_t accepted = 0;
    if (const Status s = alignAll(burst, best, &accepted); s != ZELVAN_OK) return s;
  }
  // The base leads; the others keep their order.
  int32_t* at = std::find(burst->order, burst->order + burst->ranked, best);
  std::rotate(burst->order, at, at + 1);
  return ZELVAN_OK;
}

// The upright rectangle within the image of the picture under a motion, within the picture.
Part shownBy(const Mvec8Real& motion, int32_t width, int32_t height) {
  double x[4], y[4];
  for (int32_t i = 0; i < 4; ++i) Mvec8Real_trans2DReal(&motion, &x[i], &y[i], i % 2 * width, i / 2 * height);
  const double w = width;
  const double h = height;
  return {truncToInt32(std::max(0.0, std::max(x[0], x[2]))), truncToInt32(std::max(0.0, std::max(y[0], y[1]))),
          truncToInt32(std::min(w, std::min(x[1], x[3]))), truncToInt32(std::min(h, std::min(y[2], y[3])))};
}

// The part of the base that all merged frames show, as a scaled copy of the whole: its inscribed rectangle of the
// frame's shape, about its middle.
void chooseCrop(Burst* burst) {
  const double w = burst->width;
  const double h = burst->height;
  double left = 0.0, top = 0.0, right = w, bottom = h;
  for (int32_t k = 1; k < burst->ranked; ++k) {
    const FrameRecord& frame = burst->frames[burst->order[k]];
    if (frame.status != MERGED) continue;
    Mvec8Real inverse;
    Mvec8Real_inv(&inverse, &frame.alignment.motion);
    double x[4], y[4];
    for (int32_t i = 0; i < 4; ++i) Mvec8Real_trans2DReal(&inverse, &x[i], &y[i], i % 2 * w, i / 2 * h);
    left = std::max(left, std::max(x[0], x[2]));
    right = std::min(right, std::min(x[1], x[3]));
    top = std::max(top, std::max(y[0], y[1]));
    bottom = std::min(bottom, std::min(y[2], y[3]));
  }
  const double r = std::min((right - left) / w, (bottom - top) / h);
  if (!(r > 0.1 && r < 1.0)) return;
  burst->cropped = 1;
  burst->crop = {{r, 0, 0.5 * (left + right - r * w), 0, r, 0.5 * (top + bottom - r * h), 0, 0, 1}, {}};
}

// The base on the result's grid at the level of the maps.
Status makeMapBase(Burst* burst) {
  const FrameRecord& base = burst->frames[burst->order[0]];
  const Image& luma = base.pyramid.level[kMapLevel];
  const Image& colour = base.pyramid.colour;
  if (burst->cropped == 0) {
    const Status status = Image_initSubImage(&burst->mapLuma, &luma, 0, 0, luma.width, luma.height);
    return status != ZELVAN_OK ? status
                               : Image_initSubImage(&burst->mapColour, &colour, 0, 0, colour.width, colour.height);
  }
  Status status = Image_init(&burst->mapLuma, luma.width, luma.height, nullptr, IMAGE_UINT8);
  if (status == ZELVAN_OK) status = Image_init(&burst->mapColour, colour.width, colour.height, nullptr, IMAGE_UINT88);
  if (status != ZELVAN_OK) return status;
  const size_t count = static_cast<size_t>(meshNodes(luma.width)) * static_cast<size_t>(meshNodes(luma.height));
  const ScopedBlock<MeshNode> nodes(burst->env, count);
  const ScopedBlock<int16_t> row(burst->env, 2 * static_cast<size_t>(luma.width) + 2 * kSampleSlack);
  if (!nodes || !row) return ZELVAN_ERROR_NOMEM;
  Mesh mesh = {0, 0, nodes.data()};
  fillMesh(&mesh, burst->crop, nullptr, kMapLevel, luma.width, luma.height);
  for (int32_t y = 0; y < luma.height; ++y) {
    for (const auto& [from, to] : {std::pair{&luma, &burst->mapLuma}, std::pair{&colour, &burst->mapColour}}) {
      sampleRow(row.data(), *from, mesh, y, luma.width);
      const int32_t bytes = from == &luma ? luma.width : 2 * luma.width;
      for (int32_t x = 0; x < bytes; ++x) {
        imageRow(to, y)[x] = clampByte((row[static_cast<size_t>(x)] + 8192 + 32) >> 6);
      }
    }
  }
  return ZELVAN_OK;
}

struct WeightJob {
  Burst* burst;
  const WeightBase* base;
  Status status[kMostFrames];
};

Status weighFrame(Burst* b, const WeightBase& base, int32_t k) {
  FrameRecord& frame = b->frames[b->order[k]];
  if (k == 0 || frame.status != MERGED) return ZELVAN_OK;
  const Image& map = b->mapLuma;
  const ScopedBlock<MeshNode> nodes(
      b->env, static_cast<size_t>(meshNodes(map.width)) * static_cast<size_t>(meshNodes(map.height)));
  if (!nodes) return ZELVAN_ERROR_NOMEM;
  Mesh mesh = {0, 0, nodes.data()};
  fillMesh(&mesh, resultMotion(*b, b->order[k]), fieldOf(frame), kMapLevel, map.width, map.height, &b->crop);
  const WeightInput input = {&base, &frame.pyramid, &mesh, b->settings.strictness};
  return makeWeights(&frame.weights, &frame.drift, &frame.share, b->env, input);
}

Status weighOne(WeightJob* job, int32_t k, const PelContext*) {
  job->status[k] = weighFrame(job->burst, *job->base, k);
  return job->status[k];
}

Status measureNoise(Burst* burst) {
  Env* env = burst->env;
  const FrameRecord& base = burst->frames[burst->order[0]];
  const Image& map = base.pyramid.level[kMapLevel];
  NoisePair pairs[kMostNoisePairs];
  Mesh mapMeshes[kMostNoisePairs];
  const size_t mapNodes = static_cast<size_t>(meshNodes(map.width)) * static_cast<size_t>(meshNodes(map.height));
  const ScopedBlock<MeshNode> nodes(env, kMostNoisePairs * mapNodes);
  if (!nodes) return ZELVAN_ERROR_NOMEM;
  int32_t count = 0;
  for (int32_t k = 1; k < burst->ranked && count < kMostNoisePairs; ++k) {
    const FrameRecord& frame = burst->frames[burst->order[k]];
    if (frame.status != MERGED) continue;
    mapMeshes[count].nodes = nodes.data() + static_cast<size_t>(count) * mapNodes;
    fillMesh(&mapMeshes[count], frame.alignment.motion, fieldOf(frame), kMapLevel, map.width, map.height);
    pairs[count] = {&base.image, &frame.image, &base.pyramid, &frame.pyramid, &frame.mesh, &mapMeshes[count]};
    ++count;
  }
  if (count == 0) return estimateAlone(&burst->noise, env, base.image, base.pyramid);
  return estimateNoise(&burst->noise, env, burst->pel, pairs, count);
}

// How sharp a frame is by the base, over what both show: a motion brings other things into view.
Status relativeSharpness(double* ratio, const Burst& burst, const FrameRecord& frame, const FrameRecord& base) {
  *ratio = sharpnessRatio(frame.sharpness, base.sharpness);
  if (*ratio >= kSharp || frame.alignment.verdict != ALIGNED) return ZELVAN_OK;
  const Mvec8Real& motion = frame.alignment.motion;
  Mvec8Real inverse;
  Mvec8Real_inv(&inverse, &motion);
  const Part seen = shownBy(inverse, burst.width, burst.height);
  const Part own = shownBy(motion, burst.width, burst.height);
  Sharpness of = {}, by = {};
  Status status = measureSharpness(&of, burst.env, frame.pyramid, own);
  if (status == ZELVAN_OK) status = measureSharpness(&by, burst.env, base.pyramid, seen);
  *ratio = status == ZELVAN_OK ? sharpnessRatio(of, by) : 1.0;
  return status;
}

// What becomes of each frame, before its pixels are compared.
Status judgeFrames(Burst* burst) {
  const FrameRecord& base = burst->frames[burst->order[0]];
  for (int32_t k = 0; k < burst->ranked; ++k) {
    FrameRecord& frame = burst->frames[burst->order[k]];
    frame.status = MERGED;
    frame.drift = {};
    frame.strength = 256;
    if (k == 0) {
      frame.share = 1.0f;
      continue;
    }
    double sharp = 1.0;
    if (burst->settings.sorting != 0) {
      if (const Status s = relativeSharpness(&sharp, *burst, frame, base); s != ZELVAN_OK) return s;
    }
    if (sharp < kSharp) {
      frame.strength = std::max(kLeastStrength, truncToInt32(256.0 * (sharp - kSoft) / (kSharp - kSoft)));
    }
    if (k >= burst->settings.mergeCount) {
      frame.status = NOT_USED;
    } else if (sharp < kBlurRatio) {
      frame.status = BLURRED;
    } else if (frame.alignment.verdict != ALIGNED) {
      frame.status = BAD_MOTION;
    }
    if (frame.alignment.verdict != ALIGNED) Mvec8Real_setIdentity(&frame.alignment.motion);
  }
  return ZELVAN_OK;
}

// From the result's pixels; before it is cropped, those of the base.
Status layMesh(Burst* burst, int32_t id, const PelContext*) {
  FrameRecord& frame = burst->frames[id];
  if (burst->cropped == 0) {
    fillMesh(&frame.mesh, frame.alignment.motion, fieldOf(frame), 0, burst->width, burst->height);
  } else {
    fillMesh(&frame.mesh, resultMotion(*burst, id), fieldOf(frame), 0, burst->width, burst->height, &burst->crop);
  }
  return ZELVAN_OK;
}

// Weights of all frames, then their shares.
Status shareOut(Burst* burst) {
  const Image& map = burst->mapLuma;
  Status status = Image_init(&burst->left, map.width, map.height, nullptr, IMAGE_UINT8);
  for (int32_t k = 1; k < burst->ranked && status == ZELVAN_OK; ++k) {
    FrameRecord& frame = burst->frames[burst->order[k]];
    if (frame.status != MERGED) continue;
    status = Image_init(&frame.weights, map.width, map.height, nullptr, IMAGE_UINT8);
    if (status == ZELVAN_OK) status = Image_init(&frame.shares, map.width, map.height, nullptr, IMAGE_UINT16);
  }
  if (status != ZELVAN_OK) return status;
  const ScopedBlock<float> planes(burst->env, 6 * static_cast<size_t>(map.width) * static_cast<size_t>(map.height));
  if (!planes) return ZELVAN_ERROR_NOMEM;
  WeightBase weightBase;
  status = prepareWeights(&weightBase, planes.data(), burst->pel, map, burst->mapColour, burst->noise);
  if (status != ZELVAN_OK) return status;
  WeightJob job = {burst, &weightBase, {}};
  static constexpr PelKernel kKernel = pelIndexed<WeightJob, weighOne>();
  status = executeToEnd(burst->pel, &kKernel, &job, burst->ranked);
  for (const Status s : job.status) status |= s;
  if (status != ZELVAN_OK) return status;

  Image* shares[kMostFrames];
  const Image* weights[kMostFrames];
  int32_t strengths[kMostFrames];
  int32_t count = 0;
  for (int32_t k = 1; k < burst->ranked; ++k) {
    FrameRecord& frame = burst->frames[burst->order[k]];
    if (frame.status == MERGED && frame.share < kLeastShare) frame.status = GHOST;
    if (frame.status != MERGED) continue;
    shares[count] = &frame.shares;
    weights[count] = &frame.weights;
    strengths[count] = frame.strength;
    ++count;
  }
  burst->merged = count + 1;
  return normaliseShares(burst->pel, shares, &burst->left, weights, strengths, count);
}

}  // namespace

void construct(Burst* burst, Env* env) {
  *burst = {};
  burst->env = env;
  for (FrameRecord& frame : burst->frames) {
    construct_Image(&frame.image, env);
    construct(&frame.pyramid, env);
    construct_Image(&frame.weights, env);
    construct_Image(&frame.shares, env);
  }
  for (Image* image : {&burst->left, &burst->mapLuma, &burst->mapColour}) construct_Image(image, env);
  Mvec8Real_setIdentity(&burst->crop);
}

void release(Burst* burst) {
  Env* env = burst->env;
  if (env == nullptr) return;
  for (FrameRecord& frame : burst->frames) {
    destruct_Image(&frame.image);
    release(&frame.pyramid);
    destruct_Image(&frame.weights);
    destruct_Image(&frame.shares);
  }
  for (Image* image : {&burst->left, &burst->mapLuma, &burst->mapColour}) destruct_Image(image);
  if (burst->shifts != nullptr) Heap2_free(&env->heap, burst->shifts);
  if (burst->nodes != nullptr) Heap2_free(&env->heap, burst->nodes);
  construct(burst, env);
}

void init(Burst* burst, Pel* pel, int32_t width, int32_t height, int32_t count, const Settings& settings) {
  release(burst);
  burst->pel = pel;
  burst->width = width;
  burst->height = height;
  burst->count = count;
  burst->settings = settings;
}

Status addFrame(Burst* burst, const Image& image, int32_t slot) {
  FrameRecord& frame = burst->frames[slot];
  if (image.plane0 == nullptr || image.plane1 == nullptr || image.width != burst->width ||
      image.height != burst->height) {
    return ZELVAN_ERROR_PARAM;
  }
  Status status = Image_initSubImage(&frame.image, &image, 0, 0, image.width, image.height);
  if (status == ZELVAN_OK) status = build(&frame.pyramid, burst->pel, &frame.image);
  if (status != ZELVAN_OK) return status;
  status = measureSharpness(&frame.sharpness, burst->env, frame.pyramid, {0, 0, burst->width, burst->height});
  if (status != ZELVAN_OK) {
    release(&frame.pyramid);
    return status;
  }
  frame.score = frame.sharpness.score;
  burst->added = std::max(burst->added, slot + 1);
  return ZELVAN_OK;
}

void copyMap(const Burst& burst, int32_t id, uint8_t* out) {
  const Image& map = burst.mapLuma;
  for (int32_t y = 0; y < map.height; ++y) {
    for (int32_t x = 0; x < map.width; ++x) {
      int32_t sum = 0;
      for (int32_t k = 0; k < burst.ranked; ++k) {
        const FrameRecord& frame = burst.frames[burst.order[k]];
        if (frame.status != MERGED || (id >= 0 && burst.order[k] != id)) continue;
        sum += k == 0 ? 255 : imageRow(&frame.weights, y)[x];
      }
      *out++ = static_cast<uint8_t>(id >= 0 ? sum : (sum * 16 + 127) / 255);
    }
  }
}

Mvec8Real resultMotion(const Burst& burst, int32_t id) {
  Mvec8Real motion;
  Mvec8Real_mult(&motion, &burst.frames[id].alignment.motion, &burst.crop);
  const double h8 = motion.h[8];
  for (double& h : motion.h) h /= h8;
  return motion;
}

Status align(Burst* burst) {
  Env* env = burst->env;
  if (burst->added < 1) return ZELVAN_ERROR_STATE;
  rank(burst);
  if (burst->ranked < 1) return ZELVAN_ERROR_STATE;
  if (const Status s = placeFields(burst); s != ZELVAN_OK) return s;
  if (const Status s = chooseBase(burst); s != ZELVAN_OK) return s;
  if (const Status s = judgeFrames(burst); s != ZELVAN_OK) return s;
  const size_t nodes = static_cast<size_t>(meshNodes(burst->width)) * static_cast<size_t>(meshNodes(burst->height));
  burst->nodes =
      static_cast<MeshNode*>(Heap2_malloc(&env->heap, static_cast<uint32_t>(nodes * kMostFrames * sizeof(MeshNode))));
  if (burst->nodes == nullptr) return ZELVAN_ERROR_NOMEM;
  for (int32_t i = 0; i < burst->added; ++i) {
    burst->frames[i].mesh.nodes = burst->nodes + static_cast<size_t>(i) * nodes;
  }
  static constexpr PelKernel kMesh = pelIndexed<Burst, layMesh>();
  if (const Status s = executeToEnd(burst->pel, &kMesh, burst, burst->added); s != ZELVAN_OK) return s;
  if (const Status s = measureNoise(burst); s != ZELVAN_OK) return s;
  if (burst->settings.scaling != 0) chooseCrop(burst);
  if (burst->cropped != 0) {
    if (const Status s = executeToEnd(burst->pel, &kMesh, burst, burst->added); s != ZELVAN_OK) return s;
  }
  if (const Status s = makeMapBase(burst); s != ZELVAN_OK) return s;
  return shareOut(burst);
}

}  // namespace fine
