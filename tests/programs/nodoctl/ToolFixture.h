#pragma once

#include <NODOCore/base/JSONValue.h>
#include <NODOCore/state/StateStore.h>
#include <programs/nodoctl/Tool.h>
#include <testing/FakeHelper.h>
#include <testing/FakeMachine.h>
#include <testing/TemporaryFolder.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

namespace nodo::nodoctl {

/// nodoctl on a machine, a clock, an environment and a way to the daemon that the test sets. There
/// is no daemon until `startDaemon`.
class ToolFixture : public ::testing::Test {
 protected:
  struct Outcome {
    int exitStatus = -1;
    std::string output;
    std::string error;
    bool saidLocal = false;  ///< first of all the use of the own state; `error` is what follows
  };

  /// From now on a daemon answers, unless a test scripts `helper` otherwise.
  void startDaemon() {
    helper->refusal.reset();
    helper->status.generatedAt = now;
    helper->status.state = NODOState::fresh(now);
    helper->status.state.lastStopReason = "the daemon's";
    helper->run.status = helper->status;
  }

  Outcome run(const std::vector<std::string>& arguments) {
    std::ostringstream output;
    std::ostringstream error;
    const int status = runTool(
        arguments, {.environment = environment,
                    .machine = {.processListing = machine,
                                .snapshotProvider = machine,
                                .sleepDiagnostics = [this](Date at) { return diagnose(at); },
                                .ageOfOwnProcess = [this](std::int32_t) { return agentsAge; }},
                    .helperConnecting =
                        [this](const std::optional<std::string>& asked) {
                          bus = asked;
                          return helper;
                        },
                    .daemonStanding =
                        [this](const std::optional<std::string>& asked, Seconds limit) {
                          standingAskedFor.emplace_back(asked, limit);
                          return standing;
                        },
                    .daemonSettings =
                        [this](const std::optional<std::string>&, Seconds) {
                          ++settingsAsked;
                          return settings;
                        },
                    .listenForChanges = [this](const std::optional<std::string>&,
                                               Seconds) { return listenForChanges(); },
                    .restartCommand = "sudo restart",
                    .now = [this] { return now; },
                    .output = output,
                    .error = error,
                    .terminal = terminal,
                    .catchSignals = makeSignals,
                    .startedAs = startedAs});
    Outcome outcome{.exitStatus = status, .output = output.str(), .error = error.str()};
    if (outcome.error.starts_with(localNotice)) {
      outcome.error.erase(0, localNotice.size());
      outcome.saidLocal = true;
    }
    return outcome;
  }

  /// Runs a command that must succeed in silence and gives its one JSON document.
  JSONValue runJSON(const std::vector<std::string>& arguments) {
    const Outcome outcome = run(arguments);
    EXPECT_EQ(outcome.exitStatus, 0);
    EXPECT_EQ(outcome.error, "");
    return JSONValue::parse(outcome.output);
  }

  SleepDiagnosticsReading diagnose(Date at) const {
    if (diagnosticsFail) {
      throw std::runtime_error("broken");
    }
    SleepDiagnosticsReading reading = diagnostics;
    reading.report.generatedAt = at;
    return reading;
  }

  void advance(double seconds) { now += Seconds(seconds); }

  const std::string localNotice =
      "nodoctl: helper unavailable (nobody there); using the local state\n";
  test::TemporaryFolder folder;
  Environment environment{{"HOME", folder.path().string()},
                          {"NODO_HOOK_LOG", (folder / "hook.log").string()}};
  std::shared_ptr<test::FakeHelper> helper = absentHelper();
  std::optional<std::string> bus;  ///< that was chosen for the last request
  DaemonStanding standing;         ///< what the daemon is to this user
  /// The bus and the time limit of each time that it was asked for.
  std::vector<std::pair<std::optional<std::string>, Seconds>> standingAskedFor;
  std::optional<SettingsReport> settings;  ///< of the daemon, where it tells
  int settingsAsked = 0;
  /// How changes are heard of; null where they cannot be.
  std::function<std::unique_ptr<ChangeNews>()> listenForChanges = [] { return nullptr; };
  std::shared_ptr<test::FakeMachine> machine = std::make_shared<test::FakeMachine>();
  SleepDiagnosticsReading diagnostics;
  bool diagnosticsFail = false;
  std::optional<Seconds> agentsAge;    ///< of all agents
  std::shared_ptr<Terminal> terminal;  ///< that standard output goes to, if any
  std::function<std::unique_ptr<SignalQueue>(const std::vector<int>&)> makeSignals = catchSignals;
  std::string startedAs = "/usr/bin/nodoctl";
  Date now = dateFromSeconds(1769847300);  // 2026-01-31T08:15:00Z

 private:
  static std::shared_ptr<test::FakeHelper> absentHelper() {
    auto absent = std::make_shared<test::FakeHelper>();
    absent->refusal = "nobody there";
    return absent;
  }
};

}  // namespace nodo::nodoctl
