#include <NODOCore/base/Text.h>
#include <NODOCore/hooks/CodexConfig.h>

#include <algorithm>
#include <optional>
#include <string>

#include <toml++/toml.h>

#include <fuzz/Fuzzing.h>

namespace nodo::fuzzing {
namespace {

// Nothing for a text that is no TOML, and for one with other characters than ASCII, on which this
// library runs into undefined behaviour.
std::optional<toml::table> parsed(std::string_view text) {
  if (std::any_of(text.begin(), text.end(),
                  [](char character) { return static_cast<unsigned char>(character) >= 0x80; })) {
    return std::nullopt;
  }
  toml::parse_result result = toml::parse(text);
  if (!result) {
    return std::nullopt;
  }
  return std::move(result).table();
}

// Whether the switch is the only thing in which two files differ, member by member.
bool agreeButForTheSwitch(const toml::table& before, const toml::table& after) {
  const auto shared = [](const toml::table& config, std::string_view name) {
    return name == "features" && config.get_as<toml::table>("features") != nullptr;
  };
  for (const auto& [name, value] : after) {
    if (!before.contains(name.str()) && !shared(after, name.str())) {
      return false;
    }
  }
  return std::all_of(before.begin(), before.end(),
                     [&](const auto& entry) { return after.contains(entry.first.str()); });
}

void checkEdit(const std::string& text, const std::string& edited) {
  const auto before = parsed(text);
  if (before) {
    const auto after = parsed(edited);
    require(after.has_value(), "a file that was accepted before is accepted after");
    require((*after)["features"]["hooks"].value_exact<bool>() == true, "the switch is on");
    require(agreeButForTheSwitch(*before, *after), "no other key comes or goes");
  }
  require(codexConfigWithHooksOn(edited, "config.toml") == edited, "once on, nothing changes");
  const auto feeds = [](const std::string& lines) {
    return std::count(lines.begin(), lines.end(), '\n');
  };
  require(feeds(edited) - feeds(text) <= 3, "at most a header and a line are added");
  // All that was there stays around one place, but for a rewritten value.
  std::size_t same = 0;
  while (same < std::min(text.size(), edited.size()) && text[same] == edited[same]) {
    ++same;
  }
  const auto lineEnd = std::min(text.find('\n', same), text.size());
  require(edited.size() >= text.size() - lineEnd &&
              (std::string_view(edited).ends_with(std::string_view(text).substr(lineEnd)) ||
               std::string_view(edited).ends_with(std::string_view(text).substr(same))),
          "everything behind the edited line is as it was");
}

}  // namespace
}  // namespace nodo::fuzzing

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(nodo::fuzzing::textOf(data, size));
  std::string edited;
  try {
    edited = nodo::codexConfigWithHooksOn(text, "config.toml");
  } catch (const nodo::CodexConfigError& error) {
    const std::string message = error.what();
    nodo::fuzzing::require(message.find("by hand") != std::string::npos,
                           "a refusal says what to do");
    return 0;
  }
  nodo::fuzzing::checkEdit(text, edited);
  return 0;
}
