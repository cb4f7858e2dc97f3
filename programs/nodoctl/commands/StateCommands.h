#pragma once

#include <programs/nodoctl/Answer.h>
#include <programs/nodoctl/Invocation.h>
#include <programs/nodoctl/Tool.h>
#include <programs/nodoctl/helper/StateAccess.h>

namespace nodo::nodoctl {

/// The state as `invocation` wants it asked for; that it is the user's own is said on standard
/// error. `context` must outlive it.
StateAccess stateAccess(const Invocation& invocation, const ToolContext& context);

/// "status", "manual", "stop", "repair" or "reconcile".
Answer performOnState(const Invocation& invocation, const ToolContext& context);

}  // namespace nodo::nodoctl
