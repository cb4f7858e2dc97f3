#pragma once

#include <NODOCore/state/NODOState.h>

namespace nodo::bench {

/// The largest state that the controller lets grow, as of `now`: 500 requests with contexts of 60
/// to 120 characters, a bucket for each of 720 minutes, 20 power operations.
NODOState fullState(Date now);

}  // namespace nodo::bench
