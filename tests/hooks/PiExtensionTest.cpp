#include <NODOCore/base/JSONValue.h>
#include <NODOCore/hooks/HookScript.h>

#include <string>

#include <gtest/gtest.h>

namespace nodo {
namespace {

const std::string head =
    "import type { ExtensionAPI } from \"@earendil-works/pi-coding-agent\";\n"
    "import { spawn } from \"node:child_process\";\n"
    "\n"
    "const hookPath = ";

// The path's literal in an extension, which stands between the head and the first line's end.
std::string literal(const std::string& path) {
  const std::string text = piExtensionText(path);
  const auto end = text.find(";\n\nfunction trigger(eventName: string) {\n");
  if (!text.starts_with(head) || end == std::string::npos) {
    return "no literal";
  }
  return text.substr(head.size(), end - head.size());
}

TEST(PiExtensionTest, ThePathIsAStringLiteral) {
  EXPECT_EQ(literal("/Users/u/.nodo/nodo-agent-hook.sh"), "\"/Users/u/.nodo/nodo-agent-hook.sh\"");
  EXPECT_EQ(literal("/it's here/\u00e4"), "\"/it's here/\u00e4\"");
  EXPECT_EQ(literal("/a \"b\"\\\n\t\x01`${c}`"), R"("/a \"b\"\\\n\t\u0001`${c}`")");
}

TEST(PiExtensionTest, TheLiteralIsReadAsThePath) {
  for (const char* path : {"", "/", "\"", "\\", "\\\"", "/a\r\nb\x7f", "/\U0001F600"}) {
    const JSONValue value = JSONValue::parse(literal(path));
    ASSERT_NE(value.text(), nullptr);
    EXPECT_EQ(*value.text(), path);
  }
}

TEST(PiExtensionTest, APathThatIsNoTextOnlyHasItsQuotesEscaped) {
  EXPECT_EQ(literal("/\xFF\"a\""), "\"/\xFF\\\"a\\\"\"");
}

TEST(PiExtensionTest, TheEventsAreSubscribedInTheirOrder) {
  const std::string text = piExtensionText("/hook");
  std::size_t position = text.find("export default function (pi: ExtensionAPI) {\n");
  ASSERT_NE(position, std::string::npos);
  for (const std::string event :
       {"session_start", "input", "turn_start", "tool_call", "tool_result", "turn_end"}) {
    const std::string subscription =
        "  pi.on(\"" + event + "\", async () => {\n    trigger(\"" + event + "\");\n  });\n";
    const auto next = text.find(subscription, position);
    ASSERT_NE(next, std::string::npos) << event;
    position = next + subscription.size();
  }
  EXPECT_EQ(text.substr(position), "}\n");
}

TEST(PiExtensionTest, ItIsRecognisedByItsEnvironment) {
  const std::string text = piExtensionText("/hook");
  EXPECT_NE(text.find("NODO_HOOK_AGENT: \"pi\""), std::string::npos);
  EXPECT_NE(text.find("NODO_HOOK_EVENT: eventName"), std::string::npos);
  EXPECT_NE(text.find("// Keep Pi fail-open if nodo is unavailable."), std::string::npos);
}

TEST(PiExtensionTest, EqualPathsGiveEqualTexts) {
  EXPECT_EQ(piExtensionText("/a"), piExtensionText("/a"));
  EXPECT_NE(piExtensionText("/a"), piExtensionText("/b"));
}

}  // namespace
}  // namespace nodo
