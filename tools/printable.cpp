#include "printable.h"

#include <cstdint>
#include <cstdio>

namespace tool {
namespace {

// Bytes of the character that begins at text[at]; 0 where none does.
size_t characterLength(const std::string& text, size_t at) {
  const auto byte = [&](size_t i) { return static_cast<uint8_t>(i < text.size() ? text[i] : 0); };
  const uint8_t first = byte(at);
  if (first < 0x80) return 1;
  const size_t length = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
  if (first < 0xC2 || first > 0xF4) return 0;
  for (size_t i = 1; i < length; ++i) {
    if ((byte(at + i) & 0xC0) != 0x80) return 0;
  }
  const uint8_t second = byte(at + 1);
  const bool tooLong = (first == 0xE0 && second < 0xA0) || (first == 0xF0 && second < 0x90);
  const bool surrogate = first == 0xED && second >= 0xA0;
  const bool beyond = first == 0xF4 && second >= 0x90;
  return tooLong || surrogate || beyond ? 0 : length;
}

bool isControl(const std::string& text, size_t at, size_t length) {
  const auto first = static_cast<uint8_t>(text[at]);
  if (length == 1) return first < 0x20 || first == 0x7F;
  return first == 0xC2 && static_cast<uint8_t>(text[at + 1]) < 0xA0;
}

void appendEscaped(std::string* out, char c) {
  if (c == '\n' || c == '\t' || c == '\r') {
    *out += c == '\n' ? "\\n" : c == '\t' ? "\\t" : "\\r";
    return;
  }
  char code[8];
  std::snprintf(code, sizeof(code), "\\x%02x", static_cast<unsigned>(static_cast<uint8_t>(c)));
  *out += code;
}

}  // namespace

std::string printable(const std::string& text) {
  std::string out;
  for (size_t at = 0; at < text.size();) {
    const size_t length = characterLength(text, at);
    if (length != 0 && !isControl(text, at, length)) {
      out.append(text, at, length);
      at += length;
      continue;
    }
    for (const size_t end = at + (length == 0 ? 1 : length); at < end; ++at) appendEscaped(&out, text[at]);
  }
  return out;
}

}  // namespace tool
