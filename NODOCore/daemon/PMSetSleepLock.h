#pragma once

#include <NODOCore/base/Date.h>
#include <NODOCore/daemon/SleepLock.h>
#include <NODOCore/power/CommandRunning.h>
#include <NODOCore/power/PowerManaging.h>

#include <functional>
#include <memory>
#include <optional>
#include <string_view>

namespace nodo {

/// How time passes for who waits: real time unless a test says otherwise.
struct Waiting {
  std::function<Seconds()> now;  ///< time awake, from some instant on
  std::function<void(Seconds)> pause;

  static Waiting real();
};

/// Switches the lock by another manager, and believes only what the kernel says afterwards.
///
/// Exists because pmset exits 0 also where it set nothing, and sets a preference that powerd
/// applies a moment later: so the kernel's value is looked at until it is the one that was asked
/// for, for `patience` at most. Where it does not become that, or cannot be read, the operation has
/// failed: its exit code is the tool's, or 1 where that was 0, and its standard error ends with
/// what the kernel says. A tool that failed is not waited for. Asking for sleep is handed on as it
/// is. A manager's error, also that of a tool that was killed for its slowness, is passed on, and
/// nothing is known of the lock then.
class VerifiedPowerManager : public PowerManaging {
 public:
  using KernelValue = std::function<std::optional<bool>()>;

  static constexpr Seconds pauseBetweenLooks{0.03};
  static constexpr Seconds patience{2};

  VerifiedPowerManager(std::unique_ptr<PowerManaging> manager, KernelValue kernelSaysDisabled,
                       Waiting waiting);

  void announce(const std::string& reason) override { manager_->announce(reason); }

  PowerOperationResult setSleepDisabled(bool disabled) override;

  PowerOperationResult requestSleepNow() override { return manager_->requestSleepNow(); }

 private:
  std::optional<bool> awaitKernel(bool disabled) const;

  std::unique_ptr<PowerManaging> manager_;
  KernelValue kernelSaysDisabled_;
  Waiting waiting_;
};

/// Whether the kernel lets nothing put the machine to sleep: the property "SleepDisabled" of its
/// power domain, which it shows from the first time on that it was set. Absent where the text does
/// not show the domain, or in no way that is known.
std::optional<bool> kernelSleepDisabled(std::string_view ioregOutput);

/// The same, as `/usr/sbin/ioreg` tells it. Throws nothing: a tool that fails tells nothing.
std::optional<bool> askKernelSleepDisabled(const CommandRunning& runner);

/// The machine-wide lock that `/usr/bin/pmset` switches, verified. It outlives this process.
SleepLock pmsetSleepLock(const std::shared_ptr<const CommandRunning>& runner,
                         Waiting waiting = Waiting::real());

}  // namespace nodo
