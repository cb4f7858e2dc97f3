#include <NODOCore/base/Errors.h>
#include <NODOCore/base/JSONValue.h>
#include <NODOCore/base/Text.h>

#include <algorithm>
#include <string>

#include <fuzz/Fuzzing.h>

namespace nodo::fuzzing {
namespace {

std::size_t depthOf(const JSONValue& value) {
  std::size_t deepest = 0;
  if (const auto* array = value.array()) {
    for (const JSONValue& element : *array) {
      deepest = std::max(deepest, depthOf(element));
    }
    return deepest + 1;
  }
  if (const auto* object = value.object()) {
    for (const auto& [name, member] : *object) {
      deepest = std::max(deepest, depthOf(member));
    }
    return deepest + 1;
  }
  return 0;
}

void checkDocument(const JSONValue& document) {
  require(depthOf(document) <= JSONValue::maximumDepth, "nesting is bounded");
  require(isValidUTF8(document.description()), "a description is valid UTF-8");
  if (const auto* number = document.number()) {
    const auto whole = wholeNumber(*number);
    require(!whole || wholeNumber({std::to_string(*whole)}) == whole,
            "a whole number has one value, however it is written");
  }

  const std::string compact = jsonText(document, JSONLayout::compact);
  require(compact.find('\n') == std::string::npos, "the compact form is one line");
  require(isValidUTF8(compact), "the compact form is valid UTF-8");
  require(JSONValue::parse(compact) == document, "the compact form reads back equal");
  require(JSONValue::parse(jsonText(document, JSONLayout::pretty)) == document,
          "the indented form reads back equal");

  const std::string sorted = jsonText(document, JSONLayout::prettySorted);
  require(jsonText(JSONValue::parse(sorted), JSONLayout::prettySorted) == sorted,
          "sorting a sorted document changes nothing");
}

}  // namespace
}  // namespace nodo::fuzzing

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  nodo::JSONValue document;
  try {
    document = nodo::JSONValue::parse(nodo::fuzzing::textOf(data, size));
  } catch (const nodo::DecodingError& error) {
    nodo::fuzzing::require(nodo::isValidUTF8(error.what()), "an error's message is valid UTF-8");
    return 0;
  }
  nodo::fuzzing::checkDocument(document);
  return 0;
}
