#pragma once

#include <NODOCore/daemon/DaemonLoop.h>
#include <NODOCore/sensing/SystemSnapshot.h>
#include <platform/linux/news/EventLoop.h>
#include <platform/linux/news/KernelMessages.h>
#include <platform/linux/news/LidSwitches.h>
#include <platform/linux/news/LogindSignals.h>

#include <functional>
#include <optional>
#include <vector>

namespace nodo {

/// Tells when the machine's power supply, route or lid changed and when it woke up.
///
/// The kernel's messages come in bursts, and most of them change nothing that nodo looks at. So
/// they are gathered for a moment, then the machine is read, and only what differs from what the
/// last pass saw is told, once for a burst. Wakes up for nothing but such messages.
class MachineWatch {
 public:
  /// `shared`: a connection to the system bus that the loop serves, or null to make one.
  /// `changed`: called in the loop with what changed.
  /// A source of messages that cannot be had is logged and gone without.
  MachineWatch(EventLoop& loop, sd_bus* shared,
               std::function<void(const std::vector<News>& news)> changed);

  MachineWatch(const MachineWatch&) = delete;
  MachineWatch& operator=(const MachineWatch&) = delete;
  ~MachineWatch() = default;

  /// `seen`: the machine as the pass found it; when it failed, everything is news. Connects anew to
  /// what got lost, too.
  void afterPass(const std::optional<SystemSnapshot>& seen);

 private:
  void suspect(News news);
  bool isConfirmed(News news) const;
  void look();

  std::function<void(const std::vector<News>& news)> changed_;
  NewsBurst suspicions_;
  LoopTimer settled_;
  std::optional<LidSwitches> lidSwitches_;
  std::optional<SupplyMessages> supplyMessages_;
  std::optional<RouteMessages> routeMessages_;
  LogindSignals logindSignals_;
  std::optional<SystemSnapshot> seen_;
};

}  // namespace nodo
