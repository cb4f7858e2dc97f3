#include <platform/linux/news/EventLoop.h>
#include <platform/linux/news/MachineWatch.h>
#include <platform/linux/senses/LinuxSystemSnapshotProvider.h>

#include <chrono>
#include <ctime>
#include <exception>
#include <string>
#include <utility>

namespace nodo {
namespace {

using std::chrono::microseconds;

// How much later than it is due a burst may be taken, together with other work.
constexpr microseconds settleAccuracy =
    std::chrono::duration_cast<microseconds>(NewsBurst::settleTime / 4);

constexpr char supplies[] = "/sys/class/power_supply";
constexpr char procNet[] = "/proc/net";

// Makes a source of messages where the machine has it.
template <class Source, class Wanted>
void open(std::optional<Source>& source, const std::string& name, EventLoop& loop,
          Wanted&& wanted) {
  try {
    source.emplace(loop, std::forward<Wanted>(wanted));
  } catch (const std::exception& error) {
    loop.log("no news of " + name + ": " + error.what());
  }
}

}  // namespace

MachineWatch::MachineWatch(EventLoop& loop, sd_bus* shared,
                           std::function<void(const std::vector<News>& news)> changed)
    : changed_(std::move(changed)),
      settled_(loop, CLOCK_MONOTONIC, settleAccuracy, [this] { look(); }),
      logindSignals_(loop, shared,
                     {.lidChanged = [this] { suspect(News::lid); },
                      .resumed = [this] { suspect(News::resume); }}) {
  open(supplyMessages_, "the power supplies", loop,
       SupplyMessages::Listener{.supplyChanged = [this] { suspect(News::powerSupply); },
                                .inputAdded =
                                    [this](sd_device* device) {
                                      if (lidSwitches_) {
                                        lidSwitches_->consider(device);
                                      }
                                    }});
  // After udev's messages, so that a lid switch that is plugged in between the two is not missed:
  // its message waits for the loop, which runs only when both are there.
  open(lidSwitches_, "the lid switch", loop, [this] { suspect(News::lid); });
  open(routeMessages_, "the network", loop, [this] { suspect(News::route); });
}

void MachineWatch::afterPass(const std::optional<SystemSnapshot>& seen) {
  seen_ = seen;
  logindSignals_.repair();
}

void MachineWatch::suspect(News news) {
  if (suspicions_.add(news)) {
    // Also for the lid: logind must have seen it by then, which is asked for it.
    settled_.set(NewsBurst::settleTime);
  }
}

void MachineWatch::look() {
  std::vector<News> news = suspicions_.take();
  std::erase_if(news, [this](News each) { return !isConfirmed(each); });
  if (!news.empty()) {
    changed_(news);
  }
}

// Most messages about power supplies and routes change nothing that nodo looks at.
bool MachineWatch::isConfirmed(News news) const {
  if (!seen_) {
    return true;
  }
  switch (news) {
    case News::powerSupply:
      return readPowerSupplies(supplies) !=
             PowerReading{.source = seen_->powerSource, .batteryPercent = seen_->batteryPercent};
    case News::route:
      return readDefaultRoute(procNet) != seen_->defaultRouteAvailable;
    case News::lid:
    case News::resume:
      break;
  }
  return true;
}

}  // namespace nodo
