#include <NODOCore/base/Text.h>
#include <platform/linux/DefaultRoute.h>
#include <platform/linux/SmallFile.h>

#include <algorithm>
#include <charconv>
#include <cstdint>

namespace nodo {
namespace {

// From <linux/route.h>, which cannot be included beside <net/route.h>.
constexpr std::uint32_t routeIsUp = 0x0001;
constexpr std::uint32_t routeRejects = 0x0200;

std::optional<std::uint32_t> hexadecimal(std::string_view text) {
  std::uint32_t value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value, 16);
  return error == std::errc() && end == text.data() + text.size() ? std::optional(value)
                                                                  : std::nullopt;
}

bool isZero(std::string_view digits) {
  return !digits.empty() && digits.find_first_not_of('0') == std::string_view::npos;
}

bool leadsOut(std::string_view interfaceName, std::string_view flagsText) {
  const auto flags = hexadecimal(flagsText);
  // A row that discards what it matches names no interface: "*" for IPv4, "lo" for IPv6.
  return flags && (*flags & routeIsUp) != 0 && (*flags & routeRejects) == 0 &&
         interfaceName != "lo" && interfaceName != "*";
}

// interface destination gateway flags refcnt use metric mask ...
bool isDefaultIPv4(std::string_view row) {
  const auto fields = splitFields(row);
  return fields.size() >= 8 && isZero(fields[1]) && isZero(fields[7]) &&
         leadsOut(fields[0], fields[3]);
}

// destination prefix-length source prefix-length next-hop metric refcnt use flags interface
bool isDefaultIPv6(std::string_view row) {
  const auto fields = splitFields(row);
  return fields.size() >= 10 && isZero(fields[0]) && isZero(fields[1]) &&
         leadsOut(fields[9], fields[8]);
}

}  // namespace

bool hasDefaultRouteIPv4(std::string_view table) {
  const auto rows = splitLines(table);
  return std::any_of(rows.begin(), rows.end(), isDefaultIPv4);
}

bool hasDefaultRouteIPv6(std::string_view table) {
  const auto rows = splitLines(table);
  return std::any_of(rows.begin(), rows.end(), isDefaultIPv6);
}

std::optional<bool> readDefaultRoute(const std::filesystem::path& procNet) {
  const auto ipv4 = readSmallFile(procNet / "route");
  const auto ipv6 = readSmallFile(procNet / "ipv6_route");
  if (!ipv4 && !ipv6) {
    return std::nullopt;
  }
  return (ipv4 && hasDefaultRouteIPv4(*ipv4)) || (ipv6 && hasDefaultRouteIPv6(*ipv6));
}

}  // namespace nodo
