#pragma once

#include <cstdint>
#include <string>

namespace nodo::test {

/// A code point as UTF-8, encoded by hand so that what is tested does not vouch for itself.
std::string utf8(std::uint32_t point);

}  // namespace nodo::test
