#pragma once

#include <NODOCore/base/Date.h>
#include <NODOCore/control/NODOController.h>
#include <NODOCore/control/Reports.h>
#include <NODOCore/diagnostics/DoctorReport.h>
#include <NODOCore/diagnostics/Headline.h>
#include <NODOCore/helper/HelperConnection.h>
#include <NODOCore/helper/NODOHelperXPCClient.h>
#include <NODOCore/state/NODOState.h>
#include <programs/nodoctl/CommandLine.h>
#include <programs/nodoctl/Tool.h>

#include <chrono>
#include <cstdint>
#include <exception>
#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>

namespace nodo::nodoctl {

/// What the timer is set to, and for whom.
struct ManualRequest {
  std::int64_t minutes = 0;
  bool extendOnly = false;
  std::optional<ActivationRequester> requester;
};

/// Why the daemon could not serve a request.
struct Unavailability {
  std::string reason;     ///< in words that fit behind "helper unavailable"
  std::string sentence;   ///< the same for people, without the full stop
  bool isBroken = false;  ///< whether something is there that does not work; else nothing is

  /// What `error`, which a request to the daemon ended with, says. `refusal` is asked when it
  /// leaves open why, as ToolContext's `refusalOfThisProgram`.
  static Unavailability from(const std::exception& error,
                             const std::function<std::optional<std::string>()>& refusal);
};

struct SourcedStatus {
  StatusReport report;
  DoctorStatusSource source = DoctorStatusSource::helper;
  std::optional<Unavailability> unavailable = {};  ///< why it is not the daemon's, if it is not
};

/// A value that was asked for and that the daemon, or whoever stands in for it, refuses: a wrong
/// use of the tool. The message names the limit.
class RefusedValue : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// Makes connections for one client as long as its time with the daemon lasts, which begins now.
///
/// One command may take several requests, e.g. the detour for a daemon of the first generation, and
/// a person and an agent's hook wait for all of them. So each request may wait only for what the
/// ones before it have left. Not thread-safe.
class BudgetedConnecting : public HelperConnecting {
 public:
  using Clock = std::chrono::steady_clock;

  /// `timeout` is the client's own, which lives longer than this. It holds the time for all
  /// requests together, and from the first one on what is left for each.
  BudgetedConnecting(std::shared_ptr<const HelperConnecting> connecting, double& timeout,
                     std::function<Clock::time_point()> now = Clock::now);

  /// What is left of the time, in seconds; below zero once it is used up.
  double left() const { return limit_ - Seconds(now_() - begin_).count(); }

  /// Throws NODOHelperClientError::timedOut once the time is used up.
  std::unique_ptr<HelperConnection> privilegedConnection(
      const std::string& machServiceName) const override;

 private:
  std::shared_ptr<const HelperConnecting> connecting_;
  double& timeout_;
  std::function<Clock::time_point()> now_;
  double limit_;
  Clock::time_point begin_;
};

/// The keep-awake state as one command reads and changes it: the daemon's, and where that fails the
/// user's own, on which nothing depends but what this tool shows.
///
/// The time limit is for all that is asked of the daemon, from the making of this on. Not
/// thread-safe. What fails locally as well is thrown with a message for people.
class StateAccess {
 public:
  /// `unavailable` is told the reason why the daemon could not serve, before the own state is used.
  StateAccess(const DaemonOptions& options, const ToolContext& context,
              std::function<void(const std::string& reason)> unavailable);
  StateAccess(const StateAccess&) = delete;
  StateAccess& operator=(const StateAccess&) = delete;
  ~StateAccess() = default;

  SourcedStatus status();

  /// The daemon's status alone. Throws what `Unavailability` explains.
  StatusReport daemonStatus() const { return daemon_.status(); }

  /// What the daemon is to this user, within what is left of the time limit.
  DaemonStanding daemonStanding() const;

  /// What the headline for `status` follows from. `lockIsOn` is what the machine says of nodo's
  /// lock. Where the daemon's limits are part of the answer and not among `settings`, it is asked.
  KeepAwakeFacts keepAwakeFacts(const SourcedStatus& status, std::optional<bool> lockIsOn,
                                const std::optional<SettingsReport>& settings = {}) const;

  /// A success through the daemon also ends what the hook log says of a fallback. Throws
  /// RefusedValue for minutes that the daemon does not allow, or that are too many for the limits
  /// of a daemon that cannot be asked; nothing has been changed then.
  SourcedStatus manual(const ManualRequest& request);

  SourcedStatus stop();
  SourcedStatus repair();

  /// The daemon's alone. Throws when it cannot serve.
  DaemonRunReport reconcile();

  /// The same on the user's own state, switching nothing.
  DaemonRunReport simulatedReconcile();

 private:
  using Ask = std::function<StatusReport(const NODOHelperXPCClient& daemon)>;
  using Work = std::function<StatusReport(const NODOController& controller)>;

  SourcedStatus askOrWork(const Ask& ask, const Work& work);
  std::optional<SafetyPolicy> daemonLimits() const;

  const ToolContext& context_;
  std::optional<std::string> bus_;
  NODOHelperXPCClient daemon_;
  std::shared_ptr<const BudgetedConnecting> connecting_;
  std::function<void(const std::string&)> unavailable_;
};

/// The line that says that the user's own state is used, and why.
std::string localStateNotice(const std::string& reason);

/// For a command that answers once: that the own state is used is said on standard error.
StateAccess stateAccess(const DaemonOptions& daemon, const ToolContext& context);

/// The controller of the user's own state on this machine. Throws std::runtime_error when the state
/// has no place.
NODOController localController(const ToolContext& context);

}  // namespace nodo::nodoctl
