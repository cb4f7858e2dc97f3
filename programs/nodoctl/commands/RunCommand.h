#pragma once

#include <programs/nodoctl/Answer.h>
#include <programs/nodoctl/Invocation.h>
#include <programs/nodoctl/Tool.h>

namespace nodo::nodoctl {

/// Runs a command and keeps the timer extended while it runs. The answer is its exit status alone.
Answer performRun(const Invocation& invocation, const ToolContext& context);

}  // namespace nodo::nodoctl
