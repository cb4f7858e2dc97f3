#include <NODOCore/hooks/CodexConfig.h>

#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace nodo {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::StartsWith;

struct Edit {
  std::string before;
  std::string after;
};

std::string edited(const std::string& text) {
  return codexConfigWithHooksOn(text, "/home/u/.codex/config.toml");
}

std::string refusal(const std::string& text) {
  try {
    return "edited: " + edited(text);
  } catch (const CodexConfigError& error) {
    return error.what();
  }
}

void expectEdits(const std::vector<Edit>& edits) {
  for (const auto& [before, after] : edits) {
    EXPECT_EQ(edited(before), after) << "of <" << before << ">";
    EXPECT_EQ(edited(after), after) << "a second time, of <" << before << ">";
  }
}

void expectUntouched(const std::vector<std::string>& texts) {
  for (const std::string& text : texts) {
    EXPECT_EQ(edited(text), text);
  }
}

TEST(CodexConfigTest, AMissingTableIsAddedAtTheEnd) {
  expectEdits({{"", "[features]\nhooks = true\n"},
               {"\n", "\n[features]\nhooks = true\n"},
               {"model = \"x\"\n", "model = \"x\"\n[features]\nhooks = true\n"},
               {"model = \"x\"", "model = \"x\"\n[features]\nhooks = true\n"},
               {"# only a comment", "# only a comment\n[features]\nhooks = true\n"},
               {"[a]\nhooks = false\n", "[a]\nhooks = false\n[features]\nhooks = true\n"},
               {"[features.web]\nx = 1\n", "[features.web]\nx = 1\n[features]\nhooks = true\n"},
               {"\xEF\xBB\xBFx = 1\n", "\xEF\xBB\xBFx = 1\n[features]\nhooks = true\n"},
               {"x = \"\xC3\xA9\"\n", "x = \"\xC3\xA9\"\n[features]\nhooks = true\n"}});
}

TEST(CodexConfigTest, AMissingLineIsAddedToItsTable) {
  expectEdits(
      {{"[features]\n", "[features]\nhooks = true\n"},
       {"[features]", "[features]\nhooks = true\n"},
       {"[features]\n# about web\nweb = true\n\n[other]\nx = 1\n",
        "[features]\nhooks = true\n# about web\nweb = true\n\n[other]\nx = 1\n"},
       {"  [ features ]  # mine\nweb = 1", "  [ features ]  # mine\nhooks = true\nweb = 1"},
       {"[\"features\"]\nweb = 1\n", "[\"features\"]\nhooks = true\nweb = 1\n"},
       {"\xEF\xBB\xBF[features]\nweb = 1\n", "\xEF\xBB\xBF[features]\nhooks = true\nweb = 1\n"},
       {"[features]\n#hooks = true\n", "[features]\nhooks = true\n#hooks = true\n"},
       {"[features]\nwebhooks = 1\nhooks2 = 1\n",
        "[features]\nhooks = true\nwebhooks = 1\nhooks2 = 1\n"},
       {"[features]\nlist = [\n  [1, 2],\n  [3]\n]\n",
        "[features]\nhooks = true\nlist = [\n  [1, 2],\n  [3]\n]\n"},
       {"[features]\n[other]\nhooks = false\n",
        "[features]\nhooks = true\n[other]\nhooks = false\n"}});
}

TEST(CodexConfigTest, AnotherValueIsRewrittenAndTheCommentStays) {
  expectEdits({{"[features]\nhooks = false\n", "[features]\nhooks = true\n"},
               {"[features]\nhooks=false", "[features]\nhooks = true"},
               {"[features]\nhooks = false  # not yet\nweb = 1\n",
                "[features]\nhooks = true  # not yet\nweb = 1\n"},
               {"[features]\n\thooks\t=\tfalse\n", "[features]\n\thooks = true\n"},
               {"[features]\nhooks = \"true\"\n", "[features]\nhooks = true\n"},
               {"[features]\nhooks = \"a # b\"\n", "[features]\nhooks = true\n"},
               {"[features]\nhooks = 1\n[z]\n", "[features]\nhooks = true\n[z]\n"}});
}

TEST(CodexConfigTest, ReturnsBeforeLineFeedsStay) {
  expectEdits({{"x = 1\r\n", "x = 1\r\n[features]\r\nhooks = true\r\n"},
               {"x = 1\r\ny = 2", "x = 1\r\ny = 2\r\n[features]\r\nhooks = true\r\n"},
               {"[features]\r\nweb = 1\r\n", "[features]\r\nhooks = true\r\nweb = 1\r\n"},
               {"[features]\r\nhooks = false\r\n", "[features]\r\nhooks = true\r\n"},
               {"[features]\r\nhooks = false # no\r\n", "[features]\r\nhooks = true # no\r\n"},
               {"[s]\n[features]\r", "[s]\n[features]\r\nhooks = true\r\n"},
               {"x = 1\n[features]\r\n", "x = 1\n[features]\r\nhooks = true\r\n"}});
}

