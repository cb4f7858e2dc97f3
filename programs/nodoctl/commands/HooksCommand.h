#pragma once

#include <programs/nodoctl/Commands.h>
#include <programs/nodoctl/Invocation.h>
#include <programs/nodoctl/Tool.h>

namespace nodo::nodoctl {

/// Installs, uninstalls or inspects the agents' hooks. What fails for one agent keeps no other from
/// its turn; the answer has failed then. Throws when nothing can be said at all.
Answer performHooks(const Invocation& invocation, const ToolContext& context);

}  // namespace nodo::nodoctl
