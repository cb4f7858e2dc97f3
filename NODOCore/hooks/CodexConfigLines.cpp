#include <NODOCore/base/Text.h>
#include <NODOCore/hooks/CodexConfigLines.h>

#include <algorithm>
#include <vector>

namespace nodo {
namespace {

constexpr std::string_view switchedOn = "hooks = true";

// A line, with where it stands in the text.
struct Line {
  std::size_t begin = 0;
  std::string_view content;  // without its ending
  std::string_view ending;   // LF or CR LF; at the end of the text also CR or nothing

  std::size_t end() const { return begin + content.size() + ending.size(); }

  std::string_view withoutComment() const { return content.substr(0, content.find('#')); }
};

std::vector<Line> linesOf(std::string_view text) {
  constexpr std::string_view byteOrderMark = "\xEF\xBB\xBF";
  std::vector<Line> lines;
  std::size_t begin = text.starts_with(byteOrderMark) ? byteOrderMark.size() : 0;
  while (begin < text.size()) {
    const std::size_t feed = std::min(text.find('\n', begin), text.size());
    const std::size_t next = std::min(feed + 1, text.size());
    const bool hasReturn = feed > begin && text[feed - 1] == '\r';
    const std::size_t end = hasReturn ? feed - 1 : feed;
    lines.push_back({begin, text.substr(begin, end - begin), text.substr(end, next - end)});
    begin = next;
  }
  return lines;
}

bool isTableHeader(const Line& line) {
  const std::string_view text = trimmedBlanks(line.withoutComment());
  return text.starts_with('[') && text.ends_with(']');
}

bool isFeaturesHeader(const Line& line) {
  if (!isTableHeader(line)) {
    return false;
  }
  std::string_view name = trimmedBlanks(line.withoutComment());
  name = trimmedBlanks(name.substr(1, name.size() - 2));
  return name == "features" || name == "\"features\"" || name == "'features'";
}

bool isSwitch(const Line& line) {
  const std::string_view text = line.withoutComment();
  const std::size_t equals = text.find('=');
  return equals != std::string_view::npos && trimmedBlanks(text.substr(0, equals)) == "hooks";
}

std::string_view valueOf(const Line& line) {
  const std::string_view text = line.withoutComment();
  return trimmedBlanks(text.substr(text.find('=') + 1));
}

// The line's content with the switch on.
std::string rewritten(const Line& line) {
  const std::string_view indentation =
      line.content.substr(0, line.content.find_first_not_of(" \t"));
  // A number sign behind a quote may stand in a text, and begin no comment.
  const bool hasText = valueOf(line).find_first_of("\"'") != std::string_view::npos;
  const std::string_view code = line.withoutComment();
  const std::size_t codeEnd = code.find_last_not_of(" \t") + 1;
  const std::string_view comment =
      hasText || code.size() == line.content.size() ? "" : line.content.substr(codeEnd);
  return std::string(indentation) + std::string(switchedOn) + std::string(comment);
}

// How lines that are added behind `line` end.
std::string endingLike(const Line& line) {
  return line.ending.starts_with('\r') ? "\r\n" : "\n";
}

// What the last line of a text needs before another can follow it.
std::string missingEnding(const Line& line, const std::string& ending) {
  if (line.ending.ends_with('\n')) {
    return "";
  }
  return line.ending.empty() ? ending : "\n";
}

std::string withTableAtTheEnd(std::string_view text, const std::vector<Line>& lines) {
  const std::string ending = lines.empty() ? "\n" : endingLike(lines.front());
  std::string result(text);
  if (!lines.empty()) {
    result += missingEnding(lines.back(), ending);
  }
  return result + "[features]" + ending + std::string(switchedOn) + ending;
}

}  // namespace

std::string codexConfigLinesWithHooksOn(std::string_view text) {
  const std::vector<Line> lines = linesOf(text);
  const auto header = std::find_if(lines.begin(), lines.end(), isFeaturesHeader);
  if (header == lines.end()) {
    return withTableAtTheEnd(text, lines);
  }
  std::string result(text);
  const auto tableEnd = std::find_if(header + 1, lines.end(), isTableHeader);
  const auto present = std::find_if(header + 1, tableEnd, isSwitch);
  if (present == tableEnd) {
    const std::string ending = endingLike(*header);
    result.insert(header->end(), missingEnding(*header, ending) + std::string(switchedOn) + ending);
  } else if (valueOf(*present) != "true") {
    result.replace(present->begin, present->content.size(), rewritten(*present));
  }
  return result;
}

}  // namespace nodo
