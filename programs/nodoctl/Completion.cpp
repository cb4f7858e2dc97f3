#include <programs/nodoctl/CommandTree.h>
#include <programs/nodoctl/Completion.h>

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
  CommandEntry entry{
      .name = app.get_name(), .description = app.get_description(), .options = {}, .arguments = {}};
  for (const CLI::Option* option : app.get_options()) {
    const bool takesValue = option->get_type_size() > 0;
    // The positional arguments are choices, which their type's name spells out.
    if (option->get_positional()) {
      entry.arguments = splitChoices(option->get_type_name());
      continue;
    }
    for (const std::string& name : option->get_lnames()) {
      entry.options.push_back({.name = "--" + name,
                               .description = option->get_description(),
                               .valueName = takesValue ? option->get_type_name() : ""});
    }
  }
  return entry;
}

std::vector<CommandEntry> describeCommands() {
  Invocation unused;
  const auto app = makeCommandTree(unused);
  std::vector<CommandEntry> commands;
  for (const CLI::App* command : app->get_subcommands([](const CLI::App*) { return true; })) {
    commands.push_back(describe(*command));
  }
  return commands;
}

std::string names(const CommandEntry& command) {
  std::string text;
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

std::string bashScript(const std::vector<CommandEntry>& commands) {
  std::string all;
  std::string cases;
  std::string valued;
  for (const CommandEntry& command : commands) {
    all += command.name + " ";
    cases += fmt::format("      {}) words='{}' ;;\n", command.name, names(command));
    for (const Option& option : command.options) {
      if (!option.valueName.empty()) {
        valued += (valued.empty() ? "" : "|") + option.name;
      }
    }
  }
  return fmt::format(R"(# bash completion for nodoctl
_nodoctl() {{
  local current=${{COMP_WORDS[COMP_CWORD]}} previous=${{COMP_WORDS[COMP_CWORD-1]}} words='' word
  COMPREPLY=()
  case $previous in
    {}) return ;;
  esac
  if [ "$COMP_CWORD" -eq 1 ]; then
    words='{}--help --version'
  else
    case ${{COMP_WORDS[1]}} in
{}    esac
  fi
  while IFS= read -r word; do COMPREPLY+=("$word"); done < <(compgen -W "$words" -- "$current")
}}
complete -F _nodoctl nodoctl
)",
                     valued, all, cases);
}

std::string zshScript(const std::vector<CommandEntry>& commands) {
  std::string list;
  std::string cases;
  for (const CommandEntry& command : commands) {
    list += "    " + quoted(command.name + ":" + command.description, "") + "\n";
    cases += fmt::format("    {}) _arguments", command.name);
    for (const Option& option : command.options) {
      std::string specification = option.name + "[" + option.description + "]";
      specification += option.valueName.empty() ? "" : ":" + option.valueName + ":";
      cases += " \\\n      " + quoted(specification, "");
    }
    if (!command.arguments.empty()) {
      cases += " \\\n      '1: :(" + fmt::format("{}", fmt::join(command.arguments, " ")) + ")'";
    }
    cases += " ;;\n";
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

std::string fishScript(const std::vector<CommandEntry>& commands) {
  std::string script = "# fish completion for nodoctl\ncomplete -c nodoctl -f\n";
  const std::string onTop = "complete -c nodoctl -n __fish_use_subcommand ";
  script += onTop + "-l help -d 'Show this help and exit'\n";
  script += onTop + "-l version -d 'Show the version and exit'\n";
  for (const CommandEntry& command : commands) {
    script +=
        fmt::format("{}-a {} -d {}\n", onTop, command.name, quoted(command.description, "\\"));
    const std::string inside =
        fmt::format("complete -c nodoctl -n '__fish_seen_subcommand_from {}' ", command.name);
    for (const Option& option : command.options) {
      script +=
          fmt::format("{}-l {} {}-d {}\n", inside, option.name.substr(2),
                      option.valueName.empty() ? "" : "-x ", quoted(option.description, "\\"));
    }
    for (const std::string& argument : command.arguments) {
      script += fmt::format("{}-a {}\n", inside, argument);
    }
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
