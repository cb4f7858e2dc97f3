#pragma once

#include <NODOCore/daemon/DaemonLoop.h>

#include <functional>
#include <memory>

namespace nodo {

/// Tells when the power supply, the heat, the lid or the network changed or the machine woke up, on
/// the main thread while its run loop runs. To be made and destroyed there.
///
/// What the system does not offer is one line on standard error: the daemon looks at the machine
/// itself while it holds the lock, only later.
class MachineNews {
 public:
  /// `changed` is given what changed. It may be called when nothing did.
  explicit MachineNews(std::function<void(News news)> changed);

  MachineNews(const MachineNews&) = delete;
  MachineNews& operator=(const MachineNews&) = delete;

  ~MachineNews();

 private:
  class Power;
  class Strain;
  class Lid;
  class Sleep;
  class Route;

  std::function<void(News news)> changed_;
  std::unique_ptr<Power> power_;
  std::unique_ptr<Strain> strain_;
  std::unique_ptr<Lid> lid_;
  std::unique_ptr<Sleep> sleep_;
  std::unique_ptr<Route> route_;
};

}  // namespace nodo
