// Scope guards: scratch that goes back on every way out.
#ifndef ZVT4_BASE_SCOPED_H_
#define ZVT4_BASE_SCOPED_H_

#include "base/env.h"
#include "base/status.h"

// Runs Recycle(object) when the scope ends. Declare it directly behind the successful init, so that guards run in
// reverse order of construction. release() hands the object over to somebody else.
template <typename T, Status (*Recycle)(T*)>
class Scoped {
 public:
  explicit Scoped(T* object) : object_(object) {}
  ~Scoped() {
    if (object_ != nullptr) Recycle(object_);
  }
  Scoped(const Scoped&) = delete;
  Scoped& operator=(const Scoped&) = delete;
  void release() { object_ = nullptr; }

 private:
  T* object_;
};

// An array of count items from the arena, freed at the end of the scope. data() is null when the arena refused.
template <typename T>
class ScopedBlock {
 public:
  ScopedBlock(Env* env, size_t count)
      : env_(env),
        data_(count > UINT32_MAX / sizeof(T)
                  ? nullptr
                  : static_cast<T*>(Heap2_malloc(&env->heap, static_cast<uint32_t>(count * sizeof(T))))) {}
  ~ScopedBlock() { Heap2_free(&env_->heap, data_); }
  ScopedBlock(const ScopedBlock&) = delete;
  ScopedBlock& operator=(const ScopedBlock&) = delete;
  T* data() const { return data_; }
  T& operator[](size_t i) const { return data_[i]; }
  explicit operator bool() const { return data_ != nullptr; }

 private:
  Env* env_;
  T* data_;
};

#endif  // ZVT4_BASE_SCOPED_H_
