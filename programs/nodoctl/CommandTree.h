#pragma once

#include <programs/nodoctl/Invocation.h>

#include <memory>

namespace CLI {
class App;
}

namespace nodo::nodoctl {

/// nodoctl's commands and options. Parsing a command line with the tree fills in `invocation`,
/// which must outlive it. The one description that parsing, help and shell completion are made
/// from.
std::shared_ptr<CLI::App> makeCommandTree(Invocation& invocation);

}  // namespace nodo::nodoctl
