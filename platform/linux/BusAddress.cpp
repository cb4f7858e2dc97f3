#include <platform/linux/BusAddress.h>

#include <cstdlib>
#include <string_view>

namespace nodo {
namespace {

// As the library itself escapes a value in an address.
std::string escapedForAddress(std::string_view value) {
  constexpr std::string_view plain =
      "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz_-/.";
  constexpr std::string_view digits = "0123456789abcdef";
  std::string escaped;
  for (const char character : value) {
    if (plain.find(character) != std::string_view::npos) {
      escaped += character;
      continue;
    }
    const auto byte = static_cast<unsigned char>(character);
    escaped += '%';
    escaped += digits[byte / 16];
    escaped += digits[byte % 16];
  }
  return escaped;
}

}  // namespace

std::string systemBusAddress() {
  const char* given = ::secure_getenv("DBUS_SYSTEM_BUS_ADDRESS");
  return given != nullptr ? given : "unix:path=/run/dbus/system_bus_socket";
}

std::optional<std::string> sessionBusAddress() {
  if (const char* given = ::secure_getenv("DBUS_SESSION_BUS_ADDRESS")) {
    return given;
  }
  if (const char* folder = ::secure_getenv("XDG_RUNTIME_DIR")) {
    return "unix:path=" + escapedForAddress(folder) + "/bus";
  }
  return std::nullopt;
}

}  // namespace nodo
