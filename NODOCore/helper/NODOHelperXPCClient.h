#pragma once

#include <NODOCore/base/Date.h>
#include <NODOCore/control/DaemonRunReport.h>
#include <NODOCore/control/StatusReport.h>
#include <NODOCore/helper/HelperConnection.h>
#include <NODOCore/state/ActivationRequester.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace nodo {

struct NODOHelperCommandResponse;

/// Asks the daemon, one connection a request, and blocks the caller until its answer.
///
/// Every request throws NODOHelperClientError (the daemon's own refusal of a request included: it
/// is "unavailable" with the daemon's text), DecodingError for a reply that is no envelope, and the
/// connection's own error when it reports one. Nothing is tried twice except as `enableManual`
/// says. Safe from several threads at once as long as nobody changes the members.
struct NODOHelperXPCClient {
  std::string machServiceName;
  double timeout = 0;  ///< seconds that one request may wait for its outcome
  std::shared_ptr<const HelperConnecting> connecting;

  StatusReport status() const;

  /// Keeps the machine awake until `minutes` after `now`, with a detour for a daemon of the first
  /// generation, which knows neither `extendOnly` nor requesters.
  ///
  /// If the request of the second generation fails in any way, that of the first is sent; with
  /// `extendOnly` only after a look at the status: a timer that ends later than `now` plus
  /// `minutes` stays, and the status after a reconcile is returned. An end that overflows is a
  /// programming fault.
  StatusReport enableManual(std::int64_t minutes, bool extendOnly,
                            const std::optional<ActivationRequester>& requester, Date now) const;

  StatusReport stop() const;
  DaemonRunReport reconcile() const;
  StatusReport repair() const;

 private:
  using Send = std::function<void(NODOHelperXPCProtocol& daemon, HelperReply reply)>;

  NODOHelperCommandResponse request(const Send& send) const;
  StatusReport statusOf(const Send& send) const;
  StatusReport enableManualFirstGeneration(std::int64_t minutes) const;
  StatusReport extendByHand(std::int64_t minutes, Date now) const;
};

}  // namespace nodo
