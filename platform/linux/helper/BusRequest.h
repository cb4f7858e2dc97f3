#pragma once

#include <NODOCore/helper/NODOHelperXPCProtocol.h>
#include <platform/linux/bus/BusConnection.h>

#include <memory>
#include <optional>
#include <string>

/// The requests to the daemon as messages on the bus: as its clients send and as it reads them.
namespace nodo {

/// The interface that the daemon offers. Its name on the bus is
/// NODOServiceConstants::helperMachServiceName.
inline constexpr char helperInterface[] = "com.quintavel.nodo.Helper1";

/// The method that tells whether its caller may change anything, and else why not: "b s". The bus's
/// part of the daemon answers it, so it is no HelperRequest.
inline constexpr char permissionMethod[] = "Permission";

/// The method that tells everybody the daemon's settings, as the JSON text of a SettingsReport; the
/// same holds.
inline constexpr char settingsMethod[] = "Settings";

/// The signal that tells that what a status would say has changed.
inline constexpr char changedSignal[] = "Changed";

/// The path of a service's object: "/com/example" for "com.example".
std::string objectPath(const std::string& serviceName);

/// The interface's method for a request.
struct MethodOf {
  const char* operator()(const StatusRequest&) const { return "Status"; }

  const char* operator()(const EnableManualRequest&) const { return "EnableManual"; }

  const char* operator()(const EnableManualV2Request&) const { return "EnableManualV2"; }

  const char* operator()(const StopRequest&) const { return "Stop"; }

  const char* operator()(const ReconcileRequest&) const { return "Reconcile"; }

  const char* operator()(const RepairRequest&) const { return "Repair"; }
};

/// The call that makes `request` of the service of that name; U+FFFD stands for noncharacters in
/// its texts. Throws BusError, e.g. for a text that is no UTF-8.
BusMessage newRequest(sd_bus* bus, const std::string& serviceName, const HelperRequest& request);

/// One request that came over the bus, or a question for permission. Each has one answer at most;
/// copies share it.
class BusCall {
 public:
  /// `kind`: the request that it makes, whose arguments do not count.
  BusCall(sd_bus_message* call, HelperRequest kind);

  /// A call of `permissionMethod`. It is judged as a request that changes something.
  static BusCall asking(sd_bus_message* call);

  const HelperRequest& kind() const { return kind_; }

  /// Whether it only asks for permission.
  bool onlyAsks() const { return onlyAsks_; }

  /// The caller's unique name on the bus.
  std::string caller() const;

  /// Whether the caller waits for what comes of it.
  bool wantsAnswer() const;

  sd_bus_message* message() const { return call_.get(); }

  /// Hands the request with its arguments to `service`, whose reply becomes the answer. A requester
  /// that makes no sense is answered with an error. Throws BusError for what cannot be read.
  void serve(NODOHelperXPCProtocol& service) const;

  /// Answers whether the caller may change anything: it may not for that reason.
  void tellPermission(const std::optional<std::string>& refusal) const;

  /// Answers with `settings`, or with an error when there are none.
  void tellSettings(const std::optional<SettingsReport>& settings) const;

  /// Answers with the D-Bus error `name`.
  void refuse(const char* name, const std::string& reason) const;

 private:
  // Answers with `text`, or with an error when there is none or it cannot be sent.
  void answer(const std::optional<std::string>& text) const;

  std::shared_ptr<sd_bus_message> call_;
  HelperRequest kind_;
  bool onlyAsks_ = false;
};

}  // namespace nodo
