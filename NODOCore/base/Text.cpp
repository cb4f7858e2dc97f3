#include <NODOCore/base/Text.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>

#include <fmt/format.h>
#include <utf8proc.h>

namespace nodo {

namespace {

struct Range {
  char32_t first;
  char32_t last;
};

// Indic_Conjunct_Break=Consonant in DerivedCoreProperties.txt of Unicode 15.1.
constexpr std::array<Range, 26> consonants{
    {{0x0915, 0x0939}, {0x0958, 0x095F}, {0x0978, 0x097F}, {0x0995, 0x09A8}, {0x09AA, 0x09B0},
     {0x09B2, 0x09B2}, {0x09B6, 0x09B9}, {0x09DC, 0x09DD}, {0x09DF, 0x09DF}, {0x09F0, 0x09F1},
     {0x0A95, 0x0AA8}, {0x0AAA, 0x0AB0}, {0x0AB2, 0x0AB3}, {0x0AB5, 0x0AB9}, {0x0AF9, 0x0AF9},
     {0x0B15, 0x0B28}, {0x0B2A, 0x0B30}, {0x0B32, 0x0B33}, {0x0B35, 0x0B39}, {0x0B5C, 0x0B5D},
     {0x0B5F, 0x0B5F}, {0x0B71, 0x0B71}, {0x0C15, 0x0C28}, {0x0C2A, 0x0C39}, {0x0C58, 0x0C5A},
     {0x0D15, 0x0D3A}}};

bool isConsonant(char32_t point) {
  return std::any_of(consonants.begin(), consonants.end(), [point](const Range& range) {
    return point >= range.first && point <= range.last;
  });
}

// Indic_Conjunct_Break=Linker: the viramas of the six scripts.
bool isLinker(char32_t point) {
  return point == 0x094D || point == 0x09CD || point == 0x0ACD || point == 0x0B4D ||
         point == 0x0C4D || point == 0x0D4D;
}

// Indic_Conjunct_Break=Extend: marks that may stand between without undoing the conjunct.
bool isExtender(char32_t point) {
  constexpr char32_t zeroWidthJoiner = 0x200D;
  return point == zeroWidthJoiner ||
         utf8proc_get_property(static_cast<utf8proc_int32_t>(point))->combining_class != 0;
}

// Follows a text's code points and tells where two consonants of an Indic script are joined into
// one character by a virama between them: rule GB9c of Unicode's text segmentation (UAX #29,
// version 15.1). Here because utf8proc has the rule only from 2.9 on; with a newer one it agrees.
class IndicConjunct {
 public:
  // Takes the next code point: whether it continues the character before it by this rule.
  bool joins(char32_t point) {
    constexpr char32_t firstCombiningMark = 0x0300;
    if (point < firstCombiningMark) {
      state_ = State::none;
      return false;
    }
    if (isConsonant(point)) {
      const bool joined = state_ == State::afterLinker;
      state_ = State::afterConsonant;
      return joined;
    }
    if (state_ != State::none) {
      if (isLinker(point)) {
        state_ = State::afterLinker;
      } else if (!isExtender(point)) {
        state_ = State::none;
      }
    }
    return false;
  }

 private:
  enum class State { none, afterConsonant, afterLinker };

