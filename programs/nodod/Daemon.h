#pragma once

#include <NODOCore/base/Date.h>
#include <NODOCore/helper/NODOHelperXPCProtocol.h>
#include <platform/DaemonMachine.h>
#include <programs/nodod/LockKeeper.h>
#include <programs/nodod/Log.h>

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

namespace nodo::nodod {

/// The daemon: answers requests, and runs a pass whenever one is due.
///
/// A pass is due at the start, after every request that changes the state, when the machine's news
/// say so, when something can end by itself, and every minute while the lock is held or wanted.
/// Otherwise no timer is set and nothing wakes the process. All on the loop's thread. A failed
/// request is answered with its reason and logged. What is repeated without anybody's will, a pass
/// outside of a request and a request that only looks, is logged once for as long as it fails for
/// the same reason.
class Daemon : public NODOHelperXPCProtocol {
 public:
  Daemon(LockKeeper& keeper, DaemonLoop& loop, std::function<Date()> now, Log log,
         Seconds releaseGrace);

  /// Takes the name, runs the first pass and serves until a signal ends it. The lock is released in
  /// the end, also when the loop cannot go on: that error is passed on. Throws what
  /// DaemonLoop::serve does before anything was touched.
  void run();

  void status(HelperReply reply) override;
  void enableManual(std::int64_t minutes, HelperReply reply) override;
  void enableManualV2(std::int64_t minutes, bool extendOnly,
                      std::optional<std::string> requesterName,
                      std::optional<std::string> requesterContext,
                      std::optional<std::string> requesterEvent, HelperReply reply) override;
  void stop(HelperReply reply) override;
  void reconcile(HelperReply reply) override;
  void repair(HelperReply reply) override;

 private:
  using Work = std::function<NODOHelperCommandResponse(Date now)>;
  using Tell = std::function<void(const std::string& reason)>;

  void passByItself(const std::string& occasion);
  void change(const std::string& request, const Work& work, const HelperReply& reply);
  NODOHelperCommandResponse answer(const Work& work, const Tell& logFailure);
  void logOnce(std::string& last, const std::string& what, const std::string& reason);
  void schedule();

  LockKeeper& keeper_;
  DaemonLoop& loop_;
  std::function<Date()> now_;
  Log log_;
  Seconds releaseGrace_;
  // Each empty after a success. Apart, for a look may succeed all the time that passes fail.
  std::string lastPassFailure_;
  std::string lastLookFailure_;
};

}  // namespace nodo::nodod
