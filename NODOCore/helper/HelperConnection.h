#pragma once

#include <NODOCore/helper/NODOHelperXPCProtocol.h>

#include <chrono>
#include <exception>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>

namespace nodo {

/// What a connection says of a request that was not delivered or not answered. The text is for
/// people.
class HelperConnectionError : public std::runtime_error {
 public:
  HelperConnectionError(const std::string& message, bool helperIsThere)
      : std::runtime_error(message), helperIsThere_(helperIsThere) {}

  /// Whether there is a daemon, which then does not work as it should. Otherwise none was found.
  bool helperIsThere() const noexcept { return helperIsThere_; }

 private:
  bool helperIsThere_;
};

/// One connection to the daemon, as the client uses it: the handlers are set, then it is resumed, a
/// proxy is taken and one request sent, and it is invalidated in the end.
///
/// Exists so that the client's rules are portable and can be tested without a daemon. Handlers and
/// replies run on the system's own threads, possibly at the same time, also after `invalidate`, or
/// inside `serve`. All members are called from one thread; none but `serve` blocks for longer than
/// local work takes.
class HelperConnection {
 public:
  using Handler = std::function<void()>;
  using ErrorHandler = std::function<void(std::exception_ptr)>;

  virtual ~HelperConnection() = default;

  /// Called when the connection can never be used again: there is no such service, or it was
  /// invalidated.
  virtual void setInvalidationHandler(Handler handler) = 0;

  /// Called when the other end went away.
  virtual void setInterruptionHandler(Handler handler) = 0;

  virtual void resume() = 0;

  /// The daemon's requests, each a message to it; `errorHandler` is told of one that cannot be
  /// delivered or answered, never with a null error: as a rule a HelperConnectionError. Null when
  /// the other end does not offer them.
  virtual std::shared_ptr<NODOHelperXPCProtocol> remoteProxy(ErrorHandler errorHandler) = 0;

  /// Does the connection's work on the caller's thread, if the system has no threads of its own for
  /// it: until what was sent is answered or has failed, or until `deadline`.
  virtual void serve([[maybe_unused]] std::chrono::steady_clock::time_point deadline) {}

  /// Ends the connection, whether or not it was resumed. Must not throw; safe to repeat.
  virtual void invalidate() = 0;
};

/// Makes connections to services of the system.
class HelperConnecting {
 public:
  virtual ~HelperConnecting() = default;

  /// A connection to the privileged, system-wide service of that name, not yet resumed; never null.
  /// That there is no such service shows itself later, by the handlers, or at once by an error that
  /// is thrown. Safe from several threads at once.
  virtual std::unique_ptr<HelperConnection> privilegedConnection(
      const std::string& machServiceName) const = 0;
};

}  // namespace nodo
