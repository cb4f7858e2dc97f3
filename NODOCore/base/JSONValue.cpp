#include <NODOCore/base/Errors.h>
#include <NODOCore/base/JSONValue.h>
#include <NODOCore/base/Text.h>

#include <algorithm>
#include <map>
#include <utility>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace nodo {
namespace {

// A document may consist of one word of any length, and an error message should not.
std::string shortened(std::string_view text, std::size_t longest) {
  const std::string_view beginning = firstCharacters(text, longest);
  return std::string(beginning) + (beginning.size() < text.size() ? "..." : "");
}

[[noreturn]] void failAt(std::string_view text, std::size_t offset, std::string_view reason) {
  const std::string_view before = text.substr(0, offset);
  const auto line = 1 + std::count(before.begin(), before.end(), '\n');
  const auto lineStart = before.rfind('\n');
  const auto column = before.size() - (lineStart == std::string_view::npos ? 0 : lineStart + 1) + 1;
  throw DecodingError("", "JSON",
                      fmt::format("an error at line {}, column {}: {}", line, column,
                                  escapedForDisplay(shortened(reason, 200))))
      .atLine(line);
}

// The parser hands out a number as the C library has to read it: with the decimal point of the
// program's locale in place of the text's own.
std::string withDecimalPoint(std::string digits) {
  const auto point = digits.find_first_not_of("0123456789+-eE");
  if (point != std::string::npos) {
    digits[point] = '.';
  }
  return digits;
}

// Builds the tree from the parser's events. The parser itself keeps its nesting on the heap, so
// only the tree's depth has to be bounded.
class TreeBuilder : public nlohmann::json_sax<nlohmann::json> {
 public:
  explicit TreeBuilder(std::string_view text) : text_(text) {}

  JSONValue take() { return std::move(root_); }

  bool null() override { return add(JSONValue()); }

  bool boolean(bool value) override { return add(JSONValue(value)); }

  // Called for numbers with a sign only, so that a zero is a negative one.
  bool number_integer(number_integer_t value) override {
    return add(value == 0 ? JSONValue(JSONValue::Number{"-0"}) : JSONValue(value));
  }

  bool number_unsigned(number_unsigned_t value) override {
    return add(JSONValue(JSONValue::Number{std::to_string(value)}));
  }

  bool number_float(number_float_t, const string_t& digits) override {
    return add(JSONValue(JSONValue::Number{withDecimalPoint(digits)}));
  }

  bool string(string_t& value) override { return add(JSONValue(std::move(value))); }

  bool binary(binary_t&) override { return false; }  // has no JSON form

  bool start_object(std::size_t) override { return open(Level{.isObject = true}); }

  bool key(string_t& name) override {
    levels_.back().names.push_back(std::move(name));
    return true;
  }

  bool end_object() override {
    Level level = close();
    JSONValue::Object object;
    object.reserve(level.values.size());
    for (std::size_t index = 0; index < level.values.size(); ++index) {
      object.emplace_back(std::move(level.names[index]), std::move(level.values[index]));
    }
    return add(JSONValue(std::move(object)));
  }

  bool start_array(std::size_t) override { return open(Level{}); }

  bool end_array() override { return add(JSONValue(close().values)); }

  bool parse_error(std::size_t position, const std::string& lastToken,
                   const nlohmann::json::exception& error) override {
    const std::size_t offset = position == 0 ? 0 : position - 1;
    if (lastToken.ends_with('/')) {
      failAt(text_, offset, "an unexpected slash; JSON has no comments");
    }
    // The library's text begins with its own name and place for the error; the reason comes last.
    std::string_view reason(error.what());
    const auto dash = reason.find(" - ");
    reason = dash == std::string_view::npos ? "a number out of range" : reason.substr(dash + 3);
    failAt(text_, offset, reason);
  }

 private:
  struct Level {
    bool isObject = false;
    std::vector<std::string> names = {};
    JSONValue::Array values = {};
  };

