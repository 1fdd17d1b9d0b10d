// ImageProc: the context of the kernels that run on a ParallelExecutor. ImageProc2: that of the kernels on a Pel.
//
// Kernels have no state of their own. A context names the arena that scratch comes from and the pool that the rows go
// to; both records may be copied, and any number of them may share one pool. A null pool is legal and runs all work in
// the caller, with the same result to the bit.
//
// Every kernel takes its context first, then the destination, the sources and the numbers. Construction and setting
// return ZELVAN_ERROR_PARAM for a null record; destruction zeroes the record and touches neither pool nor arena.
#ifndef ZVT4_IMAGEPROC_IMAGE_PROC_H_
#define ZVT4_IMAGEPROC_IMAGE_PROC_H_

#include "image/image.h"
#include "parallel/parallel_executor.h"
#include "parallel/pel.h"

struct ImageProc {
  Env* env;
  ParallelExecutor* executor;
};

struct ImageProc2 {
  Env* env;
  Pel* pel;
};

extern "C" {
Status construct_ImageProc(ImageProc* proc, Env* env) ZVT4_NAME(construct_ImageProc);
Status destruct_ImageProc(ImageProc* proc) ZVT4_NAME(destruct_ImageProc);
Status ImageProc_setParallelExecutor(ImageProc* proc, ParallelExecutor* executor)
    ZVT4_NAME(ImageProc_setParallelExecutor);
Status construct_ImageProc2(ImageProc2* proc, Env* env) ZVT4_NAME(construct_ImageProc2);
Status destruct_ImageProc2(ImageProc2* proc) ZVT4_NAME(destruct_ImageProc2);
// Arena bytes that a resize may hold at once for images up to this size, whatever the format. The kernels that need
// scratch of the size of the picture have getBufferSize functions of their own.
int32_t ImageProc2_getBufferSize(int32_t width, int32_t height, int32_t format) ZVT4_NAME(ImageProc2_getBufferSize);
}

Status ImageProc2_setPel(ImageProc2* proc, Pel* pel);
// Back to the state after construction: the environment stays, the pool is forgotten.
Status ImageProc2_recycle(ImageProc2* proc);

#endif  // ZVT4_IMAGEPROC_IMAGE_PROC_H_
