#include <NODOCore/base/System.h>
#include <NODOCore/base/Text.h>
#include <NODOCore/hooks/HookScript.h>
#include <NODOCore/hooks/HookScriptText.h>

#include <cstdint>

#include <fmt/format.h>

namespace nodo {

std::string shellQuoted(std::string_view text) {
  std::string quoted = "'";
  for (const char character : text) {
    if (character == '\'') {
      quoted += "'\\''";
    } else {
      quoted += character;
    }
  }
  return quoted + "'";
}

std::string fingerprint(std::string_view text) {
  std::uint64_t value = 0xcbf29ce484222325U;
  for (const char character : text) {
    value ^= static_cast<unsigned char>(character);
    value *= 0x100000001b3U;
  }
  return fmt::format("{:016x}", value);
}

std::string hookScriptText(const std::optional<std::string>& nodoctlPath) {
  std::string text(hookScriptHeader);
  text += "    \"/Applications/nodo.app/Contents/Library/Helpers/nodoctl\"\n";
  text += "    \"$HOME/Applications/nodo.app/Contents/Library/Helpers/nodoctl\"";
  const std::string configured = nodoctlPath ? *nodoctlPath : startedPath();
  const std::string_view path = trimmed(configured);
  if (!path.empty()) {
    text += "\n    " + shellQuoted(path);
  }
  text += hookScriptFooter;
  return text;
}

}  // namespace nodo
