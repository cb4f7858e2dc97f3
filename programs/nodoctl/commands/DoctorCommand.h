#pragma once

#include <programs/nodoctl/Answer.h>
#include <programs/nodoctl/Invocation.h>
#include <programs/nodoctl/Tool.h>

namespace nodo::nodoctl {

/// The health check. A verdict that warns is a failed answer; a source that fails is only a hint.
Answer performDoctor(const Invocation& invocation, const ToolContext& context);

}  // namespace nodo::nodoctl
