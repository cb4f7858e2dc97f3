#include <NODOCore/base/Text.h>
#include <NODOCore/hooks/HookScript.h>
#include <NODOCore/hooks/HookScriptStartedPath.h>
#include <NODOCore/hooks/HookScriptText.h>
#include <NODOCore/hooks/ShellQuoting.h>

namespace nodo {

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
