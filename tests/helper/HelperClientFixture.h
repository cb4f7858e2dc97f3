#pragma once

#include <NODOCore/helper/NODOHelperXPCClient.h>
#include <testing/FakeHelper.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace nodo {

using test::FakeHelper;
using test::FakeHelperRequest;

/// A client of a scripted daemon, whose answers come at once unless a test says otherwise.
class HelperClientFixture : public ::testing::Test {
 protected:
  using Texts = std::vector<std::string>;

  static constexpr double patience = 60;   // never used up by a request that gets its answer
  static constexpr double impatience = 0;  // an answer counts only if it is there already

  const Date noon = dateFromSeconds(1769860800);
  const std::shared_ptr<FakeHelper> helper = std::make_shared<FakeHelper>();
  NODOHelperXPCClient client{"some.service", patience, helper};

  HelperClientFixture() {
    helper->status.generatedAt = noon;
    helper->status.state = NODOState::fresh(noon);
    helper->run = {.generatedAt = noon,
                   .status = reportWithStopReason("after the run"),
                   .operation = std::nullopt,
                   .operations = {},
                   .stateChanged = true};
  }

  /// A status that is told apart by that text.
  StatusReport reportWithStopReason(const std::string& reason) const {
    StatusReport report = helper->status;
    report.state.lastStopReason = reason;
    return report;
  }

  /// What the client reports of a status request, "ok" when it gets one.
  std::string outcomeOfStatus() const {
    return outcomeOf([this] { client.status(); });
  }

  template <class Request>
  static std::string outcomeOf(const Request& request) {
    try {
      request();
      return "ok";
    } catch (const std::exception& error) {
      return error.what();
    }
  }
};

}  // namespace nodo
