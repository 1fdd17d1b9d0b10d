// Whole files in and out.
#ifndef TESSALINE4_TOOLS_FILE_IO_H_
#define TESSALINE4_TOOLS_FILE_IO_H_

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace tool {

// What error messages call a path: itself, or "standard input" for "-".
std::string displayName(const std::string& path);
// The ending of a path in lower case, without the dot; empty without one.
std::string endingOf(const std::string& path);

// How many bytes of a file anyone will look at, told from its beginning.
using Wanted = std::function<size_t(const std::vector<uint8_t>& beginning)>;
// The content of a file, or all of standard input for "-". With wanted, reading stops some way behind that many bytes:
// a pipe may have no end.
std::vector<uint8_t> readFile(const std::string& path, const Wanted& wanted = nullptr);

// Goes to a temporary file beside path, which then takes the name: a reader finds the old file or the new one, never
// a part. Symbolic links are followed; devices and pipes are written directly.
void writeFile(const std::string& path, const std::vector<uint8_t>& bytes);
// Throws Error when writeFile to path cannot work: no such directory, no permission, or a directory of that name.
void checkFileWritable(const std::string& path);

}  // namespace tool

#endif  // TESSALINE4_TOOLS_FILE_IO_H_
