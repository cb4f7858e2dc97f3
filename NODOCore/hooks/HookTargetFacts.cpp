#include <NODOCore/base/ProgrammingFault.h>
#include <NODOCore/hooks/HookTargetFacts.h>

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

}  // namespace nodo
