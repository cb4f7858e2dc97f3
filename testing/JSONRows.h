#pragma once

#include <NODOCore/base/Date.h>
#include <NODOCore/base/JSONCoding.h>

#include <optional>
#include <string>
#include <string_view>

/// Reading the rows of a test's data file.
namespace nodo::test {

/// The rows of a file below tests/data. Throws when there are none, so that a test over them cannot
/// pass by testing nothing.
JSONValue::Array testRows(const std::string& name);

/// The member of that name. Throws when there is none, so that a misspelt name cannot pass for
/// null.
const JSONValue& memberOf(const JSONValue& row, std::string_view key);

/// The member's value as a `Value`; throws DecodingError for one of another type.
template <class Value>
Value valueOf(const JSONValue& row, std::string_view key) {
  const JSONDocument document(jsonText(memberOf(row, key), JSONLayout::compact));
  Value value{};
  decode(JSONReader(document), value);
  return value;
}

/// The same, null being absent.
template <class Value>
std::optional<Value> optionalOf(const JSONValue& row, std::string_view key) {
  return memberOf(row, key).isNull() ? std::nullopt : std::optional(valueOf<Value>(row, key));
}

/// The member's value as a number with a fraction.
double numberOf(const JSONValue& row, std::string_view key);
std::optional<double> optionalNumberOf(const JSONValue& row, std::string_view key);

/// The instant that a number of seconds since 1970 stands for.
Date dateOf(const JSONValue& row, std::string_view key);

}  // namespace nodo::test
