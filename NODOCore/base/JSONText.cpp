#include <NODOCore/base/Errors.h>
#include <NODOCore/base/JSONText.h>
#include <NODOCore/base/Text.h>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <utility>

#include <fmt/format.h>
#include <rapidjson/error/en.h>
#include <rapidjson/reader.h>

namespace nodo {
namespace {

using Kind = JSONNode::Kind;

// ---- reading

[[noreturn]] void failAt(std::string_view text, std::size_t offset, std::string_view reason) {
  const std::string_view before = text.substr(0, offset);
  const auto line = 1 + std::count(before.begin(), before.end(), '\n');
  const auto lineStart = before.rfind('\n');
  const auto column = before.size() - (lineStart == std::string_view::npos ? 0 : lineStart + 1) + 1;
  throw DecodingError("", "JSON",
                      fmt::format("an error at line {}, column {}: {}", line, column, reason))
      .atLine(line);
}

// What the parser says, as the end of a sentence.
std::string reasonOf(rapidjson::ParseErrorCode error) {
  std::string reason = rapidjson::GetParseError_En(error);
  reason.front() = static_cast<char>(std::tolower(static_cast<unsigned char>(reason.front())));
  if (reason.ends_with('.')) {
    reason.pop_back();
  }
  return reason;
}

bool isDigit(char character) {
  return character >= '0' && character <= '9';
}

// The parser bounds whole numbers and exponents one by one, which leaves numbers such as 1.8e308.
bool isTooLarge(std::string_view number) {
  constexpr std::size_t surelySmall = 300;
  constexpr std::int64_t huge = 1'000'000'000'000;
  const auto mark = std::min(number.find_first_of("eE"), number.size());
  if (mark == number.size() && number.size() < surelySmall) {
    return false;
  }
  // Without the point, for which the C library looks at the program's locale.
  std::string digits(number.substr(0, mark));
  std::int64_t exponent = 0;
  if (mark < number.size()) {
    const std::string_view written = number.substr(mark + 1);
    exponent = integerFromText<std::int64_t>(written.substr(written.front() == '+' ? 1 : 0))
                   .value_or(written.front() == '-' ? -huge : huge);
    exponent = std::clamp(exponent, -huge, huge);
  }
  if (const auto point = digits.find('.'); point != std::string::npos) {
    exponent -= static_cast<std::int64_t>(digits.size() - point - 1);
    digits.erase(point, 1);
  }
  return std::isinf(std::strtod((digits + "e" + std::to_string(exponent)).c_str(), nullptr));
}

// Sets the exponents of the numbers in `text`, which begins outside of a string, to zero. The
// parser refuses large ones even behind a zero, which they leave as it is.
void eraseExponents(std::string& text, std::size_t begin) {
  bool isString = false;
  for (std::size_t at = begin; at < text.size(); ++at) {
    const char character = text[at];
    if (isString && character == '\\') {
      ++at;
    } else if (character == '"') {
      isString = !isString;
    } else if (!isString && (character == 'e' || character == 'E') && isDigit(text[at - 1])) {
      if (text[at + 1] == '+' || text[at + 1] == '-') {
        ++at;
      }
      while (isDigit(text[at + 1])) {
        text[++at] = '0';
      }
    }
  }
}

// Lists the values in the order of the parser's events.
class NodeBuilder : public rapidjson::BaseReaderHandler<rapidjson::UTF8<>, NodeBuilder> {
 public:
  // `original` is the text that the parser changes at `buffer` as it reads.
  NodeBuilder(std::string_view original, const char* buffer, std::vector<JSONNode>& nodes)
      : original_(original),
        buffer_(buffer),
        nodes_(nodes),
        // An escape, too, may stand for half of a character.
        isSurelyUTF8_(isASCII(original) && original.find("\\u") == std::string_view::npos) {}

  bool Null() { return add({.kind = Kind::null}); }

  bool Bool(bool value) { return add({.kind = value ? Kind::yes : Kind::no}); }

