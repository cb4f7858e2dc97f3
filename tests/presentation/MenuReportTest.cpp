#include <NODOCore/base/JSONCoding.h>
#include <NODOCore/presentation/MenuReport.h>

#include <string>

#include <gtest/gtest.h>

namespace nodo {
namespace {

const Date now = dateFromSeconds(1'769'847'300);  // 2026-01-31 08:15 UTC

const SetupMenuSignals complete{.helperIsReady = true, .hooksAreReady = true};

StatusReport working() {
  StatusReport report;
  report.generatedAt = now - Seconds(5);
  report.state.ownsSleepDisable = true;
  report.state.manualUntil = now + Seconds(7500);
  report.state.recordRequester({"Codex", "api", "PreToolUse", now}, now - Seconds(60), 6, 200);
  report.state.recordRequester({"Codex", "api", "PreToolUse", now}, now, 6, 200);
  report.decision.shouldPreventSleep = true;
  return report;
}

TEST(MenuReportTest, AMachineThatIsKeptAwakeShowsHowLongAndForWhom) {
  const MenuReport menu(working(), DoctorStatusSource::helper, true, false, complete, now);
  EXPECT_EQ(encodeJSON(menu, JSONLayout::compact),
            R"({"generatedAt":"2026-01-31T08:15:00Z","iconState":"manualActive",)"
            R"("countdown":"2h5m","requester":"Codex - api",)"
            R"("triggers":{"line":"Triggers 12h  ···········█  2","total":2,)"
            R"("buckets":[0,0,0,0,0,0,0,0,0,0,0,2],"hours":12},)"
            R"("verdict":"Ready: nodo owns the macOS power lock.","statusSource":"helper"})");
}

TEST(MenuReportTest, WithNothingToShowOnlyWhatIsAlwaysThereRemains) {
  StatusReport idle;
  idle.generatedAt = now;
  const MenuReport menu(idle, DoctorStatusSource::local, {}, false, complete, now);
  EXPECT_EQ(encodeJSON(menu, JSONLayout::compact),
            R"({"generatedAt":"2026-01-31T08:15:00Z","iconState":"off",)"
            R"("triggers":{"line":"Triggers 12h  ············  0","total":0,)"
            R"("buckets":[0,0,0,0,0,0,0,0,0,0,0,0],"hours":12},)"
            R"("verdict":"Warning: helper unavailable; closed-lid prevention will not work.",)"
            R"("statusSource":"local"})");
}

TEST(MenuReportTest, AnIncompleteSetupHasItsLineAndItsIcon) {
  StatusReport idle;
  idle.generatedAt = now;
  const SetupMenuSignals setup{.helperIsReady = true, .hooksNeedInstall = true};
  const MenuReport menu(idle, DoctorStatusSource::helper, {}, false, setup, now);
  EXPECT_EQ(menu.setupLine, "Setup: install hooks");
  EXPECT_EQ(menu.iconState, MenuBarIconState::warning);
}

TEST(MenuReportTest, ARunningFallbackOfAHookIsAWarning) {
  StatusReport report = working();
  report.state.ownsSleepDisable = false;
  report.decision.shouldPreventSleep = false;
  const MenuReport menu(report, DoctorStatusSource::helper, {}, true, complete, now);
  EXPECT_EQ(menu.iconState, MenuBarIconState::warning);
  EXPECT_EQ(MenuReport(report, DoctorStatusSource::helper, {}, false, complete, now).iconState,
            MenuBarIconState::manualActive);
}

TEST(MenuReportTest, TheLiveSettingCountsForTheVerdict) {
  const MenuReport menu(working(), DoctorStatusSource::helper, false, false, complete, now);
  EXPECT_EQ(menu.verdict, DoctorVerdict::settingOff);
}

TEST(MenuReportTest, ItCanBeReadBack) {
  const SetupMenuSignals setup{.helperNeedsRepair = true};
  for (const MenuReport& menu :
       {MenuReport(working(), DoctorStatusSource::helper, true, false, setup, now),
        MenuReport({}, DoctorStatusSource::local, {}, false, complete, now)}) {
    EXPECT_EQ(decodeJSON<MenuReport>(encodeJSON(menu, JSONLayout::pretty)), menu);
  }
}

}  // namespace
}  // namespace nodo
