#pragma once

#include <filesystem>
#include <optional>
#include <string_view>

namespace nodo {

/// Whether a default route exists, from /proc/net/route and /proc/net/ipv6_route below `procNet`.
/// Nothing when neither can be read.
std::optional<bool> readDefaultRoute(const std::filesystem::path& procNet);

/// The same for the two files' texts. Rows that are not understood are passed over.
bool hasDefaultRouteIPv4(std::string_view table);
bool hasDefaultRouteIPv6(std::string_view table);

}  // namespace nodo