  bool open(Level level) {
    if (levels_.size() == JSONValue::maximumDepth) {
      throw DecodingError(
          "", fmt::format("JSON nested at most {} levels deep", JSONValue::maximumDepth),
          "deeper nesting");
    }
    levels_.push_back(std::move(level));
    return true;
  }

  Level close() {
    Level level = std::move(levels_.back());
    levels_.pop_back();
    return level;
  }

  bool add(JSONValue value) {
    if (levels_.empty()) {
      root_ = std::move(value);
    } else {
      levels_.back().values.push_back(std::move(value));
    }
    return true;
  }

  std::string_view text_;
  std::vector<Level> levels_;
  JSONValue root_;
};

// Written here because the library cannot write a number with its original digits.
class Writer {
 public:
  explicit Writer(JSONLayout layout) : layout_(layout) {}

  std::string take() { return std::move(text_); }

  void write(const JSONValue& value, std::size_t depth) {
    if (const bool* boolean = value.boolean()) {
      text_ += *boolean ? "true" : "false";
    } else if (const auto* number = value.number()) {
      text_ += number->digits;
    } else if (const std::string* text = value.text()) {
      writeText(*text);
    } else if (const auto* array = value.array()) {
      writeArray(*array, depth);
    } else if (const auto* object = value.object()) {
      writeObject(*object, depth);
    } else {
      text_ += "null";
    }
  }

 private:
  void writeArray(const JSONValue::Array& array, std::size_t depth) {
    text_ += '[';
    const char* separator = "";
    for (const JSONValue& element : array) {
      text_ += separator;
      startLine(depth + 1);
      write(element, depth + 1);
      separator = ",";
    }
    if (!array.empty()) {
      startLine(depth);
    }
    text_ += ']';
  }

  void writeObject(const JSONValue::Object& object, std::size_t depth) {
    std::vector<const JSONValue::Object::value_type*> members;
    members.reserve(object.size());
    for (const auto& member : object) {
      members.push_back(&member);
    }
    if (layout_ == JSONLayout::prettySorted) {
      std::stable_sort(members.begin(), members.end(), [](const auto* left, const auto* right) {
        return left->first < right->first;
      });
    }
    text_ += '{';
    const char* separator = "";
    for (const auto* member : members) {
      text_ += separator;
      startLine(depth + 1);
      writeText(member->first);
      text_ += layout_ == JSONLayout::compact ? ":" : ": ";
      write(member->second, depth + 1);
      separator = ",";
    }
    if (!object.empty()) {
      startLine(depth);
    }
    text_ += '}';
  }

  void startLine(std::size_t depth) {
    if (layout_ != JSONLayout::compact) {
      text_ += '\n';
      text_.append(depth * 2, ' ');
    }
  }

  void writeText(const std::string& text) {
    text_ += '"';
    for (const char character : isValidUTF8(text) ? text : repairedUTF8(text)) {
      writeCharacter(character);
    }
    text_ += '"';
  }

  void writeCharacter(char character) {
    switch (character) {
      case '"':
        text_ += "\\\"";
        break;
      case '\\':
        text_ += "\\\\";
        break;
      case '\n':
        text_ += "\\n";
        break;
      case '\r':
        text_ += "\\r";
        break;
      case '\t':
        text_ += "\\t";
        break;
      default:
        if (const auto code = static_cast<unsigned char>(character); code < 0x20) {
          text_ += fmt::format("\\u{:04x}", static_cast<unsigned>(code));
        } else {
          text_ += character;
        }
    }
  }

  JSONLayout layout_;
  std::string text_;
};

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
  // The library would take a zero byte for the end of the text.
  if (const auto zero = text.find('\0'); zero != std::string_view::npos) {
    failAt(text, zero, "a zero byte");
  }
  TreeBuilder builder(text);
  nlohmann::json::sax_parse(text.begin(), text.end(), &builder);
  return builder.take();
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
  Writer writer(layout);
  writer.write(value, 0);
  return writer.take();
}

}  // namespace nodo