  State state_ = State::none;
};

constexpr char32_t replacement = 0xFFFD;

struct CodePoint {
  char32_t value = replacement;
  std::size_t length = 1;  // in bytes
  bool valid = false;
};

// The code point that begins `text`, which is not empty. An invalid byte stands for itself.
CodePoint firstCodePoint(std::string_view text) {
  const auto first = static_cast<unsigned char>(text.front());
  if (first < 0x80) {
    return {first, 1, true};
  }
  utf8proc_int32_t value = -1;
  const auto length = utf8proc_iterate(
      reinterpret_cast<const utf8proc_uint8_t*>(text.data()),
      static_cast<utf8proc_ssize_t>(std::min<std::size_t>(text.size(), 4)), &value);
  if (length <= 0) {
    return {};
  }
  return {static_cast<char32_t>(value), static_cast<std::size_t>(length), true};
}

// The code point that ends `text`, which is not empty.
CodePoint lastCodePoint(std::string_view text) {
  for (std::size_t length = 1; length <= std::min<std::size_t>(text.size(), 4); ++length) {
    const std::string_view tail = text.substr(text.size() - length);
    if ((static_cast<unsigned char>(tail.front()) & 0xC0U) != 0x80U) {  // not a continuation byte
      const CodePoint point = firstCodePoint(tail);
      return point.length == length ? point : CodePoint{};
    }
  }
  return {};
}

// Whether a character boundary lies at `offset`, one side of which is known to be ASCII; so no rule
// that looks further than the two neighbours (flags, emoji sequences) applies.
bool isBoundaryBesideASCII(std::string_view text, std::size_t offset) {
  if (offset == 0 || offset == text.size()) {
    return true;
  }
  const auto before = static_cast<unsigned char>(text[offset - 1]);
  const auto after = static_cast<unsigned char>(text[offset]);
  if (before < 0x80 && after < 0x80) {
    return before != '\r' || after != '\n';
  }
  const char32_t left = lastCodePoint(text.substr(0, offset)).value;
  const char32_t right = firstCodePoint(text.substr(offset)).value;
  return utf8proc_grapheme_break(static_cast<utf8proc_int32_t>(left),
                                 static_cast<utf8proc_int32_t>(right));
}

bool standsAlone(std::string_view text, std::size_t offset, std::size_t length) {
  return isBoundaryBesideASCII(text, offset) && isBoundaryBesideASCII(text, offset + length);
}

// Calls `visit(offset)` for each character with the offset of its first byte, until it returns
// false.
template <class Visit>
void forEachCharacter(std::string_view text, Visit visit) {
  utf8proc_int32_t state = 0;
  utf8proc_int32_t previous = -1;
  IndicConjunct conjunct;
  for (std::size_t offset = 0; offset < text.size();) {
    const CodePoint point = firstCodePoint(text.substr(offset));
    const auto current = static_cast<utf8proc_int32_t>(point.value);
    const bool begins = previous < 0 || utf8proc_grapheme_break_stateful(previous, current, &state);
    const bool joins = conjunct.joins(point.value);
    if (begins && !joins && !visit(offset)) {
      return;
    }
    previous = current;
    offset += point.length;
  }
}

bool isWhiteSpaceOrNewline(char32_t point) {
  return (point >= 0x9 && point <= 0xD) || point == 0x20 || point == 0x85 || point == 0xA0 ||
         point == 0x1680 || (point >= 0x2000 && point <= 0x200B) || point == 0x2028 ||
         point == 0x2029 || point == 0x202F || point == 0x205F || point == 0x3000;
}

bool isNewline(char32_t point) {
  return (point >= 0xA && point <= 0xD) || point == 0x85 || point == 0x2028 || point == 0x2029;
}

bool isBlankOrTab(char32_t point) {
  return point == ' ' || point == '\t';
}

// What a terminal would act on, or what would make one line look like another.
bool needsEscape(char32_t point) {
  const bool control = point < 0x20 || (point >= 0x7F && point <= 0x9F);
  const bool lineSeparator = point == 0x2028 || point == 0x2029;
  const bool bidirectional = point == 0x061C || point == 0x200E || point == 0x200F ||
                             (point >= 0x202A && point <= 0x202E) ||
                             (point >= 0x2066 && point <= 0x2069);
  return control || lineSeparator || bidirectional;
}

template <class Predicate>
std::string_view trimmedWhere(std::string_view text, Predicate isTrimmed) {
  while (!text.empty()) {
    const CodePoint point = firstCodePoint(text);
    if (!point.valid || !isTrimmed(point.value)) {
      break;
    }
    text.remove_prefix(point.length);
  }
  while (!text.empty()) {
    const CodePoint point = lastCodePoint(text);
    if (!point.valid || !isTrimmed(point.value)) {
      break;
    }
    text.remove_suffix(point.length);
  }
  return text;
}

template <class Predicate>
std::vector<std::string_view> splitWhere(std::string_view text, Predicate isSeparator) {
  std::vector<std::string_view> pieces;
  std::size_t begin = 0;
  std::size_t offset = 0;
  while (offset < text.size()) {
    const CodePoint point = firstCodePoint(text.substr(offset));
    if (isSeparator(point.value, offset)) {
      if (offset > begin) {
        pieces.push_back(text.substr(begin, offset - begin));
      }
      begin = offset + point.length;
    }
    offset += point.length;
  }
  if (begin < text.size()) {
    pieces.push_back(text.substr(begin));
  }
  return pieces;
}

// U+0130 is the one code point whose full lower case is longer than its simple one.
constexpr char32_t capitalIWithDot = 0x130;
constexpr std::string_view smallIWithDot = "i\u0307";

void appendUTF8(std::string& text, char32_t point) {
  std::array<utf8proc_uint8_t, 4> bytes{};
  const auto length = utf8proc_encode_char(static_cast<utf8proc_int32_t>(point), bytes.data());
  text.append(reinterpret_cast<const char*>(bytes.data()), static_cast<std::size_t>(length));
}

}  // namespace

bool isASCII(std::string_view text) {
  // Without branches, so that compilers take many bytes at a time.
  unsigned char all = 0;
  for (const char character : text) {
    all |= static_cast<unsigned char>(character);
  }
  return all < 0x80;
}

bool isValidUTF8(std::string_view text) {
  if (isASCII(text)) {
    return true;
  }
  while (!text.empty()) {
    const CodePoint point = firstCodePoint(text);
    if (!point.valid) {
      return false;
    }
    text.remove_prefix(point.length);
  }
  return true;
}

std::string repairedUTF8(std::string_view text) {
  std::string repaired;
  repaired.reserve(text.size());
  while (!text.empty()) {
    const CodePoint point = firstCodePoint(text);
    if (point.valid) {
      repaired.append(text.substr(0, point.length));
    } else {
      appendUTF8(repaired, replacement);
    }
    text.remove_prefix(point.length);
  }
  return repaired;
}

std::size_t characterCount(std::string_view text) {
  std::size_t count = 0;
  forEachCharacter(text, [&](std::size_t) {
    ++count;
    return true;
  });
  return count;
}

std::string_view firstCharacters(std::string_view text, std::size_t count) {
  std::size_t seen = 0;
  std::size_t end = text.size();
  forEachCharacter(text, [&](std::size_t offset) {
    if (seen == count) {
      end = offset;
      return false;
    }
    ++seen;
    return true;
  });
  return text.substr(0, end);
}

std::string_view firstColumns(std::string_view text, std::size_t columns) {
  std::size_t end = 0;
  std::size_t taken = 0;
  while (end < text.size()) {
    const std::string_view character = firstCharacters(text.substr(end), 1);
    // Of its code points the widest counts: the others modify it.
    std::size_t width = 0;
    for (std::string_view rest = character; !rest.empty();) {
      const CodePoint point = firstCodePoint(rest);
      const int own =
          point.valid ? utf8proc_charwidth(static_cast<utf8proc_int32_t>(point.value)) : 1;
      width = std::max(width, static_cast<std::size_t>(std::max(own, 0)));
      rest.remove_prefix(point.length);
    }
    taken += width;
    if (taken > columns) {
      break;
    }
    end += character.size();
  }
  return text.substr(0, end);
}

std::string lowercased(std::string_view text) {
  std::string lower(text);
  unsigned char allBits = 0;
  // Without a branch, so that the compiler makes it a loop over whole registers.
  for (char& character : lower) {
    const auto byte = static_cast<unsigned char>(character);
    const bool isCapital = static_cast<unsigned char>(byte - 'A') <= 'Z' - 'A';
    allBits |= byte;
    character = static_cast<char>(byte | (isCapital ? 0x20U : 0U));
  }
  if (allBits < 0x80) {
    return lower;
  }
  std::string_view rest(lower);
  std::string all;
  all.reserve(lower.size());
  while (!rest.empty()) {
    const CodePoint point = firstCodePoint(rest);
    if (!point.valid || point.value < 0x80) {
      all.push_back(rest.front());
    } else if (point.value == capitalIWithDot) {
      all.append(smallIWithDot);
    } else {
      appendUTF8(
          all, static_cast<char32_t>(utf8proc_tolower(static_cast<utf8proc_int32_t>(point.value))));
    }
    rest.remove_prefix(point.length);
  }
  return all;
}

bool contains(std::string_view text, std::string_view needle) {
  std::size_t from = 0;
  while (from + needle.size() <= text.size()) {
    // memmem is several times faster than string_view::find on long command lines.
    const void* found =
        memmem(text.data() + from, text.size() - from, needle.data(), needle.size());
    if (found == nullptr) {
      return false;
    }
    const auto offset = static_cast<std::size_t>(static_cast<const char*>(found) - text.data());
    if (standsAlone(text, offset, needle.size())) {
      return true;
    }
    from = offset + 1;
  }
  return false;
}

bool hasPrefix(std::string_view text, std::string_view affix) {
  return text.substr(0, affix.size()) == affix && isBoundaryBesideASCII(text, affix.size());
}

bool hasSuffix(std::string_view text, std::string_view affix) {
  return text.size() >= affix.size() && text.substr(text.size() - affix.size()) == affix &&
         isBoundaryBesideASCII(text, text.size() - affix.size());
}

std::string_view trimmed(std::string_view text) {
  return trimmedWhere(text, isWhiteSpaceOrNewline);
}

std::string_view trimmedBlanks(std::string_view text) {
  return trimmedWhere(text, isBlankOrTab);
}

std::vector<std::string_view> splitAtLineFeeds(std::string_view text) {
  return splitWhere(text, [text](char32_t point, std::size_t offset) {
    return point == '\n' && (offset == 0 || text[offset - 1] != '\r');
  });
}

std::vector<std::string_view> splitLines(std::string_view text) {
  return splitWhere(text, [](char32_t point, std::size_t) { return isNewline(point); });
}

std::vector<std::string_view> splitFields(std::string_view line) {
  return splitWhere(line, [line](char32_t point, std::size_t offset) {
    return isBlankOrTab(point) && standsAlone(line, offset, 1);
  });
}

std::optional<std::string_view> takeField(std::string_view& line) {
  const auto isSeparator = [](std::string_view text, std::size_t offset) {
    return text[offset] == ' ' && standsAlone(text, offset, 1);
  };
  std::size_t begin = 0;
  while (begin < line.size() && isSeparator(line, begin)) {
    ++begin;
  }
  std::size_t end = begin;
  while (end < line.size() && !isSeparator(line, end)) {
    ++end;
  }
  if (begin == end) {
    return std::nullopt;
  }
  const std::string_view field = line.substr(begin, end - begin);
  line.remove_prefix(std::min(line.size(), end + 1));
  return field;
}

std::string escapedForDisplay(std::string_view text) {
  std::string shown;
  shown.reserve(text.size());
  while (!text.empty()) {
    const CodePoint point = firstCodePoint(text);
    if (!point.valid) {
      appendUTF8(shown, replacement);
    } else if (point.value == '\n') {
      shown.append("\\n");
    } else if (point.value == '\r') {
      shown.append("\\r");
    } else if (point.value == '\t') {
      shown.append("\\t");
    } else if (needsEscape(point.value)) {
      shown.append(fmt::format("\\u{{{:x}}}", static_cast<std::uint32_t>(point.value)));
    } else {
      shown.append(text.substr(0, point.length));
    }
    text.remove_prefix(point.length);
  }
  return shown;
}

}  // namespace nodo
