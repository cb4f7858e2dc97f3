#pragma once

#include <NODOCore/control/Reports.h>

#include <cstdint>
#include <exception>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace nodo {

/// The names under which the daemon is found and its callers are trusted.
struct NODOServiceConstants {
  NODOServiceConstants() = delete;

  static constexpr std::string_view appBundleIdentifier = "com.quintavel.nodo";
  static constexpr std::string_view ctlBundleIdentifier = "com.quintavel.nodo.nodoctl";
  /// The Apple team that signs all three programs.
  static constexpr std::string_view developmentTeamID = "Q7K2M9X4TZ";
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

/// Takes the reply to a request: the UTF-8 JSON text of a NODOHelperCommandResponse, or nothing
/// when the system's text has no UTF-8 form.
using HelperReply = std::function<void(std::optional<std::string> text)>;

/// The six requests that the daemon answers, in the order of their declaration on the wire.
///
/// Both ends speak it: the daemon implements it, a client's connection gives a proxy for it. A
/// request returns at once or after the work; its reply may come before or after that, on any
/// thread, and not at all when the connection breaks. A failure of the request is a reply whose
/// envelope carries an "error". On macOS the wire is an Objective-C protocol with one selector for
/// each, on Linux a D-Bus interface with one method for each.
class NODOHelperXPCProtocol {
 public:
  virtual ~NODOHelperXPCProtocol() = default;

  /// The status, without changing anything. Reply: "status".
  virtual void status(HelperReply reply) = 0;

  /// Starts or replaces the manual timer. The first generation's request, which clients fall back
  /// to, so it is answered for ever. Reply: "status".
  virtual void enableManual(std::int64_t minutes, HelperReply reply) = 0;

  /// The second generation's: with `extendOnly` a timer that ends later is not shortened, and who
  /// asked is recorded. Without a name no requester is known. Reply: "status".
  virtual void enableManualV2(std::int64_t minutes, bool extendOnly,
                              std::optional<std::string> requesterName,
                              std::optional<std::string> requesterContext,
                              std::optional<std::string> requesterEvent, HelperReply reply) = 0;

  /// Ends the manual timer and releases the lock. Reply: "status".
  virtual void stop(HelperReply reply) = 0;

  /// One reconcile pass. Reply: "run".
  virtual void reconcile(HelperReply reply) = 0;

  /// Releases the lock, resets the state and reconciles. Reply: "status".
  virtual void repair(HelperReply reply) = 0;
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

JSONValue encode(const NODOHelperCommandResponse& response);
void decode(const JSONReader& from, NODOHelperCommandResponse& response);

}  // namespace nodo
