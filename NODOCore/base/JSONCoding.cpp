#include <NODOCore/base/Errors.h>
#include <NODOCore/base/JSONCoding.h>

#include <algorithm>
#include <limits>

namespace nodo {

using Kind = JSONNode::Kind;

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
  throw DecodingError(path(), expected, JSONValue::from(*node_).description());
}

void JSONReader::failMissing(std::string_view key, const std::string& expected) const {
  throw DecodingError(child(*node_, key).path(), expected, "nothing");
}

void encode(JSONWriter& to, bool value) {
  to.plain(value ? "true" : "false");
}

void encode(JSONWriter& to, std::int32_t value) {
  to.plain(std::to_string(value));
}

void encode(JSONWriter& to, std::int64_t value) {
  to.plain(std::to_string(value));
}

void encode(JSONWriter& to, const std::string& value) {
  to.text(value);
}

void encode(JSONWriter& to, Date value) {
  to.text(iso8601Text(value));
}

void decode(const JSONReader& from, bool& value) {
  if (!from.is(Kind::yes) && !from.is(Kind::no)) {
    from.fail("true or false");
  }
  value = from.is(Kind::yes);
}

void decode(const JSONReader& from, std::int64_t& value) {
  const auto whole =
      from.is(Kind::number) ? wholeNumber({std::string(from.node().text())}) : std::nullopt;
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
  if (!from.is(Kind::text)) {
    from.fail("a text");
  }
  value = from.node().text();
}

void decode(const JSONReader& from, Date& value) {
  const auto date = from.is(Kind::text) ? dateFromISO8601(from.node().text()) : std::nullopt;
  if (!date) {
    from.fail("a date such as \"2026-01-31T08:15:00Z\"");
  }
  value = *date;
}

void ObjectEncoder::add(const Field& field) {
  if (count_ == fields_.size()) {
    programmingFault("a record has too many fields");
  }
  fields_[count_++] = field;
}

void ObjectEncoder::finish() {
  const auto end = fields_.begin() + static_cast<std::ptrdiff_t>(count_);
  if (to_->isSorted()) {
    std::sort(fields_.begin(), end,
              [](const Field& left, const Field& right) { return left.key < right.key; });
  }
  to_->beginObject();
  for (auto field = fields_.begin(); field != end; ++field) {
    to_->name(field->key);
    field->write(*to_, field->value);
  }
  to_->endObject();
}

ObjectDecoder::ObjectDecoder(const JSONReader& from) : from_(&from) {
  if (!from.is(Kind::object)) {
    from.fail("an object");
  }
}

const JSONNode* ObjectDecoder::member(std::string_view key) const {
  const JSONNode& object = from_->node();
  const JSONNode* found = nullptr;  // of a name that occurs twice the last one counts
  for (const JSONNode* name = object.inside(); name != object.next(); name = name->next()->next()) {
    if (name->text() == key) {
      found = name->next();
    }
  }
  return found;
}

const JSONNode* ObjectDecoder::find(std::string_view key) const {
  const JSONNode* found = member(key);
  return found == nullptr || found->kind == Kind::null ? nullptr : found;
}

}  // namespace nodo
