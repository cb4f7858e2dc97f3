#pragma once

#include <NODOCore/base/Date.h>
#include <NODOCore/base/JSONValue.h>
#include <NODOCore/base/TextEnum.h>

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

/// Records to JSON and back.
///
/// A record's source file describes its fields once, which defines both directions:
///
///     NODO_JSON_RECORD(TriggerActivityBucket, fields, bucket) {
///       fields.required("startedAt", bucket.startedAt);
///       fields.optional("note", bucket.note);
///     }
///
/// Its header declares `JSONValue encode(const Record&)` and `void decode(const JSONReader&,
/// Record&)`. A record that derives what is missing from what is there overloads `deriveMissing`
/// before that.
///
/// Decoding is strict in types (a number where a text is due is an error, 1.0 is a whole
/// number, 1.5 and true are not) and forgiving in unknown keys. It replaces whatever the record
/// held before. Every failure is a DecodingError.
namespace nodo {

/// A value of a document that is being decoded, together with the way that leads to it, which is
/// put into words only when decoding fails.
class JSONReader {
 public:
  explicit JSONReader(const JSONValue& value) : value_(&value) {}

  const JSONValue& value() const { return *value_; }

  /// The reader of a value inside this one, by its key or by its place in a list. It refers to this
  /// one and to `key`, which must outlive it.
  JSONReader child(const JSONValue& value, std::string_view key) const {
    return {value, this, key};
  }

  JSONReader child(const JSONValue& value, std::size_t place) const { return {value, this, place}; }

  /// Ends the decoding of this value with a DecodingError.
  [[noreturn]] void fail(const std::string& expected) const;

  /// Ends it because `key` is not there.
  [[noreturn]] void failMissing(std::string_view key, const std::string& expected) const;

 private:
  using Step = std::variant<std::string_view, std::size_t>;

  JSONReader(const JSONValue& value, const JSONReader* parent, Step step)
      : value_(&value), parent_(parent), step_(step) {}

  std::string path() const;

  const JSONValue* value_;
  const JSONReader* parent_ = nullptr;
  Step step_;  // from the parent
};

JSONValue encode(bool value);
JSONValue encode(std::int32_t value);
JSONValue encode(std::int64_t value);
JSONValue encode(const std::string& value);
JSONValue encode(Date value);

void decode(const JSONReader& from, bool& value);
void decode(const JSONReader& from, std::int32_t& value);
void decode(const JSONReader& from, std::int64_t& value);
void decode(const JSONReader& from, std::string& value);
void decode(const JSONReader& from, Date& value);

template <TextEnum Enum>
JSONValue encode(Enum value) {
  return JSONValue(std::string(rawValue(value)));
}

template <TextEnum Enum>
void decode(const JSONReader& from, Enum& value) {
  const std::string* text = from.value().text();
  const auto known = text == nullptr ? std::nullopt : fromRawValue<Enum>(*text);
  if (!known) {
    std::string expected = "one of";
    for (const auto& entry : EnumTexts<Enum>::cases) {
      expected += " \"" + std::string(entry.text) + "\"";
    }
    from.fail(expected);
  }
  value = *known;
}

template <class Element>
JSONValue encode(const std::vector<Element>& list) {
  JSONValue::Array array;
  array.reserve(list.size());
  for (const Element& element : list) {
    array.push_back(encode(element));
  }
  return JSONValue(std::move(array));
}

template <class Element>
void decode(const JSONReader& from, std::vector<Element>& list) {
  const auto* array = from.value().array();
  if (array == nullptr) {
    from.fail("a list");
  }
  list.clear();
  list.reserve(array->size());
  for (const JSONValue& value : *array) {
    const JSONReader reader = from.child(value, list.size());
    decode(reader, list.emplace_back());
  }
}

template <class Element>
JSONValue encode(const std::map<std::string, Element>& map) {
  JSONValue::Object object;
  object.reserve(map.size());
  for (const auto& [name, element] : map) {
    object.emplace_back(name, encode(element));
  }
  return JSONValue(std::move(object));
}

template <class Element>
void decode(const JSONReader& from, std::map<std::string, Element>& map) {
  const auto* object = from.value().object();
  if (object == nullptr) {
    from.fail("an object");
  }
  map.clear();
  for (const auto& [name, value] : *object) {
    decode(from.child(value, name), map[name]);
  }
}

/// Builds a record's object from the description of its fields.
class ObjectEncoder {
 public:
  /// A field that is always written and must be there when read.
  template <class Value>
  void required(std::string_view key, const Value& value) {
    object_.emplace_back(key, encode(value));
  }

