#include <NODOCore/base/JSONCoding.h>
#include <NODOCore/diagnostics/Headline.h>
#include <testing/EnvironmentVariable.h>

#include <functional>
#include <string>

#include <gtest/gtest.h>

namespace nodo {
namespace {

constexpr SafetyPolicy limits{.minimumBatteryPercent = 20,
                              .maxManualDurationMinutes = 720,
                              .lidOpenGraceSeconds = 60,
                              .noRouteGraceSeconds = 300,
                              .stopAtThermalPressure = true,
                              .stopInLowPowerMode = true};
const Date now = dateFromSeconds(1769847300);  // 2026-01-31 08:15:00 UTC

// A daemon that has nothing to do.
KeepAwakeFacts idle() {
  KeepAwakeFacts facts{.lockIsOn = false, .limits = limits};
  facts.report.generatedAt = now;
  facts.report.state = NODOState::fresh(now);
  facts.report.snapshot = {.now = now, .powerSource = PowerSource::battery, .batteryPercent = 80};
  return facts;
}

// Decides as the daemon would.
void decide(KeepAwakeFacts& facts) {
  StatusReport& report = facts.report;
  report.decision =
      PowerDecisionEngine{limits}.evaluate(report.state, report.agents, report.snapshot);
  report.manualRemainingSeconds = report.state.manualRemainingSeconds(now);
}

KeepAwakeFacts withTimer(Seconds left) {
  KeepAwakeFacts facts = idle();
  facts.report.state.manualUntil = now + left;
  decide(facts);
  return facts;
}

KeepAwakeFacts keptAwake() {
  KeepAwakeFacts facts = withTimer(std::chrono::minutes(80));
  facts.report.state.ownsSleepDisable = true;
  facts.lockIsOn = true;
  return facts;
}

TEST(HeadlineTest, TheFactsLeadToIt) {
  const struct {
    const char* name;
    std::function<KeepAwakeFacts()> facts;
    HeadlineKind kind;
    const char* text;
  } rows[] = {
      {"healthy", keptAwake, HeadlineKind::keptAwake, "Kept awake until 09:35 (1 h 20 min left)."},
      {"the machine does not tell of locks",
       [] {
         KeepAwakeFacts facts = keptAwake();
         facts.lockIsOn.reset();
         return facts;
       },
       HeadlineKind::unconfirmed,
       "Probably kept awake until 09:35 (1 h 20 min left): the daemon holds the sleep lock, but "
       "this machine cannot be asked about it."},
      {"the lock was lost",
       [] {
         KeepAwakeFacts facts = keptAwake();
         facts.lockIsOn = false;
         return facts;
       },
       HeadlineKind::lockMissing,
       "NOT kept awake by nodo, although the timer runs until 09:35 (1 h 20 min left): somebody "
       "has switched the sleep lock off."},
      {"the lock was refused", [] { return withTimer(std::chrono::minutes(20)); },
       HeadlineKind::lockMissing,
       "NOT kept awake by nodo, although the timer runs until 08:35 (20 min left): the sleep lock "
       "could not be taken."},
      {"a foreign lock",
       [] {
         KeepAwakeFacts facts = withTimer(std::chrono::minutes(20));
         facts.lockIsOn = true;
         return facts;
       },
       HeadlineKind::lockMissing,
       "NOT kept awake by nodo, although the timer runs until 08:35 (20 min left): the sleep lock "
       "that is on is not nodo's."},
      {"nothing to do", idle, HeadlineKind::off, "Not kept awake: no timer runs."},
      {"the timer ran out",
       [] {
         KeepAwakeFacts facts = idle();
         facts.report.state.lastStopReason = reason::manualExpired;
         return facts;
       },
       HeadlineKind::off, "Not kept awake: the timer has run out."},
      {"it was stopped",
       [] {
         KeepAwakeFacts facts = idle();
         facts.report.state.lastStopReason = reason::userStop;
         return facts;
       },
       HeadlineKind::off, "Not kept awake: the timer was stopped."},
      {"a low battery",
       [] {
         KeepAwakeFacts facts = withTimer(std::chrono::minutes(60));
         facts.report.snapshot.batteryPercent = 15;
         decide(facts);
         return facts;
       },
       HeadlineKind::sleepAllowed,
       "The timer runs, but sleep is allowed: battery at 15 % (limit 20 %). It runs until 09:15 (1 "
       "h left)."},
      {"no network, and a low battery",
       [] {
         KeepAwakeFacts facts = withTimer(std::chrono::minutes(60));
         facts.report.snapshot.batteryPercent = 20;
         facts.report.snapshot.defaultRouteAvailable = false;
         facts.report.state.noRouteUnavailableSince = now - std::chrono::minutes(5);
         decide(facts);
         return facts;
       },
       HeadlineKind::sleepAllowed,
       "The timer runs, but sleep is allowed: battery at 20 % (limit 20 %), no network since 08:10 "
       "(limit 5 min). It runs until 09:15 (1 h left)."},
      {"critical heat, and no network",
       [] {
         KeepAwakeFacts facts = withTimer(std::chrono::minutes(60));
         SystemSnapshot& machine = facts.report.snapshot;
         machine.thermalPressure = ThermalPressure::critical;
         machine.hotZone = HotZone{.name = "acpitz\x1b", .celsius = 97, .limitCelsius = 95};
         machine.defaultRouteAvailable = false;
         facts.report.state.noRouteUnavailableSince = now - std::chrono::minutes(5);
         decide(facts);
         return facts;
       },
       HeadlineKind::sleepAllowed,
       "The timer runs, but sleep is allowed: no network since 08:10 (limit 5 min), the computer "
       "is "
       "too hot (acpitz\\u{1b} at 97 °C, limit 95 °C). It runs until 09:15 (1 h left)."},
      {"serious heat of a machine that names no zone",
       [] {
         KeepAwakeFacts facts = withTimer(std::chrono::minutes(60));
         facts.report.snapshot.thermalPressure = ThermalPressure::serious;
         facts.report.snapshot.lidClosed = true;
         facts.report.state.seriousHeatSince = now - std::chrono::minutes(2);
         decide(facts);
         return facts;
       },
       HeadlineKind::sleepAllowed,
       "The timer runs, but sleep is allowed: the computer is too hot with its lid closed since "
       "08:13 (thermal state serious). It runs until 09:15 (1 h left)."},
      {"low power mode",
       [] {
         KeepAwakeFacts facts = withTimer(std::chrono::minutes(60));
         facts.report.snapshot.lowPowerMode = true;
         decide(facts);
         return facts;
       },
       HeadlineKind::sleepAllowed,
       "The timer runs, but sleep is allowed: low power mode is on (battery at 80 %). It runs "
       "until "
       "09:15 (1 h left)."},
      {"a low battery by limits that are not known",
       [] {
         KeepAwakeFacts facts = withTimer(std::chrono::minutes(60));
         facts.report.snapshot.batteryPercent = 15;
         decide(facts);
         facts.limits.reset();
         return facts;
       },
       HeadlineKind::sleepAllowed,
       "The timer runs, but sleep is allowed: battery at 15 %. It runs until 09:15 (1 h left)."},
      {"a fresh installation",
       [] {
         KeepAwakeFacts facts = idle();
         facts.isNoAgentSetUp = true;
         return facts;
       },
       HeadlineKind::off,
       "Not kept awake: no timer runs. No agent is set up yet: nodoctl hooks install"},
      {"a lock that is still to go, for the battery",
       [] {
         KeepAwakeFacts facts = keptAwake();
         facts.report.snapshot.batteryPercent = 15;
         decide(facts);
         return facts;
       },
       HeadlineKind::lockLeft,
       "Still kept awake: the sleep lock is on, although sleep is to be allowed, battery at 15 % "
       "(limit 20 %)."},
      {"a lock that nothing asks for",
       [] {
         KeepAwakeFacts facts = idle();
         facts.lockIsOn = true;
         return facts;
       },
       HeadlineKind::lockLeft,
       "Still kept awake: the sleep lock is on, although nothing asks for it."},
      {"no daemon, and a timer of one's own",
       [] {
         KeepAwakeFacts facts = withTimer(std::chrono::minutes(60));
         facts.daemonFailure = "it is not running\x1b";
         return facts;
       },
       HeadlineKind::daemonMissing, "NOT kept awake by this: it is not running\\u{1b}."},
      {"a daemon that hangs with its lock",
       [] {
         KeepAwakeFacts facts = keptAwake();
         facts.daemonFailure = "it does not answer";
         return facts;
       },
       HeadlineKind::lockWithoutWord,
       "Kept awake by a lock of nodo's, but not by this: it does not answer."}};

  const test::EnvironmentVariable zone("TZ", "UTC0");
  for (const auto& row : rows) {
    KeepAwakeFacts facts = row.facts();
    if (!facts.report.manualRemainingSeconds) {
      decide(facts);
    }
    const Headline found = headline(facts);
    EXPECT_EQ(found.kind, row.kind) << row.name;
    EXPECT_EQ(found.text, row.text) << row.name;
  }
}

TEST(HeadlineTest, KeptAwakeIsSaidOnlyWhereALockStands) {
  for (const bool isOwned : {false, true}) {
    for (const std::optional<bool> lockIsOn : {std::optional<bool>(), {false}, {true}}) {
      for (const int charge : {15, 80}) {
        for (const int minutes : {0, 60}) {
          KeepAwakeFacts facts = withTimer(std::chrono::minutes(minutes));
          facts.report.snapshot.batteryPercent = charge;
          facts.report.state.ownsSleepDisable = isOwned;
          facts.lockIsOn = lockIsOn;
          decide(facts);
          const Headline found = headline(facts);
          const bool saysSo = found.text.starts_with("Kept awake");
          EXPECT_EQ(saysSo, found.kind == HeadlineKind::keptAwake) << found.text;
          EXPECT_EQ(saysSo, isOwned && lockIsOn == true && charge > 20 && minutes > 0)
              << found.text;
        }
      }
    }
  }
}

TEST(HeadlineTest, WhatIsLeftIsRoundedUpForPeople) {
  EXPECT_EQ(timeLeftText(Seconds(1)), "1 min");
  EXPECT_EQ(timeLeftText(Seconds(60)), "1 min");
  EXPECT_EQ(timeLeftText(Seconds(60.5)), "2 min");
  EXPECT_EQ(timeLeftText(Seconds(1199.2)), "20 min");
  EXPECT_EQ(timeLeftText(Seconds(3600)), "1 h");
  EXPECT_EQ(timeLeftText(Seconds(3601)), "1 h 1 min");
  EXPECT_EQ(timeLeftText(Seconds(43200)), "12 h");
}

TEST(HeadlineTest, ItIsTheSameAfterAWayThroughJSON) {
  for (const HeadlineKind kind : allCases<HeadlineKind>()) {
    const Headline found{.kind = kind, .text = "a"};
    EXPECT_EQ(decodeJSON<Headline>(encodeJSON(found, JSONLayout::compact)), found);
  }
}

}  // namespace
}  // namespace nodo
