#pragma once

#include <NODOCore/control/DaemonSettings.h>
#include <NODOCore/control/Reports.h>

#include <cstdint>
#include <exception>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

namespace nodo {

// Who builds nodo with certificates of their own says so to CMake.
#ifndef NODO_TEAM_IDENTIFIER
#define NODO_TEAM_IDENTIFIER "Q7K2M9X4TZ"
#endif

/// The names under which the daemon is found and its callers are trusted.
struct NODOServiceConstants {
  NODOServiceConstants() = delete;

  static constexpr std::string_view appBundleIdentifier = "com.quintavel.nodo";
  static constexpr std::string_view ctlBundleIdentifier = "com.quintavel.nodo.nodoctl";
  /// The Apple team that signs all three programs.
  static constexpr std::string_view developmentTeamID = NODO_TEAM_IDENTIFIER;
  /// The daemon's launchd label.
  static constexpr std::string_view helperLabel = "com.quintavel.nodo.helper";
  /// The service's name: on macOS its Mach service, on Linux its bus name.
  static constexpr std::string_view helperMachServiceName = helperLabel;
  /// The file name of the daemon's launchd property list.
  static constexpr std::string_view helperPlistName = "com.quintavel.nodo.helper.plist";

  /// Whose requests the daemon serves on macOS: the app, then the tool. Built on first use; safe
  /// from any thread.
  static const std::vector<std::string_view>& trustedXPCClientBundleIdentifiers();
};

/// The status, without changing anything.
struct StatusRequest {
  bool operator==(const StatusRequest&) const = default;
};

/// Starts or replaces the manual timer. The first generation's request, which clients fall back to,
/// so it is answered for ever.
struct EnableManualRequest {
  std::int64_t minutes = 0;

  bool operator==(const EnableManualRequest&) const = default;
};

/// The second generation's: with `extendOnly` a timer that ends later is not shortened, and who
/// asked is recorded. Without a name no requester is known.
struct EnableManualV2Request {
  std::int64_t minutes = 0;
  bool extendOnly = false;
  std::optional<std::string> requesterName;
  std::optional<std::string> requesterContext;
  std::optional<std::string> requesterEvent;

  bool operator==(const EnableManualV2Request&) const = default;
};

/// Ends the manual timer and releases the lock.
struct StopRequest {
  bool operator==(const StopRequest&) const = default;
};

/// One reconcile pass.
struct ReconcileRequest {
  bool operator==(const ReconcileRequest&) const = default;
};

/// Releases the lock, resets the state and reconciles.
struct RepairRequest {
  bool operator==(const RepairRequest&) const = default;
};

/// A request to the daemon, in the order of their declaration on the wire. It is sent, carried,
/// judged, served and logged as this value.
using HelperRequest = std::variant<StatusRequest, EnableManualRequest, EnableManualV2Request,
                                   StopRequest, ReconcileRequest, RepairRequest>;

/// Whether serving the request only looks. Everybody may send such a one; all others change
/// something.
bool isLook(const HelperRequest& request);

/// What the request is called in the daemon's log: "stop", "manual of Claude Code".
std::string logName(const HelperRequest& request);

/// Takes the reply to a request: the UTF-8 JSON text of a NODOHelperCommandResponse, or nothing
/// when the system's text has no UTF-8 form.
using HelperReply = std::function<void(std::optional<std::string> text)>;

/// Who serves requests to the daemon: the daemon itself, and the proxy that a client's connection
/// gives for it.
///
/// A request returns at once or after the work; its reply may come before or after that, on any
/// thread, and not at all when the connection breaks. The reply's envelope carries the "run" of a
/// reconcile and else the "status" after the request, or the "error" of one that failed. On macOS
/// the wire is an Objective-C protocol with one selector for each request, on Linux a D-Bus
/// interface with one method for each.
class NODOHelperXPCProtocol {
 public:
  virtual ~NODOHelperXPCProtocol() = default;

  virtual void perform(HelperRequest request, HelperReply reply) = 0;

  /// The settings that requests are served by, where this is the daemon itself. No request asks
  /// for them: a platform's wire may tell them beside.
  virtual std::optional<SettingsReport> settings() const { return std::nullopt; }

  void status(HelperReply reply) { perform(StatusRequest{}, std::move(reply)); }

  void enableManual(std::int64_t minutes, HelperReply reply) {
    perform(EnableManualRequest{minutes}, std::move(reply));
  }

  void enableManualV2(std::int64_t minutes, bool extendOnly,
                      std::optional<std::string> requesterName,
                      std::optional<std::string> requesterContext,
                      std::optional<std::string> requesterEvent, HelperReply reply) {
    perform(EnableManualV2Request{minutes, extendOnly, std::move(requesterName),
                                  std::move(requesterContext), std::move(requesterEvent)},
            std::move(reply));
  }

  void stop(HelperReply reply) { perform(StopRequest{}, std::move(reply)); }

  void reconcile(HelperReply reply) { perform(ReconcileRequest{}, std::move(reply)); }

  void repair(HelperReply reply) { perform(RepairRequest{}, std::move(reply)); }
};

/// The daemon's reply to every request. Exactly one field is set in what the constructors below
/// build; a foreign envelope may hold any.
struct NODOHelperCommandResponse {
  std::optional<StatusReport> status;  ///< after the request
  std::optional<DaemonRunReport> run;  ///< of a reconcile; its status is not repeated in `status`
  std::optional<std::string> error;    ///< why the request failed; an empty text is a failure too

  static NODOHelperCommandResponse success(StatusReport status);
  static NODOHelperCommandResponse success(DaemonRunReport run);
  static NODOHelperCommandResponse failure(const std::exception& error);

  bool operator==(const NODOHelperCommandResponse&) const = default;
};

void encode(JSONWriter& to, const NODOHelperCommandResponse& response);
void decode(const JSONReader& from, NODOHelperCommandResponse& response);

}  // namespace nodo
