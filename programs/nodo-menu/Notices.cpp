#include <NODOCore/diagnostics/Findings.h>
#include <NODOCore/diagnostics/Headline.h>
#include <programs/nodo-menu/Notices.h>

#include <algorithm>
#include <chrono>
#include <utility>

namespace nodo::menu {

std::optional<std::string> fallbackText(const FindingFacts& facts) {
  const std::vector<Finding> found = findings(facts);
  const auto finding = std::find_if(found.begin(), found.end(), [](const Finding& each) {
    return each.kind == FindingKind::fallbackActive;
  });
  return finding == found.end() ? std::nullopt : std::optional(finding->what + " " + finding->toDo);
}

std::optional<Notice> NoticeWatch::take(const nodoctl::HealthFacts& facts) {
  const bool isReleased = seesRelease(facts);
  const bool hasFallbackBegun = seesFallback(facts.forFindings.hookFallback);
  if (isReleased) {
    return Notice{.title = "nodo lets this computer sleep",
                  .text = headline(facts.forFindings.keepAwake.value()).text};
  }
  if (hasFallbackBegun) {
    return Notice{.title = "nodo: an agent's hook keeps this computer awake by itself",
                  .text = fallbackText(facts.forFindings).value_or("")};
  }
  return std::nullopt;
}

bool NoticeWatch::seesRelease(const nodoctl::HealthFacts& facts) {
  if (facts.status.unavailable) {
    return false;  // what it did is told when it is back
  }
  const HeadlineKind kind = headline(facts.forFindings.keepAwake.value()).kind;
  if (facts.status.report.state.ownsSleepDisable) {
    isLockHeld_ = true;
  } else if (kind == HeadlineKind::off) {
    isLockHeld_ = false;
  }
  // In any other case it may just be on its way.
  return kind == HeadlineKind::sleepAllowed && std::exchange(isLockHeld_, false);
}

bool NoticeWatch::seesFallback(const AgentHookFallbackStatus& fallback) {
  const bool isFirst = std::exchange(isFirst_, false);
  if (!fallback.isActive || fallback.lastStartedAt == fallbackStartedAt_) {
    return false;
  }
  // A hook that starts another while the last one lasts does so for the same cause.
  const auto last = std::exchange(fallbackStartedAt_, fallback.lastStartedAt);
  const bool goesOn =
      last && fallback.lastStartedAt &&
      *fallback.lastStartedAt - *last <= std::chrono::seconds(fallback.fallbackSeconds);
  return !isFirst && !goesOn;
}

}  // namespace nodo::menu
