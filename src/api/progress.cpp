#include "api/tessal4_handle.h"

Status tellProgress(Tessal4Handle* self, int32_t percent) {
  if (percent > self->progressPercent) self->progressPercent = percent;
  if (self->progress == nullptr || self->progress(self->progressUser, self->progressPercent) == 0) return ZELVAN_OK;
  self->stateFlags |= TESSAL4_STOPPED;
  return ZELVAN_ERROR_GENERAL;
}

Status zelvan_Tessaline4_setProgress(zelvan_Tessaline4* handle, zelvan_ProgressCallback callback, void* user) {
  if (handle == nullptr || handle->pointer == nullptr) return ZELVAN_ERROR_PARAM;
  Tessal4Handle* self = handle->pointer;
  if ((self->stateFlags & TESSAL4_EXISTS) == 0) return ZELVAN_ERROR_STATE;
  self->progress = callback;
  self->progressUser = user;
  return ZELVAN_OK;
}
