#include <NODOCore/hooks/HookPause.h>
#include <testing/EnvironmentVariable.h>

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <tests/programs/nodoctl/ToolFixture.h>

// How people keep their agents' hooks quiet: for as long as they say, and for a moment by a stop.

namespace nodo::nodoctl {
namespace {

using test::FakeHelperRequest;

class PauseTest : public ToolFixture {
 protected:
  std::optional<Date> pausedUntil() const { return hooksPausedUntil(folder.path(), now); }

  const test::EnvironmentVariable zone{"TZ", "UTC0"};
};

TEST_F(PauseTest, APauseEndsTheTimerAndKeepsHooksFromAskingForAnHour) {
  startDaemon();
  bool wasPausedFirst = false;
  helper->answer("stop", [&](const FakeHelperRequest& asked) {
    wasPausedFirst = pausedUntil().has_value();
    asked.reply(helper->status);
  });
  const Outcome outcome = run({"pause"});
  EXPECT_EQ(outcome.exitStatus, 0);
  EXPECT_TRUE(outcome.output.starts_with(
      "Your agents' hooks are paused until 09:15; 'nodoctl resume' ends that.\nNot kept awake: "))
      << outcome.output;
  EXPECT_EQ(outcome.error, "");
  EXPECT_EQ(pausedUntil(), now + std::chrono::minutes(60));
  EXPECT_TRUE(wasPausedFirst) << "a hook may have begun another timer";
}

TEST_F(PauseTest, ItsLengthIsTakenAsPeopleWriteIt) {
  const std::vector<std::pair<std::string, std::int64_t>> lengths{
      {"30", 30},   {"30m", 30},   {"2h", 120},    {"1h30m", 90},
      {"1h30", 90}, {"24h", 1440}, {"1440", 1440}, {"0h5m", 5}};
  for (const auto& [text, minutes] : lengths) {
    EXPECT_EQ(run({"pause", text}).exitStatus, 0) << text;
    EXPECT_EQ(pausedUntil(), now + std::chrono::minutes(minutes)) << text;
  }
}

TEST_F(PauseTest, WhatIsNoLengthIsAWrongUse) {
  for (const char* text : {"", "0", "-5", "+-5", "soon", "1x", "h", "m", "1h-5m", "1.5h", "25h",
                           "1441", "99999999999999999999", "99999999h", "1h1h"}) {
    EXPECT_EQ(run({"pause", text}).exitStatus, 2) << text;
    EXPECT_EQ(pausedUntil(), std::nullopt) << text;
  }
}

TEST_F(PauseTest, WhoLooksIsToldOfIt) {
  startDaemon();
  run({"pause", "90m"});
  const std::string hint =
      "nodoctl: your agents' hooks are paused until 09:45; 'nodoctl resume' ends that\n";
  EXPECT_EQ(run({"status"}).error, hint);
  EXPECT_EQ(run({"status", "--json"}).error, hint);
  EXPECT_TRUE(run({"menu"}).error.ends_with(hint));
  EXPECT_NE(run({"doctor"}).output.find("\nNote: The agents' hooks are paused until 09:45.\n"),
            std::string::npos);
  advance(90 * 60);
  EXPECT_EQ(run({"status"}).error, "");
}

TEST_F(PauseTest, AResumptionEndsIt) {
  startDaemon();
  run({"pause"});
  const Outcome outcome = run({"resume"});
  EXPECT_EQ(outcome.exitStatus, 0);
  EXPECT_EQ(outcome.output, "Your agents' hooks are active again.\n");
  EXPECT_EQ(pausedUntil(), std::nullopt);
  EXPECT_EQ(run({"status"}).error, "");
}

TEST_F(PauseTest, WithoutAHomeNobodyKnowsWhoseHooksAreMeant) {
  startDaemon();
  environment.erase("HOME");
  for (const char* command : {"pause", "resume"}) {
    const Outcome outcome = run({command});
    EXPECT_EQ(outcome.exitStatus, 1);
    EXPECT_EQ(outcome.error,
              "nodoctl: HOME is not set, so that it is not known whose hooks are meant; set it\n");
  }
  EXPECT_EQ(helper->requests(), std::vector<std::string>());
}

TEST_F(PauseTest, APauseThatLeavesTheLockOnHasFailed) {
  diagnostics.report.sleepDisabled = true;
  const Outcome outcome = run({"pause"});
  EXPECT_TRUE(outcome.saidLocal);
  EXPECT_EQ(outcome.exitStatus, 1);
  EXPECT_NE(outcome.error.find("the sleep lock is still on"), std::string::npos) << outcome.error;
}

class StopTest : public PauseTest {
 protected:
  std::string stamp() const {
    return std::filesystem::exists(folder / ".nodo/last-extend.stamp")
               ? folder.read(".nodo/last-extend.stamp")
               : "none";
  }

