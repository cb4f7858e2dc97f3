#pragma once

#include <systemd/sd-bus.h>

namespace nodo {

/// The functions of libsystemd's bus client that nodo calls, looked up when first needed.
///
/// Not linked, because loading libsystemd with its own libraries costs a command-line tool more
/// than all the rest of its start, and most of its runs ask no bus. The member names are the
/// library's without "sd_bus_".
struct SdBusLibrary {
  decltype(&::sd_bus_open_system) open_system = nullptr;
  decltype(&::sd_bus_flush_close_unref) flush_close_unref = nullptr;
  decltype(&::sd_bus_is_ready) is_ready = nullptr;
  decltype(&::sd_bus_process) process = nullptr;
  decltype(&::sd_bus_wait) wait = nullptr;
  decltype(&::sd_bus_call) call = nullptr;
  decltype(&::sd_bus_error_free) error_free = nullptr;
  decltype(&::sd_bus_message_new_method_call) message_new_method_call = nullptr;
  decltype(&::sd_bus_message_set_auto_start) message_set_auto_start = nullptr;
  decltype(&::sd_bus_message_append) message_append = nullptr;
  decltype(&::sd_bus_message_enter_container) message_enter_container = nullptr;
  decltype(&::sd_bus_message_read) message_read = nullptr;
  decltype(&::sd_bus_message_unref) message_unref = nullptr;

  /// The library, loaded once for the process's life. Throws BusError when it is not installed.
  /// Safe from any thread.
  static const SdBusLibrary& shared();
};

}  // namespace nodo
