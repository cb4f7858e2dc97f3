#include <NODOCore/base/LocalTime.h>
#include <NODOCore/hooks/AgentHookLogInspector.h>
#include <testing/EnvironmentVariable.h>
#include <testing/TemporaryFolder.h>

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

namespace nodo {
namespace {

using test::EnvironmentVariable;
using test::TemporaryFolder;

const Date start = dateFromSeconds(1769842800);  // 2026-01-31 07:00:00 in UTC
const std::string startLine = "2026-01-31 07:00:00 fallback caffeinate started seconds=600\n";
const std::string noiseLine = "2026-01-31 07:05:00 nodo extend throttled seconds=5 requester=x\n";

class HookLogFileTest : public ::testing::Test {
 protected:
  AgentHookFallbackStatus status(std::string_view log, Date now = start + Seconds(60)) const {
    return AgentHookLogInspector::recentFallbackStatus(log, path, now);
  }

  AgentHookFallbackStatus statusOfFile(Date now = start + Seconds(60)) const {
    return AgentHookLogInspector::recentFallbackStatus(path, now, {});
  }

  const EnvironmentVariable zone{"TZ", "UTC0"};
  TemporaryFolder folder = TemporaryFolder::inMemory();
  const std::string path = (folder / "log").string();
};

// Logs of what a log is made of, and of what is put in its way, in any order.
class LogMaker {
 public:
  std::string make() {
    std::string log;
    for (int pieces = number(40); pieces > 0; --pieces) {
      log += line();
      log += oneOf({"\n", "\n", "\n", "\r\n", "\r", "\v", "\f", "\u0085", "\u2028", "\u2029", ""});
    }
    return log;
  }

  int number(int below) { return static_cast<int>(random_() % static_cast<unsigned>(below)); }

 private:
  std::string oneOf(const std::vector<std::string>& texts) {
    return texts[static_cast<std::size_t>(number(static_cast<int>(texts.size())))];
  }

  std::string stamp() {
    if (number(4) == 0) {
      return oneOf({"", "xxxx ", "2026-01-31 07:00 ", "2026-01-31T07:00:00 ", "\u0301", "\xC2",
                    "2026-02-30 07:00:00 ", "2026-01-31 07:00:00\u0301 "});
    }
    return localTimeText(start + Seconds(number(1200) - 600)) + " ";
  }

  std::string line() {
    std::string text = stamp();
    for (int words = number(5); words > 0; --words) {
      text += oneOf({"fallback caffeinate started", "fallback resolved", "nodo active",
                     "seconds=600", "seconds=60", "seconds=", "seconds=99999999999999999999",
                     "\u0600", "\u0301", "\u200D", "\xE2\x80", "\x80", "\u00E9\u4E2D\U0001F468",
                     "fallback caffeinate starte", "odo active", " ", " ", "reason=x y"});
      text += number(20) == 0 ? std::string(static_cast<std::size_t>(number(300)), 'n') : "";
    }
    return text;
  }

