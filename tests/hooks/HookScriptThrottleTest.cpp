#include <tests/hooks/HookScriptFixture.h>

namespace nodo::test {
namespace {

using Lines = std::vector<std::string>;

class HookScriptThrottleTest : public HookScriptFixture {
 protected:
  HookScriptThrottleTest() {
    set("NODO_HOOK_AGENT", "claude");
    set("NODO_HOOK_EVENT", "PreToolUse");
  }

  // Whether a run with this content of the stamp is throttled; expects it to do all that belongs to
  // either case.
  bool isThrottled(const std::string& content) {
    std::filesystem::remove(folder() / "log");
    std::filesystem::remove(folder() / "calls");
    stamp(content);
    run();
    const bool throttled = calls().empty();
    EXPECT_EQ(this->content("stamp"), throttled ? content : std::to_string(now) + "\n");
    if (throttled) {
      EXPECT_EQ(log(), (Lines{"nodo extend throttled seconds=" + interval +
                              " requester=Claude Code event=PreToolUse"}));
    } else {
      EXPECT_EQ(log(), (Lines{"nodo active minutes=20 requester=Claude Code context=project "
                              "event=PreToolUse"}));
    }
    return throttled;
  }

  static std::string secondsAgo(int seconds) { return std::to_string(now - seconds); }

  std::string interval = "120";
};

TEST_F(HookScriptThrottleTest, ARecentStampSkipsTheRequest) {
  EXPECT_TRUE(isThrottled(secondsAgo(0) + "\n"));
  EXPECT_TRUE(isThrottled(secondsAgo(119) + "\n"));
  EXPECT_FALSE(isThrottled(secondsAgo(120) + "\n"));
  EXPECT_FALSE(isThrottled(secondsAgo(100'000) + "\n"));
  // The clock was set back.
  EXPECT_TRUE(isThrottled(secondsAgo(-5) + "\n"));
}

TEST_F(HookScriptThrottleTest, OnlyTheDigitsOfAStampCount) {
  const std::string recent = secondsAgo(1);
  EXPECT_TRUE(isThrottled(recent));
  EXPECT_TRUE(isThrottled(" " + recent + "\r\n"));
  EXPECT_TRUE(isThrottled(recent.substr(0, 4) + "\n" + recent.substr(4) + "\n\n"));
  EXPECT_TRUE(isThrottled("at: " + recent.substr(0, 4) + "-" + recent.substr(4)));
  EXPECT_TRUE(isThrottled(recent.substr(0, 4) + std::string(1, '\0') + recent.substr(4)));
  EXPECT_TRUE(isThrottled(std::string(100, ' ') + recent));
  EXPECT_TRUE(isThrottled("\xFF\xFE" + recent));
}

TEST_F(HookScriptThrottleTest, AStampWithoutADigitIsNoStamp) {
  EXPECT_FALSE(isThrottled(""));
  EXPECT_FALSE(isThrottled("\n"));
  EXPECT_FALSE(isThrottled("yesterday"));
  EXPECT_FALSE(isThrottled(std::string(1000, 'x')));
}

TEST_F(HookScriptThrottleTest, DigitsAreDecimalHoweverMany) {
  EXPECT_TRUE(isThrottled("000" + secondsAgo(1) + "\n"));
  EXPECT_TRUE(isThrottled(std::string(100, '0') + secondsAgo(1)));
  EXPECT_FALSE(isThrottled("08"));
  EXPECT_FALSE(isThrottled("0"));
  // In the future, however far.
  EXPECT_TRUE(isThrottled("18446744073709551617"));
  EXPECT_TRUE(isThrottled(std::string(1000, '9')));
}

TEST_F(HookScriptThrottleTest, TheIntervalIsASetting) {
  interval = "5";
  set("NODO_HOOK_MIN_INTERVAL_SECONDS", interval);
  EXPECT_TRUE(isThrottled(secondsAgo(4)));
  EXPECT_FALSE(isThrottled(secondsAgo(5)));
  interval = "0";
  set("NODO_HOOK_MIN_INTERVAL_SECONDS", interval);
  EXPECT_FALSE(isThrottled(secondsAgo(0)));
}

TEST_F(HookScriptThrottleTest, AnIntervalThatIsNoNumberIsNeitherEvaluatedNorAReasonToSkip) {
  for (const std::string& bad : {std::string("soon"), std::string("120s"),
                                 "a[$(echo >" + path("canary") + ")]", std::string("HOME")}) {
    set("NODO_HOOK_MIN_INTERVAL_SECONDS", bad);
    EXPECT_FALSE(isThrottled(secondsAgo(0))) << bad;
  }
  EXPECT_EQ(content("canary"), std::nullopt);
}

TEST_F(HookScriptThrottleTest, WithoutAClockNothingIsSkipped) {
  stamp(secondsAgo(0));
  set("HOOK_TEST_NOW", "never");
  run();
  EXPECT_EQ(calls().size(), 2U);
}

TEST_F(HookScriptThrottleTest, AThrottledCallNeedsNoContext) {
  stamp(secondsAgo(0));
  run(R"({"session_id":"0123456789","cwd":"/home/u/project","hook_event_name":"Stop"})");
  EXPECT_EQ(calls(), Lines{});
  EXPECT_EQ(log(), (Lines{"nodo extend throttled seconds=120 requester=Claude Code "
                          "event=PreToolUse"}));
}

TEST_F(HookScriptThrottleTest, AThrottledCallNamesTheEventOfItsPayload) {
  if (!hasPython()) {
    GTEST_SKIP() << "no python3";
  }
  unset("NODO_HOOK_EVENT");
  stamp(secondsAgo(0));
  run(R"({"session_id":"0123456789","hook_event_name":"Stop"})");
  EXPECT_EQ(calls(), (Lines{"python3,, hook_event_name,"}));
  EXPECT_EQ(log(), (Lines{"nodo extend throttled seconds=120 requester=Claude Code event=Stop"}));
}

}  // namespace
}  // namespace nodo::test
