#include <NODOCore/base/Errors.h>
#include <NODOCore/base/JSONCoding.h>

#include <limits>

namespace nodo {

std::string JSONReader::path() const {
  if (parent_ == nullptr) {
    return "";
  }
  const std::string before = parent_->path();
  if (const auto* place = std::get_if<std::size_t>(&step_)) {
    return before + "[" + std::to_string(*place) + "]";
  }
  return before + (before.empty() ? "" : ".") + std::string(std::get<std::string_view>(step_));
}

void JSONReader::fail(const std::string& expected) const {
  throw DecodingError(path(), expected, value_->description());
}

void JSONReader::failMissing(std::string_view key, const std::string& expected) const {
  static const JSONValue absent;
  throw DecodingError(child(absent, key).path(), expected, "nothing");
}

JSONValue encode(bool value) {
  return JSONValue(value);
}

JSONValue encode(std::int32_t value) {
  return JSONValue(std::int64_t{value});
}

JSONValue encode(std::int64_t value) {
  return JSONValue(value);
}

JSONValue encode(const std::string& value) {
  return JSONValue(value);
}

JSONValue encode(Date value) {
  return JSONValue(iso8601Text(value));
}

void decode(const JSONReader& from, bool& value) {
  const bool* boolean = from.value().boolean();
  if (boolean == nullptr) {
    from.fail("true or false");
  }
  value = *boolean;
}

void decode(const JSONReader& from, std::int64_t& value) {
  const auto* number = from.value().number();
  const auto whole = number == nullptr ? std::nullopt : wholeNumber(*number);
  if (!whole) {
    from.fail("a whole number of at most 64 bits");
  }
  value = *whole;
}

void decode(const JSONReader& from, std::int32_t& value) {
  std::int64_t wide = 0;
  decode(from, wide);
  if (wide < std::numeric_limits<std::int32_t>::min() ||
      wide > std::numeric_limits<std::int32_t>::max()) {
    from.fail("a whole number of at most 32 bits");
  }
  value = static_cast<std::int32_t>(wide);
}

void decode(const JSONReader& from, std::string& value) {
  const std::string* text = from.value().text();
  if (text == nullptr) {
    from.fail("a text");
  }
  value = *text;
}

void decode(const JSONReader& from, Date& value) {
  const std::string* text = from.value().text();
  const auto date = text == nullptr ? std::nullopt : dateFromISO8601(*text);
  if (!date) {
    from.fail("a date such as \"2026-01-31T08:15:00Z\"");
  }
  value = *date;
}

ObjectDecoder::ObjectDecoder(const JSONReader& from) : from_(&from) {
  if (from.value().object() == nullptr) {
    from.fail("an object");
  }
}

const JSONValue* ObjectDecoder::find(std::string_view key) const {
  const JSONValue* found = from_->value().member(key);
  return found == nullptr || found->isNull() ? nullptr : found;
}

}  // namespace nodo
