#pragma once

namespace nodo {

/// Follows a text's code points and tells where two consonants of an Indic script are joined into
/// one character by a virama between them: rule GB9c of Unicode's text segmentation (UAX #29,
/// version 15.1). Here because utf8proc has the rule only from 2.9 on; with a newer one it agrees.
class IndicConjunct {
 public:
  /// Takes the next code point: whether it continues the character before it by this rule.
  bool joins(char32_t point);

 private:
  enum class State { none, afterConsonant, afterLinker };

  State state_ = State::none;
};

}  // namespace nodo
