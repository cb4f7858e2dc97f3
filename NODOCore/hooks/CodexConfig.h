#pragma once

#include <NODOCore/hooks/AgentHookInstaller.h>

#include <filesystem>
#include <string>
#include <string_view>

namespace nodo {

/// `text` with the line `hooks = true` in its table `[features]`, as far as lines tell: a line with
/// another value is rewritten (its indentation and comment stay), a missing one added right below
/// the table's header, a missing table added at the end. Lines that are added end as the one before
/// them does (LF or CR LF). What only looks like a table or a key, in a text of several lines for
/// example, is taken for one.
std::string codexConfigLinesWithHooksOn(std::string_view text);

/// The text of a Codex config.toml with `hooks = true` in its table `features`; the same text when
/// it says so already, in whatever form.
///
/// One line is added or rewritten and every other byte kept. The TOML library then has to agree
/// that the switch is on and that nothing else has another value; otherwise, e.g. with `features =
/// { ... }` on one line or `features.web = true`, this throws CodexConfigError. A text that the
/// TOML library does not understand to begin with may be one that Codex understands, so it gets the
/// line all the same. `file` is for the error's message.
std::string codexConfigWithHooksOn(std::string_view text, const std::filesystem::path& file);

}  // namespace nodo
