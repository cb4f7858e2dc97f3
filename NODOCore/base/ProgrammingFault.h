#pragma once

#include <cstdint>

namespace nodo {

/// Stops the process after one line on standard error. For broken preconditions only: what bad
/// input can cause is thrown as an error instead.
[[noreturn]] void programmingFault(const char* what) noexcept;

/// `minuend - subtrahend`; a result that does not fit in 64 bits is a programming fault.
std::int64_t checkedDifference(std::int64_t minuend, std::int64_t subtrahend);

}  // namespace nodo
