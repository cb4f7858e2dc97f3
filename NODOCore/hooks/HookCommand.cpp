#include <NODOCore/base/Text.h>
#include <NODOCore/hooks/HookCommand.h>
#include <NODOCore/hooks/ShellQuoting.h>

#include <cstdint>

namespace nodo {
namespace {

// An earlier version had a script of this name for the one agent that it knew.
constexpr std::string_view earlierScriptName = "claude-hook.sh";

// The agents kill a hook that takes longer.
constexpr std::int64_t timeoutSeconds = 5;

const std::string* commandOf(const JSONValue& entry) {
  const JSONValue* command = entry.member("command");
  return command == nullptr ? nullptr : command->text();
}

}  // namespace

std::string hookCommand(AgentHookTarget target, std::string_view event,
                        const std::filesystem::path& hookScriptPath) {
  return "NODO_HOOK_AGENT=" + shellQuoted(rawValue(target)) +
         " NODO_HOOK_EVENT=" + shellQuoted(event) + " " + shellQuoted(hookScriptPath.string());
}

JSONValue hookGroup(AgentHookTarget target, std::string_view event,
                    const std::filesystem::path& hookScriptPath) {
  JSONValue::Object entry;
  entry.emplace_back("type", JSONValue(std::string("command")));
  entry.emplace_back("command", JSONValue(hookCommand(target, event, hookScriptPath)));
  entry.emplace_back("timeout", JSONValue(timeoutSeconds));
  JSONValue::Object group;
  group.emplace_back("hooks", JSONValue(JSONValue::Array{JSONValue(std::move(entry))}));
  return JSONValue(std::move(group));
}

bool isHookOf(AgentHookTarget target, const JSONValue& entry) {
  const std::string* command = commandOf(entry);
  if (command == nullptr) {
    return false;
  }
  const std::string agent(rawValue(target));
  return contains(*command, earlierScriptName) ||
         (namesHookScript(*command) && (contains(*command, "NODO_HOOK_AGENT='" + agent + "'") ||
                                        contains(*command, "NODO_HOOK_AGENT=" + agent)));
}

bool namesHookScript(std::string_view text) {
  return contains(text, "nodo-agent-hook.sh");
}

bool runsHookScript(const JSONValue& entry) {
  const std::string* command = commandOf(entry);
  return command != nullptr && namesHookScript(*command);
}

}  // namespace nodo
