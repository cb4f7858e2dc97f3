#pragma once

#include <programs/nodoctl/Answer.h>
#include <programs/nodoctl/Invocation.h>
#include <programs/nodoctl/Tool.h>

namespace nodo::nodoctl {

/// What a menu bar would show, once.
Answer performMenu(const Invocation& invocation, const ToolContext& context);

/// The same until a signal ends it; writes as it goes. An interrupt is the usual end and a success.
Answer performWatch(const Invocation& invocation, const ToolContext& context);

}  // namespace nodo::nodoctl
