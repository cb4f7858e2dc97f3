#include <NODOCore/base/Errors.h>
#include <NODOCore/base/JSONCoding.h>
#include <platform/HelperMachine.h>
#include <platform/linux/helper/BusChangeNews.h>
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
  BusHelperConnecting(std::optional<std::string> bus, AbsentDaemon absent)
      : bus_(std::move(bus)), absent_(absent) {}

  std::unique_ptr<HelperConnection> privilegedConnection(
      const std::string& machServiceName) const override {
    return std::make_unique<BusHelperConnection>(bus_, machServiceName, absent_);
  }

 private:
  std::optional<std::string> bus_;
  AbsentDaemon absent_;
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

// When the clock shows that the time is used up.
BusClock::time_point deadlineAfter(Seconds limit) {
  constexpr Seconds day(std::chrono::hours(24));  // what the clock can hold, and nobody waits for
  return BusClock::now() + std::chrono::ceil<milliseconds>(std::min(limit, day));
}

BusMessage askDaemon(const BusConnection& bus, const char* method) {
  const std::string name = daemonName();
  const std::string path = objectPath(name);
  return bus.send(bus.newCall(
      {.service = name.c_str(), .path = path.c_str(), .interface = helperInterface}, method));
}

// Why the daemon refuses; an empty text when it does not.
std::string askForRefusal(const BusConnection& bus) {
  const BusMessage reply = askDaemon(bus, permissionMethod);
  int isGranted = 0;
  const char* refusal = nullptr;
  checkSystemd(sd_bus_message_read(reply.get(), "bs", &isGranted, &refusal), "read the permission");
  return isGranted != 0 ? "" : refusal;
}

// Nothing where the daemon is of another version and tells something else.
std::optional<SettingsReport> askForSettings(const BusConnection& bus) {
  try {
    const BusMessage reply = askDaemon(bus, settingsMethod);
    const char* text = nullptr;
    checkSystemd(sd_bus_message_read(reply.get(), "s", &text), "read the settings");
    return decodeJSON<SettingsReport>(text);
  } catch (const BusError&) {
    return std::nullopt;
  } catch (const DecodingError&) {
    return std::nullopt;
  }
}

bool blocksHoldForTheirUser(milliseconds limit) {
  Logind logind({.connecting = limit / 2, .call = limit / 2});
  return logind.blocksHoldForTheirUser();
}

}  // namespace

std::shared_ptr<const HelperConnecting> helperConnecting(const std::optional<std::string>& bus) {
  return std::make_shared<BusHelperConnecting>(bus, AbsentDaemon::isStarted);
}

std::shared_ptr<const HelperConnecting> helperWatching(const std::optional<std::string>& bus) {
  return std::make_shared<BusHelperConnecting>(bus, AbsentDaemon::staysAbsent);
}

std::optional<std::string> refusalOfThisProgram() {
  return std::nullopt;
}

DaemonStanding daemonStanding(const std::optional<std::string>& bus, Seconds limit) {
  constexpr std::uint32_t root = 0;
  const auto deadline = deadlineAfter(limit);
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
  standing.settings = askForSettings(daemonsBus);
  // Last, as the daemon may wait for polkit.
  daemonsBus.limitCalls(timeUntil(deadline));
  const auto refusal = ifKnown([&] { return askForRefusal(daemonsBus); });
  if (refusal && !refusal->empty()) {
    standing.refusal = refusal;
  }
  return standing;
}

std::optional<SettingsReport> daemonSettings(const std::optional<std::string>& bus, Seconds limit) {
  const auto deadline = deadlineAfter(limit);
  auto found = ifKnown([&] { return findDaemon(bus, daemonName(), deadline); });
  return found ? askForSettings(BusConnection(std::move(found->connection), timeUntil(deadline)))
               : std::nullopt;
}

std::unique_ptr<ChangeNews> listenForChanges(const std::optional<std::string>& bus, Seconds limit) {
  const auto deadline = deadlineAfter(limit);
  try {
    return std::make_unique<BusChangeNews>(findDaemon(bus, daemonName(), deadline), daemonName(),
                                           deadline);
  } catch (const BusError&) {
    return nullptr;
  }
}

std::string_view restartCommand() {
  return "sudo systemctl restart nodod";
}

}  // namespace nodo
