#pragma once

#include <NODOCore/base/JSONCoding.h>
#include <NODOCore/hooks/AgentHookInstaller.h>

#include <filesystem>
#include <string>
#include <vector>

#include <gmock/gmock.h>

#include <tests/programs/nodoctl/ToolFixture.h>

namespace nodo::nodoctl {

/// nodoctl, found in PATH, and a home whose agents are to run the hooks.
class HooksFixture : public ToolFixture {
 protected:
  HooksFixture() {
    folder.write("bin/nodoctl", "#!/bin/sh\n");
    std::filesystem::permissions(folder / "bin/nodoctl", std::filesystem::perms::owner_all);
    std::filesystem::create_directory(home);
    environment["PATH"] = "/nowhere:" + (folder / "bin").string();
    environment["HOME"] = home.string();
    startedAs = "nodoctl";
  }

  std::vector<AgentHookInstallReport> reports(const std::vector<std::string>& arguments) {
    return decodeJSON<std::vector<AgentHookInstallReport>>(
        jsonText(runJSON(arguments), JSONLayout::compact));
  }

  std::vector<std::string> targets(const std::vector<std::string>& arguments) {
    std::vector<std::string> names;
    for (const AgentHookInstallReport& report : reports(arguments)) {
      names.push_back(report.target);
    }
    return names;
  }

  AgentHookSetupInspection inspect(const std::vector<std::string>& more = {}) {
    std::vector<std::string> arguments{"hooks", "inspect", "--json"};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return decodeJSON<AgentHookSetupInspection>(jsonText(runJSON(arguments), JSONLayout::compact));
  }

  std::string script() const { return folder.read("home/.nodo/nodo-agent-hook.sh"); }

  void expectWrongUse(const std::vector<std::string>& arguments, const std::string& reason) {
    const Outcome outcome = run(arguments);
    EXPECT_EQ(outcome.exitStatus, 2);
    EXPECT_EQ(outcome.output, "");
    EXPECT_THAT(outcome.error, ::testing::HasSubstr(reason));
    EXPECT_THAT(outcome.error, ::testing::HasSubstr("Try 'nodoctl hooks"));
    EXPECT_TRUE(std::filesystem::is_empty(home));
  }

  const std::filesystem::path home = folder / "home";
};

}  // namespace nodo::nodoctl
