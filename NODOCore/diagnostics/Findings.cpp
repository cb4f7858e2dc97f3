#include <NODOCore/base/JSONCoding.h>
#include <NODOCore/base/LocalTime.h>
#include <NODOCore/base/Text.h>
#include <NODOCore/diagnostics/Findings.h>

#include <algorithm>
#include <utility>

#include <fmt/format.h>

namespace nodo {

NODO_JSON_RECORD(Finding, fields, finding) {
  fields.required("kind", finding.kind);
  fields.required("severity", finding.severity);
  fields.required("what", finding.what);
  fields.required("toDo", finding.toDo);
}

std::vector<Finding> findings(const FindingFacts& facts) {
  std::vector<Finding> found;
  const auto add = [&found](FindingKind kind, FindingSeverity severity, const std::string& what,
                            const std::string& toDo) {
    found.push_back({.kind = kind,
                     .severity = severity,
                     .what = escapedForDisplay(what),
                     .toDo = escapedForDisplay(toDo)});
  };
  if (facts.hooksPausedUntil) {
    add(FindingKind::hooksPaused, FindingSeverity::note,
        fmt::format("The agents' hooks are paused until {}.",
                    clockText(*facts.hooksPausedUntil, facts.now)),
        "'nodoctl resume' ends that.");
  }
  if (facts.daemonRefusal) {
    add(FindingKind::daemonRefuses, FindingSeverity::warning,
        fmt::format("The daemon refuses requests of this user: {}.", *facts.daemonRefusal),
        "Where polkit runs, the group nodo may ask from anywhere: join it with "
        "'sudo usermod -aG nodo \"$USER\"', then log in again.");
  }
  if (facts.daemonLetsItsUserSleep) {
    add(FindingKind::daemonOfUserDoesNotProtect, FindingSeverity::warning,
        "The daemon is not the system's but a user's, and systemd-logind before version 257 lets "
        "that user and their desktop suspend under its lock.",
        "Install the system's daemon: the package nodo, then 'sudo systemctl enable --now nodod'.");
  }
  std::stable_partition(found.begin(), found.end(), [](const Finding& finding) {
    return finding.severity == FindingSeverity::warning;
  });
  return found;
}

JSONValue encode(const DoctorReport& report, const std::vector<Finding>& findings) {
  JSONValue document = encode(report);
  document.setMember("findings", encode(findings));
  return document;
}

std::string findingsText(const std::vector<Finding>& findings) {
  std::string text;
  for (const Finding& finding : findings) {
    text += fmt::format("{}: {}\n  {}\n",
                        finding.severity == FindingSeverity::warning ? "Problem" : "Note",
                        finding.what, finding.toDo);
  }
  return text;
}

}  // namespace nodo
