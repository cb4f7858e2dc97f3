#pragma once

#include <string_view>

namespace nodo {

/// What the hook script holds before and after the lines of its candidates for `nodoctl`. Every
/// byte counts: an installed script is compared with what these make.
extern const std::string_view hookScriptHeader;
extern const std::string_view hookScriptFooter;

}  // namespace nodo
