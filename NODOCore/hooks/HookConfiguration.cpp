#include <NODOCore/base/Errors.h>
#include <NODOCore/base/Text.h>
#include <NODOCore/hooks/HookConfiguration.h>
#include <NODOCore/hooks/HookScript.h>

#include <algorithm>
#include <cstdint>
#include <set>
#include <utility>

#include <fmt/format.h>

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

bool runsHookScript(const JSONValue& entry) {
  const std::string* command = commandOf(entry);
  return command != nullptr && namesHookScript(*command);
}

bool isListOfObjects(const JSONValue& value) {
  const auto* list = value.array();
  return list != nullptr && std::all_of(list->begin(), list->end(), [](const JSONValue& element) {
           return element.object() != nullptr;
         });
}

// How the commands begin that nodo writes for the target.
std::string commandBegin(AgentHookTarget target) {
  return "NODO_HOOK_AGENT=" + shellQuoted(rawValue(target)) + " NODO_HOOK_EVENT=";
}

void add(HookLosses* losses, const std::string& loss) {
  if (losses != nullptr) {
    losses->push_back(loss);
  }
}

// Adds that a value is lost because it is not `expected`. Null says nothing that could be lost.
void addReplaced(HookLosses* losses, const JSONValue* value, const std::string& name,
                 const std::string& expected) {
  if (value != nullptr && !value->isNull()) {
    add(losses, name + ", as it was no " + expected + ": " + jsonText(*value, JSONLayout::compact));
  }
}

// What is wrong with a configuration that could not be read, for people: agents' files are edited
// by hand, and a line is what an editor goes to.
DecodingError unreadable(const DecodingError& error, const std::filesystem::path& file) {
  return error.line() ? error.saying(fmt::format("{}, line {}: this is not valid JSON",
                                                 file.string(), *error.line()))
                      : error.inFile(file.string());
}

// Takes the target's hooks out of an event's groups.
struct Cleaning {
  AgentHookTarget target;
  std::string event;
  const JSONValue* kept = nullptr;  // groups that equal this one stay as they are
  HookLosses* losses = nullptr;
};

// Takes the target's entries out of a group and returns whether there were any.
bool cleanGroup(JSONValue& group, const Cleaning& cleaning) {
  JSONValue* entries = group.member("hooks");
  return entries != nullptr && entries->array() != nullptr &&
         std::erase_if(*entries->array(), [&](const JSONValue& entry) {
           if (!isHookOf(cleaning.target, entry)) {
             return false;
           }
           if (!commandOf(entry)->starts_with(commandBegin(cleaning.target))) {
             add(cleaning.losses, "the hook \"" + *commandOf(entry) + "\" of " + cleaning.event +
                                      ", taken for an older one of nodo's by its name");
           }
           return true;
         }) > 0;
}

bool isEmptyList(const JSONValue* value) {
  return value != nullptr && value->array() != nullptr && value->array()->empty();
}

// Cleans every group, drops the ones that this leaves empty, and returns whether anything was taken
// out.
bool cleanGroups(JSONValue::Array& groups, const Cleaning& cleaning) {
  bool removed = false;
  std::erase_if(groups, [&](JSONValue& group) {
    const bool isKept = cleaning.kept != nullptr && sameValue(group, *cleaning.kept);
    if (isKept || !cleanGroup(group, cleaning)) {
      return false;
    }
    removed = true;
    return isEmptyList(group.member("hooks"));
  });
  return removed;
}

bool holdsGroup(const JSONValue* groups, const JSONValue& wanted) {
  return groups != nullptr && isListOfObjects(*groups) &&
         std::any_of(groups->array()->begin(), groups->array()->end(),
                     [&](const JSONValue& group) { return sameValue(group, wanted); });
}

}  // namespace

