#include <NODOCore/hooks/Fingerprint.h>

#include <cstdint>

#include <fmt/format.h>

namespace nodo {

std::string fingerprint(std::string_view text) {
  std::uint64_t value = 0xcbf29ce484222325U;
  for (const char character : text) {
    value ^= static_cast<unsigned char>(character);
    value *= 0x100000001b3U;
  }
  return fmt::format("{:016x}", value);
}

}  // namespace nodo
