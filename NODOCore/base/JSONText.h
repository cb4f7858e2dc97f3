#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace nodo {

/// A value of a JSONDocument. It stands in one row with the others: behind a list its elements,
/// behind an object a name and a value for each member, in their order, each with all that is
/// inside of it.
struct JSONNode {
  enum class Kind : std::uint8_t { null, no, yes, number, text, list, object };

  const char* characters = nullptr;
  /// Of a text or a number the bytes, of a list or an object the nodes inside.
  std::uint32_t size = 0;
  Kind kind = Kind::null;

  /// The text without quotes and escapes, valid UTF-8; the digits of a number as they are written.
  std::string_view text() const { return {characters, size}; }

  /// The first node inside of this list or object, which is `next` when there is none.
  const JSONNode* inside() const { return this + 1; }

  /// The node behind this one and all that is inside of it.
  const JSONNode* next() const { return this + 1 + (kind >= Kind::list ? size : 0); }
};

/// A JSON text taken apart, for who reads each value once: two blocks of memory however many values
/// there are.
class JSONDocument {
 public:
  /// How deep lists and objects may be nested: far beyond any real document, and little enough for
  /// the stack of code that goes down into one.
  static constexpr std::size_t maximumDepth = 512;

  /// Reads one document (RFC 8259, UTF-8).
  ///
  /// Throws DecodingError, with line and column, for text that is not JSON, is nested deeper than
  /// `maximumDepth`, holds a number too large for a double, or has 4 GiB.
  explicit JSONDocument(std::string_view text);

  JSONDocument(const JSONDocument&) = delete;
  JSONDocument& operator=(const JSONDocument&) = delete;
  ~JSONDocument() = default;

  /// The outermost value. It and all others live as long as the document.
  const JSONNode& root() const { return nodes_.front(); }

 private:
  std::string text_;  // where the nodes' texts are, unescaped
  std::vector<JSONNode> nodes_;
};

enum class JSONLayout {
  compact,       ///< one line without blanks
  pretty,        ///< an indented line for each member
  prettySorted,  ///< as `pretty`, the members of each object ordered by name
};

/// Writes JSON text in UTF-8, value by value as they come. Whoever calls it sees to it that names
/// and values alternate in an object, that what is begun is ended, and to the order of members.
class JSONWriter {
 public:
  explicit JSONWriter(JSONLayout layout) : layout_(layout) {}

  /// Whether the members of an object are to come ordered by name.
  bool isSorted() const { return layout_ == JSONLayout::prettySorted; }

  /// `null`, `true`, `false` or a number, as it is to be written.
  void plain(std::string_view word);

  /// Invalid UTF-8 becomes U+FFFD, so that the result is always JSON.
  void text(std::string_view value);

  void beginList();
  void endList();
  void beginObject();

  /// The name of the member that comes next.
  void name(std::string_view name);
  void endObject();

  /// What was written, without a line feed at the end.
  std::string take() { return std::move(text_); }

 private:
  void beginValue();
  void begin(char bracket);
  void end(char bracket);
  void startLine();
  void quote(std::string_view text);

  JSONLayout layout_;
  std::string text_;
  std::size_t depth_ = 0;
  bool isFirst_ = true;  // nothing is inside yet of what was begun last
  bool isBehindName_ = false;
};

}  // namespace nodo
