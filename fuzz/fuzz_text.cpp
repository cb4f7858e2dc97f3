#include <NODOCore/base/Text.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <string>
#include <vector>

#include <fuzz/Fuzzing.h>

namespace nodo::fuzzing {
namespace {

using Characters = std::vector<std::string_view>;

// One character after the other, each found anew from where the one before it ended.
Characters charactersOf(std::string_view text) {
  Characters characters;
  while (!text.empty()) {
    characters.push_back(firstCharacters(text, 1));
    require(!characters.back().empty(), "a text that is not empty has a first character");
    text.remove_prefix(characters.back().size());
  }
  return characters;
}

void checkCharacters(std::string_view text, const Characters& characters, std::size_t number) {
  const std::size_t count = characterCount(text);
  require(count == characters.size(), "counting agrees with walking");
  require(firstCharacters(text, count) == text, "all characters are the whole text");
  const std::size_t some = count == 0 ? 0 : number % count;
  const std::string_view beginning = firstCharacters(text, some);
  require(text.starts_with(beginning), "the first characters begin the text");
  require(characterCount(beginning) == some, "as many characters are taken as asked for");
}

void checkSearch(std::string_view text, const Characters& characters, std::string_view needle) {
  const Characters wanted = charactersOf(needle);
  require(contains(text, needle) == (std::search(characters.begin(), characters.end(),
                                                 wanted.begin(), wanted.end()) != characters.end()),
          "a needle is found where its characters stand one after the other");
  const bool fits = wanted.size() <= characters.size();
  require(hasPrefix(text, needle) ==
              (fits && std::equal(wanted.begin(), wanted.end(), characters.begin())),
          "a prefix is the first characters");
  require(hasSuffix(text, needle) ==
              (fits && std::equal(wanted.rbegin(), wanted.rend(), characters.rbegin())),
          "a suffix is the last characters");
}

void checkRepair(std::string_view text) {
  const std::string repaired = repairedUTF8(text);
  require(isValidUTF8(repaired), "repaired text is valid UTF-8");
  require((repaired == text) == isValidUTF8(text), "only invalid text is changed");
  require(characterCount(repaired) == characterCount(text), "a repair keeps the characters");
}

void checkTrimming(std::string_view text) {
  const std::string_view inner = trimmed(text);
  require(trimmed(inner) == inner, "trimming twice changes nothing");
  require(trimmed(" \n" + std::string(inner) + "\t\u3000") == inner,
          "white space around a text is trimmed");
  const std::string_view withoutBlanks = trimmedBlanks(text);
  require(trimmedBlanks(withoutBlanks) == withoutBlanks, "trimming blanks twice changes nothing");
  require(trimmed(withoutBlanks) == inner, "blanks and tabs are white space");
}

void checkLowerCase(std::string_view text) {
  const std::string lower = lowercased(text);
  require(lowercased(lower) == lower, "lower case is its own lower case");
  require(isValidUTF8(lower) == isValidUTF8(text), "lower case keeps valid text valid");
}

// The pieces in their order, with nothing but separators between them.
void checkPieces(std::string_view text, const Characters& pieces, std::string_view separators) {
  const char* end = text.data();
  for (const std::string_view piece : pieces) {
    require(!piece.empty(), "no piece is empty");
    require(piece.data() >= end && piece.data() + piece.size() <= text.data() + text.size(),
            "pieces follow one another");
    for (const char* between = end; between < piece.data(); ++between) {
      require(separators.find(*between) != std::string_view::npos, "no text is lost");
    }
    end = piece.data() + piece.size();
  }
}

void checkSplitting(std::string_view text) {
  const Characters fields = splitFields(text);
  checkPieces(text, fields, " \t");
  for (const std::string_view field : fields) {
    require(!contains(field, " ") && !contains(field, "\t"), "a field holds no blank");
  }
  const Characters rows = splitAtLineFeeds(text);
  checkPieces(text, rows, "\n");
  for (const std::string_view row : rows) {
    require(!contains(row, "\n"), "a row holds no line feed");
  }
  const Characters lines = splitLines(text);
  checkPieces(text, lines, "\n\v\f\r\u0085\u2028\u2029");
  for (const std::string_view line : lines) {
    require(line.find_first_of("\n\v\f\r") == std::string_view::npos, "a line holds no newline");
  }

  std::string_view rest = text;
  while (const auto field = takeField(rest)) {
    require(!field->empty() && !contains(*field, " "), "a taken field holds no blank");
  }
}

void checkDisplay(std::string_view text) {
  const std::string shown = escapedForDisplay(text);
  require(isValidUTF8(shown), "shown text is valid UTF-8");
  require(escapedForDisplay(shown) == shown, "shown text needs no further escape");
  require(std::none_of(shown.begin(), shown.end(),
                       [](char character) {
                         const auto byte = static_cast<unsigned char>(character);
                         return byte < 0x20 || byte == 0x7F;
                       }),
          "shown text holds no control character");
  for (std::size_t lead = shown.find('\xC2'); lead != std::string::npos;
       lead = shown.find('\xC2', lead + 1)) {
    require(static_cast<unsigned char>(shown[lead + 1]) > 0x9F,
            "shown text holds no C1 control character");
  }
  for (const char* direction :
       {"\u061C", "\u200E", "\u200F", "\u2028", "\u2029", "\u202A", "\u202B", "\u202C", "\u202D",
        "\u202E", "\u2066", "\u2067", "\u2068", "\u2069"}) {
    require(shown.find(direction) == std::string::npos, "shown text cannot reorder its line");
  }
}

template <class Integer>
std::optional<Integer> slowInteger(std::string_view text) {
  if (text.starts_with('+')) {
    text.remove_prefix(1);
    if (text.starts_with('-')) {
      return std::nullopt;
    }
  }
  Integer value = 0;
  const char* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, value);
  return error == std::errc() && stop == end ? std::optional(value) : std::nullopt;
}

void checkIntegers(std::string_view text) {
  require(integerFromText<std::int32_t>(text) == slowInteger<std::int32_t>(text),
          "32-bit integers are read as the standard library reads them");
  require(integerFromText<std::int64_t>(text) == slowInteger<std::int64_t>(text),
          "64-bit integers are read as the standard library reads them");
}

bool isASCII(std::string_view text) {
  return std::all_of(text.begin(), text.end(),
                     [](char character) { return static_cast<unsigned char>(character) < 0x80; });
}

void checkText(std::string_view text, std::string_view needle, std::size_t number) {
  const Characters characters = charactersOf(text);
  checkCharacters(text, characters, number);
  for (const std::string_view fixed : {"a", " ", "\n", "\r\n", "claude-code"}) {
    checkSearch(text, characters, fixed);
  }
  if (!needle.empty() && isASCII(needle)) {
    checkSearch(text, characters, needle);
  }
  checkRepair(text);
  checkTrimming(text);
  checkLowerCase(text);
  checkSplitting(text);
  checkDisplay(text);
  checkIntegers(text);
}

}  // namespace
}  // namespace nodo::fuzzing

// A byte for a number of characters, then a needle and a text, between them a line "%%".
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::string_view input = nodo::fuzzing::textOf(data, size);
  const std::size_t number = nodo::fuzzing::takeNumber(input);
  const auto [needle, text] = nodo::fuzzing::twoTexts(input);
  nodo::fuzzing::checkText(text, needle, number);
  nodo::fuzzing::checkText(needle, text, number);
  return 0;
}
