#include <NODOCore/base/Environment.h>
#include <NODOCore/base/Errors.h>
#include <NODOCore/base/Text.h>
#include <programs/nodoctl/CommandTree.h>
#include <programs/shared/OptionValues.h>

#include <algorithm>
#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <CLI/CLI.hpp>

namespace nodo::nodoctl {
namespace {

class TreeBuilder : public std::enable_shared_from_this<TreeBuilder> {
 public:
  // Without `words` the whole tree.
  TreeBuilder(Invocation& invocation, std::optional<std::vector<std::string>> words)
      : invocation_(invocation), words_(std::move(words)) {}

  std::shared_ptr<CLI::App> build() {
    auto app = std::make_shared<CLI::App>(
        "Keeps this computer awake while coding agents work, and explains what it does.",
        "nodoctl");
    // At most one; that there is one at all is checked once the line is known to make sense, so
    // that the message names a misspelt command.
    app->require_subcommand(0, 1);
    addCommands(*app);
    // Only now, as every command would begin with a copy of these.
    describe(*app);
    addHelperOptions(*app);
    return app;
  }

 private:
  using AddOptions = void (TreeBuilder::*)(CLI::App& command);

  void addCommands(CLI::App& app) {
    add(app, Command::status, "status", "Show whether the computer is kept awake, and why",
        &TreeBuilder::addStateOptions);
    add(app, Command::manual, "manual", "Keep the computer awake for some minutes",
        &TreeBuilder::addManualOptions);
    add(app, Command::stop, "stop", "End the timer, so that the computer may sleep",
        &TreeBuilder::addStateOptions);
    add(app, Command::repair, "repair",
        "Reset the state after something went wrong; the histories are kept",
        &TreeBuilder::addStateOptions);
    add(app, Command::reconcile, "reconcile",
        "Bring the sleep lock in line with the decision, once", &TreeBuilder::addReconcileOptions);
    add(app, Command::doctor, "doctor", "Check whether everything is in place, and say what is not",
        &TreeBuilder::addDoctorOptions);
    add(app, Command::diagnostics, "diagnostics", "Show what affects sleep on this computer",
        &TreeBuilder::addJSON);
    add(app, Command::agents, "agents", "List the coding agents that are running",
        &TreeBuilder::addJSON);
    add(app, std::nullopt, "hooks",
        "Make coding agents keep the computer awake while they work, or undo that",
        &TreeBuilder::addHooksCommands);
    add(app, Command::menu, "menu", "Show once what a menu bar would show",
        &TreeBuilder::addStateOptions);
    add(app, Command::watch, "watch",
        "Show the menu live, until Ctrl-C; in a pipe a line at each change",
        &TreeBuilder::addWatchOptions);
    add(app, Command::run, "run", "Keep the computer awake while a command runs",
        &TreeBuilder::addRunOptions);
    add(app, Command::completion, "completion", "Print a completion script for a shell",
        &TreeBuilder::addCompletionOptions);
  }

  static void describe(CLI::App& app) {
    app.set_help_flag("-h,--help", "Show this help and exit");
    app.set_version_flag("--version", "nodoctl " + std::string(version()),
                         "Show the version and exit");
  }

  // Without `command` it is one only together with a further word.
  void add(CLI::App& parent, std::optional<Command> command, const std::string& name,
           const std::string& description, AddOptions addOptions) {
    const bool isOnTop = parent.get_parent() == nullptr;
    if (words_ && isOnTop && std::find(words_->begin(), words_->end(), name) == words_->end()) {
      return;
    }
    CLI::App* added = parent.add_subcommand(name, description);
    if (command) {
      added->callback([&into = invocation_, command] { into.command = *command; });
    }
    if (!words_) {
      describe(*added);
      (this->*addOptions)(*added);
      return;
    }
    added->preparse_callback([self = shared_from_this(), added, addOptions](std::size_t) {
      describe(*added);
      ((*self).*addOptions)(*added);
    });
  }

  void addJSON(CLI::App& command) {
    command.add_flag("--json", invocation_.json, "Answer with one JSON document");
  }

  // Of every command that asks the daemon; and in front of the command, where people look for what
  // is common to several.
  void addHelperOptions(CLI::App& command) {
    command
        .add_option_function<std::string>(
            "--helper-timeout",
            [&into = invocation_](const std::string& text) {
              into.helperTimeout = seconds("--helper-timeout", text);
            },
            "How long the daemon may take for one answer, in seconds (default: 1)")
        ->type_name("SECONDS");
    command
        .add_option_function<std::string>(
            "--bus", [&into = invocation_](const std::string& text) { into.bus = busChoice(text); },
            "The D-Bus bus that the daemon is on (default: the system's, else the session's)")
        ->type_name("system|session|ADDRESS");
  }

  void addStateOptions(CLI::App& command) {
    addJSON(command);
    addHelperOptions(command);
  }

  CLI::Option* addMinutes(CLI::App& command, const std::string& description) {
    return command
        .add_option_function<std::string>(
            "--minutes",
            [&into = invocation_](const std::string& text) { into.minutes = wholeNumber(text); },
            description)
        ->type_name("N");
  }

