#pragma once

#include <functional>
#include <string>

namespace nodo::nodod {

/// Takes one line, without the program's name and the line's end. Foreign texts in it are as they
/// came: the sink makes them fit for a terminal.
using Log = std::function<void(const std::string& line)>;

}  // namespace nodo::nodod
