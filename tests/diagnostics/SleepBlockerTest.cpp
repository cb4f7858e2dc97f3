#include <NODOCore/base/Errors.h>
#include <NODOCore/base/JSONCoding.h>
#include <NODOCore/diagnostics/SleepDiagnostics.h>

#include <string>

#include <gtest/gtest.h>

namespace nodo {
namespace {

SleepBlocker playingAudio() {
  return {.pid = 412,
          .processName = "coreaudiod",
          .duration = "00:05:10",
          .assertionType = "PreventUserIdleSystemSleep",
          .assertionName = "Playing audio",
          .scope = SleepBlockerScope::systemSleep,
          .rawLine = "pid 412"};
}

TEST(SleepBlockerTest, ItIsIdentifiedByProcessTypeAndName) {
  EXPECT_EQ(playingAudio().id(), "412-PreventUserIdleSystemSleep-Playing audio");
  EXPECT_EQ(SleepBlocker().id(), "0-Unknown-");
}

TEST(SleepBlockerTest, TheTypeAloneTellsWhatIsBlocked) {
  const struct {
    const char* type;
    SleepBlockerScope scope;
  } cases[] = {
      {"NoDisplaySleepAssertion", SleepBlockerScope::displaySleep},
      {"PreventUserIdleDisplaySleep", SleepBlockerScope::displaySleep},
      {"NoIdleSleepAssertion", SleepBlockerScope::systemSleep},
      {"PreventUserIdleSystemSleep", SleepBlockerScope::systemSleep},
      {"PreventSystemSleep", SleepBlockerScope::systemSleep},
      {"PreventUserIdleSleep", SleepBlockerScope::other},
      {"preventsystemsleep", SleepBlockerScope::other},
      {"PreventSystemSleep ", SleepBlockerScope::other},
      {"PreventSystemSleep\u0301", SleepBlockerScope::other},
      {"UserIsActive", SleepBlockerScope::other},
      {"", SleepBlockerScope::other},
  };

  for (const auto& each : cases) {
    EXPECT_EQ(sleepBlockerScope(each.type), each.scope) << each.type;
  }
}

TEST(SleepBlockerTest, ItsJSONHasAllItsKeysInTheirOrder) {
  const std::string text =
      R"({"pid":412,"processName":"coreaudiod","duration":"00:05:10",)"
      R"("assertionType":"PreventUserIdleSystemSleep","assertionName":"Playing audio",)"
      R"("scope":"systemSleep","rawLine":"pid 412"})";
  EXPECT_EQ(encodeJSON(playingAudio(), JSONLayout::compact), text);
  EXPECT_EQ(decodeJSON<SleepBlocker>(text), playingAudio());
  EXPECT_EQ(encodeJSON(SleepBlocker(), JSONLayout::compact),
            R"({"pid":0,"processName":"unknown","duration":"","assertionType":"Unknown",)"
            R"("assertionName":"","scope":"other","rawLine":""})");
}

TEST(SleepBlockerTest, EveryKeyIsRequired) {
  const JSONValue full = encode(playingAudio());
  for (const auto& missing : *full.object()) {
    JSONValue::Object rest = *full.object();
    std::erase_if(rest, [&](const auto& member) { return member.first == missing.first; });
    EXPECT_THROW(decodeJSON<SleepBlocker>(jsonText(JSONValue(rest), JSONLayout::compact)),
                 DecodingError)
        << missing.first;
  }
}

TEST(SleepDiagnosticsReportTest, ItsJSONHasItsKeysInTheirOrder) {
  const SleepDiagnosticsReport report{.generatedAt = dateFromSeconds(1769860800),
                                      .sleepDisabled = true,
                                      .sleepLine = "sleep 1",
                                      .displaySleepLine = "displaysleep 2",
                                      .assertionStatuses = {{"B", false}, {"A", true}},
                                      .blockers = {playingAudio()}};
  const std::string text = R"({"generatedAt":"2026-01-31T12:00:00Z","sleepDisabled":true,)"
                           R"("sleepLine":"sleep 1","displaySleepLine":"displaysleep 2",)"
                           R"("assertionStatuses":{"A":true,"B":false},"blockers":[)" +
                           encodeJSON(playingAudio(), JSONLayout::compact) + "]}";
  EXPECT_EQ(encodeJSON(report, JSONLayout::compact), text);
  EXPECT_EQ(decodeJSON<SleepDiagnosticsReport>(text), report);
}

TEST(SleepDiagnosticsReportTest, WhatIsUnknownIsLeftOutAndWhatIsEmptyIsNot) {
  const SleepDiagnosticsReport report{.generatedAt = dateFromSeconds(1769860800)};
  EXPECT_EQ(encodeJSON(report, JSONLayout::compact),
            R"({"generatedAt":"2026-01-31T12:00:00Z","assertionStatuses":{},"blockers":[]})");
}

TEST(SleepDiagnosticsReportTest, ForeignTextThatIsNoUTF8IsStillWrittenAsJSON) {
  SleepBlocker blocker = playingAudio();
  blocker.assertionName = "a\xFF\x1B";
  EXPECT_EQ(decodeJSON<SleepBlocker>(encodeJSON(blocker, JSONLayout::compact)).assertionName,
            "a\uFFFD\x1B");
}

}  // namespace
}  // namespace nodo
