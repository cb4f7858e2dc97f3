#include <platform/ChangeNames.h>
#include <platform/linux/DaemonLog.h>
#include <platform/linux/DefaultRoute.h>
#include <platform/linux/MachineWatch.h>

#include <chrono>
#include <ctime>
#include <exception>
#include <utility>

namespace nodo {
namespace {

using std::chrono::milliseconds;

// How long messages are gathered: a burst's last one may be the one that matters, and logind must
// have seen the lid by then, which is asked for it.
constexpr milliseconds settleTime(100);

constexpr char supplies[] = "/sys/class/power_supply";
constexpr char procNet[] = "/proc/net";

// Makes a source of messages where the machine has it.
template <class Source, class... Arguments>
void open(std::optional<Source>& source, const std::string& name, Arguments&&... arguments) {
  try {
    source.emplace(std::forward<Arguments>(arguments)...);
  } catch (const std::exception& error) {
    logLine("nodod: no news of " + name + ": " + error.what());
  }
}

}  // namespace

MachineWatch::MachineWatch(EventLoop& loop, sd_bus* systemBus,
                           std::function<void(const std::string& what)> changed)
    : changed_(std::move(changed)),
      settled_(loop, CLOCK_MONOTONIC, settleTime / 4, [this] { look(); }),
      logindSignals_(loop, systemBus,
                     {.lidChanged = [this] { suspect(&Suspicions::lid); },
                      .resumed = [this] { suspect(&Suspicions::resume); }}) {
  const auto lid = [this] { suspect(&Suspicions::lid); };
  open(supplyMessages_, "the power supplies", loop,
       SupplyMessages::Listener{.supplyChanged = [this] { suspect(&Suspicions::power); },
                                .inputAdded =
                                    [this](sd_device* device) {
                                      if (lidSwitches_) {
                                        lidSwitches_->consider(device);
                                      }
                                    }});
  // After udev's messages, so that no lid comes between the two. One that comes meanwhile is told
  // of in the loop, thus not before it can be considered.
  open(lidSwitches_, "the lid switch", loop, lid);
  open(routeMessages_, "the network", loop, [this] { suspect(&Suspicions::route); });
  // Read after the sources are open, so that no change can fall in between.
  power_ = readPowerSupplies(supplies);
  hasRoute_ = readDefaultRoute(procNet);
}

void MachineWatch::repair() {
  logindSignals_.repair();
}

void MachineWatch::suspect(bool Suspicions::*what) {
  suspicions_.*what = true;
  if (!settled_.isSet()) {
    settled_.set(settleTime);
  }
}

void MachineWatch::look() {
  const Suspicions suspicions = std::exchange(suspicions_, {});
  ChangeNames changes;
  if (suspicions.resume) {
    changes.add("resume");
  }
  if (suspicions.lid) {
    changes.add("lid");
  }
  if (suspicions.power && std::exchange(power_, readPowerSupplies(supplies)) != power_) {
    changes.add("power supply");
  }
  if (suspicions.route && std::exchange(hasRoute_, readDefaultRoute(procNet)) != hasRoute_) {
    changes.add("route");
  }
  if (!changes.isEmpty()) {
    changed_(changes.take());
  }
}

}  // namespace nodo
