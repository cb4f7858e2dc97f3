#include <platform/HelperMachine.h>
#include <platform/linux/helper/BusHelperConnection.h>
#include <platform/linux/helper/BusRequest.h>
#include <platform/linux/logind/Logind.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <utility>

namespace nodo {
namespace {

class BusHelperConnecting : public HelperConnecting {
 public:
  explicit BusHelperConnecting(std::optional<std::string> bus) : bus_(std::move(bus)) {}

  std::unique_ptr<HelperConnection> privilegedConnection(
      const std::string& machServiceName) const override {
    return std::make_unique<BusHelperConnection>(bus_, machServiceName);
  }

 private:
  std::optional<std::string> bus_;
};

using std::chrono::milliseconds;

std::string daemonName() {
  return std::string(NODOServiceConstants::helperMachServiceName);
}

// What `ask` gives, if anybody answers.
template <class Ask>
auto ifKnown(Ask ask) -> std::optional<decltype(ask())> {
  try {
    return ask();
  } catch (const BusError&) {
    return std::nullopt;
  }
}

// Why the daemon refuses; an empty text when it does not.
std::string askForRefusal(const BusConnection& bus) {
  const std::string name = daemonName();
  const std::string path = objectPath(name);
  const BusMessage reply = bus.send(
      bus.newCall({.service = name.c_str(), .path = path.c_str(), .interface = helperInterface},
                  permissionMethod));
  int isGranted = 0;
  const char* refusal = nullptr;
  checkSystemd(sd_bus_message_read(reply.get(), "bs", &isGranted, &refusal), "read the permission");
  return isGranted != 0 ? "" : refusal;
}

bool blocksHoldForTheirUser(milliseconds limit) {
  Logind logind({.connecting = limit / 2, .call = limit / 2});
  return logind.blocksHoldForTheirUser();
}

}  // namespace

std::shared_ptr<const HelperConnecting> helperConnecting(const std::optional<std::string>& bus) {
  return std::make_shared<BusHelperConnecting>(bus);
}

std::optional<std::string> refusalOfThisProgram() {
  return std::nullopt;
}

DaemonStanding daemonStanding(const std::optional<std::string>& bus, Seconds limit) {
  constexpr std::uint32_t root = 0;
  constexpr Seconds day(std::chrono::hours(24));  // what the clock can hold, and nobody waits for
  const auto deadline = BusClock::now() + std::chrono::ceil<milliseconds>(std::min(limit, day));
  DaemonStanding standing;
  auto found = ifKnown([&] { return findDaemon(bus, daemonName(), deadline); });
  if (!found) {
    return standing;
  }
  BusConnection daemonsBus(std::move(found->connection), timeUntil(deadline));
  if (ifKnown([&] { return userOf(daemonsBus, daemonName()); }).value_or(root) != root) {
    const auto hold = ifKnown([&] { return blocksHoldForTheirUser(timeUntil(deadline)); });
    standing.letsItsUserSleep = hold == false;
  }
  // Last, as the daemon may wait for polkit.
  daemonsBus.limitCalls(timeUntil(deadline));
  const auto refusal = ifKnown([&] { return askForRefusal(daemonsBus); });
  if (refusal && !refusal->empty()) {
    standing.refusal = refusal;
  }
  return standing;
}

}  // namespace nodo
