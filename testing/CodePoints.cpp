#include <testing/CodePoints.h>

namespace nodo::test {

std::string utf8(std::uint32_t point) {
  const auto continuation = [point](unsigned shift) {
    return static_cast<char>(0x80U | ((point >> shift) & 0x3FU));
  };
  if (point < 0x80) {
    return {static_cast<char>(point)};
  }
  if (point < 0x800) {
    return {static_cast<char>(0xC0U | (point >> 6U)), continuation(0)};
  }
  if (point < 0x10000) {
    return {static_cast<char>(0xE0U | (point >> 12U)), continuation(6), continuation(0)};
  }
  return {static_cast<char>(0xF0U | (point >> 18U)), continuation(12), continuation(6),
          continuation(0)};
}

}  // namespace nodo::test
