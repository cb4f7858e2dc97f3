#include <NODOCore/base/LocalTime.h>
#include <NODOCore/base/Text.h>
#include <NODOCore/hooks/AgentHookLogInspector.h>
#include <NODOCore/hooks/HookFallbackSearch.h>
#include <testing/EnvironmentVariable.h>
#include <testing/TemporaryFolder.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <limits>
#include <optional>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

#include <sys/resource.h>

namespace nodo {
namespace {

using test::EnvironmentVariable;
using test::TemporaryFolder;

const Date start = dateFromSeconds(1769842800);  // 2026-01-31 07:00:00 in UTC

// The rules again, over the whole log from its begin.
class StraightReading {
 public:
  explicit StraightReading(std::string_view log) {
    for (const std::string_view line : splitLines(log)) {
      const auto stamp = dateFromLocalTime(firstCharacters(line, localTimeLength));
      if (!stamp) {
        continue;
      }
      if (contains(line, "fallback caffeinate started")) {
        startedAt_ = stamp;
        seconds_ = seconds(line);
      }
      activeAt_ = contains(line, "nodo active") ? stamp : activeAt_;
      resolvedAt_ = contains(line, "fallback resolved") ? stamp : resolvedAt_;
    }
  }

  AgentHookFallbackStatus status(Date now) const {
    bool isActive = startedAt_ && now < *startedAt_ + Seconds(static_cast<double>(seconds_));
    for (const auto& end : {activeAt_, resolvedAt_}) {
      isActive = isActive && !(end && *end >= *startedAt_);
    }
    return {isActive, "/log", startedAt_, seconds_};
  }

 private:
  static std::int64_t seconds(std::string_view line) {
    auto at = line.find("seconds=");
    while (at != std::string_view::npos && !standsAlone(line, at)) {
      at = line.find("seconds=", at + 1);
    }
    if (at == std::string_view::npos) {
      return 600;
    }
    const std::string_view value = line.substr(at + 8);
    const auto end = std::min(value.find_first_not_of("0123456789"), value.size());
    return integerFromText<std::int64_t>(value.substr(0, end)).value_or(600);
  }

  static bool standsAlone(std::string_view line, std::size_t at) {
    return contains(line.substr(0, at + 8), "seconds=") && hasPrefix(line.substr(at), "seconds=") &&
           characterCount(line.substr(0, at)) + characterCount(line.substr(at)) ==
               characterCount(line);
  }

  std::optional<Date> startedAt_;
  std::optional<Date> activeAt_;
  std::optional<Date> resolvedAt_;
  std::int64_t seconds_ = 600;
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

class HookLogFileTest : public ::testing::Test {
 protected:
  AgentHookFallbackStatus read(std::size_t pieceSize, Date now) const {
    LogFileText text((folder / "log").string(), pieceSize);
    return fallbackStatus(text, "/log", now);
  }

  const EnvironmentVariable zone{"TZ", "UTC0"};
  TemporaryFolder folder = TemporaryFolder::inMemory();
};

TEST_F(HookLogFileTest, ALogReadFromItsEndSaysWhatItSaysAsAWhole) {
  LogMaker maker;
  int active = 0;
  int started = 0;
  for (int round = 0; round < 3000; ++round) {
    const std::string log = maker.make();
    folder.write("log", log);
    const Date now = start + Seconds(maker.number(1200) - 300);
    const AgentHookFallbackStatus expected = StraightReading(log).status(now);
    active += expected.isActive ? 1 : 0;
    started += expected.lastStartedAt ? 1 : 0;
    ASSERT_EQ(AgentHookLogInspector::recentFallbackStatus(log, "/log", now), expected) << log;
    for (const std::size_t pieceSize : {64U, 65U, 67U, 100U, 65536U}) {
      ASSERT_EQ(read(pieceSize, now), expected) << pieceSize << "\n" << log;
    }
  }
  EXPECT_GT(active, 100);  // the logs are not all alike
  EXPECT_GT(started - active, 100);
}

TEST_F(HookLogFileTest, AMarkerIsFoundAcrossEveryBorderOfPieces) {
  for (std::size_t before = 0; before < 140; ++before) {
    for (const char* padding : {"n", "\u00E9", "\u4E2D"}) {
      std::string log = "2026-01-31 07:00:00 ";
      for (std::size_t count = 0; count < before; ++count) {
        log += padding;
      }
      log += "fallback caffeinate started seconds=";
      log += std::string(before, '0') + "77" + std::string(before, 'x') + "\u2028";
      folder.write("log", log + std::string(before, '\n') + "tail");
      const auto status = read(64, start);
      ASSERT_TRUE(status.isActive) << before << padding;
      ASSERT_EQ(status.fallbackSeconds, 77) << before << padding;
    }
  }
}

TEST_F(HookLogFileTest, ALogThatHasBecomeShorterIsAnError) {
  folder.write("log", std::string(1000, 'x'));
  LogFileText text((folder / "log").string(), 64);
  std::filesystem::resize_file(folder / "log", 10);
  EXPECT_THROW(fallbackStatus(text, "/log", start), std::system_error);
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
    few.rlim_cur = pages * 4096 + 16'777'216;  // 16 MiB more
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

class LargeHookLogTest : public HookLogFileTest {
 protected:
  static constexpr std::size_t large = 100'000'000;

  void write(std::string_view head, std::string_view repeated, std::string_view tail) {
    std::ofstream file(folder / "log", std::ios::binary);
    file << head;
    std::string block;
    while (block.size() < 1'000'000) {
      block += repeated;
    }
    for (std::size_t written = 0; written < large; written += block.size()) {
      file << block;
    }
    file << tail;
    ASSERT_TRUE(file.flush());
  }

  AgentHookFallbackStatus readInLittleMemory() const {
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
    const LittleMemory limit;
    EXPECT_TRUE(limit.works() || !std::filesystem::exists("/proc"));
#endif
    return AgentHookLogInspector::recentFallbackStatus((folder / "log").string(),
                                                       start + Seconds(60), {});
  }

  // On a disk: a file in memory would count as memory.
  TemporaryFolder folder;
};

TEST_F(LargeHookLogTest, OfManyLinesTheLastOnesAreFound) {
  write("", "2026-01-31 06:00:00 nodo active minutes=20 requester=Codex\n",
        "2026-01-31 07:00:00 fallback caffeinate started seconds=600\n");
  EXPECT_TRUE(readInLittleMemory().isActive);
}

TEST_F(LargeHookLogTest, OfManyLinesTheFirstOneIsFound) {
  write("2026-01-31 07:00:00 fallback caffeinate started seconds=600\n",
        "2026-01-31 06:00:00 nodo extend throttled seconds=120 requester=Codex\n", "");
  EXPECT_TRUE(readInLittleMemory().isActive);
}

TEST_F(LargeHookLogTest, OneLineIsReadInPieces) {
  write("2026-01-31 07:00:00 ", "x", " fallback caffeinate started seconds=700");
  EXPECT_TRUE(readInLittleMemory().isActive);
  EXPECT_EQ(readInLittleMemory().fallbackSeconds, 700);
}

}  // namespace
}  // namespace nodo
