#include <NODOCore/base/Errors.h>
#include <NODOCore/base/JSONCoding.h>
#include <NODOCore/base/LocalTime.h>
#include <NODOCore/base/Text.h>
#include <NODOCore/diagnostics/Findings.h>

#include <algorithm>
#include <cstddef>
#include <string_view>
#include <utility>

#include <fmt/format.h>

namespace nodo {

NODO_JSON_RECORD(Finding, fields, finding) {
  fields.required("kind", finding.kind);
  fields.required("severity", finding.severity);
  fields.required("what", finding.what);
  fields.required("toDo", finding.toDo);
}

namespace {

FindingKind kindOf(HookObstacleKind kind) {
  switch (kind) {
    case HookObstacleKind::scriptMissing:
      return FindingKind::hookScriptMissing;
    case HookObstacleKind::toolMissing:
      return FindingKind::hookToolMissing;
    case HookObstacleKind::switchedOff:
      return FindingKind::hooksSwitchedOff;
    case HookObstacleKind::notTrusted:
      return FindingKind::hooksNotTrusted;
    case HookObstacleKind::configuredElsewhere:
      return FindingKind::hooksElsewhere;
  }
  programmingFault("an obstacle to hooks that is none of its cases");
}

// What an obstacle is, and what to do about it.
std::pair<std::string, std::string> wordsFor(const HookObstacle& obstacle) {
  const std::string& path = obstacle.path;
  const Agent& agent = agentOf(obstacle.target.value_or(AgentHookTarget::claude));
  switch (obstacle.kind) {
    case HookObstacleKind::scriptMissing:
      return {
          fmt::format("Agents run the hook script {}, which is not there or not executable.", path),
          "'nodoctl hooks install' puts it there."};
    case HookObstacleKind::toolMissing:
      return {fmt::format("The hooks find no nodoctl: {} is no program that can be run.", path),
              "'nodoctl hooks install' makes them run this one."};
    case HookObstacleKind::switchedOff:
      return {
          fmt::format("{} runs no hooks of nodo: {} switches them off.", agent.displayName, path),
          agent.hasFeatureSwitch
              ? "Switch them on with /hooks in Codex, or with \"hooks = true\" below "
                "[features] in that file."
              : "Take \"disableAllHooks\" or \"allowManagedHooksOnly\" out of that file, or "
                "ask whoever manages it."};
    case HookObstacleKind::notTrusted:
      return {fmt::format("{} does not run nodo's hooks: {} does not say that you trust them.",
                          agent.displayName, path),
              "Type /hooks in Codex, review them and trust them."};
    case HookObstacleKind::configuredElsewhere:
      return {fmt::format("{} is configured in {}, as {} says, and no hooks of nodo are there.",
                          agent.displayName, path, agent.folderVariable),
              fmt::format("Unset {} where the agent is started, or take \"hooks\" over from ~/{}.",
                          agent.folderVariable, agent.configurationFile)};
  }
  programmingFault("an obstacle to hooks that is none of its cases");
}

std::string spanText(Seconds span) {
  const std::int64_t minutes = wholeSeconds(span) / 60;
  return minutes < 120 ? fmt::format("{} minutes", minutes) : fmt::format("{} hours", minutes / 60);
}

std::string toDoWith(const SilentAgent& silent) {
  return fmt::format(
      "If it has worked meanwhile, restart it: agents read their hooks when they start{}.",
      agentOf(silent.kind).hasFeatureSwitch ? "; /hooks shows them" : "");
}

std::string listed(const std::vector<SleepBlocker>& holders) {
  constexpr std::size_t most = 3;
  std::string text;
  for (std::size_t i = 0; i < std::min(most, holders.size()); ++i) {
    text +=
        fmt::format("{}{} (pid {})", i == 0 ? "" : ", ", holders[i].processName, holders[i].pid);
  }
  return holders.size() <= most ? text : fmt::format("{} and {} more", text, holders.size() - most);
}

// A clock is put right by less than this now and then.
constexpr Seconds usualStep{60};

class Finder {
 public:
  explicit Finder(const FindingFacts& facts) : facts_(facts) {}

  // Warnings first.
  std::vector<Finding> find() {
    if (facts_.keepAwake) {
      const HeadlineKind kind = headline(*facts_.keepAwake).kind;
      lookAtLock(*facts_.keepAwake, kind);
      lookAround(*facts_.keepAwake, kind);
    }
    lookAtFallback();
    lookAtDaemon();
    lookAtSettings();
    lookAtHooks();
    std::stable_partition(found_.begin(), found_.end(), [](const Finding& finding) {
      return finding.severity == FindingSeverity::warning;
    });
    return std::move(found_);
  }

