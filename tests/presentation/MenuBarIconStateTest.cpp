#include <NODOCore/presentation/MenuReport.h>

#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace nodo {
namespace {

using Icon = MenuBarIconState;

const Date now = dateFromSeconds(1'769'847'300);

struct Row {
  std::string name;
  bool owns = false, prevents = false;
  std::optional<double> secondsLeft;
  bool fallback = false, attention = false;
  Icon expected = Icon::off;
};

void expectIcons(const std::vector<Row>& rows) {
  for (const Row& row : rows) {
    StatusReport report;
    report.generatedAt = now;
    report.state.ownsSleepDisable = row.owns;
    report.decision.shouldPreventSleep = row.prevents;
    if (row.secondsLeft) {
      report.state.manualUntil = now + Seconds(*row.secondsLeft);
    }
    for (const auto& error :
         {std::optional<std::string>(), std::optional<std::string>("timeout")}) {
      EXPECT_EQ(rawValue(menuBarIconState(report, error, row.fallback, row.attention)),
                rawValue(row.expected))
          << row.name << (error ? ", after an error" : "");
    }
  }
}

TEST(MenuBarIconStateTest, ItsTextsAreInOrder) {
  const std::vector<std::string> texts{"loading", "off", "warning", "manualActive"};
  const auto cases = allCases<Icon>();
  ASSERT_EQ(cases.size(), texts.size());
  for (std::size_t index = 0; index < texts.size(); ++index) {
    EXPECT_EQ(rawValue(cases[index]), texts[index]);
    EXPECT_EQ(fromRawValue<Icon>(texts[index]), cases[index]);
  }
}

TEST(MenuBarIconStateTest, WithoutAReportItLoadsUntilThereIsAnError) {
  for (const bool fallback : {false, true}) {
    for (const bool attention : {false, true}) {
      EXPECT_EQ(menuBarIconState(std::nullopt, std::nullopt, fallback, attention), Icon::loading);
      EXPECT_EQ(menuBarIconState(std::nullopt, "timeout", fallback, attention), Icon::warning);
      EXPECT_EQ(menuBarIconState(std::nullopt, "", fallback, attention), Icon::warning);
    }
  }
}

TEST(MenuBarIconStateTest, AFallbackIsAWarningAsLongAsNodoHoldsNoLock) {
  expectIcons({{.name = "idle", .fallback = true, .expected = Icon::warning},
               {.name = "timer", .secondsLeft = 60, .fallback = true, .expected = Icon::warning},
               {.name = "lock and timer",
                .owns = true,
                .prevents = true,
                .secondsLeft = 60,
                .fallback = true,
                .expected = Icon::manualActive},
               {.name = "lock that is to be released",
                .owns = true,
                .fallback = true,
                .expected = Icon::off}});
}

TEST(MenuBarIconStateTest, WhileSleepIsAllowedItFollowsTheTimer) {
  expectIcons({{.name = "one second", .secondsLeft = 1, .expected = Icon::manualActive},
               {.name = "part of a second", .secondsLeft = 0.9, .expected = Icon::off},
               {.name = "over", .secondsLeft = -1, .expected = Icon::off},
               {.name = "timer and attention",
                .secondsLeft = 60,
                .attention = true,
                .expected = Icon::manualActive}});
}

TEST(MenuBarIconStateTest, SetupNeedsAttentionOnlyWhileIdle) {
  expectIcons({{.name = "idle", .expected = Icon::off},
               {.name = "idle with attention", .attention = true, .expected = Icon::warning},
               {.name = "over, with attention",
                .secondsLeft = 0,
                .attention = true,
                .expected = Icon::warning},
               {.name = "awake with attention",
                .owns = true,
                .prevents = true,
                .attention = true,
                .expected = Icon::manualActive}});
}

TEST(MenuBarIconStateTest, PreventingSleepWithoutTheLockIsAWarning) {
  expectIcons(
      {{.name = "no lock", .prevents = true, .expected = Icon::warning},
       {.name = "no lock, timer", .prevents = true, .secondsLeft = 60, .expected = Icon::warning},
       {.name = "lock", .owns = true, .prevents = true, .expected = Icon::manualActive}});
}

}  // namespace
}  // namespace nodo
