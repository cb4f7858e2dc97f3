#pragma once

#include <NODOCore/base/JSONValue.h>
#include <NODOCore/hooks/AgentHookTarget.h>

#include <array>
#include <filesystem>
#include <string>
#include <string_view>

/// The entries that make an agent run the hook script, and how they are told from everybody else's.
namespace nodo {

/// The events at which agents run the script, in the order in which they are registered.
constexpr std::array<std::string_view, 4> hookEvents = {"SessionStart", "UserPromptSubmit",
                                                        "PreToolUse", "PostToolUse"};

/// The shell command for one event. Any path is safe in it, quotes and line feeds included.
std::string hookCommand(AgentHookTarget target, std::string_view event,
                        const std::filesystem::path& hookScriptPath);

/// The group of one event as it stands in an agent's configuration: the command with its time
/// limit.
JSONValue hookGroup(AgentHookTarget target, std::string_view event,
                    const std::filesystem::path& hookScriptPath);

/// Whether `entry` is a hook that nodo, this version or an earlier one, made for that target. The
/// shared script run on behalf of another agent is not.
bool isHookOf(AgentHookTarget target, const JSONValue& entry);

/// Whether `text`, a command or a program, names the hook script.
bool namesHookScript(std::string_view text);

/// Whether `entry` is a hook whose command names the hook script, for whichever agent.
bool runsHookScript(const JSONValue& entry);

}  // namespace nodo
