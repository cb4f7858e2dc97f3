#pragma once

#include <programs/nodoctl/commands/Health.h>

#include <optional>
#include <string>

namespace nodo::menu {

/// What a person is told of although nobody looks at the menu.
struct Notice {
  std::string title;
  std::string text;  ///< no control characters

  bool operator==(const Notice&) const = default;
};

/// What is to be said of a hook that keeps the computer awake by itself; nothing when none does.
std::optional<std::string> fallbackText(const FindingFacts& facts);

/// Finds what is worth a notice in the facts as they come: that a safety rule made the daemon
/// release the lock while the timer ran, and that a hook began to keep the computer awake by
/// itself. Never twice for one cause, and not for what was so before the first facts.
class NoticeWatch {
 public:
  /// The facts of the newest question. The release of the lock counts more than the hook's doing.
  std::optional<Notice> take(const nodoctl::HealthFacts& facts);

 private:
  bool seesRelease(const nodoctl::HealthFacts& facts);
  bool seesFallback(const AgentHookFallbackStatus& fallback);

  bool isLockHeld_ = false;  // when the daemon could last be asked
  bool isFirst_ = true;
  std::optional<Date> fallbackStartedAt_;
};

}  // namespace nodo::menu
