#pragma once

#include <NODOCore/hooks/AgentHookInstaller.h>

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace nodo {

/// The text of a Codex config.toml with `hooks = true` in its table `features`; the same text when
/// it says so already, in whatever form.
///
/// One line is added or rewritten and every other byte kept. The TOML library then has to agree
/// that the switch is on and that nothing else has another value; otherwise, e.g. with `features =
/// { ... }` on one line or `features.web = true`, this throws CodexConfigError. A text that the
/// TOML library does not understand to begin with may be one that Codex understands, so it gets the
/// line all the same. `file` is for the error's message.
std::string codexConfigWithHooksOn(std::string_view text, const std::filesystem::path& file);

/// What Codex has noted in its config.toml of hooks: whether it may run them.
enum class CodexConsent { given, missing, switchedOff, unknown };

/// What the text of a config.toml says of all hooks that are named as Codex names them; `unknown`
/// when it cannot be understood. Codex notes each hook that a person trusts with a hash, which is
/// not compared: one that was changed afterwards is taken for trusted.
CodexConsent codexConsent(std::string_view text, const std::vector<std::string>& hooks);

}  // namespace nodo