 private:
  void add(FindingKind kind, FindingSeverity severity, const std::string& what,
           const std::string& toDo) {
    found_.push_back({.kind = kind,
                      .severity = severity,
                      .what = escapedForDisplay(what),
                      .toDo = escapedForDisplay(toDo)});
  }

  void lookAtLock(const KeepAwakeFacts& facts, HeadlineKind kind) {
    switch (kind) {
      case HeadlineKind::daemonMissing:
      case HeadlineKind::lockWithoutWord:
        add(FindingKind::daemonMissing, FindingSeverity::warning,
            fmt::format("Nothing can be asked of the daemon: {}.", *facts.daemonFailure),
            fmt::format("{}: '{}'.",
                        facts_.daemonIsThere ? "Where nothing else helps, restart it"
                                             : "Install the package nodo, or start it",
                        facts_.restartCommand));
        break;
      case HeadlineKind::sleepAllowed:
        lookAtSafety(facts);
        break;
      case HeadlineKind::lockMissing:
        add(FindingKind::lockMissing, FindingSeverity::warning,
            "The timer runs, and the sleep lock of nodo is not in force.",
            "The daemon tries again every minute; its log says why it fails.");
        break;
      case HeadlineKind::lockLeft:
        add(FindingKind::lockLeft, FindingSeverity::warning,
            "A sleep lock is on although nothing asks for it.", "'nodoctl repair' releases it.");
        break;
      case HeadlineKind::keptAwake:
      case HeadlineKind::unconfirmed:
      case HeadlineKind::off:
        break;
    }
  }

  // Heat and low power mode end in ways of their own.
  void lookAtSafety(const KeepAwakeFacts& facts) {
    const PowerDecision& decision = facts.report.decision;
    std::vector<std::string> others;
    for (const std::string& block : decision.safetyBlocks) {
      if (block != reason::thermalPressure && block != reason::lowPowerMode) {
        others.push_back(safetyText(block, facts));
      }
    }
    if (!others.empty()) {
      addSafety(FindingKind::safetyAllowsSleep, fmt::format("{}", fmt::join(others, ", ")),
                "Plug the charger in or bring the network back; the lock follows at once.");
    }
    if (decision.isVetoedBy(reason::thermalPressure)) {
      addSafety(FindingKind::thermalPressure, safetyText(reason::thermalPressure, facts),
                "Give it air, or end what keeps it busy; once it has cooled down, the lock follows "
                "within a minute.");
    }
    if (decision.isVetoedBy(reason::lowPowerMode)) {
      addSafety(FindingKind::lowPowerMode, safetyText(reason::lowPowerMode, facts),
                "Plug the charger in or switch that mode off; the lock follows within a minute.");
    }
  }

  void addSafety(FindingKind kind, const std::string& rule, const std::string& toDo) {
    add(kind, FindingSeverity::warning,
        fmt::format("A safety rule allows sleep although the timer runs: {}.", rule), toDo);
  }

  void lookAround(const KeepAwakeFacts& facts, HeadlineKind kind) {
    if (!facts.daemonFailure && facts.report.state.updatedAt > facts_.now + usualStep) {
      add(FindingKind::clockSetBack, FindingSeverity::note,
          fmt::format("The clock was set back: the state was changed at {}, which lies ahead.",
                      clockText(facts.report.state.updatedAt, facts_.now)),
          "The timer keeps its length; times of earlier requests may look wrong for a while.");
    }
    const bool isHeldByNodo = kind == HeadlineKind::keptAwake ||
                              kind == HeadlineKind::unconfirmed || kind == HeadlineKind::lockLeft;
    if (!isHeldByNodo && !facts_.otherHolders.empty()) {
      add(FindingKind::othersHoldAwake, FindingSeverity::note,
          fmt::format("Others hold up sleep: {}.", listed(facts_.otherHolders)),
          "'nodoctl diagnostics' shows what for; nodo leaves them alone.");
    }
  }

  void lookAtFallback() {
    const AgentHookFallbackStatus& fallback = facts_.hookFallback;
    if (fallback.isActive && fallback.lastStartedAt) {
      const Date end =
          *fallback.lastStartedAt + Seconds(static_cast<double>(fallback.fallbackSeconds));
      add(FindingKind::fallbackActive, FindingSeverity::warning,
          fmt::format("A hook could not reach the daemon at {}; it keeps this computer awake by "
                      "itself until {}, with the lid open only.",
                      clockText(*fallback.lastStartedAt, facts_.now), clockText(end, facts_.now)),
          "The next request that reaches the daemon takes over.");
    }
  }

