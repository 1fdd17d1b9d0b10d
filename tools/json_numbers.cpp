#include "json_numbers.h"

#include <filesystem>
#include <sstream>

#include "file_io.h"

namespace tool {

int64_t wholeNumber(const Json& parent, const char* key, int64_t least, int64_t most) {
  const Json& number = parent.at(key);
  // What does not fit is stored as an unsigned or as a floating-point number.
  const bool fits = number.is_number_integer() &&
                    (!number.is_number_unsigned() || number.get<uint64_t>() <= uint64_t{INT64_MAX}) &&
                    number.get<int64_t>() >= least && number.get<int64_t>() <= most;
  if (!fits) {
    throw BadJson(std::string(key) + " is not a number from " + std::to_string(least) + " to " + std::to_string(most));
  }
  return number;
}

double realNumber(const Json& parent, const char* key, double least, double most) {
  const Json& number = parent.at(key);
  const double value = number.is_number() ? number.get<double>() : least - 1;
  if (!(value >= least && value <= most)) {
    std::ostringstream range;
    range << key << " is not a number from " << least << " to " << most;
    throw BadJson(range.str());
  }
  return value;
}

Homography motionAt(const Json& parent, const char* key, int32_t width, int32_t height) {
  const Json& rows = parent.at(key);
  bool shaped = rows.is_array() && rows.size() == 3;
  Homography motion{};
  for (size_t r = 0; shaped && r < 3; ++r) {
    shaped = rows[r].is_array() && rows[r].size() == 3;
    for (size_t c = 0; shaped && c < 3; ++c) {
      shaped = rows[r][c].is_number();
      if (shaped) motion[3 * r + c] = rows[r][c];
    }
  }
  if (!shaped) throw BadJson(std::string(key) + " is not three rows of three numbers");
  if (!isMotion(motion, width, height)) throw BadJson(std::string(key) + " is out of range");
  return motion;
}

std::string fileNameAt(const Json& parent, const char* key) {
  const std::string text = parent.at(key);
  const std::filesystem::path name = text;
  if (name.filename() != name || text.find('\0') != std::string::npos || text.empty() || text == "." || text == "..") {
    throw BadJson(std::string(key) + " is not the name of a file in the folder");
  }
  return text;
}

std::string readJsonFile(const std::string& path) {
  constexpr size_t kMostBytes = 1 << 20;
  const FileBytes bytes = readFile(path, [](ByteView read) { return kMostBytes + 1 - read.size(); });
  if (bytes.size() > kMostBytes) throw Error(path, "is too long to tell of a burst");
  return std::string(bytes.view().begin(), bytes.view().end());
}

}  // namespace tool
