// A file descriptor that is closed with its scope.
#ifndef TESSALINE4_TOOLS_DESCRIPTOR_H_
#define TESSALINE4_TOOLS_DESCRIPTOR_H_

#include <unistd.h>

#include <utility>

namespace tool {

class Descriptor {
 public:
  Descriptor() = default;
  explicit Descriptor(int number) : number_(number) {}
  Descriptor(Descriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    std::swap(number_, other.number_);
    return *this;
  }
  ~Descriptor() { close(); }

  bool isOpen() const { return number_ >= 0; }
  int get() const { return number_; }
  // Whether all that was written has arrived, as far as the file system tells on closing.
  bool close() { return number_ < 0 || ::close(std::exchange(number_, -1)) == 0; }

 private:
  int number_ = -1;
};

}  // namespace tool

#endif  // TESSALINE4_TOOLS_DESCRIPTOR_H_
