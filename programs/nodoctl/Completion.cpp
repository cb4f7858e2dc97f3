#include <programs/nodoctl/CommandTree.h>
#include <programs/nodoctl/Completion.h>

#include <algorithm>
#include <string_view>
#include <vector>

#include <CLI/CLI.hpp>
#include <fmt/format.h>

namespace nodo::nodoctl {
namespace {

struct Option {
  std::string name;  // "--minutes"
  std::string description;
  std::string valueName;  // empty for a flag
};

struct CommandEntry {
  std::string name;
  std::string description;
  std::vector<Option> options;
  std::vector<std::string> arguments;  // the words that may follow instead of an option
  bool repeatsArguments = false;
  std::vector<CommandEntry> commands;  // those that only make sense behind this one
};

std::vector<std::string> splitChoices(const std::string& typeName) {
  std::vector<std::string> choices;
  std::size_t begin = 0;
  while (begin <= typeName.size()) {
    const auto end = std::min(typeName.find('|', begin), typeName.size());
    choices.push_back(typeName.substr(begin, end - begin));
    begin = end + 1;
  }
  return choices;
}

CommandEntry describe(const CLI::App& app) {
  CommandEntry entry{.name = app.get_name(),
                     .description = app.get_description(),
                     .options = {},
                     .arguments = {},
                     .repeatsArguments = false,
                     .commands = {}};
  for (const CLI::Option* option : app.get_options()) {
    const bool takesValue = option->get_type_size() > 0;
    // The positional arguments are choices, which their type's name spells out.
    if (option->get_positional()) {
      entry.arguments = splitChoices(option->get_type_name());
      entry.repeatsArguments = option->get_items_expected_max() > 1;
      continue;
    }
    for (const std::string& name : option->get_lnames()) {
      entry.options.push_back({.name = "--" + name,
                               .description = option->get_description(),
                               .valueName = takesValue ? option->get_type_name() : ""});
    }
  }
  for (const CLI::App* command : app.get_subcommands([](const CLI::App*) { return true; })) {
    entry.commands.push_back(describe(*command));
  }
  return entry;
}

std::vector<CommandEntry> describeCommands() {
  Invocation unused;
  return describe(*makeCommandTree(unused)).commands;
}

std::string names(const CommandEntry& command) {
  std::string text;
  for (const CommandEntry& inner : command.commands) {
    text += inner.name + " ";
  }
  for (const Option& option : command.options) {
    text += option.name + " ";
  }
  for (const std::string& argument : command.arguments) {
    text += argument + " ";
  }
  text.pop_back();  // every command has at least its help option
  return text;
}

// Within single quotes of a POSIX shell and of zsh.
std::string quoted(std::string_view text, std::string_view escaped) {
  std::string quotedText = "'";
  for (const char character : text) {
    if (character == '\'') {
      quotedText += "'\\''";
    } else {
      quotedText += escaped.find(character) != std::string_view::npos ? "\\" : "";
      quotedText += character;
    }
  }
  return quotedText + "'";
}

// The options that a value follows, each once, as a pattern of the shell.
void addValued(const std::vector<CommandEntry>& commands, std::vector<std::string>& valued) {
  for (const CommandEntry& command : commands) {
    for (const Option& option : command.options) {
      if (!option.valueName.empty() &&
          std::find(valued.begin(), valued.end(), option.name) == valued.end()) {
        valued.push_back(option.name);
      }
    }
    addValued(command.commands, valued);
  }
}

// The cases that choose a command's words: by the command, or by it and the one behind it.
std::string bashCases(const CommandEntry& command) {
  std::string cases;
  for (const CommandEntry& inner : command.commands) {
    cases += fmt::format("      '{} {}') words='{}' ;;\n", command.name, inner.name, names(inner));
  }
  return cases + fmt::format("      '{} '*) words='{}' ;;\n", command.name, names(command));
}

std::string bashScript(const std::vector<CommandEntry>& commands) {
  std::string all;
  std::string cases;
  for (const CommandEntry& command : commands) {
    all += command.name + " ";
    cases += bashCases(command);
  }
  std::vector<std::string> valued;
  addValued(commands, valued);
  return fmt::format(R"(# bash completion for nodoctl
_nodoctl() {{
  local current=${{COMP_WORDS[COMP_CWORD]}} previous=${{COMP_WORDS[COMP_CWORD-1]}} words='' word=''
  COMPREPLY=()
  case $previous in
    {}) return ;;
  esac
  if [ "$COMP_CWORD" -eq 1 ]; then
    words='{}--help --version'
  else
    [ "$COMP_CWORD" -eq 2 ] || word=${{COMP_WORDS[2]}}
    case "${{COMP_WORDS[1]}} $word" in
{}    esac
  fi
  while IFS= read -r word; do COMPREPLY+=("$word"); done < <(compgen -W "$words" -- "$current")
}}
complete -F _nodoctl nodoctl
)",
                     fmt::join(valued, "|"), all, cases);
}

