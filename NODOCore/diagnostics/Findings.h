#pragma once

#include <NODOCore/base/Date.h>
#include <NODOCore/base/TextEnum.h>
#include <NODOCore/diagnostics/DoctorReport.h>

#include <array>
#include <optional>
#include <string>
#include <vector>

namespace nodo {

/// What the doctor can find beside what its report says. The texts are stable: programs know a
/// finding by them.
enum class FindingKind {
  hooksPaused,                ///< a person said "not now"
  daemonRefuses,              ///< it serves this user nothing but the status
  daemonOfUserDoesNotProtect  ///< this system lets the daemon's own user sleep under its lock
};

template <>
struct EnumTexts<FindingKind> {
  static constexpr std::array cases{
      EnumText{FindingKind::hooksPaused, "hooksPaused"},
      EnumText{FindingKind::daemonRefuses, "daemonRefuses"},
      EnumText{FindingKind::daemonOfUserDoesNotProtect, "daemonOfUserDoesNotProtect"}};
};

/// Whether a finding keeps nodo from its work.
enum class FindingSeverity { warning, note };

template <>
struct EnumTexts<FindingSeverity> {
  static constexpr std::array cases{EnumText{FindingSeverity::warning, "warning"},
                                    EnumText{FindingSeverity::note, "note"}};
};

/// One thing that a person should know, and what to do about it.
struct Finding {
  FindingKind kind = FindingKind::hooksPaused;
  FindingSeverity severity = FindingSeverity::note;
  std::string what;  ///< one sentence; no control characters
  std::string toDo;  ///< one sentence; no control characters

  bool operator==(const Finding&) const = default;
};

JSONValue encode(const Finding& finding);
void decode(const JSONReader& from, Finding& finding);

/// What was looked at for the findings. Whatever is absent or empty is not known, or as it should
/// be.
struct FindingFacts {
  Date now;
  std::optional<Date> hooksPausedUntil;
  std::optional<std::string> daemonRefusal;  ///< why it refuses this user's requests
  bool daemonLetsItsUserSleep = false;       ///< it is a user's own, whom its lock does not bind
};

/// What the facts mean, warnings first. Pure, but for the time zone that times are told in.
std::vector<Finding> findings(const FindingFacts& facts);

/// The health check as programs read it: the report's members and, last, "findings".
JSONValue encode(const DoctorReport& report, const std::vector<Finding>& findings);

/// The findings for people: two lines for each, with a line feed at the end of each. None of them
/// is like a line that the hook script looks for in the doctor's report.
std::string findingsText(const std::vector<Finding>& findings);

}  // namespace nodo