std::string hookCommand(AgentHookTarget target, std::string_view event,
                        const std::filesystem::path& hookScriptPath) {
  return commandBegin(target) + shellQuoted(event) + " " + shellQuoted(hookScriptPath.string());
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

JSONValue readHookConfiguration(const FileContent& content, const std::filesystem::path& file,
                                HookLosses* losses) {
  if (!content || content->empty()) {
    return JSONValue(JSONValue::Object());
  }
  try {
    JSONValue read = JSONValue::parse(*content);
    if (read.object() != nullptr) {
      return read;
    }
    addReplaced(losses, &read, "all that stood there", "JSON object");
    return JSONValue(JSONValue::Object());
  } catch (const DecodingError& error) {
    throw unreadable(error, file);
  }
}

std::string hookConfigurationText(const JSONValue& configuration) {
  return jsonText(configuration, JSONLayout::prettySorted) + "\n";
}

bool addHooks(JSONValue& configuration, AgentHookTarget target,
              const std::filesystem::path& hookScriptPath, HookLosses* losses) {
  const JSONValue* present = configuration.member("hooks");
  if (present == nullptr || present->object() == nullptr) {
    addReplaced(losses, present, "\"hooks\"", "object");
    configuration.setMember("hooks", JSONValue(JSONValue::Object()));
  }
  JSONValue& hooks = *configuration.member("hooks");
  bool changed = false;
  for (const std::string_view event : hookEvents) {
    const JSONValue wanted = hookGroup(target, event, hookScriptPath);
    const JSONValue* groups = hooks.member(event);
    if (groups == nullptr || !isListOfObjects(*groups)) {
      addReplaced(losses, groups, "what stood at " + std::string(event), "list of objects");
      hooks.setMember(event, JSONValue(JSONValue::Array()));
    }
    JSONValue& list = *hooks.member(event);
    changed = cleanGroups(*list.array(), {target, std::string(event), &wanted, losses}) || changed;
    if (!holdsGroup(&list, wanted)) {
      list.array()->push_back(wanted);
      changed = true;
    }
  }
  return changed;
}

bool removeHooks(JSONValue& configuration, AgentHookTarget target, HookLosses* losses) {
  JSONValue* hooks = configuration.member("hooks");
  if (hooks == nullptr || hooks->object() == nullptr) {
    return false;
  }
  std::set<std::string> events;  // each once: of one that occurs twice the last counts
  for (const auto& [event, groups] : *hooks->object()) {
    events.insert(event);
  }
  bool removed = false;
  for (const std::string& event : events) {
    auto* groups = hooks->member(event)->array();
    if (groups != nullptr && cleanGroups(*groups, {target, event, nullptr, losses})) {
      removed = true;
      if (groups->empty()) {
        hooks->removeMember(event);
      }
    }
  }
  if (removed && hooks->object()->empty()) {
    configuration.removeMember("hooks");
  }
  return removed;
}

void addOtherContent(JSONValue configuration, AgentHookTarget target, HookLosses& losses) {
  removeHooks(configuration, target, &losses);
  if (!configuration.object()->empty()) {
    losses.push_back("what it held beside nodo's hooks: " +
                     jsonText(configuration, JSONLayout::compact));
  }
}

bool hasAllHooks(const JSONValue& configuration, AgentHookTarget target,
                 const std::filesystem::path& hookScriptPath) {
  const JSONValue* hooks = configuration.member("hooks");
  return hooks != nullptr &&
         std::all_of(hookEvents.begin(), hookEvents.end(), [&](std::string_view event) {
           return holdsGroup(hooks->member(event), hookGroup(target, event, hookScriptPath));
         });
}

bool runsHookScriptAnywhere(const JSONValue& configuration) {
  const auto anyOf = [](const JSONValue* list, const auto& predicate) {
    return list != nullptr && list->array() != nullptr &&
           std::any_of(list->array()->begin(), list->array()->end(), predicate);
  };
  const JSONValue* hooks = configuration.member("hooks");
  return hooks != nullptr && hooks->object() != nullptr &&
         std::any_of(hooks->object()->begin(), hooks->object()->end(), [&](const auto& event) {
           return anyOf(&event.second, [&](const JSONValue& group) {
             return anyOf(group.member("hooks"), runsHookScript);
           });
         });
}

JSONValue ownHookConfiguration(AgentHookTarget target,
                               const std::filesystem::path& hookScriptPath) {
  JSONValue configuration{JSONValue::Object()};
  addHooks(configuration, target, hookScriptPath);
  return configuration;
}

}  // namespace nodo
