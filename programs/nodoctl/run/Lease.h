#pragma once

#include <NODOCore/base/Date.h>
#include <programs/nodoctl/Tool.h>
#include <programs/nodoctl/helper/StateAccess.h>

#include <cstdint>
#include <string>

namespace nodo::nodoctl {

/// Keeps the timer ahead of the present while a command runs.
///
/// The timer is extended when half of the time is used up, and where the daemon could not serve,
/// soon again, as it may come back. What goes wrong is said once. Not thread-safe.
class Lease {
 public:
  /// For the command called `requester`. `context` must outlive it.
  Lease(HelperOptions options, std::int64_t minutes, std::string requester,
        const ToolContext& context);

  /// Extends the timer for the first time. Throws NODOError when the minutes are not allowed.
  void begin();

  /// Extends the timer when it is time to.
  void keep();

  /// Until it is time; at most a minute, as the civil clock may jump, e.g. over a sleep.
  Seconds timeToWait() const;

 private:
  void extend();
  void warnOnce(bool& warned, const std::string& message);

  HelperOptions options_;
  std::int64_t minutes_;
  std::string requester_;
  const ToolContext& context_;
  Date next_;
  bool warnedOfDaemon_ = false;
  bool warnedOfFailure_ = false;
};

}  // namespace nodo::nodoctl
