#pragma once

#include <string>
#include <string_view>

namespace nodo {

/// `text` with the line `hooks = true` in its table `[features]`, as far as lines tell: a line with
/// another value is rewritten (its indentation and comment stay), a missing one added right below
/// the table's header, a missing table added at the end. Lines that are added end as the one before
/// them does (LF or CR LF). What only looks like a table or a key, in a text of several lines for
/// example, is taken for one.
std::string codexConfigLinesWithHooksOn(std::string_view text);

}  // namespace nodo
