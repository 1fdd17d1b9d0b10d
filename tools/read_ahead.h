// Work that is done ahead of its use, by a second thread and by the one that waits for it.
#ifndef TESSALINE4_TOOLS_READ_AHEAD_H_
#define TESSALINE4_TOOLS_READ_AHEAD_H_

#include <condition_variable>
#include <cstddef>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace tool {

// Pieces are begun in their order. After a failure none is begun any more, so that all before the first one that
// failed are done whoever did them: which failure is told does not depend on the threads.
class ReadAhead {
 public:
  // Calls work once for each index from first to end - 1. second: with a thread of its own, if the system gives one.
  // anyOrder: two pieces may be worked on at the same time.
  ReadAhead(size_t first, size_t end, bool second, bool anyOrder, std::function<void(size_t index)> work);
  // Waits for pieces that are worked on; the rest is not begun.
  ~ReadAhead();
  ReadAhead(const ReadAhead&) = delete;
  ReadAhead& operator=(const ReadAhead&) = delete;

  // Returns when the piece is done, and works meanwhile. Throws Error when it failed. To be asked in order.
  void wait(size_t index);

 private:
  struct Piece {
    bool done = false;
    std::optional<std::string> failure;
  };

  // Takes the next piece and does it; false when none is left.
  bool workOnNext(std::unique_lock<std::mutex>* lock);

  std::function<void(size_t)> work_;
  std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<Piece> pieces_;
  size_t next_;
  bool helps_;
  std::thread thread_;
};

}  // namespace tool

#endif  // TESSALINE4_TOOLS_READ_AHEAD_H_
