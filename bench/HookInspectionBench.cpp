#include <NODOCore/hooks/AgentHookInstaller.h>
#include <testing/TemporaryFolder.h>

#include <string>
#include <vector>

#include <benchmark/benchmark.h>

namespace nodo::bench {
namespace {

// Settings as a person has them who uses hooks of several tools.
std::string foreignSettings() {
  std::string text = R"({"model": "x", "permissions": {"allow": [)";
  for (int rule = 0; rule < 100; ++rule) {
    text += (rule == 0 ? "\"" : ", \"") + ("Bash(tool-" + std::to_string(rule)) + ":*)\"";
  }
  text += R"(]}, "hooks": {"PreToolUse": [)";
  for (int group = 0; group < 10; ++group) {
    text += std::string(group == 0 ? "" : ", ") + R"({"matcher": "Bash", "hooks": [{"type": )" +
            R"("command", "command": "/opt/tools/check-)" + std::to_string(group) + R"("}]})";
  }
  return text + "]}}";
}

// What the setup menu and the doctor do each time they are shown.
void BM_InspectInstalledTargets(benchmark::State& state) {
  const test::TemporaryFolder home;
  home.write(".claude/settings.json", foreignSettings());
  home.write(".codex/hooks.json", R"({"description": "mine"})");
  const AgentHookInstaller installer(home.path(), std::nullopt, "/usr/bin/nodoctl");
  const std::vector<AgentHookTarget> targets = allCases<AgentHookTarget>();
  installer.install(targets);
  if (!installer.inspect(targets).isCurrent()) {
    state.SkipWithError("what was installed is not current");
  }
  for (auto _ : state) {
    benchmark::DoNotOptimize(installer.inspect(targets));
  }
}

BENCHMARK(BM_InspectInstalledTargets)->UseRealTime()->Unit(benchmark::kMicrosecond);

// Installing where all is up to date, as an application does at each start.
void BM_InstallWhatIsInstalled(benchmark::State& state) {
  const test::TemporaryFolder home;
  home.write(".claude/settings.json", foreignSettings());
  const AgentHookInstaller installer(home.path(), std::nullopt, "/usr/bin/nodoctl");
  const std::vector<AgentHookTarget> targets = allCases<AgentHookTarget>();
  installer.install(targets);
  for (auto _ : state) {
    benchmark::DoNotOptimize(installer.install(targets));
  }
}

BENCHMARK(BM_InstallWhatIsInstalled)->UseRealTime()->Unit(benchmark::kMicrosecond);

}  // namespace
}  // namespace nodo::bench
