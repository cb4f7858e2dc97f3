#pragma once

#include <NODOCore/base/JSONValue.h>
#include <NODOCore/hooks/AgentHookInstaller.h>
#include <NODOCore/hooks/HookConfiguration.h>
#include <testing/TemporaryFolder.h>

#include <filesystem>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace nodo {

/// A home folder with the files of four agents, and the verbs of somebody who installs hooks there.
class InstallerFixture : public ::testing::Test {
 protected:
  static constexpr const char* claudeFile = ".claude/settings.json";
  static constexpr const char* codexFile = ".codex/hooks.json";
  static constexpr const char* codexConfigFile = ".codex/config.toml";
  static constexpr const char* grokFile = ".grok/hooks/nodo.json";
  static constexpr const char* piFile = ".pi/agent/extensions/nodo.ts";
  static constexpr const char* scriptFile = ".nodo/nodo-agent-hook.sh";

  static std::vector<AgentHookTarget> all() { return allCases<AgentHookTarget>(); }

  AgentHookInstaller installer() const {
    return AgentHookInstaller(home.path(), std::nullopt, "/usr/bin/nodoctl");
  }

  std::vector<AgentHookInstallReport> install() const { return installer().install(all()); }

  AgentHookInstallReport install(AgentHookTarget target) const {
    return installer().install({target}).at(0);
  }

  AgentHookInstallReport uninstall(AgentHookTarget target) const {
    return installer().uninstall({target}).at(0);
  }

  /// The report of an installation of that target that must fail.
  AgentHookInstallReport failureOf(AgentHookTarget target) const {
    AgentHookInstallReport report = installer().installReportingFailures({target}).at(0);
    EXPECT_FALSE(report.succeeded()) << report.message;
    EXPECT_FALSE(report.changed);
    EXPECT_EQ(report.message, "failed");
    EXPECT_EQ(report.target, rawValue(target));
    return report;
  }

  AgentHookInstallReport report(const std::string& target, const std::string& file, bool changed,
                                const std::string& message) const {
    return {target, (home / file).string(), changed, message, std::nullopt};
  }

  /// The wanted group of an event as compact JSON text.
  std::string group(AgentHookTarget target, std::string_view event) const {
    return jsonText(hookGroup(target, event, home / scriptFile), JSONLayout::compact);
  }

  /// `"Event":[group]` for every event, separated by commas.
  std::string ourEvents(AgentHookTarget target) const {
    std::string text;
    for (const std::string_view event : hookEvents) {
      text +=
          (text.empty() ? "\"" : ",\"") + std::string(event) + "\":[" + group(target, event) + "]";
    }
    return text;
  }

  /// Whether the file holds that document, however it is laid out.
  ::testing::AssertionResult holds(const std::string& file, const std::string& document) const {
    const JSONValue found = JSONValue::parse(home.read(file));
    if (sameValue(found, JSONValue::parse(document))) {
      return ::testing::AssertionSuccess();
    }
    return ::testing::AssertionFailure() << file << " holds " << home.read(file);
  }

  bool exists(const std::string& file) const {
    return std::filesystem::exists(std::filesystem::symlink_status(home / file));
  }

  unsigned modeOf(const std::string& file) const {
    return static_cast<unsigned>(std::filesystem::status(home / file).permissions());
  }

  test::TemporaryFolder home = test::TemporaryFolder::inMemory();
};

}  // namespace nodo
