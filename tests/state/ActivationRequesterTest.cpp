#include <NODOCore/base/Errors.h>
#include <NODOCore/base/Text.h>
#include <NODOCore/state/NODOState.h>
#include <testing/JSONRows.h>

#include <cstdint>
#include <optional>
#include <string>

#include <gtest/gtest.h>

namespace nodo {
namespace {

using test::optionalOf;
using test::testRows;
using test::valueOf;

const Date noon = dateFromSeconds(1769860800);

ActivationRequester named(const std::string& name,
                          const std::optional<std::string>& context = std::nullopt) {
  return {name, context, std::nullopt, noon};
}

std::string repeated(const std::string& text, int count) {
  std::string all;
  for (int index = 0; index < count; ++index) {
    all += text;
  }
  return all;
}

TEST(ActivationRequesterTest, ItsTextsAreNormalised) {
  for (const JSONValue& row : testRows("vectors/requester_texts.json")) {
    const auto text = valueOf<std::string>(row, "text");
    const ActivationRequester requester(text, text, text, noon);
    const auto label = valueOf<std::string>(row, "case");
    EXPECT_EQ(requester.name, valueOf<std::string>(row, "name")) << label;
    EXPECT_EQ(requester.context, optionalOf<std::string>(row, "context")) << label;
    EXPECT_EQ(requester.event, requester.context) << label;
  }
}

TEST(ActivationRequesterTest, ANameOfOnlyBlanksAndTabsIsUnknown) {
  EXPECT_EQ(named(" \t \t").name, "Unknown");
  EXPECT_EQ(named("").name, "Unknown");
  EXPECT_EQ(ActivationRequester().name, "Unknown");
}

TEST(ActivationRequesterTest, AnAbsentOrEmptyContextAndEventAreAbsent) {
  const ActivationRequester requester("a", "", "\r\n", noon);
  EXPECT_FALSE(requester.context);
  EXPECT_FALSE(requester.event);
  EXPECT_FALSE(named("a").context);
}

TEST(ActivationRequesterTest, AContextOf200CharactersIsCutTo117AndAnEllipsis) {
  EXPECT_EQ(named("a", std::string(200, 'x')).context, std::string(117, 'x') + "...");
}

TEST(ActivationRequesterTest, ATextOf120CharactersIsKeptAndOf121Cut) {
  const std::string family = "\U0001F468\u200D\U0001F469\u200D\U0001F467";
  for (const std::string& character : {std::string("x"), std::string("e\u0301"), family}) {
    EXPECT_EQ(named(repeated(character, 120)).name, repeated(character, 120));
    EXPECT_EQ(named(repeated(character, 121)).name, repeated(character, 117) + "...");
  }
}

TEST(ActivationRequesterTest, BlanksAroundDoNotCountTowardsTheLength) {
  EXPECT_EQ(named(" " + std::string(120, 'x') + "\n").name, std::string(120, 'x'));
}

TEST(ActivationRequesterTest, InvalidUTF8IsRepairedBeforeItIsStored) {
  EXPECT_EQ(named("a\xFF"
                  "b")
                .name,
            "a\uFFFDb");
  EXPECT_TRUE(isValidUTF8(named(repeated("\xC3", 300)).name));
}

TEST(ActivationRequesterTest, ACopyForAnotherTimeIsNormalisedToo) {
  ActivationRequester raw;
  raw.name = "\t";
  raw.context = " project \n";
  raw.event = "";
  const Date later = noon + Seconds(60);
  const ActivationRequester copy = raw.requested(later);
  EXPECT_EQ(copy, ActivationRequester("Unknown", "project", std::nullopt, later));
  EXPECT_EQ(raw.context, " project \n");
}

TEST(ActivationRequesterTest, TheDisplayTextHasTheContextButNotTheEvent) {
  EXPECT_EQ(named("Codex").displayText(), "Codex");
  EXPECT_EQ(ActivationRequester("Codex", "web (a1)", "Stop", noon).displayText(),
            "Codex - web (a1)");
  EXPECT_EQ(ActivationRequester("Codex", std::nullopt, "Stop", noon).displayText(), "Codex");
}

TEST(ActivationRequesterTest, TheShortDisplayTextKeepsToItsLength) {
  for (const JSONValue& row : testRows("vectors/short_display.json")) {
    ActivationRequester requester;
    requester.name = valueOf<std::string>(row, "text");
    const auto maxLength = static_cast<std::size_t>(valueOf<std::int64_t>(row, "maxLength"));
    EXPECT_EQ(requester.shortDisplayText(maxLength), valueOf<std::string>(row, "expected"))
        << valueOf<std::string>(row, "case");
  }
}

TEST(ActivationRequesterTest, TheShortDisplayTextOfClaudeCode) {
  EXPECT_EQ(named("Claude Code").shortDisplayText(3), "Cla");
  EXPECT_EQ(named("Claude Code").shortDisplayText(8), "Claud...");
  EXPECT_EQ(named("Claude Code").shortDisplayText(11), "Claude Code");
  EXPECT_EQ(named("Claude Code", "web").shortDisplayText(12), "Claude Co...");
}

TEST(ActivationRequesterTest, ItsJSONHasItsKeysInTheirOrder) {
  EXPECT_EQ(encodeJSON(ActivationRequester("Pi", "web", "Stop", noon), JSONLayout::compact),
            R"({"name":"Pi","context":"web","event":"Stop","requestedAt":"2026-01-31T12:00:00Z"})");
  EXPECT_EQ(encodeJSON(named("Pi"), JSONLayout::compact),
            R"({"name":"Pi","requestedAt":"2026-01-31T12:00:00Z"})");
}

TEST(ActivationRequesterTest, ItsNameAndTimeAreRequired) {
  EXPECT_EQ(decodeJSON<ActivationRequester>(
                R"({"name":"Pi","requestedAt":"2026-01-31T12:00:00Z","context":null})"),
            named("Pi"));
  EXPECT_THROW(decodeJSON<ActivationRequester>(R"({"name":"Pi"})"), DecodingError);
  EXPECT_THROW(decodeJSON<ActivationRequester>(R"({"requestedAt":"2026-01-31T12:00:00Z"})"),
               DecodingError);
  EXPECT_THROW(
      decodeJSON<ActivationRequester>(R"({"name":null,"requestedAt":"2026-01-31T12:00:00Z"})"),
      DecodingError);
}

TEST(ActivationRequesterTest, EveryFieldCountsForEquality) {
  const ActivationRequester base("a", "c", "e", noon);
  EXPECT_EQ(base, ActivationRequester("a", "c", "e", noon));
  EXPECT_NE(base, ActivationRequester("b", "c", "e", noon));
  EXPECT_NE(base, ActivationRequester("a", std::nullopt, "e", noon));
  EXPECT_NE(base, ActivationRequester("a", "c", "f", noon));
  EXPECT_NE(base, ActivationRequester("a", "c", "e", noon + Seconds(0.5)));
}

}  // namespace
}  // namespace nodo
