#pragma once

#include <NODOCore/base/Date.h>
#include <NODOCore/helper/HelperConnection.h>
#include <NODOCore/helper/NODOHelperXPCProtocol.h>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <exception>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <variant>

namespace nodo {

/// Why the daemon gave the client no answer.
class NODOHelperClientError : public std::exception {
 public:
  enum class Case { unavailable, invalidResponse, timedOut };

  /// The daemon cannot be reached, or says itself that the request failed. `helperIsThere`: whether
  /// there is one, which then does not work as it should.
  static NODOHelperClientError unavailable(std::string reason, bool helperIsThere = true);
  /// What came back is not what was asked for.
  static NODOHelperClientError invalidResponse(std::string reason);
  /// Nothing came back in time.
  static NODOHelperClientError timedOut();

  const char* what() const noexcept override { return message_.c_str(); }

  Case errorCase() const { return case_; }

  /// Empty for `timedOut`.
  const std::string& reason() const { return reason_; }

  /// Whether there is a daemon, which does not work as it should. Otherwise none was found.
  bool helperIsThere() const { return helperIsThere_; }

  bool operator==(const NODOHelperClientError& other) const {
    return case_ == other.case_ && reason_ == other.reason_;
  }

 private:
  NODOHelperClientError(Case errorCase, const char* text, std::string reason, bool helperIsThere);

  Case case_;
  std::string reason_;
  bool helperIsThere_;
  std::string message_;
};

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
  // A signal without an outcome, which only a test can give.
  void signal();

 private:
  void complete(Outcome outcome);

  // The standard's semaphore cannot serve: in GCC's library a timed wait polls, up to 64 ms apart,
  // so that an answer may be noticed that late.
  std::mutex lock_;
  std::condition_variable signalled_;
  bool isSignalled_ = false;
  std::optional<Outcome> result_;
};

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
  NODOHelperCommandResponse ask(HelperRequest request) const;
  StatusReport askForStatus(HelperRequest request) const;
  StatusReport extendByHand(std::int64_t minutes, Date now) const;
};

}  // namespace nodo
