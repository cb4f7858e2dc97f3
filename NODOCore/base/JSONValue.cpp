#include <NODOCore/base/JSONValue.h>
#include <NODOCore/base/Text.h>

#include <algorithm>
#include <map>
#include <utility>

#include <fmt/format.h>

namespace nodo {
namespace {

// A document may consist of one word of any length, and an error message should not.
std::string shortened(std::string_view text, std::size_t longest) {
  const std::string_view beginning = firstCharacters(text, longest);
  return std::string(beginning) + (beginning.size() < text.size() ? "..." : "");
}

void write(JSONWriter& to, const JSONValue& value);

void writeObject(JSONWriter& to, const JSONValue::Object& object) {
  std::vector<const JSONValue::Object::value_type*> members;
  members.reserve(object.size());
  for (const auto& member : object) {
    members.push_back(&member);
  }
  if (to.isSorted()) {
    std::stable_sort(members.begin(), members.end(), [](const auto* left, const auto* right) {
      return left->first < right->first;
    });
  }
  to.beginObject();
  for (const auto* member : members) {
    to.name(member->first);
    write(to, member->second);
  }
  to.endObject();
}

void write(JSONWriter& to, const JSONValue& value) {
  if (const bool* boolean = value.boolean()) {
    to.plain(*boolean ? "true" : "false");
  } else if (const auto* number = value.number()) {
    to.plain(number->digits);
  } else if (const std::string* text = value.text()) {
    to.text(*text);
  } else if (const auto* array = value.array()) {
    to.beginList();
    for (const JSONValue& element : *array) {
      write(to, element);
    }
    to.endList();
  } else if (const auto* object = value.object()) {
    writeObject(to, *object);
  } else {
    to.plain("null");
  }
}

// A number taken apart without rounding, in one form for all of its spellings: digits without zeros
// around them, times ten to the power of the exponent.
struct Decimal {
  bool isNegative = false;
  std::string digits;
  std::int64_t exponent = 0;

  bool operator==(const Decimal&) const = default;
};

Decimal decimalOf(const JSONValue::Number& number) {
  Decimal decimal;
  std::string_view rest(number.digits);
  if (const auto mark = rest.find_first_of("eE"); mark != std::string_view::npos) {
    // An exponent that does not fit belongs to zero or to a number that a double takes for zero:
    // those are one number here.
    decimal.exponent =
        integerFromText<std::int32_t>(rest.substr(mark + 1)).value_or(-1'000'000'000);
    rest = rest.substr(0, mark);
  }
  decimal.isNegative = rest.starts_with('-');
  bool afterPoint = false;
  for (const char character : rest.substr(decimal.isNegative ? 1 : 0)) {
    if (character == '.') {
      afterPoint = true;
    } else {
      decimal.digits += character;
      decimal.exponent -= afterPoint ? 1 : 0;
    }
  }
  decimal.digits.erase(0, decimal.digits.find_first_not_of('0'));
  while (!decimal.digits.empty() && decimal.digits.back() == '0') {
    decimal.digits.pop_back();
    ++decimal.exponent;
  }
  return decimal.digits.empty() ? Decimal{.digits = "0"} : decimal;
}

std::map<std::string_view, const JSONValue*> membersByName(const JSONValue::Object& object) {
  std::map<std::string_view, const JSONValue*> byName;
  for (const auto& [name, value] : object) {
    byName[name] = &value;
  }
  return byName;
}

}  // namespace

JSONValue JSONValue::parse(std::string_view text) {
  return from(JSONDocument(text).root());
}

JSONValue JSONValue::from(const JSONNode& node) {
  switch (node.kind) {
    case JSONNode::Kind::null:
      return {};
    case JSONNode::Kind::no:
    case JSONNode::Kind::yes:
      return JSONValue(node.kind == JSONNode::Kind::yes);
    case JSONNode::Kind::number:
      return JSONValue(Number{std::string(node.text())});
    case JSONNode::Kind::text:
      return JSONValue(std::string(node.text()));
    case JSONNode::Kind::list: {
      Array array;
      for (const JSONNode* each = node.inside(); each != node.next(); each = each->next()) {
        array.push_back(from(*each));
      }
      return JSONValue(std::move(array));
    }
    case JSONNode::Kind::object:
      break;
  }
  Object object;
  for (const JSONNode* name = node.inside(); name != node.next(); name = name->next()->next()) {
    object.emplace_back(name->text(), from(*name->next()));
  }
  return JSONValue(std::move(object));
}

const JSONValue* JSONValue::member(std::string_view name) const {
  if (const Object* members = object()) {
    const auto last = std::find_if(members->rbegin(), members->rend(),
                                   [name](const auto& member) { return member.first == name; });
    if (last != members->rend()) {
      return &last->second;
    }
  }
  return nullptr;
}

JSONValue* JSONValue::member(std::string_view name) {
  return const_cast<JSONValue*>(std::as_const(*this).member(name));
}

void JSONValue::setMember(std::string_view name, JSONValue value) {
  if (JSONValue* present = member(name)) {
    *present = std::move(value);
  } else {
    std::get<Object>(content_).emplace_back(name, std::move(value));
  }
}

void JSONValue::removeMember(std::string_view name) {
  std::erase_if(std::get<Object>(content_),
                [name](const auto& member) { return member.first == name; });
}

std::string JSONValue::description() const {
  if (const bool* value = boolean()) {
    return *value ? "true" : "false";
  }
  if (const Number* value = number()) {
    return "number " + value->digits;
  }
  if (const std::string* value = text()) {
    return fmt::format("text \"{}\"", escapedForDisplay(shortened(*value, 60)));
  }
  if (array() != nullptr) {
    return "a list";
  }
  return object() != nullptr ? "an object" : "null";
}

bool sameValue(const JSONValue& left, const JSONValue& right) {
  if (const auto* first = left.number(), *second = right.number(); first && second) {
    return first->digits == second->digits || decimalOf(*first) == decimalOf(*second);
  }
  if (const auto* first = left.array(), *second = right.array(); first && second) {
    return std::equal(first->begin(), first->end(), second->begin(), second->end(), sameValue);
  }
  if (const auto* first = left.object(), *second = right.object(); first && second) {
    const auto ours = membersByName(*first);
    const auto theirs = membersByName(*second);
    return std::equal(ours.begin(), ours.end(), theirs.begin(), theirs.end(),
                      [](const auto& one, const auto& other) {
                        return one.first == other.first && sameValue(*one.second, *other.second);
                      });
  }
  return left == right;
}

std::optional<std::int64_t> wholeNumber(const JSONValue::Number& number) {
  if (const auto plain = integerFromText<std::int64_t>(number.digits)) {
    return plain;
  }
  Decimal decimal = decimalOf(number);
  constexpr std::int64_t mostDigits = 19;
  if (decimal.exponent < 0 || decimal.exponent > mostDigits) {
    return std::nullopt;
  }
  decimal.digits.append(static_cast<std::size_t>(decimal.exponent), '0');
  return integerFromText<std::int64_t>((decimal.isNegative ? "-" : "") + decimal.digits);
}

std::string jsonText(const JSONValue& value, JSONLayout layout) {
  JSONWriter writer(layout);
  write(writer, value);
  return writer.take();
}

}  // namespace nodo
