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

/// The path of a service's object: "/com/example" for "com.example".
std::string objectPath(const std::string& serviceName);

/// The interface's method for a kind of request.
template <class Request>
constexpr const char* methodOf() = delete;

template <>
constexpr const char* methodOf<StatusRequest>() {
  return "Status";
}

template <>
constexpr const char* methodOf<EnableManualRequest>() {
  return "EnableManual";
}

template <>
constexpr const char* methodOf<EnableManualV2Request>() {
  return "EnableManualV2";
}

template <>
constexpr const char* methodOf<StopRequest>() {
  return "Stop";
}

template <>
constexpr const char* methodOf<ReconcileRequest>() {
  return "Reconcile";
}

template <>
constexpr const char* methodOf<RepairRequest>() {
  return "Repair";
}

/// The call that makes `request` of the service of that name; U+FFFD stands for noncharacters in
/// its texts. Throws BusError, e.g. for a text that is no UTF-8.
BusMessage newRequest(sd_bus* bus, const std::string& serviceName, const HelperRequest& request);

/// One request that came over the bus. Each has one answer at most; copies share it.
class BusCall {
 public:
  /// `kind`: the request that it makes, whose arguments do not count.
  BusCall(sd_bus_message* call, HelperRequest kind);

  const HelperRequest& kind() const { return kind_; }

  /// The caller's unique name on the bus.
  std::string caller() const;

  /// Whether the caller waits for what comes of it.
  bool wantsAnswer() const;

  sd_bus_message* message() const { return call_.get(); }

  /// Hands the request with its arguments to `service`, whose reply becomes the answer. A requester
  /// that makes no sense is answered with an error. Throws BusError for what cannot be read.
  void serve(NODOHelperXPCProtocol& service) const;

  /// Answers with the D-Bus error `name`.
  void refuse(const char* name, const std::string& reason) const;

 private:
  // Answers with `text`, or with an error when there is none or it cannot be sent.
  void answer(const std::optional<std::string>& text) const;

  std::shared_ptr<sd_bus_message> call_;
  HelperRequest kind_;
};

}  // namespace nodo
