#include <NODOCore/base/Errors.h>
#include <NODOCore/hooks/HookConfiguration.h>

#include <algorithm>
#include <map>
#include <string>

#include <fuzz/Fuzzing.h>

namespace nodo::fuzzing {
namespace {

const std::filesystem::path script = "/home/u/.nodo/nodo-agent-hook.sh";

bool isListOfObjects(const JSONValue& value) {
  const auto* list = value.array();
  return list != nullptr && std::all_of(list->begin(), list->end(), [](const auto& group) {
           return group.object() != nullptr;
         });
}

// The groups of an event without the target's entries, written as plainly as possible.
JSONValue::Array foreignGroups(const JSONValue& groups, AgentHookTarget target) {
  JSONValue::Array foreign;
  for (const JSONValue& group : *groups.array()) {
    const JSONValue* entries = group.member("hooks");
    if (entries == nullptr || entries->array() == nullptr) {
      foreign.push_back(group);
      continue;
    }
    JSONValue::Array kept;
    for (const JSONValue& entry : *entries->array()) {
      if (!isHookOf(target, entry)) {
        kept.push_back(entry);
      }
    }
    if (kept.size() == entries->array()->size()) {
      foreign.push_back(group);
    } else if (!kept.empty()) {
      JSONValue cleaned = group;
      cleaned.setMember("hooks", JSONValue(kept));
      foreign.push_back(cleaned);
    }
  }
  return foreign;
}

// What a person would say is foreign in a configuration: everything but the target's entries, and
// without the lists that held nothing else.
JSONValue foreignContent(JSONValue configuration, AgentHookTarget target) {
  JSONValue* hooks = configuration.member("hooks");
  if (hooks == nullptr || hooks->object() == nullptr) {
    return configuration;
  }
  // Of an event that occurs twice the last one counts.
  std::map<std::string, JSONValue> counting;
  for (const auto& [event, groups] : *hooks->object()) {
    counting[event] = groups;
  }
  JSONValue::Object events;
  for (const auto& [event, groups] : counting) {
    if (groups.array() == nullptr) {
      events.emplace_back(event, groups);
      continue;
    }
    auto foreign = foreignGroups(groups, target);
    if (!foreign.empty()) {
      events.emplace_back(event, JSONValue(std::move(foreign)));
    }
  }
  *hooks = JSONValue(std::move(events));
  return configuration;
}

// Installing replaces what is no list of groups, so only documents without that keep all of it.
bool isWellFormed(const JSONValue& configuration) {
  const JSONValue* hooks = configuration.member("hooks");
  if (hooks == nullptr) {
    return true;
  }
  return hooks->object() != nullptr &&
         std::all_of(hookEvents.begin(), hookEvents.end(), [&](std::string_view event) {
           const JSONValue* groups = hooks->member(event);
           return groups == nullptr || isListOfObjects(*groups);
         });
}

// As far as two spellings of "no hooks" go, they are one.
JSONValue withoutEmptyHooks(JSONValue configuration) {
  const JSONValue* hooks = configuration.member("hooks");
  if (hooks != nullptr && hooks->object() != nullptr && hooks->object()->empty()) {
    configuration.removeMember("hooks");
  }
  return configuration;
}

JSONValue throughAFile(const JSONValue& configuration) {
  return readHookConfiguration(hookConfigurationText(configuration), "file");
}

void checkTarget(const JSONValue& original, AgentHookTarget target) {
  const JSONValue foreign = withoutEmptyHooks(foreignContent(original, target));

  JSONValue installed = original;
  const bool changed = addHooks(installed, target, script);
  require(changed != (hasAllHooks(original, target, script) && sameValue(original, installed)),
          "an installation says truly whether it changed anything");
  installed = throughAFile(installed);
  require(hasAllHooks(installed, target, script), "what was installed is there");
  require(runsHookScriptAnywhere(installed), "what was installed runs the script");
  JSONValue again = installed;
  require(!addHooks(again, target, script), "installing twice changes nothing");
  require(again == installed, "installing twice leaves every byte");
  if (isWellFormed(original)) {
    require(sameValue(withoutEmptyHooks(foreignContent(installed, target)), foreign),
            "an installation keeps all that is foreign");
  }

  JSONValue removed = original;
  const bool wasThere = removeHooks(removed, target);
  require(wasThere != (removed == original),
          "an uninstallation says truly whether it did anything");
  require(sameValue(withoutEmptyHooks(foreignContent(removed, target)), foreign),
          "an uninstallation keeps all that is foreign");

  JSONValue gone = installed;
  require(removeHooks(gone, target), "what was installed can be removed");
  require(!hasAllHooks(gone, target, script), "what was removed is gone");
  JSONValue twice = gone;
  require(!removeHooks(twice, target), "nothing is left to remove");
  addHooks(gone, target, script);
  require(sameValue(foreignContent(gone, target), foreignContent(installed, target)),
          "installing again gives the same");
}

}  // namespace
}  // namespace nodo::fuzzing

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  nodo::JSONValue original;
  try {
    original = nodo::readHookConfiguration(std::string(nodo::fuzzing::textOf(data, size)), "file");
  } catch (const nodo::DecodingError& error) {
    nodo::fuzzing::require(std::string(error.what()).starts_with("file"),
                           "an error names its file");
    return 0;
  }
  for (const auto target : nodo::allCases<nodo::AgentHookTarget>()) {
    nodo::fuzzing::checkTarget(original, target);
  }
  return 0;
}
