#include <NODOCore/base/Errors.h>
#include <NODOCore/base/JSONCoding.h>
#include <NODOCore/control/PowerDecision.h>

#include <string>

#include <gtest/gtest.h>

namespace nodo {
namespace {

const std::string text =
    R"({"minimumBatteryPercent":20,"maxManualDurationMinutes":480,"lidOpenGraceSeconds":60,)"
    R"("noRouteGraceSeconds":300})";

const SafetyPolicy policy{.minimumBatteryPercent = 20,
                          .maxManualDurationMinutes = 480,
                          .lidOpenGraceSeconds = 60,
                          .noRouteGraceSeconds = 300};

TEST(SafetyPolicyTest, ItsJSONHasItsKeysInTheirOrder) {
  EXPECT_EQ(encodeJSON(policy, JSONLayout::compact), text);
  EXPECT_EQ(decodeJSON<SafetyPolicy>(text), policy);
}

TEST(SafetyPolicyTest, EveryKeyIsRequired) {
  const JSONValue full = encode(policy);
  for (const auto& missing : *full.object()) {
    JSONValue::Object rest = *full.object();
    std::erase_if(rest, [&](const auto& member) { return member.first == missing.first; });
    EXPECT_THROW(decodeJSON<SafetyPolicy>(jsonText(JSONValue(rest), JSONLayout::compact)),
                 DecodingError)
        << missing.first;
  }
}

TEST(SafetyPolicyTest, ASwitchThatIsOffIsLeftOutAsEarlierVersionsKnowNone) {
  const struct {
    bool heat;
    bool lowPower;
    const char* members;
  } cases[] = {{true, false, R"(,"stopAtThermalPressure":true)"},
               {false, true, R"(,"stopInLowPowerMode":true)"},
               {true, true, R"(,"stopAtThermalPressure":true,"stopInLowPowerMode":true)"}};

  for (const auto& [heat, lowPower, members] : cases) {
    SafetyPolicy switched = policy;
    switched.stopAtThermalPressure = heat;
    switched.stopInLowPowerMode = lowPower;
    const std::string document = text.substr(0, text.size() - 1) + members + "}";
    EXPECT_EQ(encodeJSON(switched, JSONLayout::compact), document);
    EXPECT_EQ(decodeJSON<SafetyPolicy>(document), switched);
    EXPECT_NE(switched, policy);
  }
  EXPECT_EQ(
      decodeJSON<SafetyPolicy>(text.substr(0, text.size() - 1) +
                               R"(,"stopAtThermalPressure":false,"stopInLowPowerMode":null})"),
      policy);
  EXPECT_THROW(
      decodeJSON<SafetyPolicy>(text.substr(0, text.size() - 1) + R"(,"stopAtThermalPressure":1})"),
      DecodingError);
}

TEST(SafetyPolicyTest, ValuesAreWholeNumbersAndNothingElse) {
  for (const std::string value : {"1.5", "true", "\"20\"", "null", "[]", "9223372036854775808"}) {
    EXPECT_THROW(decodeJSON<SafetyPolicy>(text.substr(0, text.size() - 1) +
                                          ",\"minimumBatteryPercent\":" + value + "}"),
                 DecodingError)
        << value;
  }
}

TEST(SafetyPolicyTest, NothingIsClamped) {
  const SafetyPolicy extreme{.minimumBatteryPercent = 1000,
                             .maxManualDurationMinutes = -1,
                             .lidOpenGraceSeconds = -9223372036854775807 - 1,
                             .noRouteGraceSeconds = 9223372036854775807};
  EXPECT_EQ(decodeJSON<SafetyPolicy>(encodeJSON(extreme, JSONLayout::compact)), extreme);
}

TEST(SafetyPolicyTest, EveryFieldCountsForEquality) {
  SafetyPolicy other = policy;
  EXPECT_EQ(other, policy);
  other.minimumBatteryPercent = 21;
  EXPECT_NE(other, policy);
  other = policy;
  other.maxManualDurationMinutes = 481;
  EXPECT_NE(other, policy);
  other = policy;
  other.lidOpenGraceSeconds = 61;
  EXPECT_NE(other, policy);
  other = policy;
  other.noRouteGraceSeconds = 301;
  EXPECT_NE(other, policy);
}

}  // namespace
}  // namespace nodo
