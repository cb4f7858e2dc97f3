#pragma once

#include <programs/nodoctl/Invocation.h>

#include <memory>

namespace CLI {
class App;
}

namespace nodo::nodoctl {

/// Which commands of a tree have their options from the start.
enum class TreeExtent {
  usedCommand,  ///< none: a command gets its own when it is parsed, since agents wait for each
                ///< start
  allCommands
};

/// nodoctl's commands and options. Parsing a command line with the tree fills in `invocation`,
/// which must outlive it. The one description that parsing, help and shell completion are made
/// from.
std::shared_ptr<CLI::App> makeCommandTree(Invocation& invocation, TreeExtent extent);

}  // namespace nodo::nodoctl
