#pragma once

#include <NODOCore/base/Files.h>
#include <NODOCore/base/JSONValue.h>
#include <NODOCore/hooks/Agents.h>

#include <array>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

/// An agent's JSON configuration, and the entries in it that make the agent run the hook script.
///
/// It is a "hooks" object that maps each event to a list of groups, each of which has a list
/// "hooks" of entries, beside whatever else the agent keeps in the file. What is not ours keeps its
/// value, and its place in a list; members of objects are written sorted by name.
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

/// What is lost in a change of a configuration though it may be a person's own, as words that name
/// it: "the hook \"x\" of Stop".
using HookLosses = std::vector<std::string>;

/// The configuration in `content`. A missing file and an empty one are an empty object, and so is a
/// document that is no object, which is lost where the configuration is written back. Throws
/// DecodingError for content that is not JSON: its message names `file` and, where one is to blame,
/// the line.
JSONValue readHookConfiguration(const FileContent& content, const std::filesystem::path& file,
                                HookLosses* losses = nullptr);

/// The text of a configuration file: indented, members sorted, a line feed at the end.
std::string hookConfigurationText(const JSONValue& configuration);

/// Puts the hooks of `target` for all events into an object, in place of older ones, and returns
/// whether that made a difference. A "hooks" that is no object, or an event's that is no list of
/// objects, is replaced. Adds to `losses` what that costs.
bool addHooks(JSONValue& configuration, AgentHookTarget target,
              const std::filesystem::path& hookScriptPath, HookLosses* losses = nullptr);

/// Takes every hook of `target` out, together with the groups, events and the "hooks" object that
/// it leaves empty, and returns whether there was one. Adds to `losses` those that are not written
/// as nodo writes its own.
bool removeHooks(JSONValue& configuration, AgentHookTarget target, HookLosses* losses = nullptr);

/// Adds to `losses` what a configuration of our own for `target` holds beside our hooks.
void addOtherContent(JSONValue configuration, AgentHookTarget target, HookLosses& losses);

/// Whether the hooks of `target` for all events are there exactly as addHooks writes them.
bool hasAllHooks(const JSONValue& configuration, AgentHookTarget target,
                 const std::filesystem::path& hookScriptPath);

/// Whether any hook, for whichever agent, runs the hook script.
bool runsHookScriptAnywhere(const JSONValue& configuration);

/// A configuration that holds the hooks of `target` and nothing else.
JSONValue ownHookConfiguration(AgentHookTarget target, const std::filesystem::path& hookScriptPath);

}  // namespace nodo
