#include <NODOCore/hooks/AgentHookLogInspector.h>
#include <testing/DiskFull.h>
#include <testing/EnvironmentVariable.h>
#include <testing/JSONRows.h>
#include <testing/TemporaryFolder.h>
#include <testing/UnprivilegedUser.h>

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/stat.h>

namespace nodo {
namespace {

namespace fs = std::filesystem;
using Inspector = AgentHookLogInspector;
using test::dateOf;
using test::EnvironmentVariable;
using test::memberOf;
using test::optionalNumberOf;
using test::optionalOf;
using test::TemporaryFolder;
using test::testRows;
using test::UnprivilegedUser;
using test::valueOf;

class AgentHookLogInspectorTest : public ::testing::Test {
 protected:
  // 2026-01-31 08:00:00 in this zone, when the logs' fallbacks start.
  const EnvironmentVariable zone{"TZ", "CET-1CEST,M3.5.0,M10.5.0/3"};
  const Date start = dateFromSeconds(1769842800);

  AgentHookFallbackStatus status(std::string_view log, double secondsLater = 60) const {
    return Inspector::recentFallbackStatus(log, "/log", start + Seconds(secondsLater));
  }

  bool isActive(std::string_view log, double secondsLater = 60) const {
    return status(log, secondsLater).isActive;
  }

  void expectIgnored(std::string_view log) const {
    EXPECT_EQ(status(log), AgentHookFallbackStatus{.logPath = "/log"}) << log;
  }

