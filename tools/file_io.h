// Names of files, and the reading of them.
#ifndef TESSALINE4_TOOLS_FILE_IO_H_
#define TESSALINE4_TOOLS_FILE_IO_H_

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace tool {

// What error messages call an input: its path, or "standard input" for "-".
std::string displayName(const std::string& path);
// The ending of a path in lower case, without the dot; empty without one.
std::string endingOf(const std::string& path);

// How many bytes can still matter, told from all that were read so far; 0 ends the reading. May throw Error.
using StillWanted = std::function<size_t(const std::vector<uint8_t>& read)>;
// The content of a file, or of standard input for "-", as far as it is wanted: it is asked again after every read, so
// that a device or a pipe without an end is left as soon as its bytes cannot be what was hoped for. Never takes more
// bytes than are wanted, and waits for none as long as those that are there have not been looked at.
std::vector<uint8_t> readFile(const std::string& path, const StillWanted& stillWanted);

}  // namespace tool

#endif  // TESSALINE4_TOOLS_FILE_IO_H_
