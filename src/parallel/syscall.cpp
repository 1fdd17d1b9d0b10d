#include "parallel/syscall.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <cstring>

#include "base/atomic.h"

int32_t Syscall_getNumberOfProcessors(Env*) {
  const long count = sysconf(_SC_NPROCESSORS_CONF);
  return count < 2 ? 1 : static_cast<int32_t>(count);
}

#ifdef SYS_sched_setaffinity

Status Syscall_setThreadAffinityMask(Env*, uint32_t mask) {
  // The kernel clears the processors behind the end of a short mask and ignores what it has no processors for.
  unsigned char every[1024];  // 8192 processors
  long result;
  if (mask == 0xFFFFFFFFu) {
    std::memset(every, 0xFF, sizeof every);
    result = syscall(SYS_sched_setaffinity, 0, sizeof every, every);
  } else {
    const unsigned long word = mask;  // masks come in whole words
    result = syscall(SYS_sched_setaffinity, 0, sizeof word, &word);
  }
  return result == 0 ? ZELVAN_OK : ZELVAN_ERROR_RESOURCE;
}

int32_t Syscall_countUsableProcessors() {
  unsigned long words[1024 / sizeof(unsigned long)] = {};  // 8192 processors
  if (syscall(SYS_sched_getaffinity, 0, sizeof words, words) < 0) return 1;
  int32_t count = 0;
  for (const unsigned long word : words) count += __builtin_popcountl(word);
  return count < 1 ? 1 : count;
}

#else  // a system that places threads by itself, as browsers do

Status Syscall_setThreadAffinityMask(Env*, uint32_t) {
  return ZELVAN_ERROR_RESOURCE;
}

int32_t Syscall_countUsableProcessors() {
  return Syscall_getNumberOfProcessors(nullptr);
}

#endif

bool Syscall_haveProcessors() {
  static int32_t found;  // 0: not yet looked
  int32_t count = atomicLoad(&found);
  if (count == 0) {
    count = Syscall_countUsableProcessors();
    atomicStore(&found, count);
  }
  return count > 1;
}
