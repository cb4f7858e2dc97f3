#include <NODOCore/base/Text.h>
#include <NODOCore/hooks/HookScript.h>
#include <NODOCore/hooks/HookScriptStartedPath.h>
#include <NODOCore/hooks/HookScriptText.h>

namespace nodo {
namespace {

std::string singleQuoted(std::string_view text) {
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

}  // namespace

std::string hookScriptText(const std::optional<std::string>& nodoctlPath) {
  std::string text(hookScriptHeader);
  text += "    \"/Applications/nodo.app/Contents/Library/Helpers/nodoctl\"\n";
  text += "    \"$HOME/Applications/nodo.app/Contents/Library/Helpers/nodoctl\"";
  const std::string configured = nodoctlPath ? *nodoctlPath : startedPath();
  const std::string_view path = trimmed(configured);
  if (!path.empty()) {
    text += "\n    " + singleQuoted(path);
  }
  text += hookScriptFooter;
  return text;
}

}  // namespace nodo
