#include <NODOCore/base/Errors.h>
#include <NODOCore/base/Files.h>
#include <NODOCore/base/Text.h>
#include <NODOCore/hooks/CodexConfig.h>
#include <NODOCore/hooks/HookConfiguration.h>
#include <NODOCore/hooks/HookScript.h>
#include <NODOCore/hooks/HookTargetSetup.h>

#include <array>

namespace nodo {

namespace {

constexpr std::array allFacts{
    HookTargetFacts{.target = AgentHookTarget::claude,
                    .kind = HookFileKind::sharedConfiguration,
                    .configurationFile = ".claude/settings.json",
                    .hasFeatureSwitch = false,
                    .dislikesEmptyFile = false,
                    .installedMessage = "installed"},
    HookTargetFacts{.target = AgentHookTarget::codex,
                    .kind = HookFileKind::sharedConfiguration,
                    .configurationFile = ".codex/hooks.json",
                    .hasFeatureSwitch = true,
                    .dislikesEmptyFile = true,
                    .installedMessage = "installed; Codex hooks feature enabled"},
    HookTargetFacts{.target = AgentHookTarget::grok,
                    .kind = HookFileKind::ownConfiguration,
                    .configurationFile = ".grok/hooks/nodo.json",
                    .hasFeatureSwitch = false,
                    .dislikesEmptyFile = false,
                    .installedMessage = "installed"},
    HookTargetFacts{.target = AgentHookTarget::pi,
                    .kind = HookFileKind::ownExtension,
                    .configurationFile = ".pi/agent/extensions/nodo.ts",
                    .hasFeatureSwitch = false,
                    .dislikesEmptyFile = false,
                    .installedMessage = "installed"},
};

}  // namespace

const HookTargetFacts& hookTargetFacts(AgentHookTarget target) {
  for (const HookTargetFacts& facts : allFacts) {
    if (facts.target == target) {
      return facts;
    }
  }
  programmingFault("a hook target without facts");
}

std::filesystem::path hookConfigurationFile(AgentHookTarget target,
                                            const std::filesystem::path& homeDirectory) {
  return homeDirectory / hookTargetFacts(target).configurationFile;
}

namespace {

namespace fs = std::filesystem;

bool installShared(const HookTargetSetup& setup) {
  bool changed = false;
  updateFileThroughLinks(setup.configurationFile, [&](const FileContent& before) -> FileContent {
    JSONValue configuration = readHookConfiguration(before, setup.configurationFile);
    changed = addHooks(configuration, setup.target, setup.hookScriptPath);
    return hookConfigurationText(configuration);
  });
  return changed;
}

bool installOwnConfiguration(const HookTargetSetup& setup) {
  const JSONValue wanted = ownHookConfiguration(setup.target, setup.hookScriptPath);
  return updateFileThroughLinks(
      setup.configurationFile, [&](const FileContent& before) -> FileContent {
        const JSONValue present = readHookConfiguration(before, setup.configurationFile);
        return sameValue(present, wanted) ? before : hookConfigurationText(wanted);
      });
}

bool installExtension(const HookTargetSetup& setup) {
  return updateFileThroughLinks(setup.configurationFile, [&](const FileContent&) -> FileContent {
    return piExtensionText(setup.hookScriptPath);
  });
}

fs::path featureFile(const HookTargetSetup& setup) {
  return setup.configurationFile.parent_path() / "config.toml";
}

bool switchFeatureOn(const HookTargetSetup& setup) {
  const fs::path file = featureFile(setup);
  return updateFileThroughLinks(file, [&](const FileContent& before) -> FileContent {
    const std::string text = before.value_or("");
    std::string edited = codexConfigWithHooksOn(text, file);
    return edited == text ? before : FileContent(std::move(edited));
  });
}

// The text of a shared configuration that has lost our hooks; nothing when no file should be left.
FileContent textWithoutHooks(const HookTargetSetup& setup, JSONValue configuration) {
  if (hookTargetFacts(setup.target).dislikesEmptyFile && configuration.object()->empty()) {
    if (!fs::is_symlink(setup.configurationFile)) {
      return std::nullopt;
    }
    // The link stays, and what it leads to with it.
    configuration.setMember("hooks", JSONValue(JSONValue::Object()));
  }
  return hookConfigurationText(configuration);
}

bool uninstallShared(const HookTargetSetup& setup) {
  return updateFileThroughLinks(
      setup.configurationFile, [&](const FileContent& before) -> FileContent {
        JSONValue configuration = readHookConfiguration(before, setup.configurationFile);
        return removeHooks(configuration, setup.target)
                   ? textWithoutHooks(setup, std::move(configuration))
                   : before;
      });
}

bool uninstallOwnConfiguration(const HookTargetSetup& setup) {
  return updateFileThroughLinks(setup.configurationFile, [&](const FileContent& before) {
    const bool isOurs =
        runsHookScriptAnywhere(readHookConfiguration(before, setup.configurationFile));
    return isOurs ? FileContent() : before;
  });
}

bool uninstallExtension(const HookTargetSetup& setup) {
  return updateFileThroughLinks(setup.configurationFile, [](const FileContent& before) {
    const bool isOurs =
        before && namesHookScript(*before) && contains(*before, "NODO_HOOK_AGENT: \"pi\"");
    return isOurs ? FileContent() : before;
  });
}

AgentHookComponentStatus extensionStatus(const HookTargetSetup& setup, const std::string& text) {
  if (!isValidUTF8(text)) {
    throw DecodingError("", "UTF-8 text", "other bytes").inFile(setup.configurationFile.string());
  }
  if (text == piExtensionText(setup.hookScriptPath)) {
    return AgentHookComponentStatus::current;
  }
  return namesHookScript(text) && contains(text, "NODO_HOOK_AGENT")
             ? AgentHookComponentStatus::outdated
             : AgentHookComponentStatus::missing;
}

AgentHookComponentStatus configurationStatus(const HookTargetSetup& setup,
                                             const FileContent& content) {
  const JSONValue configuration = readHookConfiguration(content, setup.configurationFile);
  if (hasAllHooks(configuration, setup.target, setup.hookScriptPath)) {
    return AgentHookComponentStatus::current;
  }
  return runsHookScriptAnywhere(configuration) ? AgentHookComponentStatus::outdated
                                               : AgentHookComponentStatus::missing;
}

}  // namespace

bool HookTargetSetup::install() const {
  const HookTargetFacts& facts = hookTargetFacts(target);
  if (facts.hasFeatureSwitch) {
    // Only to fail before anything is changed.
    codexConfigWithHooksOn(readFile(featureFile(*this)).value_or(""), featureFile(*this));
  }
  makeFolder(configurationFile.parent_path());
  switch (facts.kind) {
    case HookFileKind::sharedConfiguration: {
      const bool changed = installShared(*this);
      return (facts.hasFeatureSwitch && switchFeatureOn(*this)) || changed;
    }
    case HookFileKind::ownConfiguration:
      return installOwnConfiguration(*this);
    case HookFileKind::ownExtension:
      return installExtension(*this);
  }
  programmingFault("a hook file of no kind");
}

bool HookTargetSetup::uninstall() const {
  switch (hookTargetFacts(target).kind) {
    case HookFileKind::sharedConfiguration:
      return uninstallShared(*this);
    case HookFileKind::ownConfiguration:
      return uninstallOwnConfiguration(*this);
    case HookFileKind::ownExtension:
      return uninstallExtension(*this);
  }
  programmingFault("a hook file of no kind");
}

AgentHookComponentStatus HookTargetSetup::status() const {
  const FileContent content = readFile(configurationFile);
  if (!content) {
    return AgentHookComponentStatus::missing;
  }
  return hookTargetFacts(target).kind == HookFileKind::ownExtension
             ? extensionStatus(*this, *content)
             : configurationStatus(*this, content);
}

}  // namespace nodo
