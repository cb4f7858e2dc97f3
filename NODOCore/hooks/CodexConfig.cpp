#include <NODOCore/base/Text.h>
#include <NODOCore/hooks/CodexConfig.h>
#include <NODOCore/hooks/CodexConfigLines.h>

#include <algorithm>
#include <optional>
#include <sstream>

#include <fmt/format.h>
#include <toml++/toml.h>

namespace nodo {
namespace {

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
  std::string edited = codexConfigLinesWithHooksOn(text);
  const std::optional<toml::table> after = parsed(edited);
  if (before && (!after || !isOn(*after) || restOf(*after) != restOf(*before))) {
    fail(file, whatToWrite(*before));
  }
  if (after && !isOn(*after)) {
    fail(file, whatToWrite(*after));
  }
  return edited;
}

}  // namespace nodo
