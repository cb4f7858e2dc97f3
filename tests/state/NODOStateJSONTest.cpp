#include <NODOCore/base/Errors.h>
#include <NODOCore/base/JSONCoding.h>
#include <NODOCore/state/NODOState.h>

#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace nodo {
namespace {

using Buckets = std::vector<TriggerActivityBucket>;
using Requesters = std::vector<ActivationRequester>;

const Date eight = dateFromSeconds(1769846400);  // 2026-01-31 08:00:00

const std::string claude = R"({"name":"Claude Code","requestedAt":"2026-01-31T08:00:00Z"})";
const std::string codex = R"({"name":"Codex","requestedAt":"2026-01-31T08:01:30Z"})";

NODOState decoded(const std::string& text) {
  return decodeJSON<NODOState>(text);
}

ActivationRequester claudeAtEight() {
  return {"Claude Code", std::nullopt, std::nullopt, eight};
}

ActivationRequester codexLater() {
  return {"Codex", std::nullopt, std::nullopt, eight + Seconds(90)};
}

void expectError(const std::string& text, const std::string& path) {
  try {
    decoded(text);
    ADD_FAILURE() << text << " was decoded";
  } catch (const DecodingError& error) {
    EXPECT_EQ(error.path(), path) << text;
  }
}

NODOState fullState() {
  const PowerOperationAudit audit(PowerOperationAction::disableSleep, eight, "enable:manual_timer",
                                  false, 0, "tool 1");
  return {.manualUntil = eight + Seconds(600),
          .ownsSleepDisable = true,
          .lastActivationReason = "manual_timer",
          .lastStopReason = "user_stop",
          .lastRequester = codexLater(),
          .recentRequesters = {codexLater(), claudeAtEight()},
          .triggerHistory = {claudeAtEight(), codexLater()},
          .triggerActivityBuckets = {{eight, 1}, {eight + Seconds(60), 4}},
          .lastPowerOperation = audit,
          .powerOperationHistory = {audit},
          .noRouteUnavailableSince = eight + Seconds(1),
          .lidOpenedAt = eight + Seconds(2),
          .lastLidClosed = false,
          .createdAt = eight - Seconds(1000),
          .updatedAt = eight + Seconds(3),
          .seriousHeatSince = eight + Seconds(4)};
}

TEST(NODOStateJSONTest, AnEmptyObjectIsAnEmptyStateOfNow) {
  const Date before = currentDate();
  const NODOState state = decoded("{}");
  const Date after = currentDate();
  EXPECT_GE(state.createdAt, before);
  EXPECT_LE(state.createdAt, after);
  EXPECT_EQ(state, NODOState::fresh(state.createdAt));
}

TEST(NODOStateJSONTest, AFreshStateIsEmptyAndDated) {
  NODOState expected;
  expected.createdAt = eight;
  expected.updatedAt = eight;
  EXPECT_EQ(NODOState::fresh(eight), expected);
  EXPECT_EQ(encodeJSON(NODOState::fresh(eight), JSONLayout::compact),
            R"({"ownsSleepDisable":false,"recentRequesters":[],"triggerHistory":[],)"
            R"("triggerActivityBuckets":[],"powerOperationHistory":[],)"
            R"("createdAt":"2026-01-31T08:00:00Z","updatedAt":"2026-01-31T08:00:00Z"})");
}

TEST(NODOStateJSONTest, AFullStateComesBackEqual) {
  for (const JSONLayout layout :
       {JSONLayout::compact, JSONLayout::pretty, JSONLayout::prettySorted}) {
    EXPECT_EQ(decoded(encodeJSON(fullState(), layout)), fullState());
  }
}

TEST(NODOStateJSONTest, ItsKeysStandInTheirOrder) {
  const JSONValue object = encode(fullState());
  std::vector<std::string> keys;
  for (const auto& member : *object.object()) {
    keys.push_back(member.first);
  }
  EXPECT_EQ(keys,
            (std::vector<std::string>{
                "manualUntil", "ownsSleepDisable", "lastActivationReason", "lastStopReason",
                "lastRequester", "recentRequesters", "triggerHistory", "triggerActivityBuckets",
                "lastPowerOperation", "powerOperationHistory", "noRouteUnavailableSince",
                "lidOpenedAt", "lastLidClosed", "createdAt", "updatedAt", "seriousHeatSince"}));
}

TEST(NODOStateJSONTest, EachKeyAloneMayBeMissing) {
  const JSONValue full = encode(fullState());
  for (const auto& missing : *full.object()) {
    JSONValue::Object rest = *full.object();
    std::erase_if(rest, [&](const auto& member) { return member.first == missing.first; });
    EXPECT_NO_THROW(decoded(jsonText(JSONValue(rest), JSONLayout::compact))) << missing.first;
  }
}

TEST(NODOStateJSONTest, NullInAnyKeyCountsAsMissing) {
  const JSONValue full = encode(fullState());
  for (const auto& member : *full.object()) {
    EXPECT_NO_THROW(decoded("{\"" + member.first + "\":null}")) << member.first;
  }
  EXPECT_EQ(decoded(R"({"manualUntil":null,"createdAt":"2026-01-31T08:00:00Z"})"),
            NODOState::fresh(eight));
}

TEST(NODOStateJSONTest, TheRecentRequestersAreDerivedFromTheLast) {
  EXPECT_EQ(decoded("{\"lastRequester\":" + claude + "}").recentRequesters,
            Requesters{claudeAtEight()});
  EXPECT_EQ(
      decoded("{\"lastRequester\":" + claude + ",\"recentRequesters\":null}").recentRequesters,
      Requesters{claudeAtEight()});
  EXPECT_EQ(decoded("{\"lastRequester\":" + claude + ",\"recentRequesters\":[]}").recentRequesters,
            Requesters{});
}

TEST(NODOStateJSONTest, TheTriggerHistoryIsDerivedFromTheRecentRequesters) {
  const std::string recent = "\"recentRequesters\":[" + codex + "," + claude + "]";
  const Requesters expected = {codexLater(), claudeAtEight()};
  EXPECT_EQ(decoded("{" + recent + "}").triggerHistory, expected);
  EXPECT_EQ(decoded("{" + recent + ",\"triggerHistory\":[]}").triggerHistory, expected);
  EXPECT_EQ(decoded("{" + recent + ",\"triggerHistory\":[" + codex + "]}").triggerHistory,
            Requesters{codexLater()});
}

TEST(NODOStateJSONTest, ALastRequesterAloneGivesAllThreeHistories) {
  const NODOState state = decoded("{\"lastRequester\":" + claude + "}");
  EXPECT_EQ(state.recentRequesters, Requesters{claudeAtEight()});
  EXPECT_EQ(state.triggerHistory, Requesters{claudeAtEight()});
  EXPECT_EQ(state.triggerActivityBuckets, (Buckets{{eight, 1}}));
}

TEST(NODOStateJSONTest, TheMinutesAreDerivedFromTheTriggerHistory) {
  const std::string history =
      "{\"triggerHistory\":[" + claude + "," + codex + "],\"triggerActivityBuckets\":";
  const Buckets expected = {{eight, 1}, {eight + Seconds(60), 1}};
  EXPECT_EQ(decoded(history + "[]}").triggerActivityBuckets, expected);
  EXPECT_EQ(decoded(history + "null}").triggerActivityBuckets, expected);
}

TEST(NODOStateJSONTest, StoredMinutesArePutInOrder) {
  const std::string stored =
      R"({"triggerActivityBuckets":[{"startedAt":"2026-01-31T08:01:00Z","count":0},)"
      R"({"startedAt":"2026-01-31T08:00:59Z","count":2},{"startedAt":"2026-01-31T08:00:00Z","count":3}]})";
  EXPECT_EQ(decoded(stored).triggerActivityBuckets, (Buckets{{eight, 5}}));
}

TEST(NODOStateJSONTest, StoredMinutesWithoutARequestStayEmpty) {
  const std::string stored =
      "{\"triggerHistory\":[" + claude +
      R"(],"triggerActivityBuckets":[{"startedAt":"2026-01-31T08:00:00Z","count":0}]})";
  EXPECT_EQ(decoded(stored).triggerActivityBuckets, Buckets{});
}

TEST(NODOStateJSONTest, AMissingUpdateTimeIsTheCreationTime) {
  EXPECT_EQ(decoded(R"({"createdAt":"2026-01-31T08:00:00Z"})").updatedAt, eight);
  const NODOState updatedOnly = decoded(R"({"updatedAt":"2026-01-31T08:00:00Z"})");
  EXPECT_EQ(updatedOnly.updatedAt, eight);
  EXPECT_GT(updatedOnly.createdAt, eight);
}

TEST(NODOStateJSONTest, AKeyOfTheWrongTypeIsAnErrorThatNamesIt) {
  const std::vector<std::string> notATime = {"5", "true", "[]", "{}", "\"now\"", "\"\""};
  const std::vector<std::string> notATruth = {"0", "1", "\"true\"", "[]", "{}"};
  const std::vector<std::string> notAText = {"5", "false", "[]", "{}"};
  const std::vector<std::string> notAnObject = {"5", "true", "\"x\"", "[]"};
  const std::vector<std::string> notAList = {"5", "true", "\"x\"", "{}"};

  const struct {
    const char* key;
    const std::vector<std::string>& values;
  } cases[] = {
      {"manualUntil", notATime},
      {"ownsSleepDisable", notATruth},
      {"lastActivationReason", notAText},
      {"lastStopReason", notAText},
      {"lastRequester", notAnObject},
      {"recentRequesters", notAList},
      {"triggerHistory", notAList},
      {"triggerActivityBuckets", notAList},
      {"lastPowerOperation", notAnObject},
      {"powerOperationHistory", notAList},
      {"noRouteUnavailableSince", notATime},
      {"lidOpenedAt", notATime},
      {"lastLidClosed", notATruth},
      {"createdAt", notATime},
      {"updatedAt", notATime},
      {"seriousHeatSince", notATime},
  };

  for (const auto& each : cases) {
    for (const std::string& value : each.values) {
      expectError("{\"" + std::string(each.key) + "\":" + value + "}", each.key);
    }
  }
}

TEST(NODOStateJSONTest, NestedRecordsAreStrict) {
  expectError(R"({"lastRequester":{"name":"a"}})", "lastRequester.requestedAt");
  expectError(R"({"lastRequester":{"requestedAt":"2026-01-31T08:00:00Z"}})", "lastRequester.name");
  expectError("{\"triggerHistory\":[" + claude + "," + claude + "," + claude + ",{}]}",
              "triggerHistory[3].name");
  expectError(R"({"recentRequesters":[null]})", "recentRequesters[0]");
  expectError(R"({"triggerActivityBuckets":[{"count":1}]})", "triggerActivityBuckets[0].startedAt");
  expectError(R"({"triggerActivityBuckets":[{"startedAt":"2026-01-31T08:00:00Z"}]})",
              "triggerActivityBuckets[0].count");
  expectError(R"({"triggerActivityBuckets":[{"startedAt":"2026-01-31T08:00:00Z","count":1.5}]})",
              "triggerActivityBuckets[0].count");
  expectError(R"({"lastPowerOperation":{}})", "lastPowerOperation.action");
  expectError(R"({"powerOperationHistory":[{"action":"explode"}]})",
              "powerOperationHistory[0].action");
  expectError(R"({"lastRequester":{"name":"a","requestedAt":"2026-01-31T08:00:00Z","event":1}})",
              "lastRequester.event");
}

TEST(NODOStateJSONTest, AnythingButAnObjectIsAnError) {
  for (const char* text : {"[]", "null", "5", "\"{}\"", "true"}) {
    expectError(text, "");
  }
}

TEST(NODOStateJSONTest, UnknownKeysAreIgnored) {
  EXPECT_EQ(decoded(R"({"createdAt":"2026-01-31T08:00:00Z","ofTheFuture":{"manualUntil":5}})"),
            NODOState::fresh(eight));
}

}  // namespace
}  // namespace nodo
