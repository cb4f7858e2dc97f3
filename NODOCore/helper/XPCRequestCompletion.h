#pragma once

#include <NODOCore/helper/NODOHelperCommandResponse.h>

#include <chrono>
#include <exception>
#include <mutex>
#include <optional>
#include <semaphore>
#include <variant>

namespace nodo {

/// Where one request waits for its first outcome.
///
/// Shared by the waiting caller and everything that may end the request: the reply, the proxy's
/// error handler, the connection's interruption and invalidation. The first outcome wins and later
/// ones are dropped, because the client invalidates its connection after every reply, too. Safe
/// from any thread.
class XPCRequestCompletion {
 public:
  using Outcome = std::variant<NODOHelperCommandResponse, std::exception_ptr>;

  void complete(NODOHelperCommandResponse response);
  void complete(std::exception_ptr error);

  /// Waits until `deadline` for the first outcome; an error is thrown as it is. Throws
  /// NODOHelperClientError::timedOut when there is none by then. For one caller, once.
  NODOHelperCommandResponse wait(std::chrono::steady_clock::time_point deadline);

 protected:
  void complete(Outcome outcome);

  std::mutex lock;
  std::counting_semaphore<1> semaphore{0};
  std::optional<Outcome> result;
};

}  // namespace nodo
