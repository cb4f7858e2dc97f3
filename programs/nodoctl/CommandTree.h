#pragma once

#include <programs/nodoctl/Invocation.h>

#include <memory>
#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace nodo::nodoctl {

/// nodoctl's commands and options. Parsing a command line with the tree fills in `invocation`,
/// which must outlive it. The one description that parsing, help and shell completion are made
/// from.
std::shared_ptr<CLI::App> makeCommandTree(Invocation& invocation);

/// The same without the commands whose names are not among `words`, and with options only for those
/// that are parsed: agents wait for each start, and the whole tree takes a good part of it. A line
/// that it cannot parse has to be shown to the whole tree.
std::shared_ptr<CLI::App> makeCommandTreeFor(const std::vector<std::string>& words,
                                             Invocation& invocation);

}  // namespace nodo::nodoctl
