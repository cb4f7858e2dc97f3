#pragma once

#include <NODOCore/helper/NODOXPCClientAuthentication.h>
#include <platform/DaemonMachine.h>

#include <memory>

namespace nodo {

/// The system's notification that the daemon's status has changed.
inline constexpr char changedNotification[] = "com.quintavel.nodo.helper.Changed";

/// The daemon's loop on the main run loop of its process, which serves the main dispatch queue too.
/// For the main thread only; one at a time.
class MacDaemonLoop : public DaemonLoop {
 public:
  explicit MacDaemonLoop(std::shared_ptr<const CodeSigning> codeSigning);

  MacDaemonLoop(const MacDaemonLoop&) = delete;
  MacDaemonLoop& operator=(const MacDaemonLoop&) = delete;

  ~MacDaemonLoop() override;

  /// launchd keeps the name, so that it is taken shows only in the system's log.
  void serve(NODOHelperXPCProtocol& service) override;

  void setTimer(std::optional<Seconds> fromNow) override;

  /// launchd asks for no proof of life, and all news are told.
  void afterPass(bool lockHeld, const std::optional<SystemSnapshot>& seen) override;

  void announceChange() override;

  /// Errors of handlers end the loop and are thrown from here.
  void run(const DaemonHandlers& handlers) override;

 private:
  class Parts;

  std::unique_ptr<Parts> parts_;
};

}  // namespace nodo
