#pragma once

#include <memory>
#include <string>

#include <systemd/sd-bus.h>
#include <systemd/sd-device.h>
#include <systemd/sd-event.h>

namespace nodo {

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

/// Throws BusError for a negative result, which is an errno with its sign turned, as libsystemd's
/// functions give it; `action` says what was tried.
void checkSystemd(int result, const std::string& action);

}  // namespace nodo
