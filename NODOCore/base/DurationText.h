#pragma once

#include <cstdint>
#include <string>

namespace nodo {

/// A positive number of seconds for people: "45s", "12m 5s", and from an hour upwards "2h 0m"
/// without the seconds.
std::string durationText(std::int64_t seconds);

}  // namespace nodo
