#include "parallel/parallel_executor_bridge.h"

#include <cstring>

#include "base/atomic.h"
#include "parallel/pel_kernel.h"

namespace {

Status runSlot(ParallelExecutorBridgeSlot* slot, const PelContext*) {
  return slot->function(slot->arguments);
}

Status runIndex(const ParallelExecutor* executor, int32_t index, const PelContext* context) {
  return executor->executeFunction(executor->executeArgument, index, context->count);
}

constexpr PelKernel kTask = pelTask<ParallelExecutorBridgeSlot, runSlot>();
constexpr PelKernel kIndexed = pelIndexed<const ParallelExecutor, runIndex>();

// Waits for one event, reads its job's result and gives the event back.
Status finishEvent(Pel* pel, uint32_t event, Status* result) {
  Status status = waitToEnd(pel, event);
  status |= Pel_getEventInfo(pel, event, 0, result);
  return status | Pel_releaseEvent(pel, event);
}

}  // namespace

Status initBridge(ParallelExecutor* executor, int32_t capacity) {
  constexpr uint64_t kSlotBytes = sizeof(ParallelExecutorBridgeSlot) + sizeof(uint32_t);
  const uint64_t slots = 2 * uint64_t{static_cast<uint32_t>(capacity)};
  const uint64_t bytes = sizeof(ParallelExecutorBridge) + slots * kSlotBytes;
  if (bytes > UINT32_MAX) return ZELVAN_ERROR_NOMEM;
  auto* bridge = static_cast<ParallelExecutorBridge*>(Heap2_malloc(&executor->env->heap, static_cast<uint32_t>(bytes)));
  if (bridge == nullptr) return ZELVAN_ERROR_NOMEM;
  std::memset(static_cast<void*>(bridge), 0, bytes);
  bridge->pel = executor->pel;
  bridge->slots = static_cast<int32_t>(slots);
  bridge->slotArray = reinterpret_cast<ParallelExecutorBridgeSlot*>(bridge + 1);
  bridge->events = reinterpret_cast<uint32_t*>(bridge->slotArray + slots);
  executor->bridge = bridge;
  return ZELVAN_OK;
}

Status forkOverBridge(ParallelExecutor* executor, TaskFunction function, const void* arguments, int32_t size) {
  ParallelExecutorBridge* bridge = executor->bridge;
  int32_t at = atomicLoad(&bridge->usedSlots);
  do {
    if (at >= bridge->slots) return ZELVAN_ERROR_STATE;
  } while (!atomicCompareExchange(&bridge->usedSlots, &at, at + 1));

  ParallelExecutorBridgeSlot* slot = &bridge->slotArray[at];
  uint32_t* event = &bridge->events[at];
  *event = 0;
  const uint32_t bytes = size < 1 ? 0 : static_cast<uint32_t>(size);
  *slot = {function, Heap2_malloc(&executor->env->heap, bytes)};
  if (slot->arguments == nullptr) return ZELVAN_ERROR_NOMEM;
  if (bytes != 0) std::memcpy(slot->arguments, arguments, bytes);
  return Pel_enqueueTask(bridge->pel, &kTask, slot, 0, nullptr, event);
}

Status joinOverBridge(ParallelExecutor* executor, Status* combined) {
  ParallelExecutorBridge* bridge = executor->bridge;
  Status status = ZELVAN_OK;
  *combined = ZELVAN_OK;
  const int32_t used = atomicLoad(&bridge->usedSlots);
  for (int32_t i = 0; i < used; ++i) {
    Status result = ZELVAN_OK;
    const Status finished = bridge->events[i] != 0 ? finishEvent(bridge->pel, bridge->events[i], &result) : ZELVAN_OK;
    *combined |= result;
    status |= finished;
    // A task that outlives a failed wait keeps its block.
    const bool running = finished != ZELVAN_OK && result == ZELVAN_STATUS_RUNNING;
    if (!running) status |= Heap2_free(&executor->env->heap, bridge->slotArray[i].arguments);
  }
  atomicStore(&bridge->usedSlots, 0);
  return status;
}

Status executeOverBridge(ParallelExecutor* executor, IndexedFunction function, void* argument, int32_t count,
                         Status* combined) {
  Pel* pel = executor->bridge->pel;
  // The job's block is the executor itself: it outlives the job even if the wait fails.
  executor->executeFunction = function;
  executor->executeArgument = argument;
  uint32_t event = 0;
  *combined = ZELVAN_OK;
  const int32_t indices = count < 1 ? Pel_getNumberOfWorkers(pel) : count;
  const Status status = Pel_enqueueKernel(pel, &kIndexed, executor, indices, 0, nullptr, &event);
  return event == 0 ? status : status | finishEvent(pel, event, combined);
}

Status releaseBridge(ParallelExecutor* executor) {
  Status ignored;
  const Status status = joinOverBridge(executor, &ignored);
  return status | Heap2_free(&executor->env->heap, executor->bridge);
}
