#include <NODOCore/base/Text.h>
#include <NODOCore/hooks/CodexConfig.h>

#include <algorithm>
#include <optional>
#include <sstream>
#include <vector>

#include <fmt/format.h>
#include <toml++/toml.h>

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

// `text` with the line `hooks = true` in its table `[features]`, as far as lines tell: a line with
// another value is rewritten (its indentation and comment stay), a missing one added right below
// the table's header, a missing table added at the end. Lines that are added end as the one before
// them does (LF or CR LF). What only looks like a table or a key, in a text of several lines for
// example, is taken for one.
std::string linesWithHooksOn(std::string_view text) {
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

// Each level of nesting that the TOML library does not count itself takes a dot, and it walks its
// tables recursively: more dots than in any real file could exhaust the stack.
constexpr std::ptrdiff_t mostDots = 2000;

[[noreturn]] void fail(const std::filesystem::path& file, const std::string& why) {
  throw CodexConfigError(file.string() + ": cannot switch the Codex hooks feature on safely, " +
                         why);
}

// The text with other characters than ASCII spelt as "!" and hexadecimal digits, which TOML takes
// where it takes them, in strings and comments, and nowhere else: the library's tests for Unicode
// white space run into undefined behaviour on many letters.
std::string inASCII(std::string_view text) {
  constexpr std::string_view byteOrderMark = "\xEF\xBB\xBF";
  if (text.starts_with(byteOrderMark)) {
    text.remove_prefix(byteOrderMark.size());
  }
  std::string spelt;
  for (const char character : text) {
    if (const auto byte = static_cast<unsigned char>(character); byte >= 0x80) {
      spelt += fmt::format("!{:02x}", static_cast<unsigned>(byte));
    } else {
      spelt += character;
    }
  }
  return spelt;
}

std::optional<toml::table> parsed(std::string_view text) {
  toml::parse_result result = toml::parse(inASCII(text));
  if (!result) {
    return std::nullopt;
  }
  return std::move(result).table();
}

bool isOn(const toml::table& config) {
  return config["features"]["hooks"].value_exact<bool>() == true;
}

// All that the file says but the switch.
std::string restOf(toml::table config) {
  if (toml::table* features = config["features"].as_table()) {
    features->erase("hooks");
    if (features->empty()) {
      config.erase("features");
    }
  }
  // As text, because a value that is no number does not equal itself. As JSON, because the library
  // takes logarithms of all numbers to lay out TOML, even of those that are none.
  std::ostringstream text;
  text << toml::json_formatter(config);
  return text.str();
}

std::string whatToWrite(const toml::table& config) {
  const toml::node* features = config.get("features");
  if (features != nullptr && !features->is_table()) {
    return "as its \"features\" is no table; give it a table [features] with the line "
           "\"hooks = true\" by hand";
  }
  if (features != nullptr && features->as_table()->is_inline()) {
    return "as it has \"features = { ... }\"; write \"hooks = true\" between those braces by hand";
  }
  if (features != nullptr) {
    return "because of how it writes its features; switch it on by hand: \"hooks = true\" below "
           "[features], or \"features.hooks = true\" where it has no such table";
  }
  return "because of how it is written; add a table [features] with the line \"hooks = true\" by "
         "hand";
}

}  // namespace

std::string codexConfigWithHooksOn(std::string_view text, const std::filesystem::path& file) {
  if (!isValidUTF8(text)) {
    fail(file, "as it is not UTF-8 text; write \"hooks = true\" into its table [features] by hand");
  }
  if (std::count(text.begin(), text.end(), '.') > mostDots) {
    fail(file,
         "as it is too large to be checked; write \"hooks = true\" into its table [features] "
         "by hand");
  }
  const std::optional<toml::table> before = parsed(text);
  if (before && isOn(*before)) {
    return std::string(text);
  }
  std::string edited = linesWithHooksOn(text);
  const std::optional<toml::table> after = parsed(edited);
  if (before && (!after || !isOn(*after) || restOf(*after) != restOf(*before))) {
    fail(file, whatToWrite(*before));
  }
  if (after && !isOn(*after)) {
    fail(file, whatToWrite(*after));
  }
  return edited;
}

CodexConsent codexConsent(std::string_view text, const std::vector<std::string>& hooks) {
  const bool isReadable =
      isValidUTF8(text) && std::count(text.begin(), text.end(), '.') <= mostDots;
  const std::optional<toml::table> config = isReadable ? parsed(text) : std::nullopt;
  if (!config) {
    return CodexConsent::unknown;
  }
  if ((*config)["features"]["hooks"].value_exact<bool>() == false) {
    return CodexConsent::switchedOff;
  }
  const toml::node_view<const toml::node> noted = (*config)["hooks"]["state"];
  const auto isAny = [&](const auto& predicate) {
    return std::any_of(hooks.begin(), hooks.end(),
                       [&](const std::string& hook) { return predicate(noted[inASCII(hook)]); });
  };
  if (isAny([](const auto& hook) { return !hook["trusted_hash"].is_string(); })) {
    return CodexConsent::missing;
  }
  return isAny([](const auto& hook) {
    return !hook["enabled"].template value_exact<bool>().value_or(true);
  })
             ? CodexConsent::switchedOff
             : CodexConsent::given;
}

}  // namespace nodo
