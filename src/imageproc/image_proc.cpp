#include "imageproc/image_proc.h"

#include "imageproc/resize.h"

Status construct_ImageProc(ImageProc* proc, Env* env) {
  if (proc == nullptr) return ZELVAN_ERROR_PARAM;
  *proc = {env, nullptr};
  return ZELVAN_OK;
}

Status destruct_ImageProc(ImageProc* proc) {
  return construct_ImageProc(proc, nullptr);
}

Status ImageProc_setParallelExecutor(ImageProc* proc, ParallelExecutor* executor) {
  if (proc == nullptr) return ZELVAN_ERROR_PARAM;
  proc->executor = executor;
  return ZELVAN_OK;
}

Status construct_ImageProc2(ImageProc2* proc, Env* env) {
  if (proc == nullptr) return ZELVAN_ERROR_PARAM;
  *proc = {env, nullptr};
  return ZELVAN_OK;
}

Status destruct_ImageProc2(ImageProc2* proc) {
  return construct_ImageProc2(proc, nullptr);
}

int32_t ImageProc2_getBufferSize(int32_t width, int32_t height, int32_t /*format*/) {
  return ImageProc2_getBufferSizeForResizeImage(width, height);
}

Status ImageProc2_setPel(ImageProc2* proc, Pel* pel) {
  if (proc == nullptr) return ZELVAN_ERROR_PARAM;
  proc->pel = pel;
  return ZELVAN_OK;
}

Status ImageProc2_recycle(ImageProc2* proc) {
  return proc == nullptr ? ZELVAN_ERROR_PARAM : construct_ImageProc2(proc, proc->env);
}