  void addManualOptions(CLI::App& manual) {
    addMinutes(manual, "How long from now, in whole minutes")->required();
    manual.add_flag("--extend-only", invocation_.extendOnly,
                    "Never shorten a timer that runs longer");
    manual.add_option("--requester", invocation_.requester, "Who asks, e.g. \"Claude Code\"")
        ->type_name("NAME");
    manual.add_option("--context", invocation_.context, "What for, e.g. the project")
        ->type_name("TEXT");
    manual.add_option("--event", invocation_.event, "Which event of the agent led to this")
        ->type_name("NAME");
    addStateOptions(manual);
  }

  void addReconcileOptions(CLI::App& reconcile) {
    reconcile.add_flag("--simulate", invocation_.simulate,
                       "Only show what a pass would do, on your own state");
    addStateOptions(reconcile);
  }

  void addDoctorOptions(CLI::App& doctor) {
    doctor.add_flag("--verbose", invocation_.verbose,
                    "Add what else helps to find a reason, e.g. who else holds up sleep");
    doctor.footer("The exit status is 0 when the verdict begins with \"Ready:\", else 1.");
    addStateOptions(doctor);
  }

  void addHooksCommands(CLI::App& hooks) {
    hooks.require_subcommand(0, 1);
    add(hooks, Command::hooksInstall, "install",
        "Write the hook script, and make agents run it when they start, get a prompt or use a tool",
        &TreeBuilder::addHooksOptions);
    add(hooks, Command::hooksUninstall, "uninstall",
        "Take the hooks out of the agents' configuration again; for all agents the hook script "
        "goes too",
        &TreeBuilder::addHooksOptions);
    add(hooks, Command::hooksInspect, "inspect",
        "Show what is installed, and whether it is what this version installs",
        &TreeBuilder::addHooksOptions);
    hooks.footer("The agents are " + listedAgentNames() +
                 "; without a target all of them are meant.\n"
                 "Other tools' hooks and settings are left as they are.");
  }

  void addHooksOptions(CLI::App& command) {
    command
        .add_option_function<std::vector<std::string>>(
            "target",
            [&into = invocation_](const std::vector<std::string>& texts) {
              for (const std::string& text : texts) {
                into.hookTargets.push_back(hookTarget(text));
              }
            },
            "Which agents; all of them when none is named")
        ->type_name(joinedHookTargets("|"));
    command
        .add_option("--home", invocation_.home,
                    "The home folder that the agents' configuration lies in (default: HOME)")
        ->type_name("DIR");
    command
        .add_option("--nodoctl", invocation_.nodoctl,
                    "The nodoctl that the hooks are to run (default: this one, as it was found)")
        ->type_name("PATH");
    addJSON(command);
  }

  void addWatchOptions(CLI::App& watch) {
    watch
        .add_option_function<std::string>(
            "--interval",
            [&into = invocation_](const std::string& text) {
              into.interval = seconds("--interval", text);
            },
            "How often to look, in seconds (default: 0.5)")
        ->type_name("S");
    addStateOptions(watch);
  }

  void addRunOptions(CLI::App& run) {
    addMinutes(run, "How far ahead of the present the timer is kept (default: 20)");
    addHelperOptions(run);
    run.add_option("command", invocation_.words, "What to run, behind \"--\"")
        ->type_name("COMMAND [ARG ...]")
        ->required();
    run.footer(
        "The command's standard streams, signals and exit status are its own.\nWhen it ends the "
        "timer runs on to its end; 'nodoctl stop' ends it at once.");
  }

  void addCompletionOptions(CLI::App& completion) {
    completion.add_option("shell", invocation_.shell, "bash, zsh or fish")
        ->type_name("bash|zsh|fish")
        ->required()
        ->check(CLI::IsMember({"bash", "zsh", "fish"}).description(""));
  }

  // The library's own conversion takes 010 for eight and 0x10 for sixteen.
  static std::int64_t wholeNumber(const std::string& text) {
    const auto number = integerFromText<std::int64_t>(text);
    if (!number) {
      throw CLI::ValidationError("--minutes", "\"" + text + "\" is not a whole number of minutes");
    }
    return *number;
  }

  static double seconds(const std::string& option, const std::string& text) {
    const auto value = decimalNumber(text);
    if (!value || !(*value > 0)) {
      throw CLI::ValidationError(option, "\"" + text + "\" is not a number of seconds above 0");
    }
    return *value;
  }

  static AgentHookTarget hookTarget(const std::string& text) {
    try {
      return parseAgentHookTarget(text);
    } catch (const NODOError& error) {
      throw CLI::ValidationError(error.what());
    }
  }

  Invocation& invocation_;
  std::optional<std::vector<std::string>> words_;
};

}  // namespace

std::shared_ptr<CLI::App> makeCommandTree(Invocation& invocation) {
  return std::make_shared<TreeBuilder>(invocation, std::nullopt)->build();
}

std::shared_ptr<CLI::App> makeCommandTreeFor(const std::vector<std::string>& words,
                                             Invocation& invocation) {
  return std::make_shared<TreeBuilder>(invocation, words)->build();
}

}  // namespace nodo::nodoctl