  void lookAtSettings() {
    if (!facts_.settings || facts_.settings->problems.empty()) {
      return;
    }
    const std::vector<std::string>& problems = facts_.settings->problems;
    add(FindingKind::settingsIgnored, FindingSeverity::warning,
        fmt::format("The daemon does not heed all of its settings: {}{}.", problems.front(),
                    problems.size() == 1 ? "" : fmt::format(" and {} more", problems.size() - 1)),
        fmt::format("Mend the file as nodod(8) says, then: '{}'.", facts_.restartCommand));
  }

  void lookAtDaemon() {
    if (facts_.daemonRefusal) {
      add(FindingKind::daemonRefuses, FindingSeverity::warning,
          fmt::format("The daemon refuses requests of this user: {}.", *facts_.daemonRefusal),
          "Where polkit runs, the group nodo may ask from anywhere: join it with "
          "'sudo usermod -aG nodo \"$USER\"', then log in again.");
    }
    if (facts_.daemonLetsItsUserSleep) {
      add(FindingKind::daemonOfUserDoesNotProtect, FindingSeverity::warning,
          "The daemon is not the system's but a user's, and systemd-logind before version 257 "
          "lets that user and their desktop suspend under its lock.",
          "Install the system's daemon: the package nodo, then 'sudo systemctl enable --now "
          "nodod'.");
    }
  }

  void lookAtSetup(const AgentHookSetupInspection& hooks) {
    if (hooks.installedTargetCount() == 0) {
      if (facts_.unreadableHooks.empty()) {
        add(FindingKind::noAgentSetUp,
            facts_.agentsHere.empty() ? FindingSeverity::note : FindingSeverity::warning,
            "No agent is set up yet.",
            "'nodoctl hooks install' makes agents keep this computer awake while they work.");
      }
      return;
    }
    bool isOutdated = needsUpdate(hooks.hookScriptStatus);
    for (const AgentHookTargetInspection& target : hooks.targets) {
      isOutdated = isOutdated || needsUpdate(target.status);
      if (!isInstalled(target.status) && facts_.agentsHere.contains(target.target)) {
        add(FindingKind::hooksMissing, FindingSeverity::note,
            fmt::format("{} is used here and has no hooks of nodo.", displayName(target.target)),
            fmt::format("'nodoctl hooks install {}' puts them in.", rawValue(target.target)));
      }
    }
    if (isOutdated) {
      add(FindingKind::hooksOutdated, FindingSeverity::note,
          "The agents' hooks are those of another version of nodo.",
          "'nodoctl hooks install' brings them up to date.");
    }
  }

  void lookAtHooks() {
    if (facts_.hooks) {
      lookAtSetup(*facts_.hooks);
    }
    if (facts_.hooksPausedUntil) {
      add(FindingKind::hooksPaused, FindingSeverity::note,
          fmt::format("The agents' hooks are paused until {}.",
                      clockText(*facts_.hooksPausedUntil, facts_.now)),
          "'nodoctl resume' ends that.");
    }
    for (const AgentHookTargetInspection& target : facts_.unreadableHooks) {
      add(FindingKind::hooksUnreadable, FindingSeverity::warning,
          fmt::format("It is not known whether {} runs hooks: {}.", displayName(target.target),
                      target.error.value_or("")),
          "Repair that file, or make it readable for you; then 'nodoctl hooks inspect' tells.");
    }
    for (const HookObstacle& obstacle : facts_.hookObstacles) {
      const auto [what, toDo] = wordsFor(obstacle);
      add(kindOf(obstacle.kind), FindingSeverity::warning, what, toDo);
    }
    for (const SilentAgent& silent : facts_.silentAgents) {
      // It may just have had nothing to do.
      add(FindingKind::agentSilent, FindingSeverity::note,
          fmt::format("{} (pid {}) has run for {} and asked for nothing.", displayName(silent.kind),
                      silent.pid, spanText(silent.span)),
          toDoWith(silent));
    }
  }

  const FindingFacts& facts_;
  std::vector<Finding> found_;
};

}  // namespace

std::vector<Finding> findings(const FindingFacts& facts) {
  return Finder(facts).find();
}

JSONValue encode(const DoctorReport& report, const std::vector<Finding>& findings,
                 const Headline& headline) {
  JSONValue document = encode(report);
  document.setMember("findings", encode(findings));
  document.setMember("headline", encode(headline));
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

std::string unlikeReport(std::string text) {
  for (const std::string_view searched :
       {"Status source: local fallback", "Status: active", "macOS SleepDisabled: on"}) {
    for (std::size_t at = 0; (at = text.find(searched, at)) != std::string::npos;) {
      text.replace(text.find(':', at), 1, "\\u{3a}");
    }
  }
  return text;
}

}  // namespace nodo