  TemporaryFolder folder;
};

TEST(HookLogRowsTest, TheTablesLogsAreRead) {
  for (const JSONValue& row : testRows("vectors/hook_log.json")) {
    const EnvironmentVariable zone("TZ", valueOf<std::string>(row, "timeZone"));
    const Date now = dateOf(row, "now");
    const auto log = valueOf<std::string>(row, "log");
    const JSONValue& expected = memberOf(row, "expected");
    const auto startedAt = optionalNumberOf(expected, "lastStartedAt");
    const AgentHookFallbackStatus expectedStatus{
        .isActive = valueOf<bool>(expected, "isActive"),
        .logPath = "/log",
        .lastStartedAt = startedAt ? std::optional(dateFromSeconds(*startedAt)) : std::nullopt,
        .fallbackSeconds = valueOf<std::int64_t>(expected, "fallbackSeconds")};

    const auto status = Inspector::recentFallbackStatus(log, "/log", now);
    const std::string which = valueOf<std::string>(row, "case") + ": " + log;
    EXPECT_EQ(status, expectedStatus) << which << " (is time-zone data installed?)";
    EXPECT_EQ(HookFallbackRecoveryPolicy::remainingMinutes(status, now),
              optionalOf<std::int64_t>(expected, "remainingMinutes"))
        << which;

    const TemporaryFolder folder = TemporaryFolder::inMemory();
    folder.write("log", log);
    AgentHookFallbackStatus ofFile = expectedStatus;
    ofFile.logPath = (folder / "log").string();
    EXPECT_EQ(Inspector::recentFallbackStatus(ofFile.logPath, now, {}), ofFile) << which;
  }
}

TEST_F(AgentHookLogInspectorTest, AFallbackIsActiveUntilItsSecondsAreOver) {
  const std::string log = "2026-01-31 08:00:00 fallback caffeinate started seconds=600\n";
  EXPECT_TRUE(isActive(log, 599));
  EXPECT_TRUE(isActive(log, 599.9));
  EXPECT_FALSE(isActive(log, 600));
  EXPECT_EQ(status(log, 4000).lastStartedAt, start);
}

TEST_F(AgentHookLogInspectorTest, ASuccessInTheSameSecondResolvesIt) {
  const std::string log = "2026-01-31 08:00:00 fallback caffeinate started seconds=600\n";
  EXPECT_FALSE(isActive(log + "2026-01-31 08:00:00 nodo active minutes=20\n"));
  EXPECT_FALSE(isActive(log + "2026-01-31 08:00:00 fallback resolved reason=manual\n"));
  EXPECT_TRUE(isActive(log + "2026-01-31 07:59:59 nodo active minutes=20\n"));
}

TEST_F(AgentHookLogInspectorTest, TheLaterOfSuccessAndResolutionCounts) {
  const std::string log =
      "2026-01-31 07:00:00 nodo active minutes=20\n"
      "2026-01-31 08:00:00 fallback caffeinate started seconds=600\n";
  EXPECT_FALSE(isActive(log + "2026-01-31 08:01:00 fallback resolved reason=manual\n"));
  EXPECT_FALSE(isActive("2026-01-31 07:00:00 fallback resolved reason=manual\n" + log +
                        "2026-01-31 08:01:00 nodo active minutes=20\n"));
}

TEST_F(AgentHookLogInspectorTest, OnlyTheLastLineOfAKindCounts) {
  const std::string log = "2026-01-31 08:00:00 fallback caffeinate started seconds=600\n";
  EXPECT_TRUE(isActive(log + "2026-01-31 08:01:00 nodo active minutes=20\n"
                             "2026-01-31 07:00:00 nodo active minutes=20\n"));
}

TEST_F(AgentHookLogInspectorTest, ALineWithoutATimestampIsPassedOver) {
  expectIgnored("fallback caffeinate started seconds=600");
  expectIgnored("2026-01-31 08:00 fallback caffeinate started seconds=600");
  expectIgnored(" 2026-01-31 08:00:00 fallback caffeinate started seconds=600");
  expectIgnored("2026-02-30 08:00:00 fallback caffeinate started seconds=600");
  expectIgnored("2026-03-29 02:30:00 fallback caffeinate started seconds=600");
  expectIgnored("2026-01-31 08:00:00\u0301 fallback caffeinate started seconds=600");

  const std::string log = "2026-01-31 08:00:00 fallback caffeinate started seconds=600\n";
  EXPECT_TRUE(isActive(log + "nodo active\nfallback resolved\n"));
  EXPECT_FALSE(isActive(log + "2026-01-31 08:00:10 nodo active\nnodo active\n"));
}

TEST_F(AgentHookLogInspectorTest, AMarkerStandsBetweenCharacters) {
  expectIgnored("2026-01-31 08:00:00 fallback caffeinate started\u0301 seconds=600");
  EXPECT_TRUE(isActive("2026-01-31 08:00:00 x\u0301fallback caffeinate started seconds=600"));
  EXPECT_TRUE(
      isActive("2026-01-31 08:00:00 fallback caffeinate started\u0301 "
               "fallback caffeinate started seconds=600"));
}

TEST_F(AgentHookLogInspectorTest, ASecondsValueThatIsNoNumberIsTheUsualOne) {
  const struct {
    const char* value;
    std::int64_t expected;
  } cases[] = {
      {" seconds=90", 90},
      {" seconds=0090 x", 90},
      {" seconds=90 seconds=30", 90},
      {" seconds=9223372036854775807", 9223372036854775807},
      {"", 600},
      {" seconds=", 600},
      {" seconds= 90", 600},
      {" seconds=-90", 600},
      {" seconds=+90", 600},
      {" seconds=9223372036854775808", 600},
      {" seconds=99999999999999999999999999", 600},
      {" SECONDS=90", 600},
  };

  for (const auto& [value, expected] : cases) {
    const auto log = std::string("2026-01-31 08:00:00 fallback caffeinate started") + value;
    EXPECT_EQ(status(log).fallbackSeconds, expected) << log;
    EXPECT_EQ(status(log).lastStartedAt, start) << log;
  }
}

TEST_F(AgentHookLogInspectorTest, InvalidBytesSpoilOnlyTheirOwnPlace) {
  EXPECT_TRUE(isActive("\xFF\xFE\n2026-01-31 08:00:00 \xC3 fallback caffeinate started\n\x80"));
  expectIgnored(
      "\xFF"
      "2026-01-31 08:00:00 fallback caffeinate started seconds=600");
}

TEST_F(AgentHookLogInspectorTest, AStartInTheHourThatTheClockShowsTwiceIsTheLaterOne) {
  const auto status = Inspector::recentFallbackStatus(
      "2026-10-25 02:30:00 fallback caffeinate started seconds=600", "/log", start);
  EXPECT_EQ(status.lastStartedAt, dateFromSeconds(1792891800));
}

TEST_F(AgentHookLogInspectorTest, TheEnvironmentSaysWhereTheLogIs) {
  EXPECT_EQ(Inspector::logPath({}), "/tmp/nodo-agent-hook.log");
  EXPECT_EQ(Inspector::logPath({{"NODO_HOOK_LOG", ""}}), "/tmp/nodo-agent-hook.log");
  EXPECT_EQ(Inspector::logPath({{"NODO_HOOK_LOG", " \t\n"}}), "/tmp/nodo-agent-hook.log");
  EXPECT_EQ(Inspector::logPath({{"NODO_HOOK_LOG", "/x/a log"}}), "/x/a log");
  EXPECT_EQ(Inspector::logPath({{"NODO_HOOK_LOG", "\u00A0/x/log \r\n"}}), "/x/log");
}

TEST_F(AgentHookLogInspectorTest, AGivenPathCountsMoreThanTheEnvironment) {
  folder.write("given", "2026-01-31 08:00:00 fallback caffeinate started seconds=60");
  folder.write("other", "2026-01-31 08:00:00 fallback caffeinate started seconds=90");
  const Environment environment{{"NODO_HOOK_LOG", (folder / "other").string()}};
  const std::string given = (folder / "given").string();
  EXPECT_EQ(Inspector::recentFallbackStatus(given, start, environment).fallbackSeconds, 60);
  EXPECT_EQ(Inspector::recentFallbackStatus(given, start, environment).logPath, given);
  EXPECT_EQ(Inspector::recentFallbackStatus(std::nullopt, start, environment).fallbackSeconds, 90);
}

TEST_F(AgentHookLogInspectorTest, ALogThatCannotBeReadCountsAsEmpty) {
  fs::create_directory(folder / "folder");
  ASSERT_EQ(::mkfifo((folder / "pipe").c_str(), 0600), 0);
  fs::create_symlink("loop", folder / "loop");
  folder.write("secret", "2026-01-31 08:00:00 fallback caffeinate started seconds=600");
  fs::permissions(folder / "secret", fs::perms::none);
  const UnprivilegedUser user;
  for (const char* name : {"missing", "folder", "pipe", "loop", "secret"}) {
    const std::string path = (folder / name).string();
    EXPECT_EQ(Inspector::recentFallbackStatus(path, start, {}),
              AgentHookFallbackStatus{.logPath = path});
  }
}

TEST_F(AgentHookLogInspectorTest, ALogOfAnotherUserCountsAsEmpty) {
  if (::geteuid() != 0) {
    GTEST_SKIP() << "only root can give a file away";
  }
  constexpr uid_t stranger = 65533;
  folder.write("log", "2026-01-31 08:00:00 fallback caffeinate started seconds=600");
  fs::create_symlink("log", folder / "link");
  const auto sees = [&](const char* name) {
    return Inspector::recentFallbackStatus((folder / name).string(), start, {})
        .lastStartedAt.has_value();
  };
  EXPECT_TRUE(sees("log"));
  EXPECT_TRUE(sees("link"));
  ASSERT_EQ(::lchown((folder / "link").c_str(), stranger, 0), 0);
  EXPECT_FALSE(sees("link")) << "somebody else's link";
  ASSERT_EQ(::chown((folder / "log").c_str(), stranger, 0), 0);
  EXPECT_FALSE(sees("log"));

  // Root's are believed by everybody.
  fs::permissions(folder.path(), fs::perms(0755));
  ASSERT_EQ(::chown((folder / "log").c_str(), 0, 0), 0);
  ASSERT_EQ(::lchown((folder / "link").c_str(), 0, 0), 0);
  fs::permissions(folder / "log", fs::perms(0644));
  const UnprivilegedUser user;
  EXPECT_TRUE(sees("log"));
  EXPECT_TRUE(sees("link"));
}

TEST_F(AgentHookLogInspectorTest, TheDoctorWarnsOfAnActiveFallbackWithoutALock) {
  const AgentHookFallbackStatus active{.isActive = true, .logPath = "/x/log"};
  EXPECT_EQ(Inspector::doctorWarning(active, false),
            "Warning: agent hook recently started fallback caffeinate (/x/log); "
            "closed-lid sleep prevention is unavailable.");
  EXPECT_EQ(Inspector::doctorWarning(active, true), std::nullopt);
  EXPECT_EQ(Inspector::doctorWarning({.logPath = "/x/log"}, false), std::nullopt);
}

class MarkFallbackResolvedTest : public AgentHookLogInspectorTest {
 protected:
  std::string path = (folder / "log").string();

