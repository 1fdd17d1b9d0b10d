// Text that a terminal shows and does not obey.
#ifndef TESSALINE4_TOOLS_PRINTABLE_H_
#define TESSALINE4_TOOLS_PRINTABLE_H_

#include <string>

namespace tool {

// The text with its control characters escaped (\n, \t, \x1b), those of UTF-8 (U+0080 to U+009F) and bytes that are no
// UTF-8 as well: a file name can hold any of them. Everything else stays as it is.
std::string printable(const std::string& text);

}  // namespace tool

#endif  // TESSALINE4_TOOLS_PRINTABLE_H_
