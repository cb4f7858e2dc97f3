#pragma once

#include <NODOCore/base/Date.h>
#include <NODOCore/control/NODOController.h>
#include <NODOCore/control/Reports.h>
#include <NODOCore/diagnostics/DoctorReport.h>
#include <NODOCore/helper/NODOHelperXPCClient.h>
#include <NODOCore/state/NODOState.h>
#include <programs/nodoctl/Tool.h>

#include <cstdint>
#include <exception>
#include <functional>
#include <optional>
#include <string>

namespace nodo::nodoctl {

/// How the daemon is asked.
struct HelperOptions {
  std::optional<std::string> bus;  ///< as in `helperConnecting`
  double timeout = 1;              ///< seconds for each request
};

/// What the timer is set to, and for whom.
struct ManualRequest {
  std::int64_t minutes = 0;
  bool extendOnly = false;
  std::optional<ActivationRequester> requester;
};

struct SourcedStatus {
  StatusReport report;
  DoctorStatusSource source = DoctorStatusSource::helper;
};

/// Why the daemon could not serve a request.
struct Unavailability {
  std::string reason;     ///< in words that fit behind "helper unavailable"
  bool isBroken = false;  ///< whether something is there that does not work; else nothing is

  /// What `error`, which a request to the daemon ended with, says.
  static Unavailability from(const std::exception& error);
};

/// The keep-awake state as one command reads and changes it: the daemon's, and where that fails the
/// user's own, on which nothing depends but what this tool shows.
///
/// A daemon that hangs costs the time limit once, however many requests a command makes. Not
/// thread-safe. What fails locally as well is thrown with a message for people.
class StateAccess {
 public:
  /// `unavailable` is told the reason why the daemon could not serve, before the own state is used.
  StateAccess(const HelperOptions& options, const ToolContext& context,
              std::function<void(const std::string& reason)> unavailable);

  SourcedStatus status();

  /// The daemon's status alone. Throws what `Unavailability` explains.
  StatusReport daemonStatus() const { return daemon_.status(); }

  /// A success through the daemon also ends what the hook log says of a fallback. Minutes that no
  /// daemon could take are refused at once.
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

  const ToolContext& context_;
  NODOHelperXPCClient daemon_;
  std::function<void(const std::string&)> unavailable_;
};

/// The line that says that the user's own state is used, and why.
std::string localStateNotice(const std::string& reason);

/// The controller of the user's own state on this machine. Throws std::runtime_error when the state
/// has no place.
NODOController localController(const ToolContext& context);

}  // namespace nodo::nodoctl
