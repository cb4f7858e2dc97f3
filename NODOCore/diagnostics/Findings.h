#pragma once

#include <NODOCore/base/Date.h>
#include <NODOCore/base/TextEnum.h>
#include <NODOCore/control/DaemonSettings.h>
#include <NODOCore/diagnostics/AgentRequests.h>
#include <NODOCore/diagnostics/DoctorReport.h>
#include <NODOCore/diagnostics/Headline.h>
#include <NODOCore/diagnostics/SleepDiagnostics.h>
#include <NODOCore/hooks/AgentHookInstaller.h>
#include <NODOCore/hooks/AgentHookLogInspector.h>
#include <NODOCore/hooks/HookObstacles.h>

#include <array>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace nodo {

/// What the doctor can find beside what its report says. The texts are stable: programs know a
/// finding by them.
enum class FindingKind {
  daemonMissing,               ///< it cannot be asked
  safetyAllowsSleep,           ///< although the timer runs: battery or network
  lockMissing,                 ///< although the timer runs
  lockLeft,                    ///< although nothing asks for it
  fallbackActive,              ///< a hook keeps the computer awake by itself, lid open only
  settingsIgnored,             ///< the daemon's file says what it cannot heed
  clockSetBack,                ///< the state was changed at a time that lies ahead
  othersHoldAwake,             ///< though nodo does not
  hooksPaused,                 ///< a person said "not now"
  daemonRefuses,               ///< it serves this user nothing but the status
  daemonOfUserDoesNotProtect,  ///< this system lets the daemon's own user sleep under its lock
  noAgentSetUp,                ///< no agent has hooks of nodo
  hooksMissing,                ///< an agent that is used here has none, others have
  hooksOutdated,               ///< those of another version of nodo
  hooksUnreadable,             ///< an agent's file cannot be read or understood
  hookScriptMissing,           ///< as HookObstacleKind's, from here on
  hookToolMissing,
  hooksSwitchedOff,
  hooksNotTrusted,
  hooksElsewhere,
  agentSilent,      ///< an agent has run for long and asked for nothing
  thermalPressure,  ///< heat allows sleep although the timer runs
  lowPowerMode,     ///< and so does this, on battery
};

template <>
struct EnumTexts<FindingKind> {
  static constexpr std::array cases{
      EnumText{FindingKind::daemonMissing, "daemonMissing"},
      EnumText{FindingKind::safetyAllowsSleep, "safetyAllowsSleep"},
      EnumText{FindingKind::lockMissing, "lockMissing"},
      EnumText{FindingKind::lockLeft, "lockLeft"},
      EnumText{FindingKind::fallbackActive, "fallbackActive"},
      EnumText{FindingKind::settingsIgnored, "settingsIgnored"},
      EnumText{FindingKind::clockSetBack, "clockSetBack"},
      EnumText{FindingKind::othersHoldAwake, "othersHoldAwake"},
      EnumText{FindingKind::hooksPaused, "hooksPaused"},
      EnumText{FindingKind::daemonRefuses, "daemonRefuses"},
      EnumText{FindingKind::daemonOfUserDoesNotProtect, "daemonOfUserDoesNotProtect"},
      EnumText{FindingKind::noAgentSetUp, "noAgentSetUp"},
      EnumText{FindingKind::hooksMissing, "hooksMissing"},
      EnumText{FindingKind::hooksOutdated, "hooksOutdated"},
      EnumText{FindingKind::hooksUnreadable, "hooksUnreadable"},
      EnumText{FindingKind::hookScriptMissing, "hookScriptMissing"},
      EnumText{FindingKind::hookToolMissing, "hookToolMissing"},
      EnumText{FindingKind::hooksSwitchedOff, "hooksSwitchedOff"},
      EnumText{FindingKind::hooksNotTrusted, "hooksNotTrusted"},
      EnumText{FindingKind::hooksElsewhere, "hooksElsewhere"},
      EnumText{FindingKind::agentSilent, "agentSilent"},
      EnumText{FindingKind::thermalPressure, "thermalPressure"},
      EnumText{FindingKind::lowPowerMode, "lowPowerMode"}};
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

void encode(JSONWriter& to, const Finding& finding);
void decode(const JSONReader& from, Finding& finding);

/// What was looked at for the findings. Whatever is absent or empty is not known, or as it should
/// be.
struct FindingFacts {
  Date now;
  std::optional<KeepAwakeFacts> keepAwake;
  bool daemonIsThere = false;  ///< where it cannot be asked: whether something is there
  std::string restartCommand;  ///< that starts the daemon, or starts it anew
  AgentHookFallbackStatus hookFallback;
  std::vector<SleepBlocker> otherHolders;  ///< who holds up sleep, nodo aside
  std::optional<Date> hooksPausedUntil;
  std::optional<std::string> daemonRefusal;  ///< why it refuses this user's requests
  std::optional<SettingsReport> settings;    ///< the daemon's
  bool daemonLetsItsUserSleep = false;       ///< it is a user's own, whom its lock does not bind
  std::optional<AgentHookSetupInspection> hooks;           ///< of the targets that can be read
  std::set<AgentHookTarget> agentsHere;                    ///< whose own folder is in the home
  std::vector<AgentHookTargetInspection> unreadableHooks;  ///< each with its error
  std::vector<HookObstacle> hookObstacles;
  std::vector<SilentAgent> silentAgents;
};

/// What the facts mean, warnings first. Pure, but for the time zone that times are told in.
std::vector<Finding> findings(const FindingFacts& facts);

/// The health check as programs read it: the report's members, then "findings" and "headline".
JSONValue encode(const DoctorReport& report, const std::vector<Finding>& findings,
                 const Headline& headline);

/// The findings for people: two lines for each, with a line feed at the end of each.
std::string findingsText(const std::vector<Finding>& findings);

/// `text` without what the hook script searches the doctor's output for: a path, a process or an
/// error that holds such words must not pass for the report's. A colon in them is spelt "\u{3a}".
std::string unlikeReport(std::string text);

}  // namespace nodo
