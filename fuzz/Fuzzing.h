#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string_view>
#include <utility>

/// What the fuzz targets share. Each of them states properties that hold for every input; a
/// property that does not hold ends the process, and libFuzzer keeps the input that did it.
namespace nodo::fuzzing {

/// Ends the process unless `holds`. `property` says in words what was expected.
inline void require(bool holds, const char* property) {
  if (!holds) {
    std::fprintf(stderr, "property does not hold: %s\n", property);
    std::abort();
  }
}

inline std::string_view textOf(const std::uint8_t* data, std::size_t size) {
  return {reinterpret_cast<const char*>(data), size};
}

/// Takes the first byte off `text` as a number; 0 when there is none.
inline std::size_t takeNumber(std::string_view& text) {
  if (text.empty()) {
    return 0;
  }
  const auto number = static_cast<unsigned char>(text.front());
  text.remove_prefix(1);
  return number;
}

/// The two texts before and after the first line "%%", so that an input of two texts stays legible.
inline std::pair<std::string_view, std::string_view> twoTexts(std::string_view input) {
  constexpr std::string_view separator = "\n%%\n";
  const auto offset = input.find(separator);
  if (offset == std::string_view::npos) {
    return {input, {}};
  }
  return {input.substr(0, offset), input.substr(offset + separator.size())};
}

}  // namespace nodo::fuzzing
