#include <NODOCore/hooks/HookScript.h>
#include <testing/TestData.h>

#include <filesystem>

#include <tests/hooks/HookScriptFixture.h>

namespace nodo::test {
namespace {

using Lines = std::vector<std::string>;

struct Case {
  std::string payload;
  std::string expected;
};

class HookScriptPayloadTest : public HookScriptFixture {
 protected:
  void SetUp() override {
    if (!hasPython()) {
      GTEST_SKIP() << "no python3";
    }
    set("NODO_HOOK_AGENT", "claude");
  }

  // The event that a throttled run takes from the payload.
  std::string eventOf(const std::string& payload) {
    stamp(std::to_string(now));
    run(payload);
    const std::string line = log().back();
    return line.substr(line.find("event=") + 6);
  }

  // The context that nodoctl is told; nothing when it is not told any.
  std::optional<std::string> contextOf(const std::string& payload) {
    std::filesystem::remove(folder() / "stamp");
    std::filesystem::remove(folder() / "calls");
    set("NODO_HOOK_EVENT", "Stop");
    run(payload);
    for (const std::string& call : calls()) {
      if (call.starts_with("nodoctl <manual>")) {
        const std::string option = "<--context> <";
        const auto begin = call.find(option);
        const auto end = call.find("> <--event> <Stop>");
        return begin == std::string::npos
                   ? std::nullopt
                   : std::optional(call.substr(begin + option.size(), end - begin - option.size()));
      }
    }
    return "nodoctl was not called";
  }
};

TEST_F(HookScriptPayloadTest, PayloadsOfRealAgentsNameSessionProjectAndEvent) {
  struct Agent {
    const char* file;
    const char* context;
    const char* event;
  };

  for (const Agent& agent :
       {Agent{"claude-SessionStart.json", "project - session 94389d89", "SessionStart"},
        Agent{"claude-PreToolUse.json", "project - session 94389d89", "PreToolUse"},
        Agent{"codex-UserPromptSubmit.json", "project - session 01a1fb73", "UserPromptSubmit"},
        Agent{"codex-PostToolUse.json", "project - session 01a1fb73", "PostToolUse"}}) {
    std::filesystem::remove(folder() / "stamp");
    std::filesystem::remove(folder() / "calls");
    run(testDataText(std::string("agents/payloads/") + agent.file));
    EXPECT_EQ(log().back(), std::string("nodo active minutes=20 requester=Claude Code context=") +
                                agent.context + " event=" + agent.event);
    EXPECT_EQ(calls(),
              (Lines{"python3 session_id transcript_path, cwd, hook_event_name,",
                     std::string("nodoctl <manual> <--minutes> <20> <--extend-only> <--requester> "
                                 "<Claude Code> <--json> <--context> <") +
                         agent.context + "> <--event> <" + agent.event + ">",
                     "nodoctl <doctor>"}));
  }
}

TEST_F(HookScriptPayloadTest, WithoutAPayloadTheFolderIsTheContext) {
  EXPECT_EQ(contextOf(""), "project");
  EXPECT_EQ(contextOf("\n"), "project");
  EXPECT_EQ(calls().size(), 2U);
}

TEST_F(HookScriptPayloadTest, ContextsAreMadeOfProjectAndSession) {
  const std::vector<Case> cases = {
      {R"({"sessionId":"abcdefghij","projectDir":"/x"})", "project - session abcdefgh"},
      {R"({"conversation_id":"abc","cwd":"/a/b"})", "b - session abc"},
      {R"({"conversationId":"abc","project_dir":"/a/c"})", "c - session abc"},
      {R"({"transcript_path":"/x/y/0123456789abcdef.jsonl","project":"d"})",
       "d - session 01234567"},
      {R"({"session_id":"/x/y/0123456789abcdef.jsonl","cwd":"e"})", "e - session 01234567"},
      {R"({"session_id":"ab.json","cwd":"e"})", "e - session ab"},
      {R"({"session_id":"ab.json.jsonl","cwd":"e"})", "e - session ab"},
      {R"({"session_id":"ab.jsonl.json","cwd":"e"})", "e - session ab.jsonl"},
      {R"({"session_id":7,"cwd":"/a b/c d"})", "c d - session 7"},
      {R"({"cwd":"/a/b","project_dir":"/c/d"})", "b"},
      {R"({"project":"/c/d","project_dir":"/e/f"})", "f"},
      {R"({"cwd":"/","session_id":"abc"})", "session abc"},
      {R"({"cwd":"/a/b/","session_id":"abc"})", "session abc"},
      {R"({"cwd":".","session_id":"abc"})", ". - session abc"},
      {R"({"session_id":"first","sessionId":"second","transcript_path":"third"})",
       "project - session first"},
      {R"({"session_id":"","sessionId":"  ","conversation_id":null,"conversationId":"fourth"})",
       "project - session fourth"},
  };
  for (const Case& one : cases) {
    EXPECT_EQ(contextOf(one.payload), one.expected) << one.payload;
  }
}

TEST_F(HookScriptPayloadTest, AnEmptySessionIsPassedOverForALaterOneOfTheSameName) {
  EXPECT_EQ(contextOf(R"({"session_id":"","agent":{"session_id":"0123456789"},"cwd":"/a/b"})"),
            "b - session 01234567");
  EXPECT_EQ(contextOf(R"([{"session_id":null},{"session_id":""},{"session_id":"abc"}])"),
            "project - session abc");
}

TEST_F(HookScriptPayloadTest, AnUnknownAgentHasTheEventOfItsPayload) {
  unset("NODO_HOOK_AGENT");
  run(R"({"hook_event_name":"Stop"})");
  EXPECT_EQ(log().back(), "nodo active minutes=20 requester=Agent context=project event=Stop");
}

TEST_F(HookScriptPayloadTest, AnEmptyContextIsNotPassedOn) {
  EXPECT_EQ(contextOf(R"({"cwd":"/"})"), std::nullopt);
  EXPECT_EQ(contextOf(R"({"cwd":"."})"), std::nullopt);
  EXPECT_EQ(log().back(), "nodo active minutes=20 requester=Claude Code context= event=Stop");
}

TEST_F(HookScriptPayloadTest, AnyAgentsNameForTheEventIsUnderstood) {
  const std::vector<Case> cases = {
      {R"({"hook_event_name":"A"})", "A"},
      {R"({"hookEventName":"B"})", "B"},
      {R"({"eventName":"C"})", "C"},
      {R"({"event":"D"})", "D"},
      {R"({"event":"D","eventName":"C","hookEventName":"B","hook_event_name":"A"})", "A"},
      {R"({"event":"D","hookEventName":""})", "D"},
      {R"({"Event":"E"})", ""},
      {R"({"tool":"event"})", ""},
      {"{}", ""},
  };
  for (const Case& one : cases) {
    EXPECT_EQ(eventOf(one.payload), one.expected) << one.payload;
  }
}

TEST_F(HookScriptPayloadTest, TheFirstValueInReadingOrderThatSaysSomethingCounts) {
  const std::vector<Case> cases = {
      {R"({"event":"","tool":{"event":"inner"}})", "inner"},
      {R"({"tool":{"event":"inner"},"event":"outer"})", "outer"},
      {R"({"a":{"b":{"event":"deep"}},"c":{"event":"flat"}})", "deep"},
      {R"([[],[{"event":null}],{"a":[{"event":"x"}]},{"event":"y"}])", "x"},
      {R"({"event":["one","two"]})", "['one', 'two']"},
      {R"({"event":{"event":"x"}})", "{'event': 'x'}"},
      {R"({"event":false})", "False"},
      {R"({"event":0})", "0"},
      {R"({"event":1.50})", "1.5"},
      {R"({"event":[]})", "[]"},
      {R"({"event":"first","event":"second"})", "second"},
  };
  for (const Case& one : cases) {
    EXPECT_EQ(eventOf(one.payload), one.expected) << one.payload;
  }
}

TEST_F(HookScriptPayloadTest, ValuesBecomeOneShortLine) {
  const std::string letters(199, 'x');
  const std::vector<Case> cases = {
      {R"({"event":" \t a\r\nb\n \r"})", "a  b"},
      {R"({"event":")" + letters + R"(yz"})", letters + "y"},
      {R"({"event":"   )" + letters + R"(\u00e4\u00e4"})", letters + "\u00e4"},
      {R"({"\u0065vent":"escaped"})", "escaped"},
      {R"({"\u0065\u0076\u0065\u006E\u0074\u004e\u0061\u006d\u0065":"all"})", "all"},
      {R"({"hook\u005fevent\u005Fname":"low line"})", "low line"},
      {"{\"event\":\"\u00e4\U0001F600\"}", "\u00e4\U0001F600"},
      {R"({"event":"\ud83d\ude00"})", "\U0001F600"},
      {" \r\n\t{\"event\" :\r\n\"spaced\"} \t\r\n", "spaced"},
  };
  for (const Case& one : cases) {
    EXPECT_EQ(eventOf(one.payload), one.expected) << one.payload;
  }
}

TEST_F(HookScriptPayloadTest, WhatIsNoJSONSaysNothing) {
  const std::vector<std::string> payloads = {
      R"({"event":"x"}})",
      R"({"event":"x",})",
      R"({'event':'x' "event"})",
      R"("event")",
      R"({"event":"\ud800"})",
      "{\"event\":\"\xFF\"}",
      "\xEF\xBB\xBF{\"event\":\"x\"}",
      std::string(3000, '[') + R"({"event":"x"})" + std::string(3000, ']'),
      R"({"event":)" + std::string(30000, '[') + std::string(30000, ']') + "}",
  };
  for (const std::string& payload : payloads) {
    EXPECT_EQ(eventOf(payload), "") << payload.substr(0, 80);
  }
}

TEST_F(HookScriptPayloadTest, DeepButReadableDocumentsAreSearchedToTheirEnd) {
  EXPECT_EQ(eventOf(std::string(900, '[') + R"({"event":"x"})" + std::string(900, ']')), "x");
}

TEST_F(HookScriptPayloadTest, OnlyTheFirst65536BytesAreRead) {
  const std::string begin = R"({"event":"x","rest":")";
  const std::string end = "\"}";
  const std::string filler(65536 - begin.size() - end.size(), 'r');
  EXPECT_EQ(eventOf(begin + filler + end), "x");
  EXPECT_EQ(eventOf(begin + filler + "r" + end), "");
  constexpr std::size_t tenMegabytes = 10'000'000;
  std::string rest;
  rest.resize(tenMegabytes, 'r');
  EXPECT_EQ(eventOf(begin + rest + end), "");
}

TEST_F(HookScriptPayloadTest, PythonStartsOnlyForAValueThatCannotBeKnownWithoutIt) {
  const std::string cut = R"({"hook_event_name":"x","hookEventName":"x","eventName":"x","event":")";
  for (const std::string& payload :
       {std::string(), std::string("{}"), std::string(R"({"session_id":"abc","cwd":"/x"})"), cut,
        cut + "\"", cut + "x", cut + "\u00e4", cut + "\v",
        std::string(
            R"({"tool_response":"\u001b[31mred\u001B[0m \u00e4\u2028\ud83d\ude00\u0000"})")}) {
    EXPECT_EQ(eventOf(payload), "") << payload;
    EXPECT_EQ(calls(), Lines{}) << payload;
  }
}

TEST_F(HookScriptPayloadTest, PythonStartsOnceForAllKeysThatMayBeThere) {
  const Lines all = {"python3,, hook_event_name hookEventName eventName event,"};
  const std::vector<std::pair<std::string, Lines>> cases = {
      {R"({"x":"\u0065"})", all},
      {R"({"x":"\u0045"})", all},
      {R"({"x":"\u005F"})", all},
      {R"({"x":"\u007a"})", all},
      {R"(["hook_event_name","hookEventName","eventName","event"])", all},
      {R"(["hook_event_name","hookEventName","eventName","event" )" + std::string("\t"), all},
      {R"({"eventName":"","event":"x"})", {"python3,, eventName event,"}},
      {R"({"hook_event_name":"x","event":"y"})", {"python3,, hook_event_name event,"}},
  };
  for (const auto& [payload, keys] : cases) {
    std::filesystem::remove(folder() / "calls");
    eventOf(payload);
    EXPECT_EQ(calls(), keys) << payload;
  }
}

TEST_F(HookScriptPayloadTest, AValueThatIsNoTextSpoilsNoOther) {
  EXPECT_EQ(contextOf(R"({"session_id":"\ud800","sessionId":"abc","cwd":"/x/\udfff"})"),
            "project - session abc");
  EXPECT_EQ(contextOf(R"({"session_id":"a\u0000bc","cwd":"/x/\u0000"})"), "session abc");
  EXPECT_EQ(contextOf(R"({"session_id":{"event":"\ud800"},"cwd":"/x/y"})"), "y - session {'event'");
}

TEST_F(HookScriptPayloadTest, ThePythonOfAMacWithoutDeveloperToolsIsNotStarted) {
  std::string text = hookScriptText("");
  const auto exchange = [&text](const std::string& tool, const std::string& standIn) {
    for (auto at = text.find(tool); at != std::string::npos; at = text.find(tool, at)) {
      text.replace(at, tool.size(), standIn);
      at += standIn.size();
    }
  };
  exchange("/usr/bin/python3", path("tools/python3"));
  exchange("/usr/bin/xcode-select", path("xcode-select"));
  useScript(text);
  const std::string payload = R"({"event":"x"})";

  folder().write("xcode-select", "#!/bin/sh\n[ \"$*\" = -p ] && exit 2\n");
  std::filesystem::permissions(folder() / "xcode-select", std::filesystem::perms(0755));
  EXPECT_EQ(eventOf(payload), "");
  EXPECT_EQ(calls(), Lines{});

  folder().write("xcode-select", "#!/bin/sh\n[ \"$*\" = -p ] && echo /Library/Developer\n");
  EXPECT_EQ(eventOf(payload), "x");
  EXPECT_EQ(calls(), Lines{"python3,, event,"});
}

TEST_F(HookScriptPayloadTest, WithoutPythonAPayloadSaysNothing) {
  hide("python3");
  const std::string payload = testDataText("agents/payloads/claude-PreToolUse.json");
  EXPECT_EQ(eventOf(payload), "");
  EXPECT_EQ(contextOf(payload), "project");
}

TEST_F(HookScriptPayloadTest, AModuleInTheAgentsFolderIsNotImported) {
  const std::string trap = "open('" + path("canary") + "', 'w')\n";
  for (const char* module : {"json", "os", "sys", "site", "sitecustomize"}) {
    folder().write(std::string("home/project/") + module + ".py", trap);
  }
  set("PYTHONPATH", path("home/project"));
  EXPECT_EQ(eventOf(R"({"event":"x"})"), "x");
  EXPECT_EQ(content("canary"), std::nullopt);
}

}  // namespace
}  // namespace nodo::test
