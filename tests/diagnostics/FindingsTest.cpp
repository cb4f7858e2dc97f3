#include <NODOCore/base/JSONCoding.h>
#include <NODOCore/diagnostics/Findings.h>
#include <testing/EnvironmentVariable.h>

#include <vector>

#include <gtest/gtest.h>

namespace nodo {
namespace {

FindingFacts factsWithoutFindings() {
  return {.now = dateFromSeconds(1769847300)};  // 2026-01-31 08:15:00 UTC
}

TEST(FindingsTest, WhereEverythingIsAsItShouldBeThereAreNone) {
  EXPECT_EQ(findings(factsWithoutFindings()), std::vector<Finding>());
  EXPECT_EQ(findingsText({}), "");
}

TEST(FindingsTest, APauseIsToldWithItsEndAndTheWayOut) {
  const test::EnvironmentVariable zone("TZ", "UTC0");
  FindingFacts facts = factsWithoutFindings();
  facts.hooksPausedUntil = facts.now + std::chrono::minutes(60);
  const std::vector<Finding> found = findings(facts);
  ASSERT_EQ(found.size(), 1);
  EXPECT_EQ(found[0].kind, FindingKind::hooksPaused);
  EXPECT_EQ(found[0].severity, FindingSeverity::note);
  EXPECT_EQ(findingsText(found),
            "Note: The agents' hooks are paused until 09:15.\n"
            "  'nodoctl resume' ends that.\n");
}

TEST(FindingsTest, ARefusalOfTheDaemonIsAWarningWithItsReasonAndTheWayIn) {
  FindingFacts facts = factsWithoutFindings();
  facts.daemonRefusal = "only for ada\x1b";
  const std::vector<Finding> found = findings(facts);
  ASSERT_EQ(found.size(), 1);
  EXPECT_EQ(found[0].kind, FindingKind::daemonRefuses);
  EXPECT_EQ(findingsText(found),
            "Problem: The daemon refuses requests of this user: only for ada\\u{1b}.\n"
            "  Where polkit runs, the group nodo may ask from anywhere: join it with "
            "'sudo usermod -aG nodo \"$USER\"', then log in again.\n");
}

TEST(FindingsTest, ADaemonWhoseUserMaySleepUnderItsLockIsAWarning) {
  FindingFacts facts = factsWithoutFindings();
  facts.hooksPausedUntil = facts.now + std::chrono::minutes(60);
  facts.daemonLetsItsUserSleep = true;
  const std::vector<Finding> found = findings(facts);
  ASSERT_EQ(found.size(), 2);
  EXPECT_EQ(found[0].kind, FindingKind::daemonOfUserDoesNotProtect);
  EXPECT_EQ(found[0].severity, FindingSeverity::warning);
  EXPECT_EQ(found[1].kind, FindingKind::hooksPaused);
}

TEST(FindingsTest, AFindingIsTheSameAfterAWayThroughJSON) {
  const Finding finding{.kind = FindingKind::hooksPaused,
                        .severity = FindingSeverity::warning,
                        .what = "a",
                        .toDo = "b"};
  EXPECT_EQ(decodeJSON<Finding>(encodeJSON(finding, JSONLayout::compact)), finding);
}

}  // namespace
}  // namespace nodo
