#include <NODOCore/base/Errors.h>
#include <NODOCore/base/Files.h>
#include <NODOCore/hooks/CodexConfig.h>
#include <NODOCore/hooks/HookConfiguration.h>
#include <NODOCore/hooks/HookObstacles.h>
#include <NODOCore/hooks/HookScript.h>

#include <algorithm>
#include <cctype>
#include <system_error>
#include <utility>

#include <fmt/format.h>

namespace nodo {
namespace {

namespace fs = std::filesystem;

// ---- the script

// Takes the first word of an array in the script off the front of `text`: in double quotes, where
// $HOME stands for the home, or as `shellQuoted` writes it. Nothing at the end of the array.
std::optional<std::string> takeWord(std::string_view& text, const fs::path& home) {
  text.remove_prefix(std::min(text.find_first_not_of(" \t\n"), text.size()));
  const auto quoted = [&text](char quote) {
    const std::size_t end = std::min(text.find(quote, 1), text.size());
    const std::string_view inside = text.substr(1, end - 1);
    text.remove_prefix(std::min(end + 1, text.size()));
    return std::string(inside);
  };
  if (text.starts_with('"')) {
    constexpr std::string_view homeVariable = "$HOME";
    std::string word = quoted('"');
    return word.starts_with(homeVariable) ? home.string() + word.substr(homeVariable.size()) : word;
  }
  if (!text.starts_with('\'')) {
    return std::nullopt;
  }
  constexpr std::string_view escapedQuote = "\\'";
  std::string word;
  for (;;) {
    if (text.starts_with('\'')) {
      word += quoted('\'');
    } else if (text.starts_with(escapedQuote)) {
      word += '\'';
      text.remove_prefix(escapedQuote.size());
    } else {
      return word;
    }
  }
}

// As the script looks at it.
bool canBeRun(const fs::path& path) {
  std::error_code ignored;
  return fs::is_regular_file(path, ignored) && isExecutableFile(path);
}

// ---- the agents

// The JSON object in a file; nothing when there is none.
std::optional<JSONValue> objectIn(const fs::path& file) {
  try {
    if (const FileContent content = readFile(file)) {
      JSONValue value = JSONValue::parse(*content);
      return value.object() != nullptr ? std::optional(std::move(value)) : std::nullopt;
    }
  } catch (const std::system_error&) {
    return std::nullopt;
  } catch (const DecodingError&) {
    return std::nullopt;
  }
  return std::nullopt;
}

// Whether Claude Code runs a user's hooks, as far as one file of settings says.
std::optional<bool> allowsHooks(const JSONValue& settings, bool areManaged) {
  const auto flag = [&settings](std::string_view name) -> std::optional<bool> {
    const JSONValue* value = settings.member(name);
    const bool* isSet = value == nullptr ? nullptr : value->boolean();
    return isSet == nullptr ? std::nullopt : std::optional(*isSet);
  };
  if (areManaged && flag("allowManagedHooksOnly") == true) {
    return false;
  }
  const auto isDisabled = flag("disableAllHooks");
  return isDisabled ? std::optional(!*isDisabled) : std::nullopt;
}

// Claude Code's files of settings are asked in the order of their precedence: of several that speak
// of hooks the first one counts.
std::optional<HookObstacle> switchInClaudeSettings(const JSONValue& settings, const fs::path& file,
                                                   const HookSurroundings& surroundings) {
  const auto found = [](const fs::path& place, bool isAllowed) {
    return isAllowed ? std::nullopt
                     : std::optional(HookObstacle{HookObstacleKind::switchedOff,
                                                  AgentHookTarget::claude, place.string()});
  };
  for (const char* managed : {"etc/claude-code/managed-settings.json",
                              "Library/Application Support/ClaudeCode/managed-settings.json"}) {
    const fs::path place = surroundings.root / managed;
    const auto content = objectIn(place);
    if (const auto allowed = content ? allowsHooks(*content, true) : std::nullopt) {
      return found(place, *allowed);
    }
  }
  if (!surroundings.workingFolder.empty()) {
    for (const char* own : {".claude/settings.local.json", ".claude/settings.json"}) {
      const fs::path place = surroundings.workingFolder / own;
      const auto content = place == file ? std::nullopt : objectIn(place);
      if (const auto allowed = content ? allowsHooks(*content, false) : std::nullopt) {
        return found(place, *allowed);
      }
    }
  }
  return found(file, allowsHooks(settings, false).value_or(true));
}

// "PreToolUse" as Codex notes it: "pre_tool_use".
std::string inSnakeCase(std::string_view event) {
  std::string name;
  for (const char character : event) {
    const auto letter = static_cast<unsigned char>(character);
    if (std::isupper(letter) != 0 && !name.empty()) {
      name += '_';
    }
    name += static_cast<char>(std::tolower(letter));
  }
  return name;
}

// What Codex calls our hooks: by file, event, and the places of group and hook.
std::vector<std::string> codexNamesOfHooks(const JSONValue& configuration, const fs::path& file) {
  std::vector<std::string> names;
  const JSONValue* hooks = configuration.member("hooks");
  for (const std::string_view event : hookEvents) {
    const JSONValue* groups = hooks == nullptr ? nullptr : hooks->member(event);
    if (groups == nullptr || groups->array() == nullptr) {
      continue;
    }
    for (std::size_t group = 0; group < groups->array()->size(); ++group) {
      const JSONValue* entries = (*groups->array())[group].member("hooks");
      const auto* list = entries == nullptr ? nullptr : entries->array();
      for (std::size_t place = 0; list != nullptr && place < list->size(); ++place) {
        if (isHookOf(AgentHookTarget::codex, (*list)[place])) {
          names.push_back(
              fmt::format("{}:{}:{}:{}", file.string(), inSnakeCase(event), group, place));
        }
      }
    }
  }
  return names;
}

std::optional<HookObstacle> obstacleInCodexConfig(const JSONValue& configuration,
                                                  const fs::path& file) {
  const fs::path config = file.parent_path() / "config.toml";
  FileContent content;
  try {
    content = readFile(config);
  } catch (const std::system_error&) {
    return std::nullopt;
  }
  const auto found = [&config](HookObstacleKind kind) {
    return HookObstacle{kind, AgentHookTarget::codex, config.string()};
  };
  const std::string text = content.value_or("");
  CodexConsent consent = codexConsent(text, codexNamesOfHooks(configuration, file));
  std::error_code ignored;
  const fs::path resolved = fs::canonical(file.parent_path(), ignored) / file.filename();
  if (consent == CodexConsent::missing && !ignored && resolved != file) {
    // It names a folder that CODEX_HOME led it to by where its links lead.
    consent = codexConsent(text, codexNamesOfHooks(configuration, resolved));
  }
  switch (consent) {
    case CodexConsent::given:
    case CodexConsent::unknown:
      return std::nullopt;
    case CodexConsent::switchedOff:
      return found(HookObstacleKind::switchedOff);
    case CodexConsent::missing:
      return found(HookObstacleKind::notTrusted);
  }
  programmingFault("a consent of Codex that is none of its cases");
}

// Whether an agent that is told so by its environment has its configuration in another folder, and
// no hooks of nodo there.
std::optional<HookObstacle> otherFolder(const Agent& agent, const fs::path& file,
                                        const HookSurroundings& surroundings) {
  const auto named =
      agent.folderVariable.empty()
          ? std::nullopt
          : nonEmptyValue(surroundings.environment, std::string(agent.folderVariable));
  if (!named) {
    return std::nullopt;
  }
  std::error_code ignored;
  if (fs::path(*named).lexically_normal() == file.parent_path().lexically_normal() ||
      fs::equivalent(*named, file.parent_path(), ignored)) {
    return std::nullopt;
  }
  const auto there = objectIn(fs::path(*named) / file.filename());
  if (there && runsHookScriptAnywhere(*there)) {
    return std::nullopt;
  }
  return HookObstacle{HookObstacleKind::configuredElsewhere, agent.target, *named};
}

}  // namespace

std::vector<fs::path> nodoctlCandidates(std::string_view script, const fs::path& home) {
  constexpr std::string_view begin = "local candidates=(\n";
  const std::size_t found = script.find(begin);
  std::vector<fs::path> candidates;
  if (found != std::string_view::npos) {
    script.remove_prefix(found + begin.size());
    while (const auto word = takeWord(script, home)) {
      candidates.emplace_back(*word);
    }
  }
  return candidates;
}

std::optional<HookObstacle> obstacleOfScript(const fs::path& path,
                                             const std::optional<std::string>& installed,
                                             const fs::path& home,
                                             const HookSurroundings& surroundings) {
  if (!installed || !isExecutableFile(path)) {
    return HookObstacle{HookObstacleKind::scriptMissing, std::nullopt, path.string()};
  }
  const auto named = nonEmptyValue(surroundings.environment, "NODOCTL_PATH");
  if (named && canBeRun(*named)) {
    return std::nullopt;
  }
  const std::vector<fs::path> candidates = nodoctlCandidates(*installed, home);
  if (candidates.empty() || std::any_of(candidates.begin(), candidates.end(), canBeRun)) {
    return std::nullopt;
  }
  // The last one is that of the installation, the others are an application's usual places.
  return HookObstacle{HookObstacleKind::toolMissing, std::nullopt, candidates.back().string()};
}

std::optional<HookObstacle> obstacleOfTarget(AgentHookTarget target, const JSONValue& configuration,
                                             const fs::path& home,
                                             const HookSurroundings& surroundings) {
  const Agent& agent = agentOf(target);
  const fs::path file = home / agent.configurationFile;
  if (auto elsewhere = otherFolder(agent, file, surroundings)) {
    return elsewhere;  // and what stands in the home does not count
  }
  if (target == AgentHookTarget::claude) {
    return switchInClaudeSettings(configuration, file, surroundings);
  }
  return agent.hasFeatureSwitch ? obstacleInCodexConfig(configuration, file) : std::nullopt;
}

}  // namespace nodo
