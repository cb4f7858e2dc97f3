#pragma once

#include <NODOCore/control/Reports.h>
#include <NODOCore/helper/HelperConnection.h>

#include <cstddef>
#include <exception>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace nodo::test {

class FakeHelperLink;

/// A request's name and arguments, e.g. "enableManual 20" and
/// "enableManualV2 20 extend-only "Pi" nil nil".
std::string requestText(const HelperRequest& request);

/// One request as the daemon's end of a connection sees it, with every way in which it may end.
/// Copies are the same request, and may be kept for longer than the connection. Safe from any
/// thread.
class FakeHelperRequest {
 public:
  std::string text;  ///< as `requestText` has it

  void reply(std::optional<std::string> envelope) const { reply_(std::move(envelope)); }

  void reply(const StatusReport& status) const;
  void reply(const DaemonRunReport& run) const;

  /// Replies with an envelope that carries an error.
  void refuse(const std::string& error) const;

  /// The proxy's error handler.
  void fail(std::exception_ptr error) const;
  void fail(const std::string& error) const;

  /// The connection's handlers.
  void interrupt() const;
  void invalidate() const;

 private:
  friend class FakeHelperLink;

  HelperReply reply_;
  std::shared_ptr<FakeHelperLink> link_;
};

/// A daemon and the way to it, which a test scripts.
///
/// Set the members and answers before the first request; requests may then come from several
/// threads. A request without an answer of its own gets `status` or `run`.
class FakeHelper : public HelperConnecting {
 public:
  using Answer = std::function<void(const FakeHelperRequest&)>;

  StatusReport status;
  DaemonRunReport run;
  bool offersProtocol = true;          ///< else there is no proxy
  bool knowsSecondGeneration = true;   ///< else such a request ends by the error handler
  bool isInstalled = true;             ///< else each connection is invalidated once resumed
  std::optional<std::string> refusal;  ///< what no connection can even be made for

  /// From now on requests of that name ("enableManual", without arguments) end like that.
  void answer(const std::string& request, Answer answer);

  std::unique_ptr<HelperConnection> privilegedConnection(
      const std::string& machServiceName) const override;

  /// What was done to connections, in order: "connect NAME", "set invalidation handler",
  /// "set interruption handler", "resume", "proxy", "send REQUEST", "invalidate".
  std::vector<std::string> steps() const;

  /// The requests alone, with their arguments.
  std::vector<std::string> requests() const;

  /// Connections that were made and not yet invalidated.
  std::size_t openConnections() const;

 private:
  friend class FakeHelperLink;

  Answer answerTo(const std::string& name) const;
  void note(const std::string& step) const;

  std::map<std::string, Answer> answers_;
  mutable std::mutex mutex_;
  mutable std::vector<std::string> steps_;
};

}  // namespace nodo::test
