#include <platform/linux/BusAddress.h>
#include <platform/linux/BusConnection.h>
#include <platform/linux/BusError.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <string_view>
#include <utility>

namespace nodo {
namespace {

class CallError {
 public:
  CallError() = default;
  CallError(const CallError&) = delete;
  CallError& operator=(const CallError&) = delete;

  ~CallError() { sd_bus_error_free(&error_); }

  sd_bus_error* get() { return &error_; }

  std::string text(int result) const {
    return error_.message != nullptr ? error_.message : std::strerror(-result);
  }

  // Whether it says that nobody answered: the bus's and the library's own errors.
  bool isSilence() const {
    const std::string_view name = error_.name != nullptr ? error_.name : "";
    return name.empty() || std::find(silences.begin(), silences.end(), name) != silences.end();
  }

 private:
  static constexpr std::array<std::string_view, 6> silences{
      SD_BUS_ERROR_SERVICE_UNKNOWN, SD_BUS_ERROR_NAME_HAS_NO_OWNER, SD_BUS_ERROR_NO_REPLY,
      SD_BUS_ERROR_TIMEOUT,         SD_BUS_ERROR_DISCONNECTED,      SD_BUS_ERROR_NO_SERVER};

  sd_bus_error error_{};
};

std::uint64_t microseconds(std::chrono::steady_clock::duration duration) {
  const auto count = std::chrono::duration_cast<std::chrono::microseconds>(duration).count();
  return count > 0 ? static_cast<std::uint64_t>(count) : 0;
}

}  // namespace

void checkSystemd(int result, const std::string& action) {
  if (result < 0) {
    throw BusError("cannot " + action + ": " + std::strerror(-result));
  }
}

BusHandle startBus(const std::string& address, BusDescriptors descriptors,
                   const std::string& action) {
  sd_bus* made = nullptr;
  checkSystemd(sd_bus_new(&made), action);
  BusHandle bus(made);
  checkSystemd(sd_bus_set_address(made, address.c_str()), action);
  checkSystemd(sd_bus_set_bus_client(made, 1), action);
  checkSystemd(sd_bus_negotiate_fds(made, descriptors == BusDescriptors::taken ? 1 : 0), action);
  checkSystemd(sd_bus_start(made), action);
  return bus;
}

bool processBus(sd_bus* bus, std::chrono::steady_clock::time_point deadline,
                const std::string& action) {
  const int processed = sd_bus_process(bus, nullptr);
  checkSystemd(processed, action);
  if (processed > 0) {
    return true;
  }
  const std::uint64_t left = microseconds(deadline - std::chrono::steady_clock::now());
  if (left == 0) {
    return false;
  }
  const int waited = sd_bus_wait(bus, left);
  checkSystemd(waited == -EINTR ? 0 : waited, action);  // a signal ends the wait, no more
  return true;
}

BusHandle openBus(const std::string& address, BusDescriptors descriptors,
                  std::chrono::steady_clock::time_point deadline, const std::string& action) {
  BusHandle bus = startBus(address, descriptors, action);
  // Signing in needs a few exchanges, which the library would otherwise do without a time limit.
  for (;;) {
    const int ready = sd_bus_is_ready(bus.get());
    checkSystemd(ready, action);
    if (ready > 0) {
      return bus;
    }
    if (!processBus(bus.get(), deadline, action)) {
      throw BusTimeout("cannot " + action + ": it does not answer");
    }
  }
}

BusHandle openBus(const std::string& address, BusDescriptors descriptors,
                  std::chrono::milliseconds timeLimit, const std::string& action) {
  return openBus(address, descriptors, std::chrono::steady_clock::now() + timeLimit, action);
}

BusConnection::BusConnection(BusHandle bus, std::chrono::milliseconds callLimit)
    : bus_(std::move(bus)), callLimit_(callLimit) {}

BusConnection BusConnection::open(const std::string& address,
                                  std::chrono::milliseconds connectLimit,
                                  std::chrono::milliseconds callLimit, BusDescriptors descriptors) {
  return {openBus(address, descriptors, connectLimit, "connect to the bus at " + address),
          callLimit};
}

BusConnection BusConnection::openSystem(std::chrono::milliseconds connectLimit,
                                        std::chrono::milliseconds callLimit,
                                        BusDescriptors descriptors) {
  return {openBus(systemBusAddress(), descriptors, connectLimit, "connect to the system bus"),
          callLimit};
}

BusMessage BusConnection::newCall(const std::string& service, const std::string& path,
                                  const std::string& interface, const std::string& member) const {
  sd_bus_message* made = nullptr;
  checkSystemd(sd_bus_message_new_method_call(bus_.get(), &made, service.c_str(), path.c_str(),
                                              interface.c_str(), member.c_str()),
               "make a call of " + member);
  BusMessage call(made);
  checkSystemd(sd_bus_message_set_auto_start(call.get(), 0), "make a call of " + member);
  return call;
}

BusMessage BusConnection::send(const BusMessage& call) const {
  CallError error;
  sd_bus_message* reply = nullptr;
  const int result =
      sd_bus_call(bus_.get(), call.get(), microseconds(callLimit_), error.get(), &reply);
  const bool answered = result >= 0 || (sd_bus_is_ready(bus_.get()) > 0 && !error.isSilence());
  dropWhatOthersSent();
  if (result < 0) {
    if (answered) {
      throw BusRefusal(error.text(result));
    }
    throw BusError(error.text(result));
  }
  return BusMessage(reply);
}

void BusConnection::dropWhatOthersSent() const {
  const auto deadline = std::chrono::steady_clock::now() + callLimit_;
  while (sd_bus_process(bus_.get(), nullptr) > 0 && std::chrono::steady_clock::now() < deadline) {
  }
}

}  // namespace nodo
