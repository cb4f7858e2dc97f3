#include <NODOCore/base/JSONCoding.h>
#include <NODOCore/base/RE2Text.h>
#include <NODOCore/base/Text.h>
#include <NODOCore/diagnostics/SleepDiagnostics.h>

#include <optional>
#include <string>
#include <vector>

namespace nodo {

std::string SleepBlocker::id() const {
  return std::to_string(pid) + "-" + assertionType + "-" + assertionName;
}

SleepBlockerScope sleepBlockerScope(std::string_view assertionType) {
  if (assertionType == "NoDisplaySleepAssertion" ||
      assertionType == "PreventUserIdleDisplaySleep") {
    return SleepBlockerScope::displaySleep;
  }
  if (assertionType == "NoIdleSleepAssertion" || assertionType == "PreventUserIdleSystemSleep" ||
      assertionType == "PreventSystemSleep") {
    return SleepBlockerScope::systemSleep;
  }
  return SleepBlockerScope::other;
}

NODO_JSON_RECORD(SleepBlocker, fields, blocker) {
  fields.required("pid", blocker.pid);
  fields.required("processName", blocker.processName);
  fields.required("duration", blocker.duration);
  fields.required("assertionType", blocker.assertionType);
  fields.required("assertionName", blocker.assertionName);
  fields.required("scope", blocker.scope);
  fields.required("rawLine", blocker.rawLine);
}

NODO_JSON_RECORD(SleepDiagnosticsReport, fields, report) {
  fields.required("generatedAt", report.generatedAt);
  fields.optional("sleepDisabled", report.sleepDisabled);
  fields.optional("sleepLine", report.sleepLine);
  fields.optional("displaySleepLine", report.displaySleepLine);
  fields.required("assertionStatuses", report.assertionStatuses);
  fields.required("blockers", report.blockers);
}

namespace {

using Lines = std::vector<std::string_view>;

// pid\s+(\d+)\(([^)]+)\):\s+\[[^\]]+\]\s+([0-9:]+)\s+([A-Za-z0-9]+)\s+named:\s+"([^"]*)"
// where white space and digits are Unicode's, which RE2's own \s and \d are not.
const RE2& blockerPattern() {
  static const std::string space =
      "[\\x{9}-\\x{d} "
      "\\x{85}\\x{a0}\\x{1680}\\x{2000}-\\x{200a}\\x{2028}\\x{2029}\\x{202f}\\x{205f}"
      "\\x{3000}]+";
  static const RE2 pattern("pid" + space + "(\\p{Nd}+)\\(([^)]+)\\):" + space + "\\[[^\\]]+\\]" +
                           space + "([0-9:]+)" + space + "([A-Za-z0-9]+)" + space +
                           "named:" + space + "\"([^\"]*)\"");
  return pattern;
}

std::optional<bool> parseSleepLock(const Lines& live) {
  for (const std::string_view line : live) {
    const auto fields = splitFields(line);
    if (fields.size() >= 2 && fields[0] == "SleepDisabled") {
      return fields[1] == "1";
    }
  }
  return std::nullopt;
}

std::optional<std::string> parseSetting(const Lines& live, const std::string& key) {
  for (const std::string_view line : live) {
    const std::string_view setting = trimmedBlanks(line);
    if (hasPrefix(setting, key + " ") || hasPrefix(setting, key + "\t")) {
      return std::string(setting);
    }
  }
  return std::nullopt;
}

std::map<std::string, bool> parseStatuses(const Lines& assertions) {
  std::map<std::string, bool> statuses;
  bool inside = false;
  for (const std::string_view line : assertions) {
    const std::string_view text = trimmedBlanks(line);
    if (!inside) {
      inside = text == "Assertion status system-wide:";
      continue;
    }
    if (text == "Listed by owning process:") {
      break;
    }
    const auto fields = splitFields(line);
    if (fields.size() == 2) {
      statuses[std::string(fields[0])] = fields[1] == "1";
    }
  }
  return statuses;
}

std::vector<SleepBlocker> parseBlockers(const Lines& assertions) {
  std::vector<SleepBlocker> blockers;
  for (const std::string_view line : assertions) {
    const std::string_view text = trimmedBlanks(line);
    if (hasPrefix(text, "pid ")) {
      blockers.push_back(SleepDiagnosticsInspector::parseBlocker(text));
    }
  }
  return blockers;
}

}  // namespace

SleepDiagnosticsReport SleepDiagnosticsInspector::report(Date now) const {
  const CommandOutput live = runner->run("/usr/bin/pmset", {"-g", "live"});
  const CommandOutput assertions = runner->run("/usr/bin/pmset", {"-g", "assertions"});
  return parse(live.standardOutput, assertions.standardOutput, now);
}

SleepDiagnosticsReport SleepDiagnosticsInspector::parse(std::string_view liveOutput,
                                                        std::string_view assertionsOutput,
                                                        Date generatedAt) {
  const Lines live = splitLines(liveOutput);
  const Lines assertions = splitLines(assertionsOutput);
  return {.generatedAt = generatedAt,
          .sleepDisabled = parseSleepLock(live),
          .sleepLine = parseSetting(live, "sleep"),
          .displaySleepLine = parseSetting(live, "displaysleep"),
          .assertionStatuses = parseStatuses(assertions),
          .blockers = parseBlockers(assertions)};
}

SleepBlocker SleepDiagnosticsInspector::parseBlocker(std::string_view line) {
  SleepBlocker blocker;
  blocker.rawLine = std::string(line);
  std::string pid;
  if (RE2::PartialMatch(re2Text(line), blockerPattern(), &pid, &blocker.processName,
                        &blocker.duration, &blocker.assertionType, &blocker.assertionName)) {
    blocker.pid = integerFromText<std::int64_t>(pid).value_or(0);
    blocker.scope = sleepBlockerScope(blocker.assertionType);
  }
  return blocker;
}

}  // namespace nodo
