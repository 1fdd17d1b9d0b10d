#include "api/tessal4_handle.h"

Status zelvan_Tessaline4_getFrameInfo(zelvan_Tessaline4* handle, int32_t index, zelvan_FrameInfo* info) {
  if (handle == nullptr || info == nullptr || index < 0 || handle->pointer == nullptr) return ZELVAN_ERROR_PARAM;
  const Tessal4Handle* self = handle->pointer;
  // Only a burst has frames: before start every index with good pointers is a call out of order.
  if ((self->stateFlags & TESSAL4_OPEN) != 0 && index >= self->frameCount) return ZELVAN_ERROR_PARAM;
  if ((self->stateFlags & TESSAL4_DONE) == 0) return ZELVAN_ERROR_STATE;
  const Tessal4& engine = self->engine;
  for (int32_t i = 0; i < self->frameCount; ++i) {
    if (self->order[i] != index) continue;
    info->order = i;
    info->score = self->scores[i];
  }
  info->mergeStatus = engine.mergeStatus[index];
  info->trackFailure = engine.trackFailure[index];
  const double* h = engine.motions[index].h;
  for (int32_t i = 0; i < 9; ++i) info->motion[i] = h[8] != 0.0 ? h[i] / h[8] : h[i];
  return ZELVAN_OK;
}
