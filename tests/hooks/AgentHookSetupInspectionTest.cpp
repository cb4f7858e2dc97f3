#include <NODOCore/base/JSONCoding.h>
#include <NODOCore/hooks/AgentHookInstaller.h>

#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace nodo {
namespace {

using Status = AgentHookComponentStatus;

AgentHookSetupInspection inspection(Status script, const std::vector<Status>& targets) {
  AgentHookSetupInspection result{.hookScriptPath = "/h/hook.sh",
                                  .hookScriptStatus = script,
                                  .expectedHookScriptFingerprint = "0123456789abcdef"};
  for (const Status status : targets) {
    result.targets.push_back({AgentHookTarget::pi, "/h/nodo.ts", status});
  }
  return result;
}

TEST(AgentHookSetupInspectionTest, AStatusHasItsWordsAndMeanings) {
  struct Row {
    Status status;
    std::string raw, name;
    bool current, installed, update;
  };

  const std::vector<Row> rows{
      {Status::missing, "missing", "missing", false, false, false},
      {Status::notExecutable, "notExecutable", "not executable", false, false, false},
      {Status::current, "current", "current", true, true, false},
      {Status::outdated, "outdated", "outdated", false, true, true}};
  ASSERT_EQ(allCases<Status>().size(), rows.size());
  for (std::size_t index = 0; index < rows.size(); ++index) {
    const Row& row = rows[index];
    EXPECT_EQ(allCases<Status>()[index], row.status);
    EXPECT_EQ(rawValue(row.status), row.raw);
    EXPECT_EQ(displayName(row.status), row.name);
    EXPECT_EQ(isCurrent(row.status), row.current) << row.name;
    EXPECT_EQ(isInstalled(row.status), row.installed) << row.name;
    EXPECT_EQ(needsUpdate(row.status), row.update) << row.name;
  }
}

TEST(AgentHookSetupInspectionTest, ASetupIsCurrentWhenEveryPieceIs) {
  EXPECT_TRUE(inspection(Status::current, {}).isCurrent());
  EXPECT_TRUE(inspection(Status::current, {Status::current, Status::current}).isCurrent());
  EXPECT_FALSE(inspection(Status::current, {Status::current, Status::missing}).isCurrent());
  EXPECT_FALSE(inspection(Status::outdated, {Status::current}).isCurrent());
  EXPECT_FALSE(inspection(Status::notExecutable, {}).isCurrent());
}

TEST(AgentHookSetupInspectionTest, OnlyWhatIsOutdatedNeedsAnUpdate) {
  EXPECT_TRUE(inspection(Status::outdated, {}).needsUpdate());
  EXPECT_TRUE(inspection(Status::missing, {Status::current, Status::outdated}).needsUpdate());
  EXPECT_FALSE(inspection(Status::missing, {Status::missing, Status::current}).needsUpdate());
  EXPECT_FALSE(inspection(Status::notExecutable, {Status::current}).needsUpdate());
  EXPECT_FALSE(inspection(Status::current, {}).needsUpdate());
}

TEST(AgentHookSetupInspectionTest, TargetsAreCounted) {
  const auto counted = inspection(
      Status::missing, {Status::missing, Status::outdated, Status::current, Status::current});
  EXPECT_EQ(counted.targetCount(), 4);
  EXPECT_EQ(counted.installedTargetCount(), 3);
  EXPECT_EQ(counted.currentTargetCount(), 2);
}

TEST(AgentHookSetupInspectionTest, ItsJSONHasTheKeysInOrderAndLeavesAnAbsentFingerprintOut) {
  AgentHookSetupInspection value = inspection(Status::notExecutable, {Status::outdated});
  const std::string targets =
      R"("targets":[{"target":"pi","path":"/h/nodo.ts","status":"outdated"}]})";
  const std::string beginning =
      R"({"hookScriptPath":"/h/hook.sh","hookScriptStatus":"notExecutable",)"
      R"("expectedHookScriptFingerprint":"0123456789abcdef",)";
  EXPECT_EQ(encodeJSON(value, JSONLayout::compact), beginning + targets);
  EXPECT_EQ(decodeJSON<AgentHookSetupInspection>(beginning + targets), value);
  value.installedHookScriptFingerprint = "fedcba9876543210";
  const std::string text =
      beginning + R"("installedHookScriptFingerprint":"fedcba9876543210",)" + targets;
  EXPECT_EQ(encodeJSON(value, JSONLayout::compact), text);
  EXPECT_EQ(decodeJSON<AgentHookSetupInspection>(text), value);
}

}  // namespace
}  // namespace nodo
