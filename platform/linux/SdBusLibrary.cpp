#include <platform/linux/BusError.h>
#include <platform/linux/SdBusLibrary.h>

#include <dlfcn.h>

namespace nodo {
namespace {

constexpr char libraryName[] = "libsystemd.so.0";

template <class Function>
void find(void* library, Function& function, const char* name) {
  function = reinterpret_cast<Function>(::dlsym(library, name));
  if (function == nullptr) {
    throw BusError(std::string(libraryName) + " is too old: it lacks " + name);
  }
}

SdBusLibrary load() {
  void* library = ::dlopen(libraryName, RTLD_NOW | RTLD_LOCAL);
  if (library == nullptr) {
    throw BusError(std::string("no D-Bus client library: ") + ::dlerror());
  }
  SdBusLibrary bus;
  find(library, bus.open_system, "sd_bus_open_system");
  find(library, bus.flush_close_unref, "sd_bus_flush_close_unref");
  find(library, bus.is_ready, "sd_bus_is_ready");
  find(library, bus.process, "sd_bus_process");
  find(library, bus.wait, "sd_bus_wait");
  find(library, bus.call, "sd_bus_call");
  find(library, bus.error_free, "sd_bus_error_free");
  find(library, bus.message_new_method_call, "sd_bus_message_new_method_call");
  find(library, bus.message_set_auto_start, "sd_bus_message_set_auto_start");
  find(library, bus.message_append, "sd_bus_message_append");
  find(library, bus.message_enter_container, "sd_bus_message_enter_container");
  find(library, bus.message_read, "sd_bus_message_read");
  find(library, bus.message_unref, "sd_bus_message_unref");
  return bus;
}

}  // namespace

const SdBusLibrary& SdBusLibrary::shared() {
  static const SdBusLibrary library = load();
  return library;
}

}  // namespace nodo
