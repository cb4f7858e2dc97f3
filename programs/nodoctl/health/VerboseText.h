#pragma once

#include <NODOCore/base/Environment.h>
#include <programs/nodoctl/health/HealthFacts.h>

#include <string>

namespace nodo::nodoctl {

/// What else helps somebody who looks for the reason: who else holds sleep, the machine as it was
/// seen, where things lie, versions. Lines with a line feed at the end of each, after an empty one.
std::string verboseText(const HealthFacts& facts, const Environment& environment);

}  // namespace nodo::nodoctl
