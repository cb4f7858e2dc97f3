#include <NODOCore/base/Errors.h>
#include <NODOCore/base/JSONCoding.h>
#include <NODOCore/base/Text.h>
#include <NODOCore/helper/NODOHelperXPCProtocol.h>

#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace nodo {
namespace {

using Response = NODOHelperCommandResponse;

const Date noon = dateFromSeconds(1769860800);

std::string written(const Response& response) {
  return encodeJSON(response, JSONLayout::compact);
}

Response read(const std::string& text) {
  return decodeJSON<Response>(text);
}

StatusReport someStatus() {
  StatusReport status;
  status.generatedAt = noon;
  status.state = NODOState::fresh(noon);
  status.state.manualUntil = noon + Seconds(60);
  status.manualRemainingSeconds = 60;
  return status;
}

DaemonRunReport someRun() {
  DaemonRunReport run;
  run.generatedAt = noon;
  run.status = someStatus();
  run.stateChanged = true;
  return run;
}

std::vector<std::string> keysOf(const Response& response) {
  const JSONValue document = JSONValue::parse(written(response));
  std::vector<std::string> keys;
  for (const auto& [key, value] : *document.object()) {
    keys.push_back(key);
  }
  return keys;
}

TEST(NODOHelperCommandResponseTest, EachConstructorSetsItsOneField) {
  EXPECT_EQ(Response::success(someStatus()),
            (Response{.status = someStatus(), .run = std::nullopt, .error = std::nullopt}));
  EXPECT_EQ(Response::success(someRun()),
            (Response{.status = std::nullopt, .run = someRun(), .error = std::nullopt}));
  EXPECT_EQ(Response::failure(std::runtime_error("no")),
            (Response{.status = std::nullopt, .run = std::nullopt, .error = "no"}));
}

TEST(NODOHelperCommandResponseTest, OnlyThePresentFieldsAreWrittenInTheirOrder) {
  using Keys = std::vector<std::string>;
  EXPECT_EQ(keysOf(Response::success(someStatus())), Keys{"status"});
  EXPECT_EQ(keysOf(Response::success(someRun())), Keys{"run"});
  EXPECT_EQ(keysOf(Response::failure(std::runtime_error("no"))), Keys{"error"});
  EXPECT_EQ(keysOf({.status = someStatus(), .run = someRun(), .error = "no"}),
            (Keys{"status", "run", "error"}));
}

TEST(NODOHelperCommandResponseTest, AnEmptyObjectHasNoFieldsBothWays) {
  EXPECT_EQ(read("{}"), Response{});
  EXPECT_EQ(written(Response{}), "{}");
}

TEST(NODOHelperCommandResponseTest, AnErrorWithoutTextIsStillAnError) {
  const Response response = Response::failure(std::runtime_error(""));
  EXPECT_EQ(written(response), R"({"error":""})");
  EXPECT_EQ(read(R"({"error":""})").error, "");
}

TEST(NODOHelperCommandResponseTest, AnErrorThatIsNoUTF8IsSentAsValidText) {
  const std::string text = written(Response::failure(std::runtime_error("no file \xFF")));
  EXPECT_TRUE(isValidUTF8(text));
  EXPECT_EQ(read(text).error, "no file \uFFFD");
}

TEST(NODOHelperCommandResponseTest, WhatIsWrittenReadsBackEqual) {
  for (const Response& response :
       {Response::success(someStatus()), Response::success(someRun()),
        Response::failure(std::runtime_error("a \"quoted\"\nreason")),
        Response{.status = someStatus(), .run = someRun(), .error = "all of them"}, Response{}}) {
    EXPECT_EQ(read(written(response)), response) << written(response);
  }
}

TEST(NODOHelperCommandResponseTest, DatesTravelAsISO8601Text) {
  EXPECT_NE(
      written(Response::success(someStatus())).find(R"("generatedAt":"2026-01-31T12:00:00Z")"),
      std::string::npos);
}

TEST(NODOHelperCommandResponseTest, NullAndUnknownKeysCountAsAbsent) {
  EXPECT_EQ(read(R"({"status":null,"run":null,"error":null,"later":[1]})"), Response{});
}

TEST(NODOHelperCommandResponseTest, OtherDocumentsAreNoEnvelope) {
  for (const char* text :
       {"", "null", "[]", "\"error\"", "{", "{} {}", R"({"error":5})", R"({"status":{}})",
        R"({"status":[]})", R"({"run":"x"})", "\xEF\xBB\xBF[]"}) {
    EXPECT_THROW(read(text), DecodingError) << text;
  }
}

TEST(NODOHelperCommandResponseTest, AFaultInsideAReportIsNamedByItsPath) {
  try {
    read(R"({"run":{"generatedAt":"yesterday"}})");
    FAIL() << "the date was accepted";
  } catch (const DecodingError& error) {
    EXPECT_EQ(error.path(), "run.generatedAt");
  }
}

TEST(NODOServiceConstantsTest, TheDaemonsLabelIsTheServicesName) {
  EXPECT_EQ(NODOServiceConstants::helperMachServiceName, NODOServiceConstants::helperLabel);
  EXPECT_EQ(NODOServiceConstants::helperPlistName,
            std::string(NODOServiceConstants::helperLabel) + ".plist");
}

TEST(NODOServiceConstantsTest, TheAppAndThenTheToolAreTrusted) {
  const auto& trusted = NODOServiceConstants::trustedXPCClientBundleIdentifiers();
  ASSERT_EQ(trusted.size(), 2U);
  EXPECT_EQ(trusted[0], NODOServiceConstants::appBundleIdentifier);
  EXPECT_EQ(trusted[1], NODOServiceConstants::ctlBundleIdentifier);
  EXPECT_EQ(&trusted, &NODOServiceConstants::trustedXPCClientBundleIdentifiers());
}

}  // namespace
}  // namespace nodo
