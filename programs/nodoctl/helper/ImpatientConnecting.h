#pragma once

#include <NODOCore/helper/HelperConnection.h>

#include <atomic>
#include <memory>
#include <string>

namespace nodo::nodoctl {

/// A circuit breaker: makes connections until one of them was given up without an answer, and none
/// after that.
///
/// One command may take several requests, e.g. the detour for a daemon of the first generation. A
/// daemon that hangs is to cost the time limit once, not once a request: a person and an agent's
/// hook wait. Safe from several threads at once.
class ImpatientConnecting : public HelperConnecting {
 public:
  explicit ImpatientConnecting(std::shared_ptr<const HelperConnecting> connecting);

  /// Throws NODOHelperClientError::timedOut once an earlier connection had no answer.
  std::unique_ptr<HelperConnection> privilegedConnection(
      const std::string& machServiceName) const override;

 private:
  std::shared_ptr<const HelperConnecting> connecting_;
  std::shared_ptr<std::atomic<bool>> gaveUp_;
};

}  // namespace nodo::nodoctl
