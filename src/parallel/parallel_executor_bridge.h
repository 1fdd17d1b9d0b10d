// The bridge form of ParallelExecutor: its tasks run as tasks of a Pel, its indices as an indexed kernel.
//
// A fork claims a slot, which keeps function and argument copy, and the task's event beside it; a join waits for the
// events in slot order. Internal to the executor; every function expects an executor with a bridge.
#ifndef ZVT4_PARALLEL_PARALLEL_EXECUTOR_BRIDGE_H_
#define ZVT4_PARALLEL_PARALLEL_EXECUTOR_BRIDGE_H_

#include "parallel/parallel_executor.h"

Status initBridge(ParallelExecutor* executor, int32_t capacity);
Status forkOverBridge(ParallelExecutor* executor, TaskFunction function, const void* arguments, int32_t size);
Status joinOverBridge(ParallelExecutor* executor, Status* combined);
Status executeOverBridge(ParallelExecutor* executor, IndexedFunction function, void* argument, int32_t count,
                         Status* combined);
// Joins what is left and frees the block.
Status releaseBridge(ParallelExecutor* executor);

#endif  // ZVT4_PARALLEL_PARALLEL_EXECUTOR_BRIDGE_H_
