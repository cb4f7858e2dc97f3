#include <NODOCore/base/TextEnum.h>
#include <NODOCore/diagnostics/SleepDiagnostics.h>
#include <NODOCore/power/PowerManaging.h>
#include <NODOCore/sensing/AgentDetector.h>
#include <NODOCore/sensing/SystemSnapshot.h>

#include <string_view>
#include <vector>

#include <gtest/gtest.h>

namespace nodo {
namespace {

template <TextEnum Enum>
std::vector<std::string_view> textsOfAllCases() {
  std::vector<std::string_view> texts;
  for (const Enum value : allCases<Enum>()) {
    EXPECT_EQ(fromRawValue<Enum>(rawValue(value)), value);
    texts.push_back(rawValue(value));
  }
  return texts;
}

// They are stored in files and sent to other programs.
TEST(TextEnumTest, TheTextsOfEachEnumerationStandInTheirOrder) {
  using Texts = std::vector<std::string_view>;
  EXPECT_EQ(textsOfAllCases<AgentKind>(), (Texts{"claudeCode", "codex", "grokBuild", "pi"}));
  EXPECT_EQ(textsOfAllCases<PowerSource>(), (Texts{"ac", "battery", "unknown"}));
  EXPECT_EQ(textsOfAllCases<PowerOperationAction>(),
            (Texts{"disable_sleep", "enable_sleep", "sleep_now"}));
  EXPECT_EQ(textsOfAllCases<SleepBlockerScope>(), (Texts{"systemSleep", "displaySleep", "other"}));
}

TEST(TextEnumTest, OtherTextsAreNoCase) {
  for (const std::string_view text :
       {std::string_view(""), std::string_view("Codex"), std::string_view("codex "),
        std::string_view("codex\0", 6), std::string_view("code")}) {
    EXPECT_FALSE(fromRawValue<AgentKind>(text)) << text;
  }
}

TEST(TextEnumDeathTest, AValueThatIsNoCaseStopsTheProcess) {
  EXPECT_DEATH(rawValue(static_cast<AgentKind>(99)), "programming fault: an enumeration");
}

}  // namespace
}  // namespace nodo
