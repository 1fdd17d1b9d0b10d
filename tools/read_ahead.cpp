#include "read_ahead.h"

#include <exception>
#include <utility>

#include "picture.h"

namespace tool {

ReadAhead::ReadAhead(size_t first, size_t end, bool second, bool anyOrder, std::function<void(size_t index)> work)
    : work_(std::move(work)), pieces_(end), next_(first), helps_(true) {
  if (!second || first >= end) return;
  try {
    thread_ = std::thread([this] {
      std::unique_lock lock(mutex_);
      while (workOnNext(&lock)) {
      }
    });
    helps_ = anyOrder;
  } catch (const std::exception&) {
    // One thread does it as well.
  }
}

ReadAhead::~ReadAhead() {
  {
    const std::lock_guard lock(mutex_);
    next_ = pieces_.size();
  }
  if (thread_.joinable()) thread_.join();
}

void ReadAhead::wait(size_t index) {
  std::unique_lock lock(mutex_);
  while (!pieces_[index].done) {
    if (!helps_ || !workOnNext(&lock)) changed_.wait(lock);
  }
  if (pieces_[index].failure) throw Error(*pieces_[index].failure);
}

bool ReadAhead::workOnNext(std::unique_lock<std::mutex>* lock) {
  if (next_ >= pieces_.size()) return false;
  Piece& piece = pieces_[next_];
  const size_t index = next_++;
  lock->unlock();
  std::optional<std::string> failure;
  try {
    work_(index);
  } catch (const std::exception& error) {
    failure = error.what();
  }
  lock->lock();
  piece.done = true;
  piece.failure = std::move(failure);
  if (piece.failure) next_ = pieces_.size();
  changed_.notify_all();
  return true;
}

}  // namespace tool