  void mark(std::string_view reason = "manual") const {
    Inspector::markFallbackResolved(path, reason, start + Seconds(61.5), {});
  }
};

TEST_F(MarkFallbackResolvedTest, TheLineIsAppended) {
  folder.write("log", "2026-01-31 08:00:00 fallback caffeinate started seconds=600\n");
  mark();
  EXPECT_EQ(folder.read("log"),
            "2026-01-31 08:00:00 fallback caffeinate started seconds=600\n"
            "2026-01-31 08:01:01 fallback resolved reason=manual\n");
  EXPECT_FALSE(Inspector::recentFallbackStatus(path, start + Seconds(62), {}).isActive);
}

TEST_F(MarkFallbackResolvedTest, AMissingLogIsMadeWithItsFolders) {
  path = (folder / "a" / "b" / "log").string();
  mark();
  EXPECT_EQ(folder.read("a/b/log"), "2026-01-31 08:01:01 fallback resolved reason=manual\n");
}

TEST_F(MarkFallbackResolvedTest, TheEnvironmentSaysWhereWithoutAPath) {
  Inspector::markFallbackResolved(std::nullopt, "x", start, {{"NODO_HOOK_LOG", " " + path + "\n"}});
  EXPECT_EQ(folder.read("log"), "2026-01-31 08:00:00 fallback resolved reason=x\n");
}

TEST_F(MarkFallbackResolvedTest, AReasonStaysOnItsLine) {
  mark("a\nb\rc\td\r\ne");
  EXPECT_EQ(folder.read("log"), "2026-01-31 08:01:01 fallback resolved reason=a b c d  e\n");
}

TEST_F(MarkFallbackResolvedTest, ALogThatIsMadeIsForItsUserAlone) {
  mark();
  EXPECT_EQ(fs::status(path).permissions(), fs::perms(0600));
}

TEST_F(MarkFallbackResolvedTest, TheUsersOwnLinkIsFollowed) {
  folder.write("elsewhere", "before\n");
  fs::create_symlink(folder / "elsewhere", path);
  mark();
  EXPECT_EQ(folder.read("elsewhere"),
            "before\n2026-01-31 08:01:01 fallback resolved reason=manual\n");
}

TEST_F(MarkFallbackResolvedTest, APlantedLinkIsNotFollowed) {
  if (::geteuid() != 0) {
    GTEST_SKIP() << "only root can plant one for somebody else";
  }
  constexpr uid_t stranger = 65533;
  folder.write("precious", "keep me");
  fs::create_symlink(folder / "precious", path);
  ASSERT_EQ(::lchown(path.c_str(), stranger, 0), 0);
  mark();
  EXPECT_EQ(folder.read("precious"), "keep me");

  fs::remove(path);
  fs::create_symlink(folder / "made through the link", path);
  ASSERT_EQ(::lchown(path.c_str(), stranger, 0), 0);
  mark();
  EXPECT_FALSE(fs::exists(folder / "made through the link"));

  fs::remove(path);
  folder.write("log", "a stranger's\n");
  ASSERT_EQ(::chown(path.c_str(), stranger, 0), 0);
  mark();
  EXPECT_EQ(folder.read("log"), "a stranger's\n");
}

TEST_F(MarkFallbackResolvedTest, ItNeitherFailsNorWaits) {
  const std::string log = path;
  ASSERT_EQ(::mkfifo((folder / "pipe").c_str(), 0600), 0);
  folder.write("file", "text");
  fs::create_directory(folder / "folder");
  for (const char* name : {"pipe", "folder", "file/below", ""}) {
    path = (folder / name).string();
    EXPECT_NO_THROW(mark()) << name;
  }
  path = "";
  EXPECT_NO_THROW(mark());
  path = std::string("\0x", 2);
  EXPECT_NO_THROW(mark());
  EXPECT_EQ(folder.read("file"), "text");

  fs::permissions(folder.path(), fs::perms::owner_read | fs::perms::owner_exec);
  {
    const UnprivilegedUser user;
    path = log;
    EXPECT_NO_THROW(mark());
  }
  fs::permissions(folder.path(), fs::perms::owner_all);
  EXPECT_FALSE(fs::exists(log));
}

TEST_F(MarkFallbackResolvedTest, AFullDiskIsNoFailure) {
  folder.write("log", "before\n");
  const test::DiskFull full;
  mark();
  EXPECT_EQ(folder.read("log"), "before\n");
}

}  // namespace
}  // namespace nodo