  bool RawNumber(const char* digits, rapidjson::SizeType size, bool /*mustBeCopied*/) {
    if (isTooLarge(original_.substr(offsetOf(digits), size))) {
      failAt(original_, offsetOf(digits), "a number out of range");
    }
    return add({digits, size, Kind::number});
  }

  bool String(const char* text, rapidjson::SizeType size, bool /*mustBeCopied*/) {
    const std::string_view view(text, size);
    if (!isSurelyUTF8_ && !isValidUTF8(view)) {
      failAt(original_, offsetOf(text), "a text that is not UTF-8");
    }
    return add({text, size, Kind::text});
  }

  bool Key(const char* text, rapidjson::SizeType size, bool mustBeCopied) {
    return String(text, size, mustBeCopied);
  }

  bool StartObject() { return open(Kind::object); }

  bool EndObject(rapidjson::SizeType /*members*/) { return close(); }

  bool StartArray() { return open(Kind::list); }

  bool EndArray(rapidjson::SizeType /*elements*/) { return close(); }

  // What there is no other member function for: numbers that are no texts.
  bool Default() { return false; }

 private:
  std::size_t offsetOf(const char* place) const {
    return static_cast<std::size_t>(place - buffer_);
  }

  bool add(const JSONNode& node) {
    nodes_.push_back(node);
    return true;
  }

  bool open(Kind kind) {
    if (open_.size() == JSONDocument::maximumDepth) {
      throw DecodingError(
          "", fmt::format("JSON nested at most {} levels deep", JSONDocument::maximumDepth),
          "deeper nesting");
    }
    open_.push_back(nodes_.size());
    return add({.kind = kind});
  }

  bool close() {
    nodes_[open_.back()].size = static_cast<std::uint32_t>(nodes_.size() - open_.back() - 1);
    open_.pop_back();
    return true;
  }

