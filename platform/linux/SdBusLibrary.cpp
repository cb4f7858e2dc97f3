#include <platform/linux/BusError.h>
#include <platform/linux/SdBusLibrary.h>

#include <optional>
#include <string>

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
  void* library = ::dlopen(libraryName, RTLD_LAZY | RTLD_LOCAL);
  if (library == nullptr) {
    throw BusError(std::string("no D-Bus client library: ") + ::dlerror());
  }
  SdBusLibrary bus;
  find(library, bus.newBus, "sd_bus_new");
  find(library, bus.setAddress, "sd_bus_set_address");
  find(library, bus.setBusClient, "sd_bus_set_bus_client");
  find(library, bus.negotiateFds, "sd_bus_negotiate_fds");
  find(library, bus.start, "sd_bus_start");
  find(library, bus.closeUnref, "sd_bus_close_unref");
  find(library, bus.isOpen, "sd_bus_is_open");
  find(library, bus.isReady, "sd_bus_is_ready");
  find(library, bus.process, "sd_bus_process");
  find(library, bus.wait, "sd_bus_wait");
  find(library, bus.call, "sd_bus_call");
  find(library, bus.callAsync, "sd_bus_call_async");
  find(library, bus.errorFree, "sd_bus_error_free");
  find(library, bus.messageNewMethodCall, "sd_bus_message_new_method_call");
  find(library, bus.messageSetAutoStart, "sd_bus_message_set_auto_start");
  find(library, bus.messageAppend, "sd_bus_message_append");
  find(library, bus.messageOpenContainer, "sd_bus_message_open_container");
  find(library, bus.messageCloseContainer, "sd_bus_message_close_container");
  find(library, bus.messageEnterContainer, "sd_bus_message_enter_container");
  find(library, bus.messageRead, "sd_bus_message_read");
  find(library, bus.messageIsMethodError, "sd_bus_message_is_method_error");
  find(library, bus.messageGetError, "sd_bus_message_get_error");
  find(library, bus.messageUnref, "sd_bus_message_unref");
  return bus;
}

struct Loading {
  SdBusLibrary library;
  std::optional<std::string> failure;
};

// Tried once: what could not be loaded will not be there a moment later.
Loading tryToLoad() {
  try {
    return {.library = load(), .failure = std::nullopt};
  } catch (const BusError& error) {
    return {.library = {}, .failure = error.what()};
  }
}

}  // namespace

const SdBusLibrary& SdBusLibrary::shared() {
  static const Loading loading = tryToLoad();
  if (loading.failure) {
    throw BusError(*loading.failure);
  }
  return loading.library;
}

}  // namespace nodo
