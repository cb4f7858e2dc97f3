#pragma once

#include <concepts>
#include <cstddef>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// Text by Unicode rules.
///
/// Texts are UTF-8. A "character" is a user-perceived one, a grapheme cluster: "e" with a combining
/// accent is one, a family emoji is one, CR LF is one. A search therefore finds a text only where
/// it begins and ends at character boundaries: "pi" is not contained in "pi" + combining accent.
/// Invalid UTF-8 does no harm (an invalid byte counts as a character of its own).
///
/// All functions are pure and safe from any thread.
namespace nodo {

/// Whether `text` has no byte above 0x7F.
bool isASCII(std::string_view text);

/// Whether `text` is well-formed UTF-8.
bool isValidUTF8(std::string_view text);

/// `text` with every byte that is not part of well-formed UTF-8 replaced by U+FFFD.
std::string repairedUTF8(std::string_view text);

/// The number of characters in `text`.
std::size_t characterCount(std::string_view text);

/// The first `count` characters of `text`, or all of it when it has fewer.
std::string_view firstCharacters(std::string_view text, std::size_t count);

/// The first characters of `text` that take at most `columns` columns of a terminal, or all of it.
/// Chinese characters and emoji take two, combining marks none.
std::string_view firstColumns(std::string_view text, std::size_t columns);

/// `text` in lower case, each code point by its own full Unicode mapping, whatever the locale and
/// the neighbours (a capital sigma always becomes the non-final one).
std::string lowercased(std::string_view text);

/// Whether `needle` occurs in `text` between character boundaries. `needle` is ASCII and not empty.
bool contains(std::string_view text, std::string_view needle);

/// Whether `text` begins (ends) with `affix` at a character boundary. `affix` is ASCII and not
/// empty.
bool hasPrefix(std::string_view text, std::string_view affix);
bool hasSuffix(std::string_view text, std::string_view affix);

/// `text` without the white space and newlines around it: U+0009-000D, 0020, 0085, 00A0, 1680,
/// 2000-200B, 2028, 2029, 202F, 205F, 3000.
std::string_view trimmed(std::string_view text);

/// `text` without the blanks and tabs around it.
std::string_view trimmedBlanks(std::string_view text);

/// The pieces of `text` between line feeds, empty ones dropped. Only a line feed that is a
/// character by itself separates: CR LF is another character, and stays in its piece.
std::vector<std::string_view> splitAtLineFeeds(std::string_view text);

/// The pieces of `text` between newline characters of any kind (LF, CR, CR LF, VT, FF, NEL, LS,
/// PS), empty ones dropped.
std::vector<std::string_view> splitLines(std::string_view text);

/// The pieces of `line` between blanks and tabs, empty ones dropped.
std::vector<std::string_view> splitFields(std::string_view line);

/// Takes the next field off the front of `line`: skips blanks (only blanks, a tab is text), returns
/// the text up to the following blank, and leaves in `line` what comes after that one blank.
/// Nothing when only blanks are left.
std::optional<std::string_view> takeField(std::string_view& line);

/// `text` fit for a terminal: control characters (C0, DEL, C1, and the bidirectional and line
/// separators that can reorder or split a line) as visible escapes such as "\n" or "\u{1b}",
/// invalid UTF-8 as U+FFFD.
std::string escapedForDisplay(std::string_view text);

/// The value of decimal text: at most one "+" or "-", then at least one ASCII digit and nothing
/// else. Nothing for other texts and for values that do not fit.
template <std::signed_integral Integer>
std::optional<Integer> integerFromText(std::string_view text) {
  const bool negative = !text.empty() && text.front() == '-';
  if (negative || (!text.empty() && text.front() == '+')) {
    text.remove_prefix(1);
  }
  if (text.empty()) {
    return std::nullopt;
  }
  // Counted downwards, as the smallest value has no positive counterpart.
  constexpr Integer smallest = std::numeric_limits<Integer>::min();
  Integer value = 0;
  for (const char character : text) {
    if (character < '0' || character > '9') {
      return std::nullopt;
    }
    const auto digit = static_cast<Integer>(character - '0');
    if (value < (smallest + digit) / 10) {
      return std::nullopt;
    }
    value = static_cast<Integer>(value * 10 - digit);
  }
  if (negative) {
    return value;
  }
  if (value == smallest) {
    return std::nullopt;
  }
  return static_cast<Integer>(-value);
}

}  // namespace nodo
