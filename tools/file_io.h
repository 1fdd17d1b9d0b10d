// Names of files, and the reading of them.
#ifndef TESSALINE4_TOOLS_FILE_IO_H_
#define TESSALINE4_TOOLS_FILE_IO_H_

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

#include "descriptor.h"
#include "file_bytes.h"

namespace tool {

// What error messages call an input: its path, or "standard input" for "-".
std::string displayName(const std::string& path);
// The ending of a path in lower case, without the dot; empty without one.
std::string endingOf(const std::string& path);

// How many bytes can still matter, told from all that were read so far; 0 ends the reading. May throw Error.
using StillWanted = std::function<size_t(ByteView read)>;

// A file, or standard input for "-". All functions throw Error naming it when the system refuses.
class InputFile {
 public:
  explicit InputFile(const std::string& path);

  const std::string& name() const { return name_; }
  // Some bytes, at most so many; 0 at the end.
  size_t readSome(uint8_t* to, size_t most);
  // So many bytes, or fewer where the file ends.
  size_t read(uint8_t* to, size_t count);
  // As far as it is wanted, which is asked again after every read, so that a device or a pipe without an end is left as
  // soon as its bytes cannot be what was hoped for. Never takes more bytes than are wanted, and waits for none as long
  // as those that are there have not been looked at. Throws std::bad_alloc.
  FileBytes read(const StillWanted& stillWanted);

 private:
  std::string name_;
  Descriptor opened_;
  int number_;
};

// The content of a file as far as it is wanted.
FileBytes readFile(const std::string& path, const StillWanted& stillWanted);
// Whether the path leads to a file that can be read at any time and gives the same bytes.
bool isRegularFile(const std::string& path);

}  // namespace tool

#endif  // TESSALINE4_TOOLS_FILE_IO_H_