  std::string_view original_;
  const char* buffer_;
  std::vector<JSONNode>& nodes_;
  std::vector<std::size_t> open_;
  bool isSurelyUTF8_;
};

// Appends the values of the document that begins there to `nodes`; their texts are in `buffer`,
// which holds a copy of `original`.
rapidjson::ParseResult parse(std::string_view original, std::size_t begin, std::string& buffer,
                             std::vector<JSONNode>& nodes) {
  rapidjson::InsituStringStream stream(buffer.data() + begin);
  NodeBuilder builder(original, buffer.data(), nodes);
  constexpr unsigned howToParse =
      rapidjson::kParseInsituFlag | rapidjson::kParseNumbersAsStringsFlag;
  return rapidjson::Reader().Parse<howToParse>(stream, builder);
}

// ---- writing

// Where a name is missing but one of JSON's words begins, the fault is where that goes on
// differently, as it is for a value.
std::size_t faultOffset(std::string_view text, std::size_t offset,
                        rapidjson::ParseErrorCode error) {
  std::size_t longest = 0;
  if (error == rapidjson::kParseErrorObjectMissName) {
    const std::string_view rest = text.substr(offset);
    for (const std::string_view word : {"null", "true", "false"}) {
      const auto end = std::mismatch(word.begin(), word.end(), rest.begin(), rest.end()).first;
      longest = std::max(longest, static_cast<std::size_t>(end - word.begin()));
    }
  }
  return offset + longest;
}

// Without branches, so that compilers take many bytes at a time.
bool isWrittenAsItIs(std::string_view text) {
  unsigned char special = 0;
  for (const char character : text) {
    const auto code = static_cast<unsigned char>(character);
    special |= static_cast<unsigned char>(code < 0x20) | static_cast<unsigned char>(code >= 0x80) |
               static_cast<unsigned char>(code == '"') | static_cast<unsigned char>(code == '\\');
  }
  return special == 0;
}

void appendEscaped(std::string& to, char character) {
  switch (character) {
    case '"':
      to += "\\\"";
      break;
    case '\\':
      to += "\\\\";
      break;
    case '\n':
      to += "\\n";
      break;
    case '\r':
      to += "\\r";
      break;
    case '\t':
      to += "\\t";
      break;
    default:
      if (const auto code = static_cast<unsigned char>(character); code < 0x20) {
        to += fmt::format("\\u{:04x}", static_cast<unsigned>(code));
      } else {
        to += character;
      }
  }
}

}  // namespace

JSONDocument::JSONDocument(std::string_view text) : text_(text) {
  if (text.size() >= std::numeric_limits<std::uint32_t>::max()) {
    throw DecodingError("", "JSON of less than 4 GiB", "more");
  }
  // The parser would take a zero byte for the end of the text.
  if (const auto zero = text.find('\0'); zero != std::string_view::npos) {
    failAt(text, zero, "a zero byte");
  }
  constexpr std::size_t usualBytesOfANode = 16;
  nodes_.reserve(text.size() / usualBytesOfANode + 1);

  constexpr std::string_view byteOrderMark = "\xEF\xBB\xBF";
  const std::size_t begin = text.starts_with(byteOrderMark) ? byteOrderMark.size() : 0;
  rapidjson::ParseResult result = parse(text, begin, text_, nodes_);
  if (result.Code() == rapidjson::kParseErrorNumberTooBig) {
    text_ = text;
    eraseExponents(text_, begin + result.Offset());
    nodes_.clear();
    result = parse(text, begin, text_, nodes_);
    for (const JSONNode& node : nodes_) {
      if (node.kind == Kind::number) {
        const auto offset = static_cast<std::size_t>(node.characters - text_.data());
        text_.replace(offset, node.size, text.substr(offset, node.size));
      }
    }
  }
  if (result.IsError()) {
    const std::size_t offset = faultOffset(text, begin + result.Offset(), result.Code());
    if (text.substr(offset).starts_with('/')) {
      failAt(text, offset, "an unexpected slash; JSON has no comments");
    }
    failAt(text, offset,
           result.Code() == rapidjson::kParseErrorNumberTooBig ? "a number out of range"
                                                               : reasonOf(result.Code()));
  }
}

void JSONWriter::plain(std::string_view word) {
  beginValue();
  text_ += word;
}

void JSONWriter::text(std::string_view value) {
  beginValue();
  quote(value);
}

void JSONWriter::beginList() {
  begin('[');
}

void JSONWriter::endList() {
  end(']');
}

void JSONWriter::beginObject() {
  begin('{');
}

void JSONWriter::name(std::string_view name) {
  if (!isFirst_) {
    text_ += ',';
  }
  isFirst_ = false;
  startLine();
  quote(name);
  text_ += layout_ == JSONLayout::compact ? ":" : ": ";
  isBehindName_ = true;
}

void JSONWriter::endObject() {
  end('}');
}

void JSONWriter::beginValue() {
  if (depth_ > 0 && !isBehindName_) {
    if (!isFirst_) {
      text_ += ',';
    }
    startLine();
  }
  isFirst_ = false;
  isBehindName_ = false;
}

void JSONWriter::begin(char bracket) {
  beginValue();
  text_ += bracket;
  ++depth_;
  isFirst_ = true;
}

void JSONWriter::end(char bracket) {
  --depth_;
  if (!isFirst_) {
    startLine();
  }
  isFirst_ = false;
  text_ += bracket;
}

void JSONWriter::startLine() {
  if (layout_ != JSONLayout::compact) {
    constexpr std::string_view line = "\n                                ";
    const std::size_t blanks = depth_ * 2;
    text_ += line.substr(0, blanks + 1);
    text_.append(blanks - std::min(blanks, line.size() - 1), ' ');
  }
}

void JSONWriter::quote(std::string_view text) {
  text_ += '"';
  if (isWrittenAsItIs(text)) {
    text_ += text;
  } else {
    for (const char character : repairedUTF8(text)) {
      appendEscaped(text_, character);
    }
  }
  text_ += '"';
}

}  // namespace nodo
