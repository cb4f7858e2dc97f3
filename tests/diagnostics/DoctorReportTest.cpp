#include <NODOCore/base/Errors.h>
#include <NODOCore/base/JSONCoding.h>
#include <NODOCore/diagnostics/DoctorReport.h>

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

namespace nodo {
namespace {

using Source = DoctorStatusSource;

std::vector<std::string> keysOf(const DoctorReport& report) {
  std::vector<std::string> keys;
  const JSONValue document = encode(report);
  for (const auto& [key, value] : *document.object()) {
    keys.push_back(key);
  }
  return keys;
}

const DoctorReport full(Source::helper, StatusReport(), false,
                        AgentHookFallbackStatus{.isActive = true,
                                                .logPath = "/tmp/log",
                                                .lastStartedAt = dateFromSeconds(1'769'847'300),
                                                .fallbackSeconds = 300},
                        AgentHookSetupInspection{.hookScriptPath = "/h"});

TEST(DoctorReportTest, ItsVerdictFollowsFromItsFacts) {
  StatusReport owning;
  owning.state.ownsSleepDisable = true;
  const std::vector<std::pair<DoctorReport, bool>> rows{
      {{Source::helper, owning, true, {}, {}}, true},
      {{Source::helper, owning, false, {}, {}}, false},
      {{Source::helper, {}, {}, {}, {}}, true},
      {{Source::local, owning, true, {}, {}}, false}};
  for (const auto& [report, ready] : rows) {
    EXPECT_EQ(report.verdict,
              doctorVerdict(report.report, report.statusSource, report.liveSleepDisabled));
    EXPECT_EQ(isReady(report.verdict), ready) << rawValue(report.verdict);
    EXPECT_TRUE(report.text().ends_with("\n" + std::string(rawValue(report.verdict))));
  }
}

TEST(DoctorReportTest, ItsTextHasAllOfItsFacts) {
  EXPECT_EQ(full.text(),
            DoctorReportFormatter::format(full.report, full.statusSource, full.liveSleepDisabled,
                                          full.hookFallback, full.hookInspection));
  EXPECT_NE(full.text().find("\nHook fallback: active\nmacOS SleepDisabled: off\n"),
            std::string::npos);
  EXPECT_NE(full.text().find("\nHook script path: /h\n"), std::string::npos);
}

TEST(DoctorReportTest, ItsKeysAreInOrderAndWhatIsAbsentIsLeftOut) {
  EXPECT_EQ(keysOf(full), (std::vector<std::string>{"statusSource", "report", "liveSleepDisabled",
                                                    "hookFallback", "hookInspection", "verdict"}));
  EXPECT_EQ(keysOf({Source::local, {}, {}, {}, {}}),
            (std::vector<std::string>{"statusSource", "report", "verdict"}));
}

TEST(DoctorReportTest, ItCanBeReadBack) {
  for (const DoctorReport& report : {full, DoctorReport(Source::local, {}, {}, {}, {})}) {
    EXPECT_EQ(decodeJSON<DoctorReport>(encodeJSON(report, JSONLayout::compact)), report);
  }
  EXPECT_THROW(decodeJSON<DoctorReport>("{}"), DecodingError);
}

TEST(DoctorReportTest, AFallbacksKeysAreInOrderAndItsStartIsLeftOutWhenAbsent) {
  EXPECT_EQ(encodeJSON(*full.hookFallback, JSONLayout::compact),
            R"({"isActive":true,"logPath":"/tmp/log","lastStartedAt":"2026-01-31T08:15:00Z",)"
            R"("fallbackSeconds":300})");
  EXPECT_EQ(encodeJSON(AgentHookFallbackStatus{.logPath = "/l"}, JSONLayout::compact),
            R"({"isActive":false,"logPath":"/l","fallbackSeconds":600})");
}

}  // namespace
}  // namespace nodo
