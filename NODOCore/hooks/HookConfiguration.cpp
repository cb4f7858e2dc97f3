#include <NODOCore/base/DecodingError.h>
#include <NODOCore/hooks/HookCommand.h>
#include <NODOCore/hooks/HookConfiguration.h>

#include <algorithm>
#include <set>
#include <utility>

namespace nodo {
namespace {

bool isListOfObjects(const JSONValue& value) {
  const auto* list = value.array();
  return list != nullptr && std::all_of(list->begin(), list->end(), [](const JSONValue& element) {
           return element.object() != nullptr;
         });
}

// Takes the target's entries out of a group and returns whether there were any.
bool cleanGroup(JSONValue& group, AgentHookTarget target) {
  JSONValue* entries = group.member("hooks");
  return entries != nullptr && entries->array() != nullptr &&
         std::erase_if(*entries->array(),
                       [target](const JSONValue& entry) { return isHookOf(target, entry); }) > 0;
}

bool isEmptyList(const JSONValue* value) {
  return value != nullptr && value->array() != nullptr && value->array()->empty();
}

// Cleans every group but those that equal `kept`, drops the ones that this leaves empty, and
// returns whether anything was taken out.
bool cleanGroups(JSONValue::Array& groups, AgentHookTarget target, const JSONValue* kept) {
  bool removed = false;
  std::erase_if(groups, [&](JSONValue& group) {
    if ((kept != nullptr && sameValue(group, *kept)) || !cleanGroup(group, target)) {
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

JSONValue readHookConfiguration(const FileContent& content, const std::filesystem::path& file) {
  JSONValue configuration{JSONValue::Object()};
  if (content && !content->empty()) {
    try {
      if (JSONValue read = JSONValue::parse(*content); read.object() != nullptr) {
        configuration = std::move(read);
      }
    } catch (const DecodingError& error) {
      throw error.inFile(file.string());
    }
  }
  return configuration;
}

std::string hookConfigurationText(const JSONValue& configuration) {
  return jsonText(configuration, JSONLayout::prettySorted) + "\n";
}

bool addHooks(JSONValue& configuration, AgentHookTarget target,
              const std::filesystem::path& hookScriptPath) {
  const JSONValue* present = configuration.member("hooks");
  if (present == nullptr || present->object() == nullptr) {
    configuration.setMember("hooks", JSONValue(JSONValue::Object()));
  }
  JSONValue& hooks = *configuration.member("hooks");
  bool changed = false;
  for (const std::string_view event : hookEvents) {
    const JSONValue wanted = hookGroup(target, event, hookScriptPath);
    const JSONValue* groups = hooks.member(event);
    if (groups == nullptr || !isListOfObjects(*groups)) {
      hooks.setMember(event, JSONValue(JSONValue::Array()));
    }
    JSONValue& list = *hooks.member(event);
    changed = cleanGroups(*list.array(), target, &wanted) || changed;
    if (!holdsGroup(&list, wanted)) {
      list.array()->push_back(wanted);
      changed = true;
    }
  }
  return changed;
}

bool removeHooks(JSONValue& configuration, AgentHookTarget target) {
  JSONValue* hooks = configuration.member("hooks");
  if (hooks == nullptr || hooks->object() == nullptr) {
    return false;
  }
  std::set<std::string> events;
  for (const auto& [event, groups] : *hooks->object()) {
    events.insert(event);
  }
  bool removed = false;
  for (const std::string& event : events) {
    auto* groups = hooks->member(event)->array();
    if (groups != nullptr && cleanGroups(*groups, target, nullptr)) {
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
