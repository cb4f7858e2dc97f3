#pragma once

#include <NODOCore/base/JSONText.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

namespace nodo {

/// A JSON document as a tree of values.
///
/// Exists so that records need not know the JSON library, and because a document that belongs to
/// somebody else must come back as it was: members keep their order, unless they are written
/// sorted, and a number keeps its digits instead of passing through a floating-point value.
class JSONValue {
 public:
  /// A number as its JSON text, e.g. "1.10".
  struct Number {
    std::string digits;

    bool operator==(const Number&) const = default;
  };

  using Array = std::vector<JSONValue>;
  /// Members in their order. A name that occurs twice is kept twice; the last one counts.
  using Object = std::vector<std::pair<std::string, JSONValue>>;

  static constexpr std::size_t maximumDepth = JSONDocument::maximumDepth;

  JSONValue() = default;

  explicit JSONValue(bool value) : content_(value) {}

  explicit JSONValue(std::int64_t value) : content_(Number{std::to_string(value)}) {}

  explicit JSONValue(Number value) : content_(std::move(value)) {}

  explicit JSONValue(std::string value) : content_(std::move(value)) {}

  explicit JSONValue(Array value) : content_(std::move(value)) {}

  explicit JSONValue(Object value) : content_(std::move(value)) {}

  /// Reads one document. Throws what JSONDocument throws.
  static JSONValue parse(std::string_view text);

  /// A copy of a document's value.
  static JSONValue from(const JSONNode& node);

  bool isNull() const { return std::holds_alternative<std::nullptr_t>(content_); }

  /// The content when it is of that kind, else null.
  const bool* boolean() const { return std::get_if<bool>(&content_); }

  const Number* number() const { return std::get_if<Number>(&content_); }

  const std::string* text() const { return std::get_if<std::string>(&content_); }

  const Array* array() const { return std::get_if<Array>(&content_); }

  const Object* object() const { return std::get_if<Object>(&content_); }

  Array* array() { return std::get_if<Array>(&content_); }

  Object* object() { return std::get_if<Object>(&content_); }

  /// The member of that name, or null when there is none or this is no object.
  const JSONValue* member(std::string_view name) const;
  JSONValue* member(std::string_view name);

  /// Gives the member of that name another value, in its place, or adds it behind the others. This
  /// must be an object.
  void setMember(std::string_view name, JSONValue value);

  /// Takes away every member of that name. This must be an object.
  void removeMember(std::string_view name);

  /// What this is, for an error message: `true`, `number 5`, `text "abc"`, `an object`.
  std::string description() const;

  /// Compares as written: the members' order and the numbers' digits count.
  bool operator==(const JSONValue&) const = default;

 private:
  std::variant<std::nullptr_t, bool, Number, std::string, Array, Object> content_ = nullptr;
};

/// Whether both say the same: the order of members does not count, nor does how a number is written
/// (5, 5.0 and 50e-1 are one number), and of a name that occurs twice the last counts. Numbers are
/// compared digit for digit, never rounded.
bool sameValue(const JSONValue& left, const JSONValue& right);

/// The number as a whole number, which may be written 5, 5.0 or 5e0; nothing when it has a fraction
/// or does not fit in 64 bits. Exact for every 64-bit value.
std::optional<std::int64_t> wholeNumber(const JSONValue::Number& number);

/// `value` as JSON text in UTF-8, without a line feed at the end. Invalid UTF-8 in a text becomes
/// U+FFFD, so that the result is always JSON.
std::string jsonText(const JSONValue& value, JSONLayout layout);

}  // namespace nodo
