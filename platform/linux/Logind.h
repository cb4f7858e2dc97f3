#pragma once

#include <NODOCore/base/Files.h>
#include <platform/linux/BusConnection.h>

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
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

/// Whether `kind` is among `what`, kinds separated by colons.
bool holdsUp(std::string_view what, std::string_view kind);

/// systemd-logind, which decides about sleep on Linux, over the system bus.
///
/// Connects at the first question and again after a failure; for each inhibitor anew. Every
/// question takes at most the limit for connecting and the one for the answer. Not thread-safe. All
/// questions throw BusRefusal when logind says no, BusError when it cannot be asked.
class Logind {
 public:
  explicit Logind(std::chrono::milliseconds timeLimit) : Logind(timeLimit, timeLimit) {}

  Logind(std::chrono::milliseconds connectLimit, std::chrono::milliseconds callLimit)
      : connectLimit_(connectLimit), callLimit_(callLimit) {}

  /// Whether the lid switch is closed; false on a machine without one.
  bool isLidClosed();

  /// Everything that is being held up with mode "block", separated by colons.
  std::string blockInhibited();

  /// All inhibitors, in logind's order.
  std::vector<Inhibitor> inhibitors();

  /// Takes an inhibitor; it ends when the last copy of the descriptor is closed.
  FileDescriptor inhibit(const std::string& what, const std::string& who, const std::string& why,
                         const std::string& mode);

  /// Suspends the machine, without asking a person for a password.
  void suspend();

 private:
  BusMessage askProperty(const std::string& name);
  BusMessage send(const BusMessage& call);
  const BusConnection& connection();

  std::chrono::milliseconds connectLimit_;
  std::chrono::milliseconds callLimit_;
  std::optional<BusConnection> connection_;
};

}  // namespace nodo