  std::mt19937 random_{20260131};
};

TEST_F(HookLogFileTest, WhateverALogHoldsItsLastLinesDecide) {
  LogMaker maker;
  int active = 0;
  int started = 0;
  for (int round = 0; round < 3000; ++round) {
    const std::string log = maker.make() + "\n";
    const Date now = start + Seconds(maker.number(1200) - 300);
    const AgentHookFallbackStatus before = status(log, now);
    active += before.isActive ? 1 : 0;
    started += before.lastStartedAt ? 1 : 0;
    folder.write("log", log);
    ASSERT_EQ(statusOfFile(now), before) << log;
    ASSERT_EQ(status(log + noiseLine, now), before) << log;

    // No line of `log` is as late as these.
    const std::string laterStart =
        log + localTimeText(start + Seconds(700)) + " fallback caffeinate started seconds=300\n";
    const Date later = start + Seconds(700);
    ASSERT_EQ(status(laterStart, later + Seconds(299)),
              (AgentHookFallbackStatus{true, path, later, 300}))
        << log;
    ASSERT_FALSE(status(laterStart, later + Seconds(300)).isActive) << log;
    for (const char* end : {" nodo active minutes=20\n", " fallback resolved reason=x\n"}) {
      ASSERT_EQ(status(laterStart + localTimeText(later) + end, later + Seconds(1)),
                (AgentHookFallbackStatus{false, path, later, 300}))
          << log;
    }
  }
  EXPECT_GT(active, 100);  // the logs are not all alike
  EXPECT_GT(started - active, 100);
}

TEST_F(HookLogFileTest, NothingIsTakenFromALogThatBecomesShorter) {
  // Whoever read the begin of this log and not its end would see a fallback that is not resolved.
  constexpr off_t endAt = 200'000;
  const std::string end = "\n2026-01-31 07:00:01 fallback resolved reason=x\n";
  const int file = ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
  ASSERT_GE(file, 0);
  std::atomic<bool> isOver = false;
  std::thread writer([&] {
    while (!isOver) {
      EXPECT_EQ(::pwrite(file, end.data(), end.size(), endAt), static_cast<ssize_t>(end.size()));
      EXPECT_EQ(::pwrite(file, startLine.data(), startLine.size(), 0),
                static_cast<ssize_t>(startLine.size()));
      std::this_thread::yield();
      EXPECT_EQ(::ftruncate(file, 0), 0);
    }
  });
  for (int whole = 0; whole < 50;) {
    const AgentHookFallbackStatus status = statusOfFile();
    whole += status.lastStartedAt ? 1 : 0;
    EXPECT_FALSE(status.isActive);
  }
  isOver = true;
  writer.join();
  ::close(file);
}

class LongHookLogTest : public HookLogFileTest {
 protected:
  // Writes a log of `head`, of which nothing is read, and of so much as is read, which begins with
  // `begin` and ends with `end`.
  void write(std::string_view head, const std::string& begin, const std::string& end = "") {
    std::string log(head);
    log += begin;
    const std::size_t size = head.size() + AgentHookLogInspector::mostBytesRead - end.size();
    while (log.size() + noiseLine.size() <= size) {
      log += noiseLine;
    }
    log += std::string(size - log.size(), '\n') + end;
    folder.write("log", log);
  }
};

TEST_F(LongHookLogTest, OnlyItsEndIsRead) {
  write(startLine, noiseLine);
  EXPECT_EQ(statusOfFile(), AgentHookFallbackStatus{.logPath = path});
  write(noiseLine, noiseLine, startLine);
  EXPECT_TRUE(statusOfFile().isActive);
}

TEST_F(LongHookLogTest, WhatMayBeCutIsNoLine) {
  write("x", startLine);
  EXPECT_EQ(statusOfFile(), AgentHookFallbackStatus{.logPath = path});
  for (const char* before : {"x\n", "\n", "\u2028"}) {
    write("x", before + startLine);
    EXPECT_TRUE(statusOfFile().isActive) << before;
  }
}

TEST_F(LongHookLogTest, ALogOfExactlySoMuchIsReadWhole) {
  write("", startLine);
  EXPECT_TRUE(statusOfFile().isActive);
}

// More than this process may have in addition while the guard lives cannot be allocated.
class LittleMemory {
 public:
  LittleMemory() {
    std::ifstream statm("/proc/self/statm");
    std::uint64_t pages = 0;
    statm >> pages;
    ::getrlimit(RLIMIT_AS, &before_);
    rlimit few = before_;
    few.rlim_cur = pages * 4096 + 2 * AgentHookLogInspector::mostBytesRead;
    works_ = pages > 0 && ::setrlimit(RLIMIT_AS, &few) == 0;
  }

  LittleMemory(const LittleMemory&) = delete;
  LittleMemory& operator=(const LittleMemory&) = delete;

  ~LittleMemory() { ::setrlimit(RLIMIT_AS, &before_); }

  bool works() const { return works_; }

 private:
  rlimit before_{};
  bool works_ = false;
};

TEST_F(LongHookLogTest, AHundredMegabytesTakeLittleMemory) {
  write("", noiseLine, startLine);
  // A hole in front, which takes none either, as the file is on a disk.
  const TemporaryFolder disk;
  const std::string log = folder.read("log");
  std::ofstream file(disk / "log", std::ios::binary);
  file.seekp(100'000'000);
  ASSERT_TRUE(file << log << std::flush);
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
  const LittleMemory limit;
  EXPECT_TRUE(limit.works() || !std::filesystem::exists("/proc"));
#endif
  EXPECT_TRUE(
      AgentHookLogInspector::recentFallbackStatus((disk / "log").string(), start + Seconds(60), {})
          .isActive);
}

}  // namespace
}  // namespace nodo
