#pragma once

#include <NODOCore/control/Reports.h>
#include <programs/nodoctl/Tool.h>

#include <string>
#include <vector>

namespace nodo::nodoctl {

/// The user's own status with whatever can be read of it: agents that cannot be listed are none, a
/// machine that cannot be looked at is unknown, and a state that cannot be read is a fresh one.
/// Each such failure adds to `problems`, in words for people.
StatusReport localStatusAtAnyRate(const ToolContext& context, std::vector<std::string>& problems);

}  // namespace nodo::nodoctl
