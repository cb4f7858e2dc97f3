#include <NODOCore/hooks/AgentHookLogInspector.h>
#include <NODOCore/hooks/HookScript.h>

#include <string>
#include <string_view>

#include <gtest/gtest.h>

namespace nodo {
namespace {

const std::string applications =
    "  local candidates=(\n"
    "    \"/Applications/nodo.app/Contents/Library/Helpers/nodoctl\"\n"
    "    \"$HOME/Applications/nodo.app/Contents/Library/Helpers/nodoctl\"";

// What stands between the brackets around the candidates, the brackets' lines included.
std::string candidates(const std::optional<std::string>& nodoctlPath) {
  const std::string text = hookScriptText(nodoctlPath);
  const auto begin = text.find("  local candidates=(\n");
  const auto end = text.find("\n  )\n", begin);
  if (begin == std::string::npos || end == std::string::npos) {
    return "no candidates";
  }
  return text.substr(begin, end - begin);
}

TEST(HookScriptTextTest, BeginsWithItsInterpreterAndEndsWithoutALineFeed) {
  const std::string text = hookScriptText("/usr/bin/nodoctl");
  EXPECT_TRUE(text.starts_with("#!/usr/bin/env bash\n"));
  EXPECT_TRUE(text.ends_with("\nexit 0"));
}

TEST(HookScriptTextTest, ItWritesTheLogThatTheInspectorReads) {
  using Inspector = AgentHookLogInspector;
  const std::string text = hookScriptText("");
  const auto holds = [&](const std::string& piece) { return text.find(piece) != text.npos; };
  EXPECT_TRUE(holds("${NODO_HOOK_LOG:-" + std::string(Inspector::defaultLogPath) + "}"));
  EXPECT_TRUE(holds("${NODO_HOOK_FALLBACK_SECONDS:-" +
                    std::to_string(Inspector::defaultFallbackSeconds) + "}"));
  EXPECT_TRUE(holds("log \"" + std::string(Inspector::activeMarker) + " "));
  EXPECT_TRUE(holds("log \"" + std::string(Inspector::fallbackStartedMarker) + " seconds="));
}

TEST(HookScriptTextTest, AConfiguredPathIsTheLastCandidate) {
  EXPECT_EQ(candidates("/usr/bin/nodoctl"), applications + "\n    '/usr/bin/nodoctl'");
  EXPECT_EQ(candidates("/tmp/it's here/nodoctl"),
            applications + "\n    '/tmp/it'\\''s here/nodoctl'");
  EXPECT_EQ(candidates(" \n\t/a b/$(c)\r\n "), applications + "\n    '/a b/$(c)'");
}

TEST(HookScriptTextTest, ABlankPathIsNoCandidate) {
  for (const char* blank : {"", " ", " \t\r\n ", "\xC2\xA0"}) {
    EXPECT_EQ(candidates(blank), applications) << '"' << blank << '"';
  }
}

TEST(HookScriptTextTest, WithoutAPathTheRunningProgramIsTheCandidate) {
  const std::string started = ::testing::internal::GetArgvs().front();
  ASSERT_FALSE(started.empty());
  EXPECT_EQ(candidates(std::nullopt), candidates(started));
}

TEST(HookScriptTextTest, OnlyTheCandidateDiffers) {
  const std::string with = hookScriptText("/opt/nodoctl");
  std::string expected = hookScriptText("");
  expected.insert(expected.find("\n  )\n"), "\n    '/opt/nodoctl'");
  EXPECT_EQ(with, expected);
  EXPECT_EQ(with, hookScriptText("/opt/nodoctl"));
}

}  // namespace
}  // namespace nodo
