#pragma once

#include <NODOCore/base/JSONValue.h>
#include <NODOCore/state/StateStore.h>
#include <programs/nodoctl/Tool.h>
#include <testing/FakeMachine.h>
#include <testing/TemporaryFolder.h>

#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace nodo::nodoctl {

/// nodoctl on a machine, a clock and an environment that the test sets.
class ToolFixture : public ::testing::Test {
 protected:
  struct Outcome {
    int exitStatus = -1;
    std::string output;
    std::string error;
  };

  Outcome run(const std::vector<std::string>& arguments) {
    std::ostringstream output;
    std::ostringstream error;
    const int status = runTool(
        arguments, {.environment = environment,
                    .machine = {.processListing = machine,
                                .snapshotProvider = machine,
                                .sleepDiagnostics = [this](Date at) { return diagnose(at); }},
                    .now = [this] { return now; },
                    .output = output,
                    .error = error,
                    .startedAs = startedAs});
    return {.exitStatus = status, .output = output.str(), .error = error.str()};
  }

  /// Runs a command that must succeed in silence and gives its one JSON document.
  JSONValue runJSON(const std::vector<std::string>& arguments) {
    const Outcome outcome = run(arguments);
    EXPECT_EQ(outcome.exitStatus, 0);
    EXPECT_EQ(outcome.error, "");
    return JSONValue::parse(outcome.output);
  }

  SleepDiagnosticsReading diagnose(Date at) const {
    SleepDiagnosticsReading reading = diagnostics;
    reading.report.generatedAt = at;
    return reading;
  }

  void advance(double seconds) { now += Seconds(seconds); }

  testing::TemporaryFolder folder;
  Environment environment{{"HOME", folder.path().string()}};
  std::shared_ptr<testing::FakeMachine> machine = std::make_shared<testing::FakeMachine>();
  SleepDiagnosticsReading diagnostics;
  std::string startedAs = "/usr/bin/nodoctl";
  Date now = dateFromSeconds(1769847300);  // 2026-01-31T08:15:00Z
};

}  // namespace nodo::nodoctl
