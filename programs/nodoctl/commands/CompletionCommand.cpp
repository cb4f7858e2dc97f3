#include <NODOCore/base/Errors.h>
#include <programs/nodoctl/commands/Commands.h>

#include <algorithm>
#include <iterator>
#include <string_view>
#include <utility>

#include <CLI/CLI.hpp>
#include <fmt/format.h>

namespace nodo::nodoctl {
namespace {

constexpr char bashScript[] = R"SCRIPT(# bash completion for nodoctl

# Offers what compgen finds. usage: _nodoctl_names FRONT KEPT COMPGEN-ARGUMENT ...
# FRONT stands in front of each name in its word, and KEPT is what readline leaves of the word.
_nodoctl_names() {
  local front=$1 kept=$2 name
  shift 2
  compopt -o filenames 2>/dev/null
  while IFS= read -r name; do
    name=$front$name
    COMPREPLY+=("${name#"$kept"}")
  done < <(compgen "$@")
}

_nodoctl() {
  local tool=${1/#\~\//$HOME/} at piece line joins='' front='' other='' typed kept
  local -a pieces=("${COMP_WORDS[@]:1:COMP_CWORD-1}") words=() places=()
  COMPREPLY=()
  # Readline takes "=" and ":" for words of their own; here they are parts of the words around them.
  piece=${COMP_WORDS[COMP_CWORD]}
  if [ -n "$piece" ] && [ -z "${piece//[=:]/}" ]; then
    pieces+=("$piece")
  fi
  pieces+=("$2")
  for at in "${!pieces[@]}"; do
    piece=${pieces[at]}
    if [ "${#words[@]}" -gt 0 ] && [[ $joins || $piece == [=:]* ]]; then
      words[${#words[@]}-1]+=$piece
    else
      words+=("$piece")
      places+=("$((at + 1))")
    fi
    joins=''
    if [ -n "$piece" ] && [ -z "${piece//[=:]/}" ]; then
      joins=yes
    fi
  done
  typed=${words[${#words[@]}-1]}
  kept=${typed%"$2"}
  if [[ $typed == --*=* ]]; then
    front=${typed%%=*}=
  fi
  while IFS= read -r line; do
    case $line in
      :files) _nodoctl_names "$front" "$kept" -f -- "${typed#"$front"}" ;;
      :folders) _nodoctl_names "$front" "$kept" -d -- "${typed#"$front"}" ;;
      :command\ *) other=${places[${line#* }]} ;;
      *)
        line=${line%%$'\t'*}
        COMPREPLY+=("${line#"$kept"}") ;;
    esac
  done < <("$tool" complete "${words[@]}" 2>/dev/null)
  if [ "$other" = "$COMP_CWORD" ]; then
    _nodoctl_names '' "$kept" -c -- "$typed"
  elif [ -n "$other" ] && declare -F _command_offset >/dev/null; then
    _command_offset "$other"
  elif [ -n "$other" ]; then
    _nodoctl_names '' "$kept" -f -- "$typed"
  fi
}
complete -F _nodoctl nodoctl
)SCRIPT";
constexpr char zshScript[] = R"SCRIPT(#compdef nodoctl
_nodoctl() {
  local line word description
  local -a offered
  local -i other=0
  for line in ${(f)"$(${~words[1]} complete "${(@Q)words[2,CURRENT-1]}" "${(Q)PREFIX}" 2>/dev/null)"}; do
    case $line in
      :files) [[ $PREFIX != --*=* ]] || compset -P 1 '*='; _files ;;
      :folders) [[ $PREFIX != --*=* ]] || compset -P 1 '*='; _files -/ ;;
      :command*) other=$(( ${line#* } + 1 )) ;;
      *)
        word=${line%%$'\t'*}
        description=${line#*$'\t'}
        offered+=("$word${description:+:$description}") ;;
    esac
  done
  _describe argument offered
  if (( other )); then
    shift $other words
    (( CURRENT -= other ))
    _normal
  fi
}
if [ "$funcstack[1]" = _nodoctl ]; then _nodoctl "$@"; else compdef _nodoctl nodoctl; fi
)SCRIPT";
constexpr char fishScript[] = R"SCRIPT(# fish completion for nodoctl
function __nodoctl_complete
    set -l words (commandline -opc)
    set -l typed (commandline -ct)
    set -l tool (string replace -r -- '^~/' $HOME/ $words[1])
    type -q $tool; or return
    # An option's name in front of its value.
    set -l front (string match -r -- '^--[^=]*=' "$typed")
    set -l value (string replace -r -- '^--[^=]*=' '' "$typed")
    for line in ($tool complete $words[2..-1] "$typed" 2>/dev/null)
        switch $line
            case :files
                for name in (__fish_complete_path "$value")
                    printf '%s\n' "$front$name"
                end
            case :folders
                for name in (__fish_complete_directories "$value" '')
                    printf '%s\n' "$front$name"
                end
            case ':command *'
                set -l other $words[(math 2 + (string sub -s 10 -- $line))..-1]
                complete -C (string join ' ' -- (string escape -- $other) "$typed")
            case '-*'
                # As for other programs, options are offered to who types a dash.
                string match -q -- '-*' "$typed"; and printf '%s\n' $line
            case '*'
                printf '%s\n' $line
        end
    end
end
complete -c nodoctl -f -a '(__nodoctl_complete)'
)SCRIPT";

// The option of the parser that stands for the words of `command` that are no options.
const CLI::Option* argumentOf(const CLI::App& command) {
  const auto arguments =
      command.get_options([](const CLI::Option* option) { return option->get_positional(); });
  return arguments.empty() ? nullptr : arguments.front();
}

// A command line as far as it is typed.
class TypedLine {
 public:
  void read(const std::string& word) {
    if (otherCommand_) {
      // All of it is that command's.
    } else if (valueOf_ != nullptr) {
      valueOf_ = nullptr;
    } else if (onlyArguments_ || !word.starts_with('-')) {
      readArgument(word);
    } else if (word == "--") {
      onlyArguments_ = true;
    } else if (const auto* option = command_->get_option_no_throw(word)) {
      valueOf_ = option->get_type_size() > 0 ? option : nullptr;
    }
    ++count_;
  }

  // How it can go on with a word that begins with `typed`.
  std::string completions(const std::string& typed) const {
    if (!makesSense_) {
      return "";
    }
    if (otherCommand_) {
      return fmt::format(":command {}\n", *otherCommand_);
    }
    if (valueOf_ != nullptr) {
      return values(*valueOf_, "", typed);
    }
    const auto equals = typed.find('=');
    if (!onlyArguments_ && typed.starts_with("--") && equals != std::string::npos) {
      const auto* option = command_->get_option_no_throw(typed.substr(0, equals));
      return option == nullptr ? "" : values(*option, typed.substr(0, equals + 1), typed);
    }
    return arguments(typed) + (onlyArguments_ || onlyCommands_ ? "" : options(typed));
  }

 private:
  void readArgument(const std::string& word) {
    const auto commands = subcommands();
    const auto command = std::find_if(commands.begin(), commands.end(), [&](const CLI::App* each) {
      return each->get_name() == word;
    });
    if (command != commands.end() && word == helpCommand) {
      onlyCommands_ = true;
    } else if (command != commands.end()) {
      command_ = *command;
    } else if (!takesArgument()) {
      makesSense_ = false;
    } else if (offerOf(*argumentOf(*command_)).kind == ValueOffer::Kind::commandLine) {
      otherCommand_ = count_;
    } else {
      ++arguments_;
    }
  }

  bool takesArgument() const {
    const auto* argument = argumentOf(*command_);
    return !onlyCommands_ && argument != nullptr && arguments_ < argument->get_items_expected_max();
  }

  ValueOffer offerOf(const CLI::Option& option) const {
    const auto found = tree_.offers.find(&option);
    return found == tree_.offers.end() ? ValueOffer{} : found->second;
  }

  // `prefix` is what stands in front of a value in the same word.
  std::string values(const CLI::Option& option, const std::string& prefix,
                     const std::string& typed) const {
    const ValueOffer offer = offerOf(option);
    switch (offer.kind) {
      case ValueOffer::Kind::files:
        return ":files\n";
      case ValueOffer::Kind::folders:
        return ":folders\n";
      case ValueOffer::Kind::commandLine:
        return typed.starts_with('-') && !onlyArguments_ ? ""
                                                         : fmt::format(":command {}\n", count_);
      case ValueOffer::Kind::words:
        break;
    }
    std::string lines;
    for (const auto& [word, description] : offer.words) {
      lines += candidate(prefix + word, description, typed);
    }
    return lines;
  }

  std::string arguments(const std::string& typed) const {
    std::string lines;
    for (const CLI::App* command : subcommands()) {
      lines += candidate(command->get_name(), command->get_description(), typed);
    }
    return lines + (takesArgument() ? values(*argumentOf(*command_), "", typed) : "");
  }

  std::vector<const CLI::App*> subcommands() const {
    return onlyArguments_ ? std::vector<const CLI::App*>()
                          : command_->get_subcommands([](const CLI::App*) { return true; });
  }

  std::string options(const std::string& typed) const {
    std::string lines;
    for (const CLI::Option* option : command_->get_options()) {
      for (const std::string& name : option->get_lnames()) {
        lines += candidate("--" + name, option->get_description(), typed);
      }
    }
    return lines;
  }

  static std::string candidate(const std::string& word, std::string_view description,
                               const std::string& typed) {
    return word.starts_with(typed) ? fmt::format("{}\t{}\n", word, description) : "";
  }

  Invocation unused_;
  const CommandTree tree_ = makeCommandTree(unused_);
  const CLI::App* command_ = tree_.app.get();
  const CLI::Option* valueOf_ = nullptr;  // whose value comes next
  bool onlyArguments_ = false;            // behind "--"
  bool onlyCommands_ = false;             // whose help is asked for
  int arguments_ = 0;                     // that stand there already
  int count_ = 0;                         // of all words
  std::optional<int> otherCommand_;       // where another program's command line begins
  bool makesSense_ = true;
};

}  // namespace

Answer perform(const CompletionCommand& command, const ToolContext& /*context*/) {
  switch (command.shell) {
    case Shell::bash:
      return {.output = bashScript};
    case Shell::zsh:
      return {.output = zshScript};
    case Shell::fish:
      return {.output = fishScript};
  }
  programmingFault("a shell without a script");
}

Answer perform(const CompleteCommand& command, const ToolContext& /*context*/) {
  TypedLine line;
  if (command.words.empty()) {
    return {.output = line.completions("")};
  }
  std::for_each(command.words.begin(), std::prev(command.words.end()),
                [&](const std::string& word) { line.read(word); });
  return {.output = line.completions(command.words.back())};
}

}  // namespace nodo::nodoctl