  /// A field that is always written and keeps its default when it is missing or null on reading.
  template <class Value>
  void defaulted(std::string_view key, const Value& value) {
    required(key, value);
  }

  /// A field that is left out when it is absent, and absent when it is missing or null.
  template <class Value>
  void optional(std::string_view key, const std::optional<Value>& value) {
    if (value) {
      required(key, *value);
    }
  }

  JSONValue finish() { return JSONValue(std::move(object_)); }

 private:
  JSONValue::Object object_;
};

/// Fills a record from an object by the description of its fields.
class ObjectDecoder {
 public:
  /// Throws DecodingError when `from` is no object.
  explicit ObjectDecoder(const JSONReader& from);

  /// Whether the object has that key with a value other than null.
  bool has(std::string_view key) const { return find(key) != nullptr; }

  template <class Value>
  void required(std::string_view key, Value& value) {
    const JSONValue* found = from_->value().member(key);
    if (found == nullptr) {
      from_->failMissing(key, "a value");
    }
    decode(from_->child(*found, key), value);
  }

  template <class Value>
  void defaulted(std::string_view key, Value& value) {
    if (const JSONValue* found = find(key)) {
      decode(from_->child(*found, key), value);
    }
  }

  template <class Value>
  void optional(std::string_view key, std::optional<Value>& value) {
    value.reset();
    if (const JSONValue* found = find(key)) {
      decode(from_->child(*found, key), value.emplace());
    }
  }

 private:
  const JSONValue* find(std::string_view key) const;

  const JSONReader* from_;
};

/// Called once a record's fields are read. `fields` tells which of them were there.
template <class Record>
void deriveMissing(const ObjectDecoder& /*fields*/, Record& /*record*/) {}

// Defines `encode` and `decode` of `Record` by the description of its fields that follows.
// NOLINTBEGIN(bugprone-macro-parentheses): the arguments are a type and names, no expressions
#define NODO_JSON_RECORD(Record, fields, record)           \
  template <class Fields, class Self>                      \
  requires std::same_as<std::remove_const_t<Self>, Record> \
  static void describe(Fields& fields, Self& record);      \
  JSONValue encode(const Record& value) {                  \
    ObjectEncoder encoder;                                 \
    describe(encoder, value);                              \
    return encoder.finish();                               \
  }                                                        \
  void decode(const JSONReader& from, Record& value) {     \
    value = Record();                                      \
    ObjectDecoder decoder(from);                           \
    describe(decoder, value);                              \
    deriveMissing(decoder, value);                         \
  }                                                        \
  template <class Fields, class Self>                      \
  requires std::same_as<std::remove_const_t<Self>, Record> \
  static void describe(Fields& fields, Self& record)

// NOLINTEND(bugprone-macro-parentheses)

/// `record` as JSON text without a line feed at the end.
template <class Record>
std::string encodeJSON(const Record& record, JSONLayout layout) {
  return jsonText(encode(record), layout);
}

/// The record that `text` describes. Throws DecodingError.
template <class Record>
Record decodeJSON(std::string_view text) {
  const JSONValue document = JSONValue::parse(text);
  Record record;
  decode(JSONReader(document), record);
  return record;
}

}  // namespace nodo
