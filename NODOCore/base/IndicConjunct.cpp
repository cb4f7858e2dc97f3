#include <NODOCore/base/IndicConjunct.h>

#include <algorithm>
#include <array>

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

}  // namespace

bool IndicConjunct::joins(char32_t point) {
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

}  // namespace nodo
