#pragma once

#include <programs/nodoctl/Answer.h>
#include <programs/nodoctl/Invocation.h>
#include <programs/nodoctl/Tool.h>

namespace nodo::nodoctl {

/// Carries out what the command line asked for. Throws the errors of the library with a message for
/// people.
Answer perform(const Invocation& invocation, const ToolContext& context);

}  // namespace nodo::nodoctl
