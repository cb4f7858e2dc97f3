#pragma once

#include <NODOCore/base/Date.h>
#include <NODOCore/base/JSONValue.h>
#include <NODOCore/base/TextEnum.h>

#include <array>
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
/// Its header declares `void encode(JSONWriter&, const Record&)` and `void decode(const
/// JSONReader&, Record&)`. A record that derives what is missing from what is there overloads
/// `deriveMissing` before that.
///
/// Decoding is strict in types (a number where a text is due is an error, 1.0 is a whole
/// number, 1.5 and true are not) and forgiving in unknown keys. It replaces whatever the record
/// held before. Every failure is a DecodingError.
namespace nodo {

/// A value of a document that is being decoded, together with the way that leads to it, which is
/// put into words only when decoding fails. The document must outlive it.
class JSONReader {
 public:
  explicit JSONReader(const JSONDocument& document) : node_(&document.root()) {}

  const JSONNode& node() const { return *node_; }

  bool is(JSONNode::Kind kind) const { return node_->kind == kind; }

  /// The reader of a value inside this one, by its key or by its place in a list. It refers to this
  /// one and to `key`, which must outlive it.
  JSONReader child(const JSONNode& node, std::string_view key) const { return {node, this, key}; }

  JSONReader child(const JSONNode& node, std::size_t place) const { return {node, this, place}; }

  /// Ends the decoding of this value with a DecodingError.
  [[noreturn]] void fail(const std::string& expected) const;

  /// Ends it because `key` is not there.
  [[noreturn]] void failMissing(std::string_view key, const std::string& expected) const;

 private:
  using Step = std::variant<std::string_view, std::size_t>;

  JSONReader(const JSONNode& node, const JSONReader* parent, Step step)
      : node_(&node), parent_(parent), step_(step) {}

  std::string path() const;

  const JSONNode* node_;
  const JSONReader* parent_ = nullptr;
  Step step_;  // from the parent
};

void encode(JSONWriter& to, bool value);
void encode(JSONWriter& to, std::int32_t value);
void encode(JSONWriter& to, std::int64_t value);
void encode(JSONWriter& to, const std::string& value);
void encode(JSONWriter& to, Date value);

void decode(const JSONReader& from, bool& value);
void decode(const JSONReader& from, std::int32_t& value);
void decode(const JSONReader& from, std::int64_t& value);
void decode(const JSONReader& from, std::string& value);
void decode(const JSONReader& from, Date& value);

template <TextEnum Enum>
void encode(JSONWriter& to, Enum value) {
  to.text(rawValue(value));
}

template <TextEnum Enum>
void decode(const JSONReader& from, Enum& value) {
  const auto known =
      from.is(JSONNode::Kind::text) ? fromRawValue<Enum>(from.node().text()) : std::nullopt;
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
void encode(JSONWriter& to, const std::vector<Element>& list) {
  to.beginList();
  for (const Element& element : list) {
    encode(to, element);
  }
  to.endList();
}

template <class Element>
void decode(const JSONReader& from, std::vector<Element>& list) {
  if (!from.is(JSONNode::Kind::list)) {
    from.fail("a list");
  }
  list.clear();
  const JSONNode* const end = from.node().next();
  for (const JSONNode* node = from.node().inside(); node != end; node = node->next()) {
    const JSONReader reader = from.child(*node, list.size());
    decode(reader, list.emplace_back());
  }
}

template <class Element>
void encode(JSONWriter& to, const std::map<std::string, Element>& map) {
  to.beginObject();
  for (const auto& [name, element] : map) {
    to.name(name);
    encode(to, element);
  }
  to.endObject();
}

template <class Element>
void decode(const JSONReader& from, std::map<std::string, Element>& map) {
  if (!from.is(JSONNode::Kind::object)) {
    from.fail("an object");
  }
  map.clear();
  const JSONNode* const end = from.node().next();
  for (const JSONNode* name = from.node().inside(); name != end; name = name->next()->next()) {
    decode(from.child(*name->next(), name->text()), map[std::string(name->text())]);
  }
}

/// Writes a record's object by the description of its fields.
class ObjectEncoder {
 public:
  explicit ObjectEncoder(JSONWriter& to) : to_(&to) {}

  /// A field that is always written and must be there when read.
  template <class Value>
  void required(std::string_view key, const Value& value) {
    add({key, &value,
         [](JSONWriter& to, const void* of) { encode(to, *static_cast<const Value*>(of)); }});
  }

  /// A field that is always written and keeps its default when it is missing or null on reading.
  template <class Value>
  void defaulted(std::string_view key, const Value& value) {
    required(key, value);
  }

  /// A switch that is left out when it is off, and off when it is missing or null.
  void flag(std::string_view key, const bool& value) {
    if (value) {
      required(key, value);
    }
  }

  /// A field that is left out when it is absent, and absent when it is missing or null.
  template <class Value>
  void optional(std::string_view key, const std::optional<Value>& value) {
    if (value) {
      required(key, *value);
    }
  }

  /// Writes all of them, as their order is known now.
  void finish();

 private:
  struct Field {
    std::string_view key;
    const void* value;
    void (*write)(JSONWriter& to, const void* value);
  };

  // No record comes near it, and a record is written without an allocation of its own.
  static constexpr std::size_t mostFields = 32;

  void add(const Field& field);

  JSONWriter* to_;
  std::array<Field, mostFields> fields_;  // the first `count_` of them
  std::size_t count_ = 0;
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
    const JSONNode* found = member(key);
    if (found == nullptr) {
      from_->failMissing(key, "a value");
    }
    decode(from_->child(*found, key), value);
  }

  template <class Value>
  void defaulted(std::string_view key, Value& value) {
    if (const JSONNode* found = find(key)) {
      decode(from_->child(*found, key), value);
    }
  }

  void flag(std::string_view key, bool& value) { defaulted(key, value); }

  template <class Value>
  void optional(std::string_view key, std::optional<Value>& value) {
    value.reset();
    if (const JSONNode* found = find(key)) {
      decode(from_->child(*found, key), value.emplace());
    }
  }

 private:
  const JSONNode* member(std::string_view key) const;
  // The same unless it is null.
  const JSONNode* find(std::string_view key) const;

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
  void encode(JSONWriter& to, const Record& value) {       \
    ObjectEncoder encoder(to);                             \
    describe(encoder, value);                              \
    encoder.finish();                                      \
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
  JSONWriter writer(layout);
  encode(writer, record);
  return writer.take();
}

/// `record` as a tree, for who changes it before it is written.
template <class Record>
JSONValue encode(const Record& record) {
  return JSONValue::parse(encodeJSON(record, JSONLayout::compact));
}

/// The record that `text` describes. Throws DecodingError.
template <class Record>
Record decodeJSON(std::string_view text) {
  const JSONDocument document(text);
  Record record;
  decode(JSONReader(document), record);
  return record;
}

}  // namespace nodo
