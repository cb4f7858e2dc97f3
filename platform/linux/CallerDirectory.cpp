#include <platform/linux/BusError.h>
#include <platform/linux/CallerDirectory.h>

#include <algorithm>
#include <chrono>
#include <utility>

namespace nodo {
namespace {

using std::chrono::milliseconds;

// Two seconds together; a bus that works takes less than one thousandth of it.
constexpr milliseconds connectLimit(500);
constexpr milliseconds callLimit(1500);

BusMessage askBus(const BusConnection& bus, const std::string& question, const std::string& name) {
  const BusMessage call = bus.newCall("org.freedesktop.DBus", "/org/freedesktop/DBus",
                                      "org.freedesktop.DBus", question);
  checkSystemd(sd_bus_message_append(call.get(), "s", name.c_str()), "ask the bus");
  return bus.send(call);
}

std::uint32_t userOf(const BusConnection& bus, const std::string& name) {
  const BusMessage reply = askBus(bus, "GetConnectionUnixUser", name);
  std::uint32_t user = 0;
  checkSystemd(sd_bus_message_read(reply.get(), "u", &user), "read a caller's user");
  return user;
}

bool hasOwner(const BusConnection& bus, const std::string& name) {
  const BusMessage reply = askBus(bus, "NameHasOwner", name);
  int isOwned = 0;
  checkSystemd(sd_bus_message_read(reply.get(), "b", &isOwned), "read who is there");
  return isOwned != 0;
}

}  // namespace

CallerDirectory::CallerDirectory(std::string busAddress) : busAddress_(std::move(busAddress)) {
  known_.reserve(mostRemembered);
}

BusPeer CallerDirectory::find(const std::string& name) {
  const auto known = std::find_if(known_.begin(), known_.end(),
                                  [&name](const Known& each) { return each.name == name; });
  if (known != known_.end()) {
    return {.isThere = true, .user = known->user};
  }
  const BusPeer peer = ask(name);
  if (peer.user) {
    remember(name, *peer.user);
  }
  return peer;
}

void CallerDirectory::remember(const std::string& name, std::uint32_t user) {
  if (known_.size() < mostRemembered) {
    known_.push_back({.name = name, .user = user});
    return;
  }
  known_[oldest_] = {.name = name, .user = user};
  oldest_ = (oldest_ + 1) % mostRemembered;
}

bool CallerDirectory::isThere(const std::string& name) const {
  return ask(name).isThere;
}

BusPeer CallerDirectory::ask(const std::string& name) const {
  try {
    const BusConnection bus = BusConnection::open(busAddress_, connectLimit, callLimit);
    try {
      return {.isThere = true, .user = userOf(bus, name)};
    } catch (const BusError&) {
      return {.isThere = hasOwner(bus, name), .user = std::nullopt};
    }
  } catch (const BusError&) {
    return {.isThere = true, .user = std::nullopt};  // nobody who could tell
  }
}

}  // namespace nodo
