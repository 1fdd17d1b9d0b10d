#include "child_jobs.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <optional>
#include <vector>

#include "descriptor.h"
#include "picture.h"

namespace tool {
namespace {

constexpr char kGood = '+';
constexpr char kBad = '-';

struct Child {
  size_t index;
  pid_t process;
  Descriptor pipe;  // one of the marks above, then the text
  std::string told;
};

[[noreturn]] void failStarting() {
  throw Error("a process cannot be started", std::strerror(errno));
}

[[noreturn]] void runAsChild(pid_t parent, int pipe, const std::function<std::string()>& job) {
  // The parent may have ended before this call.
  if (prctl(PR_SET_PDEATHSIG, SIGTERM) != 0 || getppid() != parent) _exit(EXIT_FAILURE);
  std::string told;
  try {
    told = kGood + job();
  } catch (const std::bad_alloc&) {
    told = std::string(1, kBad) + "out of memory";
  } catch (const std::exception& error) {
    told = kBad + std::string(error.what());
  }
  std::fflush(stderr);
  size_t written = 0;
  while (written < told.size()) {
    const ssize_t count = write(pipe, told.data() + written, told.size() - written);
    if (count < 0 && errno != EINTR) _exit(EXIT_FAILURE);
    if (count > 0) written += static_cast<size_t>(count);
  }
  _exit(EXIT_SUCCESS);
}

Child start(size_t index, const std::function<std::string()>& job) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) failStarting();
  Child child = {index, -1, Descriptor(ends[0]), {}};
  Descriptor writing(ends[1]);
  std::fflush(stdout);
  std::fflush(stderr);
  const pid_t parent = getpid();
  child.process = fork();
  if (child.process < 0) failStarting();
  if (child.process == 0) {
    child.pipe.close();
    runAsChild(parent, writing.get(), job);
  }
  return child;
}

JobOutcome outcomeOf(const Child& child) {
  int status = 0;
  while (waitpid(child.process, &status, 0) < 0 && errno == EINTR) {
  }
  if (WIFSIGNALED(status)) {
    std::string reason = std::string("ended by a signal: ") + strsignal(WTERMSIG(status));
    if (WTERMSIG(status) == SIGKILL) reason += " (memory may have run out)";
    return {false, reason};
  }
  if (child.told.empty()) return {false, "ended without a word"};
  return {child.told[0] == kGood, child.told.substr(1)};
}

}  // namespace

void runJobs(size_t count, size_t sideBySide, const std::function<std::string(size_t index, size_t slot)>& job,
             const std::function<void(size_t index, const JobOutcome& outcome)>& done) {
  std::vector<std::optional<Child>> slots(std::min(count, sideBySide));
  size_t next = 0;
  size_t ended = 0;
  while (ended < count) {
    std::vector<pollfd> waits;
    std::vector<size_t> waiting;
    for (size_t slot = 0; slot < slots.size(); ++slot) {
      if (!slots[slot] && next < count) {
        const size_t index = next++;
        slots[slot] = start(index, [&] { return job(index, slot); });
      }
      if (!slots[slot]) continue;
      waits.push_back({slots[slot]->pipe.get(), POLLIN, 0});
      waiting.push_back(slot);
    }
    if (poll(waits.data(), waits.size(), -1) < 0) {
      if (errno == EINTR) continue;
      throw Error("jobs cannot be waited for", std::strerror(errno));
    }
    for (size_t i = 0; i < waits.size(); ++i) {
      if (waits[i].revents == 0) continue;
      std::optional<Child>& child = slots[waiting[i]];
      char text[4096];
      const ssize_t got = read(waits[i].fd, text, sizeof(text));
      if (got < 0 && errno == EINTR) continue;
      if (got > 0) {
        child->told.append(text, static_cast<size_t>(got));
        continue;
      }
      const JobOutcome outcome = outcomeOf(*child);
      const size_t index = child->index;
      child.reset();
      ++ended;
      done(index, outcome);
    }
  }
}

}  // namespace tool
