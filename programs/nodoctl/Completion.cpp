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
  bool runsCommand = false;            // whether a command line of its own follows
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
                     .runsCommand = false,
                     .commands = {}};
  for (const CLI::Option* option : app.get_options()) {
    const bool takesValue = option->get_type_size() > 0;
    // The positional arguments are choices, which their type's name spells out, or a command line.
    if (option->get_positional() && option->get_name() == "command") {
      entry.runsCommand = true;
      continue;
    }
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

CommandEntry describeProgram() {
  Invocation unused;
  return describe(*makeCommandTree(unused));
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
void addValued(const CommandEntry& command, std::vector<std::string>& valued) {
  for (const Option& option : command.options) {
    if (!option.valueName.empty() &&
        std::find(valued.begin(), valued.end(), option.name) == valued.end()) {
      valued.push_back(option.name);
    }
  }
  for (const CommandEntry& inner : command.commands) {
    addValued(inner, valued);
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

std::string bashScript(const CommandEntry& program) {
  std::string cases;
  std::vector<std::string> running;
  for (const CommandEntry& command : program.commands) {
    cases += bashCases(command);
    if (command.runsCommand) {
      running.push_back(command.name);
    }
  }
  std::vector<std::string> valued;
  addValued(program, valued);
  return fmt::format(R"(# bash completion for nodoctl
_nodoctl() {{
  local current=${{COMP_WORDS[COMP_CWORD]}} previous=${{COMP_WORDS[COMP_CWORD-1]}} words='' word=''
  local at=1 mark
  COMPREPLY=()
  while [ "$at" -lt "$COMP_CWORD" ]; do
    case ${{COMP_WORDS[at]}} in
      {0}) at=$((at + 2)) ;;
      -*) at=$((at + 1)) ;;
      *) break ;;
    esac
  done
  case ${{COMP_WORDS[at]-}} in
    {1})
      for ((mark = at + 1; mark < COMP_CWORD; mark++)); do
        [ "${{COMP_WORDS[mark]}}" = -- ] || continue
        words=-f
        [ "$mark" -lt $((COMP_CWORD - 1)) ] || words=-c
        while IFS= read -r word; do COMPREPLY+=("$word"); done < <(compgen $words -- "$current")
        return
      done ;;
  esac
  case $previous in
    {0}) return ;;
  esac
  if [ "$at" -ge "$COMP_CWORD" ]; then
    words='{2}'
  else
    [ "$COMP_CWORD" -le $((at + 1)) ] || word=${{COMP_WORDS[at+1]}}
    case "${{COMP_WORDS[at]-}} $word" in
{3}    esac
  fi
  while IFS= read -r word; do COMPREPLY+=("$word"); done < <(compgen -W "$words" -- "$current")
}}
complete -F _nodoctl nodoctl
)",
                     fmt::join(valued, "|"), fmt::join(running, "|"), names(program), cases);
}

std::string zshArguments(const CommandEntry& command) {
  std::string arguments = "_arguments";
  for (const Option& option : command.options) {
    std::string specification = option.name + "[" + option.description + "]";
    specification += option.valueName.empty() ? "" : ":" + option.valueName + ":";
    arguments += " \\\n      " + quoted(specification, "");
  }
  if (command.runsCommand) {
    arguments += " \\\n      '*:: :_normal'";
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

std::string zshScript(const CommandEntry& program) {
  std::string list;
  std::string cases;
  for (const CommandEntry& command : program.commands) {
    list += "    " + quoted(command.name + ":" + command.description, "") + "\n";
    cases += zshCase(command);
  }
  std::vector<std::string> valued;
  for (const Option& option : program.options) {
    if (!option.valueName.empty()) {
      valued.push_back(option.name);
    }
  }
  return fmt::format(R"(#compdef nodoctl
_nodoctl() {{
  local -a commands=(
{0}  )
  while (( CURRENT > 2 )) && [[ $words[2] == -* ]]; do
    case $words[2] in
      {3}) shift words; (( CURRENT-- )); (( CURRENT > 2 )) || return 1 ;;
    esac
    shift words
    (( CURRENT-- ))
  done
  if (( CURRENT == 2 )); then
    _describe command commands
    {1}
    return
  fi
  local command=$words[2]
  shift words
  (( CURRENT-- ))
  case $command in
{2}  esac
}}
if [ "$funcstack[1]" = _nodoctl ]; then _nodoctl "$@"; else compdef _nodoctl nodoctl; fi
)",
                     list, zshArguments(program), cases, fmt::join(valued, "|"));
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
  if (command.runsCommand) {
    // The words of which one follows an option begin behind the first that looks like a short one.
    script += inside + "-a '(__fish_complete_subcommand --fcs-skip=2 -h";
    for (const Option& option : command.options) {
      script += option.valueName.empty() ? "" : " " + option.name;
    }
    script += ")'\n";
  }
  for (const CommandEntry& inner : command.commands) {
    script += fishLines(inner, condition + "; and __fish_seen_subcommand_from " + inner.name);
  }
  return script;
}

std::string fishScript(const CommandEntry& program) {
  std::string script = "# fish completion for nodoctl\ncomplete -c nodoctl -f\n";
  const std::string onTop = "complete -c nodoctl -n __fish_use_subcommand ";
  for (const Option& option : program.options) {
    script += fmt::format("{}-l {} {}-d {}\n", onTop, option.name.substr(2),
                          option.valueName.empty() ? "" : "-x ", quoted(option.description, "\\"));
  }
  for (const CommandEntry& command : program.commands) {
    script +=
        fmt::format("{}-a {} -d {}\n", onTop, command.name, quoted(command.description, "\\"));
    script += fishLines(command, "__fish_seen_subcommand_from " + command.name);
  }
  return script;
}

}  // namespace

std::string completionScript(const std::string& shell) {
  const CommandEntry program = describeProgram();
  if (shell == "bash") {
    return bashScript(program);
  }
  return shell == "zsh" ? zshScript(program) : fishScript(program);
}

}  // namespace nodo::nodoctl