TEST(CodexConfigTest, WhatIsOnAlreadyIsNotTouchedInWhateverForm) {
  expectUntouched({"[features]\nhooks = true\n", "[features]\nhooks=true # yes",
                   "[features]\r\n  hooks = true\r\n", "features.hooks = true\n",
                   "features = { web = 1, hooks = true }\n", "features = { \"hooks\" = true }",
                   "[features]\n\"hooks\" = true\n", "[ \"features\" ]\n'hooks' = true\n",
                   "\"features\".'hooks' = true", "features . hooks = true\n",
                   "x = \"\"\"\n[features]\nhooks = false\n\"\"\"\nfeatures.hooks = true\n"});
}

TEST(CodexConfigTest, WhatOnlyAPersonCanEditIsRefusedWithWhatToWrite) {
  for (const char* text :
       {"features.hooks = false\n", "features.web = true\n", "\"features\".web = true\n",
        "[features]\n\"hooks\" = false\n", "[features]\nhooks = [\n true\n]\n",
        "[features]\nhooks.on = true\n", "[features.hooks]\nx = 1\n",
        "[features]\nx = \"\"\"\nhooks = false\n\"\"\"\n",
        "[features]\nx = \"\"\"\nhooks = true\n\"\"\"\n"}) {
    EXPECT_THAT(refusal(text), AllOf(StartsWith("/home/u/.codex/config.toml: "),
                                     HasSubstr("by hand"), HasSubstr("\"hooks = true\" below")))
        << text;
  }
  for (const char* text :
       {"features = { web = true }\n", "features = {}\n", "features = { hooks = false }\n"}) {
    EXPECT_THAT(refusal(text),
                AllOf(StartsWith("/home/u/.codex/config.toml: "),
                      HasSubstr("write \"hooks = true\" between those braces by hand")))
        << text;
  }
  for (const char* text : {"features = 5\n", "[[features]]\nweb = 1\n", "features = [1]\n"}) {
    EXPECT_THAT(refusal(text), HasSubstr("its \"features\" is no table")) << text;
  }
  EXPECT_THAT(refusal("x = \"\"\"\n[features]\n\"\"\"\n"),
              HasSubstr("add a table [features] with the line \"hooks = true\" by hand"));
}

TEST(CodexConfigTest, AValueThatIsNoNumberDoesNotCountAsADifference) {
  expectEdits({{"x = nan\n", "x = nan\n[features]\nhooks = true\n"}});
}

TEST(CodexConfigTest, LettersOfAllScriptsAreTextInStringsAndCommentsOnly) {
  expectEdits({{"\"\u00E9\" = \"\u3042\" # \uFB01\n\"\u00E8\" = 1\n",
                "\"\u00E9\" = \"\u3042\" # \uFB01\n\"\u00E8\" = 1\n[features]\nhooks = true\n"}});
  EXPECT_THAT(refusal("features = {}\nx = '\u00E9'\n"), HasSubstr("by hand"));
  EXPECT_THAT(refusal("features = {}\n\u00E9 = 1\n"), StartsWith("edited: ")) << "no TOML";
}

TEST(CodexConfigTest, BytesThatAreNotTextAreRefused) {
  EXPECT_THAT(refusal("x = \"\xFF\"\n"), HasSubstr("not UTF-8 text"));
}

TEST(CodexConfigTest, NestingThatCouldExhaustTheStackIsRefused) {
  std::string deep = "a";
  for (int level = 0; level < 100000; ++level) {
    deep += ".a";
  }
  EXPECT_THAT(refusal(deep + " = 1\n"), HasSubstr("too large to be checked"));
  EXPECT_THAT(refusal("[" + deep + "]\n"), HasSubstr("too large to be checked"));
  const std::string brackets(100000, '[');
  EXPECT_THAT(edited("x = " + brackets), HasSubstr("\n[features]\nhooks = true\n"));
}

// Codex may be more forgiving than the TOML library, and a file that it cannot read does not get
// worse by a line.
TEST(CodexConfigTest, ATextThatIsNoTOMLGetsTheLineAllTheSame) {
  expectEdits(
      {{"this is = = no TOML\n", "this is = = no TOML\n[features]\nhooks = true\n"},
       {"x = 1\nx = 2\n[features]\nhooks = false\n", "x = 1\nx = 2\n[features]\nhooks = true\n"},
       {"[features]\n[features]\n", "[features]\nhooks = true\n[features]\n"}});
}

TEST(CodexConfigTest, ALineThatMendsATextWithoutSwitchingAnythingOnIsRefused) {
  const std::string text = "x = \"\"\"\n[features]\nhooks = \x10\n\"\"\"\n";
  EXPECT_THAT(refusal(text), HasSubstr("by hand"));
}

TEST(CodexConfigTest, ErrorsAreEqualByTheirMessage) {
  EXPECT_EQ(CodexConfigError("a"), CodexConfigError("a"));
  EXPECT_FALSE(CodexConfigError("a") == CodexConfigError("b"));
}

}  // namespace
}  // namespace nodo
