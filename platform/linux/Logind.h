#pragma once

#include <platform/linux/BusConnection.h>

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace nodo {

/// One inhibitor in logind's list (org.freedesktop.login1(5)). Its texts are foreign.
struct Inhibitor {
  std::string what;  ///< what it holds up, separated by colons: "sleep:idle"
  std::string who;   ///< who says so
  std::string why;
  std::string mode;  ///< "block", or "delay": for a few seconds only
  std::uint32_t uid = 0;
  std::uint32_t pid = 0;

  bool operator==(const Inhibitor&) const = default;
};

/// systemd-logind, which decides about sleep on Linux, over the system bus.
///
/// Connects at the first question and again after a failure. Every question takes at most the time
/// limit for connecting and once more for the answer. Not thread-safe. All questions throw
/// BusError.
class Logind {
 public:
  explicit Logind(std::chrono::milliseconds timeLimit) : timeLimit_(timeLimit) {}

  /// Whether the lid switch is closed; false on a machine without one.
  bool isLidClosed();

  /// Everything that is being held up with mode "block", separated by colons.
  std::string blockInhibited();

  /// All inhibitors, in logind's order.
  std::vector<Inhibitor> inhibitors();

 private:
  BusMessage askProperty(const std::string& name);
  BusMessage send(const BusMessage& call);
  const BusConnection& connection();

  std::chrono::milliseconds timeLimit_;
  std::optional<BusConnection> connection_;
};

}  // namespace nodo
