// Files that the tool writes: checked before the work, there whole or not at all after it.
//
// A result is written to a file without a name (O_TMPFILE), which gets its name when all bytes are in it: a process
// that is killed, by whatever signal, leaves nothing behind. Two cases need a second name, ".tessaline4-" with random
// digits, in the same folder. Replacing a file takes one for the moment between two system calls (link, then rename).
// A file system that has no files without names, or does not link them, takes one for as long as writing lasts.
// Signals wait meanwhile, so that only SIGKILL or the loss of power at that time can leave the name behind.
//
// An existing file is replaced, not written into: a reader finds the old bytes or the new ones, and other hard links
// keep the old ones. The new file has the old one's access bits, access list, and owner and group as far as the system
// allows. Symbolic links stay and are followed; where one leads nowhere, the file it names is made. A file without any
// permission to write is refused, for the superuser as well. Devices and pipes are written directly.
#ifndef TESSALINE4_TOOLS_OUTPUT_FILE_H_
#define TESSALINE4_TOOLS_OUTPUT_FILE_H_

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "file_bytes.h"

namespace tool {

enum class Existing { kReplace, kRefuse };

// What error messages call an output: its path, or "standard output" for "-".
std::string outputName(const std::string& path);

// Throws Error when writeFile to path is known to fail: no such folder, no permission, a name too long, a folder of
// that name, a file that must not be replaced.
void checkFileWritable(const std::string& path, Existing existing = Existing::kReplace);
// Throws Error when an output is the same file as another output or an input: by device and inode, or by folder and
// name where there is no file yet. Character devices and sockets may serve for several.
void checkDistinct(const std::vector<std::string>& outputs, const std::vector<std::string>& inputs);
// Takes the next bytes of a file.
using Sink = std::function<void(ByteView bytes)>;
// Hands all bytes of a file over, a few large pieces rather than many small ones. May be asked to do so again.
using Content = std::function<void(const Sink& sink)>;
// "-" is standard output. What content throws leaves no file behind, but devices, pipes and standard output keep what
// they got.
void writeFile(const std::string& path, const Content& content, Existing existing = Existing::kReplace);
void writeFile(const std::string& path, ByteView bytes, Existing existing = Existing::kReplace);

}  // namespace tool

#endif  // TESSALINE4_TOOLS_OUTPUT_FILE_H_
