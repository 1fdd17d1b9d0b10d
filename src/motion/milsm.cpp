#include "motion/milsm.h"

#include "motion/milsm3r.h"
#include "motion/milsm4.h"
#include "motion/milsm8.h"
#include "motion/milsm8r.h"
#include "motion/milsm8r_fixed_point.h"
#include "motion/milsm8st.h"
#include "motion/milsm_variant.h"

namespace {

// By MILsmType.
const MILsmVariant* const kVariants[] = {&kMILsm3R, &kMILsm4, &kMILsm8, &kMILsm8St, &kMILsm8R, &kMILsm8RFixedPoint};
constexpr uint32_t kVariantCount = sizeof(kVariants) / sizeof(kVariants[0]);

// Passes a call on to a slot. whenEmpty is the answer of an implementation that lacks the slot.
template <typename... Parameters, typename... Arguments>
Status passOn(MILsm* lsm, Status (*MILsmSlots::*slot)(void*, Parameters...), Status whenEmpty, Arguments... arguments) {
  if (lsm == nullptr) return ZELVAN_ERROR_PARAM;
  if (lsm->impl == nullptr) return ZELVAN_ERROR_STATE;
  const auto function = lsm->slots.*slot;
  return function != nullptr ? function(lsm->impl, arguments...) : whenEmpty;
}

}  // namespace

Status construct_MILsm(MILsm* lsm, Env* env) {
  if (lsm == nullptr) return ZELVAN_ERROR_PARAM;
  *lsm = {};
  lsm->env = env;
  return ZELVAN_OK;
}

Status MILsm_memClear(MILsm* lsm) {
  if (lsm == nullptr) return ZELVAN_ERROR_PARAM;
  if (lsm->impl == nullptr) return ZELVAN_OK;
  Status status = lsm->slots.destruct(lsm->impl);
  status |= Heap2_free(&lsm->env->heap, lsm->impl);
  return status | construct_MILsm(lsm, lsm->env);
}

Status destruct_MILsm(MILsm* lsm) {
  const Status status = MILsm_memClear(lsm);
  return status | construct_MILsm(lsm, nullptr);
}

Status MILsm_init(MILsm* lsm, int32_t type, int32_t imageCount) {
  if (lsm == nullptr) return ZELVAN_ERROR_PARAM;
  MILsm_memClear(lsm);
  if (static_cast<uint32_t>(type) >= kVariantCount) return ZELVAN_ERROR_PARAM;
  const MILsmVariant* variant = kVariants[type];
  void* impl = Heap2_malloc(&lsm->env->heap, variant->recordSize);
  if (impl == nullptr) return ZELVAN_ERROR_NOMEM;
  lsm->self = impl;
  lsm->impl = impl;
  lsm->slots = variant->slots;
  lsm->type = type;
  lsm->imageCount = imageCount;
  const Status status = lsm->slots.construct(impl, lsm->env);
  return status | lsm->slots.init(impl, imageCount);
}

Status MILsm_clear(MILsm* lsm) {
  return passOn(lsm, &MILsmSlots::clear, ZELVAN_ERROR_STATE);
}

Status MILsm_changeImageNum(MILsm* lsm, int32_t imageCount) {
  const Status status = passOn(lsm, &MILsmSlots::changeImageNum, ZELVAN_ERROR_STATE, imageCount);
  // A variant that could not change keeps its old arrays, and so the old count.
  if (status == ZELVAN_OK) lsm->imageCount = imageCount;
  return status;
}

Status MILsm_copy(MILsm* to, const MILsm* from) {
  if (to == nullptr || from == nullptr) return ZELVAN_ERROR_PARAM;
  if (from->impl == nullptr || from->slots.copy == nullptr) return ZELVAN_ERROR_STATE;
  if (to == from) return ZELVAN_OK;
  if (const Status status = MILsm_init(to, from->type, from->imageCount); status != ZELVAN_OK) return status;
  return to->slots.copy(to->impl, from->impl);
}

Status MILsm_add(MILsm* lsm, int32_t a, int32_t ax, int32_t ay, int32_t b, int32_t bx, int32_t by, int32_t weight) {
  return passOn(lsm, &MILsmSlots::add, ZELVAN_ERROR_STATE, a, ax, ay, b, bx, by, weight);
}

Status MILsm_addF32(MILsm* lsm, int32_t a, int32_t ax, int32_t ay, int32_t b, int32_t bx, int32_t by, int32_t weight) {
  return passOn(lsm, &MILsmSlots::addF32, ZELVAN_ERROR_STATE, a, ax, ay, b, bx, by, weight);
}

Status MILsm_addReal(MILsm* lsm, int32_t a, double ax, double ay, int32_t b, double bx, double by, double weight) {
  return passOn(lsm, &MILsmSlots::addReal, ZELVAN_ERROR_UNSUPPORTED, a, ax, ay, b, bx, by, weight);
}

Status MILsm_solve(MILsm* lsm) {
  return passOn(lsm, &MILsmSlots::solve, ZELVAN_ERROR_STATE);
}

Status MILsm_outputMvec(MILsm* lsm, Mvec8F32* out, int32_t image) {
  return passOn(lsm, &MILsmSlots::outputMvec, ZELVAN_ERROR_STATE, out, image);
}

Status MILsm_outputMvecReal(MILsm* lsm, Mvec8Real* out, int32_t image) {
  return passOn(lsm, &MILsmSlots::outputMvecReal, ZELVAN_ERROR_STATE, out, image);
}

Status MILsm_setInitialMvec(MILsm* lsm, const Mvec8F32* mvec, int32_t image) {
  return passOn(lsm, &MILsmSlots::setInitialMvec, ZELVAN_OK, mvec, image);
}

Status MILsm_setInitialMvecReal(MILsm* lsm, const Mvec8Real* mvec, int32_t image) {
  return passOn(lsm, &MILsmSlots::setInitialMvecReal, ZELVAN_OK, mvec, image);
}

Status MILsm_setCameraParam(MILsm* lsm, int32_t width, int32_t height, double fovDegrees) {
  return passOn(lsm, &MILsmSlots::setCameraParam, ZELVAN_OK, width, height, fovDegrees);
}

Status MILsm_getFailureCode(MILsm* lsm, int32_t* out) {
  return passOn(lsm, &MILsmSlots::getFailureCode, ZELVAN_ERROR_STATE, out);
}

Status MILsm_clearBlock(MILsm* lsm, int32_t a, int32_t b) {
  return passOn(lsm, &MILsmSlots::clearBlock, ZELVAN_ERROR_STATE, a, b);
}