std::string zshArguments(const CommandEntry& command) {
  std::string arguments = "_arguments";
  for (const Option& option : command.options) {
    std::string specification = option.name + "[" + option.description + "]";
    specification += option.valueName.empty() ? "" : ":" + option.valueName + ":";
    arguments += " \\\n      " + quoted(specification, "");
  }
  if (!command.arguments.empty()) {
    arguments += fmt::format(" \\\n      '{}: :({})'", command.repeatsArguments ? "*" : "1",
                             fmt::join(command.arguments, " "));
  }
  return arguments;
}

std::string zshCase(const CommandEntry& command) {
  if (command.commands.empty()) {
    return fmt::format("    {}) {} ;;\n", command.name, zshArguments(command));
  }
  std::string all;
  std::string cases;
  for (const CommandEntry& inner : command.commands) {
    all += (all.empty() ? "" : " ") + quoted(inner.name + ":" + inner.description, "");
    cases += "    " + zshCase(inner);
  }
  return fmt::format(R"(    {})
      if (( CURRENT == 2 )); then
        commands=({})
        _describe command commands
        {}
        return
      fi
      command=$words[2]
      shift words
      (( CURRENT-- ))
      case $command in
{}      esac ;;
)",
                     command.name, all, zshArguments(command), cases);
}

std::string zshScript(const std::vector<CommandEntry>& commands) {
  std::string list;
  std::string cases;
  for (const CommandEntry& command : commands) {
    list += "    " + quoted(command.name + ":" + command.description, "") + "\n";
    cases += zshCase(command);
  }
  return fmt::format(R"(#compdef nodoctl
_nodoctl() {{
  local -a commands=(
{}  )
  if (( CURRENT == 2 )); then
    _describe command commands
    _arguments '--help[Show this help and exit]' '--version[Show the version and exit]'
    return
  fi
  local command=$words[2]
  shift words
  (( CURRENT-- ))
  case $command in
{}  esac
}}
if [ "$funcstack[1]" = _nodoctl ]; then _nodoctl "$@"; else compdef _nodoctl nodoctl; fi
)",
                     list, cases);
}

// Completions of a command, offered where `condition` holds.
std::string fishLines(const CommandEntry& command, const std::string& condition) {
  std::string script;
  std::string all;
  for (const CommandEntry& inner : command.commands) {
    all += " " + inner.name;
  }
  const std::string here =
      all.empty() ? condition : condition + "; and not __fish_seen_subcommand_from" + all;
  const std::string inside = fmt::format("complete -c nodoctl -n '{}' ", here);
  for (const CommandEntry& inner : command.commands) {
    script += fmt::format("{}-a {} -d {}\n", inside, inner.name, quoted(inner.description, "\\"));
  }
  for (const Option& option : command.options) {
    script += fmt::format("{}-l {} {}-d {}\n", inside, option.name.substr(2),
                          option.valueName.empty() ? "" : "-x ", quoted(option.description, "\\"));
  }
  for (const std::string& argument : command.arguments) {
    script += fmt::format("{}-a {}\n", inside, argument);
  }
  for (const CommandEntry& inner : command.commands) {
    script += fishLines(inner, condition + "; and __fish_seen_subcommand_from " + inner.name);
  }
  return script;
}

std::string fishScript(const std::vector<CommandEntry>& commands) {
  std::string script = "# fish completion for nodoctl\ncomplete -c nodoctl -f\n";
  const std::string onTop = "complete -c nodoctl -n __fish_use_subcommand ";
  script += onTop + "-l help -d 'Show this help and exit'\n";
  script += onTop + "-l version -d 'Show the version and exit'\n";
  for (const CommandEntry& command : commands) {
    script +=
        fmt::format("{}-a {} -d {}\n", onTop, command.name, quoted(command.description, "\\"));
    script += fishLines(command, "__fish_seen_subcommand_from " + command.name);
  }
  return script;
}

}  // namespace

std::string completionScript(const std::string& shell) {
  const std::vector<CommandEntry> commands = describeCommands();
  if (shell == "bash") {
    return bashScript(commands);
  }
  return shell == "zsh" ? zshScript(commands) : fishScript(commands);
}

}  // namespace nodo::nodoctl
