#pragma once

#include <NODOCore/base/Errors.h>

#include <array>
#include <optional>
#include <string_view>
#include <vector>

namespace nodo {

/// One case of an enumeration and its text.
template <class Enum>
struct EnumText {
  Enum value;
  std::string_view text;
};

template <class Enum>
EnumText(Enum, std::string_view) -> EnumText<Enum>;  // Clang before 17 cannot do without

/// The texts of an enumeration's cases, in their order. Specialised beside each enumeration with
/// `static constexpr std::array cases{EnumText{...}, ...}`; JSON, command line and logs all use it.
template <class Enum>
struct EnumTexts;

/// An enumeration whose cases have texts.
template <class Enum>
concept TextEnum = requires {
  EnumTexts<Enum>::cases.size();
};

/// The text of a case, which is also its JSON form.
template <TextEnum Enum>
std::string_view rawValue(Enum value) {
  for (const auto& entry : EnumTexts<Enum>::cases) {
    if (entry.value == value) {
      return entry.text;
    }
  }
  programmingFault("an enumeration holds a value that is none of its cases");
}

/// The case with exactly this text (case-sensitive), or nothing.
template <TextEnum Enum>
std::optional<Enum> fromRawValue(std::string_view text) {
  for (const auto& entry : EnumTexts<Enum>::cases) {
    if (entry.text == text) {
      return entry.value;
    }
  }
  return std::nullopt;
}

/// All cases in their order.
template <TextEnum Enum>
std::vector<Enum> allCases() {
  std::vector<Enum> all;
  all.reserve(EnumTexts<Enum>::cases.size());
  for (const auto& entry : EnumTexts<Enum>::cases) {
    all.push_back(entry.value);
  }
  return all;
}

}  // namespace nodo
