// JSON that others may have written: every number is of its kind and in its range before anyone counts with it.
#ifndef TESSALINE4_TOOLS_JSON_NUMBERS_H_
#define TESSALINE4_TOOLS_JSON_NUMBERS_H_

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "homography.h"
#include "picture.h"

namespace tool {

using Json = nlohmann::ordered_json;

// What is wrong with a file, without its name; parseJson adds that.
class BadJson : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// A whole number from least to most, or BadJson.
int64_t wholeNumber(const Json& parent, const char* key, int64_t least, int64_t most);
// Any number from least to most, or BadJson.
double realNumber(const Json& parent, const char* key, double least, double most);
// Three rows of three numbers that are a motion of frames of this size, or BadJson.
Homography motionAt(const Json& parent, const char* key, int32_t width, int32_t height);
// The name of a file in the same folder, without any path, or BadJson.
std::string fileNameAt(const Json& parent, const char* key);

// The text of a JSON file. Throws Error when it cannot be read or is of a length that no burst has.
std::string readJsonFile(const std::string& path);

// parse(json) with every complaint about the content turned into an Error: "<name>: is no <kind>: ...".
template <typename Parse>
auto parseJson(const std::string& name, const char* kind, const std::string& text, const Parse& parse) {
  const auto fail = [&](const std::exception& error) {
    return Error(name, std::string("is no ") + kind + ": " + error.what());
  };
  try {
    return parse(Json::parse(text));
  } catch (const nlohmann::json::exception& error) {
    throw fail(error);
  } catch (const BadJson& error) {
    throw fail(error);
  }
}

}  // namespace tool

#endif  // TESSALINE4_TOOLS_JSON_NUMBERS_H_
