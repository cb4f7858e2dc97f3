#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>

#include <systemd/sd-bus.h>
#include <systemd/sd-device.h>
#include <systemd/sd-event.h>

namespace nodo {

/// The bus, or a service on it, could not be reached or did not answer as it should. Also what
/// libsystemd, which brings buses, event loops and devices, could not do. The text says what and
/// why.
class BusError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// The bus, or a service on it, is there and did not answer in time.
class BusTimeout : public BusError {
 public:
  using BusError::BusError;
};

/// A service on the bus, or the bus by its policy, answered "no". The text is its own.
class BusRefusal : public BusError {
 public:
  using BusError::BusError;
};

// ---- libsystemd's objects

/// Gives a reference to one of libsystemd's objects back.
struct SystemdUnref {
  /// Without sending what waits to be sent: a bus that hangs would never take it.
  void operator()(sd_bus* bus) const { sd_bus_close_unref(bus); }

  void operator()(sd_bus_creds* creds) const { sd_bus_creds_unref(creds); }

  void operator()(sd_bus_message* message) const { sd_bus_message_unref(message); }

  void operator()(sd_bus_slot* slot) const { sd_bus_slot_unref(slot); }

  void operator()(sd_device_enumerator* devices) const { sd_device_enumerator_unref(devices); }

  void operator()(sd_device_monitor* monitor) const { sd_device_monitor_unref(monitor); }

  void operator()(sd_event* event) const { sd_event_unref(event); }

  /// The event loop may be in the middle of this source's callback.
  void operator()(sd_event_source* source) const { sd_event_source_disable_unref(source); }
};

/// Owns one reference to an object of libsystemd's.
template <class Object>
using SystemdHandle = std::unique_ptr<Object, SystemdUnref>;

using BusHandle = SystemdHandle<sd_bus>;
using BusMessage = SystemdHandle<sd_bus_message>;

/// See into().
template <class Object>
class IntoHandle {
 public:
  explicit IntoHandle(SystemdHandle<Object>& handle) : handle_(handle) {}

  IntoHandle(const IntoHandle&) = delete;
  IntoHandle& operator=(const IntoHandle&) = delete;

  ~IntoHandle() { handle_.reset(made_); }

  // NOLINTNEXTLINE(google-explicit-constructor): it stands for the pointer that is filled in.
  operator Object**() { return &made_; }

 private:
  SystemdHandle<Object>& handle_;
  Object* made_ = nullptr;
};

/// Has `handle` own, from the statement's end on, the object that a function of libsystemd's makes:
/// `sd_bus_new(into(bus));`.
template <class Object>
IntoHandle<Object> into(SystemdHandle<Object>& handle) {
  return IntoHandle<Object>(handle);
}

/// Throws BusError for a negative result, which is an errno with its sign turned, as libsystemd's
/// functions give it; `action` says what was tried.
void checkSystemd(int result, const std::string& action);

// ---- buses

/// A bus is called by one of these names or by its address.
inline constexpr char systemBus[] = "system";
inline constexpr char sessionBus[] = "session";

/// For people: "the system bus", "the bus at unix:path=/run/bus".
std::string describedBus(const std::string& bus);

/// Calls `connect` with `choice`; without one with the system bus and, if that throws a BusError,
/// with the session bus. If that throws one, too, throws a BusError with both reasons. A BusTimeout
/// is passed on: a bus that hangs is no reason to try another.
void connectToChosenBus(const std::optional<std::string>& choice,
                        const std::function<void(const std::string& bus)>& connect);

/// Whether messages may bring file descriptors. Everybody on the bus may send some, in signals, and
/// they count as this process's until the messages are dropped.
enum class BusDescriptors { refused, taken };

using BusClock = std::chrono::steady_clock;

/// What is left, for a limit of a call: never nothing, by which the library means a limit of its
/// own.
std::chrono::milliseconds timeUntil(BusClock::time_point deadline);

/// Begins to connect to `bus`, as a client; the rest is done while it is processed. Throws
/// BusError, also when it is to be the session bus and this user has none.
BusHandle startBus(const std::string& bus, BusDescriptors descriptors);

/// Connects to `bus` and signs in. Throws BusTimeout when that is not done by `deadline`, BusError
/// for other failures.
BusHandle openBus(const std::string& bus, BusDescriptors descriptors,
                  BusClock::time_point deadline);

/// Does one step of what there is to do on `bus`, or waits for something until `deadline`, which
/// has passed when it returns false. `action` says what is done. Throws BusError when the bus is
/// lost.
bool processBus(sd_bus* bus, BusClock::time_point deadline, const std::string& action);

/// An object on the bus by one of its interfaces.
struct BusObject {
  const char* service;
  const char* path;
  const char* interface;
};

/// A call of a method of `object`, ready for its arguments. Throws BusError.
BusMessage newCall(sd_bus* bus, const BusObject& object, const std::string& method,
                   const std::string& action);

/// How long connecting may take, and how long each call after it.
struct BusLimits {
  std::chrono::milliseconds connecting;
  std::chrono::milliseconds call;
};

/// How long the daemon waits at its own start for what may just be starting, too. What it asks
/// then, one after another, fits into the 90 seconds that systemd gives a start.
inline constexpr std::chrono::seconds startPatience(20);

/// A bus that works takes less than one thousandth of it.
inline constexpr BusLimits twoSecondsTogether{.connecting = std::chrono::milliseconds(500),
                                              .call = std::chrono::milliseconds(1500)};

/// A connection to a bus with a time limit on every step, so that no hung service or bus can hold
/// up its caller. Not thread-safe.
class BusConnection {
 public:
  /// Connects to `bus` and signs in. Throws BusError.
  BusConnection(const std::string& bus, BusLimits limits,
                BusDescriptors descriptors = BusDescriptors::refused);

  /// Over a bus that is connected already.
  BusConnection(BusHandle bus, std::chrono::milliseconds callLimit)
      : bus_(std::move(bus)), callLimit_(callLimit) {}

  /// From now on.
  void limitCalls(std::chrono::milliseconds limit) { callLimit_ = limit; }

  /// Gives the bus back; nothing can be called any more.
  BusHandle release() { return std::move(bus_); }

  /// As above. A service that is not running is not started: nodo looks at the machine, it does not
  /// change it.
  BusMessage newCall(const BusObject& object, const std::string& method) const;

  /// Sends `call` and waits for the reply. Throws BusRefusal with the service's own words when it
  /// answered with an error, BusTimeout when it did not answer in time, BusError when it cannot.
  BusMessage send(const BusMessage& call) const;

 private:
  // The library keeps whatever comes before a reply until somebody asks for it.
  void dropWhatOthersSent() const;

  BusHandle bus_;
  std::chrono::milliseconds callLimit_;
};

// ---- who is on a bus, by the bus's own word; both throw as BusConnection::send

/// Whether somebody has that name.
bool hasOwner(const BusConnection& bus, const std::string& name);

/// The user of the one who has that name.
std::uint32_t userOf(const BusConnection& bus, const std::string& name);

}  // namespace nodo
