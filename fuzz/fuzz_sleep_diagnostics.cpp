#include <NODOCore/base/JSONCoding.h>
#include <NODOCore/base/Text.h>
#include <NODOCore/diagnostics/SleepDiagnostics.h>

#include <algorithm>
#include <string>

#include <fuzz/Fuzzing.h>

namespace nodo::fuzzing {
namespace {

using Inspector = SleepDiagnosticsInspector;

void checkBlocker(const SleepBlocker& blocker) {
  require(hasPrefix(blocker.rawLine, "pid "), "a blocker's line begins with \"pid \"");
  require(trimmedBlanks(blocker.rawLine) == blocker.rawLine, "a blocker's line is trimmed");
  require(Inspector::parseBlocker(blocker.rawLine) == blocker, "a blocker follows from its line");
  require(blocker.pid >= 0, "no process identifier is negative");
  require(!blocker.processName.empty() && !blocker.assertionType.empty(),
          "what could not be read has a placeholder");
  require(blocker.scope == sleepBlockerScope(blocker.assertionType), "the type decides the scope");
}

void checkReport(const SleepDiagnosticsReport& report, std::string_view assertions) {
  const auto lines = splitLines(assertions);
  const auto owned = std::count_if(lines.begin(), lines.end(), [](std::string_view line) {
    return hasPrefix(trimmedBlanks(line), "pid ");
  });
  require(static_cast<std::size_t>(owned) == report.blockers.size(), "no blocker is dropped");
  std::for_each(report.blockers.begin(), report.blockers.end(), checkBlocker);
  for (const auto& setting : {report.sleepLine, report.displaySleepLine}) {
    require(!setting || trimmedBlanks(*setting) == *setting, "a setting's line is trimmed");
  }
}

void checkTexts(std::string_view live, std::string_view assertions, bool areValidUTF8) {
  const auto report = Inspector::parse(live, assertions, dateFromSeconds(1769847300));
  checkReport(report, assertions);
  if (areValidUTF8) {
    require(decodeJSON<SleepDiagnosticsReport>(encodeJSON(report, JSONLayout::compact)) == report,
            "a report reads back equal");
  }
}

}  // namespace
}  // namespace nodo::fuzzing

// The live settings and the assertions, between them a line "%%".
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const auto [live, assertions] = nodo::fuzzing::twoTexts(nodo::fuzzing::textOf(data, size));
  nodo::fuzzing::checkTexts(live, assertions, false);
  nodo::fuzzing::checkTexts(nodo::repairedUTF8(live), nodo::repairedUTF8(assertions), true);
  return 0;
}