  void installHooks() { folder.write(".nodo/nodo-agent-hook.sh", "#!/bin/sh\n"); }

  const std::string note =
      "Hooks of your agents may start it again in 2 minutes; 'nodoctl pause' keeps them quiet for "
      "longer.\n";
};

TEST_F(StopTest, HooksOfThePersonWhoStopsAskNotBeforeTwoMinutes) {
  startDaemon();
  installHooks();
  std::string atStop;
  helper->answer("stop", [&](const FakeHelperRequest& asked) {
    atStop = stamp();
    asked.reply(helper->status);
  });
  for (const char* command : {"stop", "off"}) {
    std::filesystem::remove(folder / ".nodo/last-extend.stamp");
    const Outcome outcome = run({command});
    EXPECT_EQ(outcome.exitStatus, 0);
    EXPECT_TRUE(outcome.output.ends_with(note)) << outcome.output;
    EXPECT_EQ(outcome.error, "");
    EXPECT_EQ(atStop, "1769847300\n") << "a hook may have begun another timer";
  }
}

TEST_F(StopTest, TheDocumentIsAsBefore) {
  startDaemon();
  installHooks();
  const Outcome outcome = run({"stop", "--json"});
  EXPECT_EQ(outcome.error, "");
  EXPECT_EQ(*JSONValue::parse(outcome.output).member("state")->member("lastStopReason")->text(),
            "the daemon's");
  EXPECT_EQ(stamp(), "1769847300\n");
}

TEST_F(StopTest, WhoHasNoHooksIsToldOfNone) {
  startDaemon();
  EXPECT_EQ(run({"stop"}).output.find("Hooks"), std::string::npos);
  EXPECT_FALSE(std::filesystem::exists(folder / ".nodo"));
  environment.erase("HOME");
  EXPECT_EQ(run({"stop"}).output.find("Hooks"), std::string::npos);
}

TEST_F(StopTest, ALongerPauseStays) {
  startDaemon();
  installHooks();
  run({"pause", "30m"});
  const Outcome outcome = run({"stop"});
  EXPECT_TRUE(outcome.output.ends_with("Hooks of your agents are paused until 08:45.\n"))
      << outcome.output;
  EXPECT_EQ(pausedUntil(), now + std::chrono::minutes(30));
}

TEST_F(StopTest, APauseTellsOfItselfAlone) {
  startDaemon();
  installHooks();
  EXPECT_EQ(run({"pause"}).output.find("Hooks of"), std::string::npos);
}

TEST_F(StopTest, HooksThatCannotBeToldToWaitAreAHintAndNoFailure) {
  startDaemon();
  installHooks();
  std::filesystem::create_directories(folder / ".nodo/last-extend.stamp");
  const Outcome outcome = run({"stop"});
  EXPECT_EQ(outcome.exitStatus, 0);
  EXPECT_EQ(outcome.output.find("Hooks"), std::string::npos);
  EXPECT_TRUE(outcome.error.starts_with(
      "nodoctl: hooks of your agents may start it again at once, as they cannot be told to wait: "))
      << outcome.error;
}

TEST_F(StopTest, OnLeavesTheHooksAsTheyAre) {
  startDaemon();
  installHooks();
  run({"stop"});
  EXPECT_EQ(run({"on"}).exitStatus, 0);
  EXPECT_EQ(stamp(), "1769847300\n");
}

}  // namespace
}  // namespace nodo::nodoctl
