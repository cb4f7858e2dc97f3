#pragma once

#include <systemd/sd-bus.h>

namespace nodo {

/// The functions of libsystemd's bus client that nodo calls, looked up when first needed.
///
/// Not linked, because loading libsystemd with its own libraries costs a command-line tool more
/// than all the rest of its start, and most of its runs ask no bus. The member names are the
/// library's without "sd_bus_", but `newBus`.
struct SdBusLibrary {
  decltype(&::sd_bus_new) newBus = nullptr;
  decltype(&::sd_bus_set_address) setAddress = nullptr;
  decltype(&::sd_bus_set_bus_client) setBusClient = nullptr;
  decltype(&::sd_bus_negotiate_fds) negotiateFds = nullptr;
  decltype(&::sd_bus_start) start = nullptr;
  decltype(&::sd_bus_close_unref) closeUnref = nullptr;
  decltype(&::sd_bus_is_open) isOpen = nullptr;
  decltype(&::sd_bus_is_ready) isReady = nullptr;
  decltype(&::sd_bus_process) process = nullptr;
  decltype(&::sd_bus_wait) wait = nullptr;
  decltype(&::sd_bus_call) call = nullptr;
  decltype(&::sd_bus_call_async) callAsync = nullptr;
  decltype(&::sd_bus_error_free) errorFree = nullptr;
  decltype(&::sd_bus_message_new_method_call) messageNewMethodCall = nullptr;
  decltype(&::sd_bus_message_set_auto_start) messageSetAutoStart = nullptr;
  decltype(&::sd_bus_message_append) messageAppend = nullptr;
  decltype(&::sd_bus_message_open_container) messageOpenContainer = nullptr;
  decltype(&::sd_bus_message_close_container) messageCloseContainer = nullptr;
  decltype(&::sd_bus_message_enter_container) messageEnterContainer = nullptr;
  decltype(&::sd_bus_message_read) messageRead = nullptr;
  decltype(&::sd_bus_message_is_method_error) messageIsMethodError = nullptr;
  decltype(&::sd_bus_message_get_error) messageGetError = nullptr;
  decltype(&::sd_bus_message_unref) messageUnref = nullptr;

  /// The library, loaded once for the process's life. Throws BusError when it cannot be, again at
  /// each call. Safe from any thread.
  static const SdBusLibrary& shared();
};

}  // namespace nodo
