#pragma once

#include <NODOCore/helper/NODOHelperCommandResponse.h>

#include <chrono>
#include <condition_variable>
#include <exception>
#include <mutex>
#include <optional>
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

  /// Waits until `deadline` for the first outcome and takes it; an error is thrown as it is, and is
  /// then the caller's alone. An outcome that is there counts even when the deadline has passed.
  /// Throws NODOHelperClientError::timedOut when there is none by then. For one caller, once.
  NODOHelperCommandResponse wait(std::chrono::steady_clock::time_point deadline);

 protected:
  /// Sleeps in the kernel until it is signalled. The standard's semaphore cannot serve: in GCC's
  /// library a timed wait polls, up to 64 ms apart, so that an answer may be noticed that late.
  class Semaphore {
   public:
    void signal();
    bool waitUntil(std::chrono::steady_clock::time_point deadline);

   private:
    std::mutex mutex_;
    std::condition_variable signalled_;
    int count_ = 0;
  };

  void complete(Outcome outcome);

  // Not private, so that a test can signal without an outcome.
  std::mutex lock;
  Semaphore semaphore;
  std::optional<Outcome> result;
};

}  // namespace nodo
