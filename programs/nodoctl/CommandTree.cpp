#include <NODOCore/base/Date.h>
#include <NODOCore/base/Environment.h>
#include <NODOCore/base/Errors.h>
#include <NODOCore/base/LocalTime.h>
#include <NODOCore/base/Text.h>
#include <NODOCore/hooks/HookPause.h>
#include <programs/nodoctl/CommandLine.h>

#include <algorithm>
#include <string_view>

#include <CLI/CLI.hpp>
#include <fmt/format.h>

namespace nodo::nodoctl {
namespace {

// A length of time as people write it, of which the library knows nothing.
std::int64_t lengthOfTime(const std::string& text) {
  const auto minutes = minutesFromText(text);
  if (!minutes || *minutes < 1) {
    throw CLI::ValidationError("\"" + text + "\" is no length of time; write 30, 30m, 1h or 1h30m");
  }
  return *minutes;
}

// The same as a script may compute it: what is below 1 is refused as what is too much.
std::int64_t computedMinutes(const std::string& text) {
  const auto number = integerFromText<std::int64_t>(text);
  return number ? *number : lengthOfTime(text);
}

std::int64_t pauseMinutes(const std::string& text) {
  const std::int64_t minutes = lengthOfTime(text);
  if (minutes > mostPauseMinutes) {
    throw CLI::ValidationError(
        "hooks can be paused for 24 hours at most; 'nodoctl hooks uninstall' takes them away");
  }
  return minutes;
}

std::int64_t historyMinutes(const std::string& text) {
  constexpr std::int64_t most = std::int64_t{7} * 24 * 60;
  const std::int64_t minutes = lengthOfTime(text);
  if (minutes > most) {
    throw CLI::ValidationError("\"" + text + "\" is too long ago: the last 168 hours at most");
  }
  return minutes;
}

ClockTime clockTime(const std::string& text) {
  const auto time = clockTimeFromText(text);
  if (!time) {
    throw CLI::ValidationError("\"" + text +
                               "\" is no time of day; write it as 17:30, from 00:00 to 23:59");
  }
  return *time;
}

double seconds(const std::string& option, const std::string& text) {
  const auto value = decimalNumber(text);
  if (!value || !(*value > 0)) {
    throw CLI::ValidationError(option, "\"" + text + "\" is not a number of seconds above 0");
  }
  return *value;
}

std::int32_t processID(const std::string& text) {
  const auto number = integerFromText<std::int32_t>(text);
  if (!number || *number < 1) {
    throw CLI::ValidationError("--pid", "\"" + text + "\" is not the number of a process");
  }
  return *number;
}

AgentHookTarget hookTarget(const std::string& text) {
  try {
    return parseAgentHookTarget(text);
  } catch (const NODOError&) {
    std::vector<std::string> names;
    for (const AgentHookTarget target : allCases<AgentHookTarget>()) {
      names.emplace_back(rawValue(target));
    }
    const std::string meant = suggestion(closestWord(text, names));
    throw CLI::ValidationError(
        "there is no agent \"" + text + "\"" +
        (meant.empty() ? fmt::format("; there are {}", fmt::join(names, ", ")) : meant));
  }
}

Shell shellNamed(const std::string& text) {
  const auto shell = fromRawValue<Shell>(text);
  if (!shell) {
    throw CLI::ValidationError("shell", "\"" + text + "\" is none of bash, zsh, fish");
  }
  return *shell;
}

std::string versionLine() {
  return "nodoctl " + std::string(version());
}

void describe(CLI::App& app) {
  app.set_help_flag("-h,--help", "Show this help and exit");
  app.set_version_flag("-V,--version", versionLine(), "Show the version and exit");
}

CLI::Option* addSeconds(CLI::App& command, const std::string& option, double& into,
                        const std::string& description) {
  return command.add_option_function<std::string>(
      option, [&into, option](const std::string& text) { into = seconds(option, text); },
      description);
}

CLI::Option* addMinutes(CLI::App& command, std::int64_t& into, const std::string& description) {
  return command
      .add_option_function<std::string>(
          "--minutes", [&into](const std::string& text) { into = computedMinutes(text); },
          description)
      ->type_name("N");
}

CLI::Option* addJSON(CLI::App& command, bool& into) {
  return command.add_flag("--json", into, "Print JSON");
}

class TreeBuilder {
 public:
  TreeBuilder(Invocation& invocation, const std::vector<std::string>* words)
      : invocation_(invocation), words_(words) {}

  CommandTree build() {
    CLI::App& app = *tree_.app;
    // At most one; that there is one at all is checked once the line is known to make sense, so
    // that the message names a misspelt command.
    app.require_subcommand(0, 1);
    addCommands(app);
    // Only now, as every command would begin with a copy of these.
    describe(app);
    addDaemonOptions(app);
    return std::move(tree_);
  }

 private:
  void addCommands(CLI::App& app) {
    add<StatusCommand>(app, "status", "Show whether the computer is kept awake, and why");
    add<HistoryCommand>(app, "history", "Show when and why the computer was kept awake");
    add<ManualCommand>(app, "manual", "Keep the computer awake for some time");
    add<OnCommand>(app, "on", "Keep it awake for an hour, or as long as you say");
    add<StopCommand>(app, "stop", "End the timer, so that the computer may sleep");
    add<StopCommand>(app, "off", "The same as 'nodoctl stop'");
    add<PauseCommand>(app, "pause",
                      "End the timer, and keep agents' hooks from asking for a while");
    add<ResumeCommand>(app, "resume", "End a pause, so that hooks ask again");
    add<RepairCommand>(app, "repair",
                       "Reset the state after something went wrong; the histories are kept");
    add<ReconcileCommand>(app, "reconcile", "Make the daemon check everything now");
    add<DoctorCommand>(app, "doctor", "Check whether everything is in place, and say what is not");
    add<DiagnosticsCommand>(app, "diagnostics", "Show what blocks sleep, ours and others'");
    add<AgentsCommand>(app, "agents", "List the coding agents that are running");
    addHooks(app);
    add<MenuCommand>(app, "menu", "Show a short summary");
    add<WatchCommand>(app, "watch",
                      "Show the summary live, until Ctrl-C; in a pipe a line at each change");
    add<RunCommand>(app, "run", "Keep the computer awake while a command runs");
    add<CompletionCommand>(app, "completion", "Print a completion script for a shell");
    addHelpAndVersion(app);
  }

  // Commands for what most people look for as an option.
  void addHelpAndVersion(CLI::App& app) {
    CLI::App* help = addNamed(app, helpCommand, "Show the help of nodoctl, or of a command");
    if (help != nullptr) {
      help->add_option_function<std::vector<std::string>>(
              helpWords, [](const auto&) {}, "Whose help to show, e.g. run or hooks install")
          ->type_name("COMMAND [SUBCOMMAND]");
    }
    CLI::App* version = addNamed(app, "version", "Show the version");
    if (version != nullptr) {
      version->callback([] { throw CLI::CallForVersion(versionLine(), 0); });
    }
  }

  void addHooks(CLI::App& app) {
    CLI::App* hooks = addNamed(app, "hooks",
                               "Make coding agents keep the computer awake while they work, or "
                               "undo that");
    if (hooks == nullptr) {
      return;
    }
    hooks->require_subcommand(0, 1);
    add<HooksInstallCommand>(*hooks, "install",
                             "Write the hook script, and make agents run it when they start, get "
                             "a prompt or use a tool");
    add<HooksUninstallCommand>(*hooks, "uninstall",
                               "Take the hooks out of the agents' configuration again; without "
                               "names, the shared script is removed as well");
    add<HooksInspectCommand>(*hooks, "inspect",
                             "Show what is installed, and whether it is what this version "
                             "installs");
    hooks->footer("The agents are " + listedAgentNames() +
                  "; without a name all of them are meant.\n"
                  "Other tools' hooks and settings are left as they are.");
  }

  CLI::App* addNamed(CLI::App& parent, const std::string& name, const std::string& description) {
    const bool isOnTop = parent.get_parent() == nullptr;
    if (words_ != nullptr && isOnTop &&
        std::find(words_->begin(), words_->end(), name) == words_->end()) {
      return nullptr;
    }
    CLI::App* added = parent.add_subcommand(name, description);
    describe(*added);
    return added;
  }

  template <class Command>
  void add(CLI::App& parent, const std::string& name, const std::string& description) {
    CLI::App* added = addNamed(parent, name, description);
    if (added == nullptr) {
      return;
    }
    const auto command = std::make_shared<Command>();
    addOptions(*added, *command);
    added->callback([&into = invocation_, command, daemon = daemon_] {
      if constexpr (requires { command->daemon; }) {
        command->daemon = *daemon;
      }
      requireSense(*command);
      into = *command;
    });
  }

  // Of every command that asks the daemon; and in front of the command, where people look for what
  // is common to several. Behind it they count more, as they are looked at later.
  void addDaemonOptions(CLI::App& command) {
    addSeconds(command, "--helper-timeout", daemon_->timeout,
               "How long the daemon may take for all that a command asks of it, in seconds "
               "(default: 1)")
        ->type_name("SECONDS");
    CLI::Option* bus = command.add_option_function<std::string>(
        "--bus", [daemon = daemon_](const std::string& text) { daemon->bus = busChoice(text); },
        "The D-Bus bus that the daemon is on (default: the system's, else the session's)");
    bus->type_name("system|session|ADDRESS");
    tree_.offers[bus].words = {{"system", ""}, {"session", ""}};
  }

  // Of "status", "stop", "repair" and "menu".
  template <class Command>
  void addOptions(CLI::App& app, Command& command) {
    addJSON(app, command.json);
    addDaemonOptions(app);
  }

  void addOptions(CLI::App& app, ManualCommand& manual) {
    addLength(app, manual);
    app.add_flag("--extend-only", manual.extendOnly, "Never shorten a timer that runs longer");
    app.add_option("--requester", manual.requester, "Who asks, e.g. \"Claude Code\"")
        ->type_name("NAME");
    app.add_option("--context", manual.context, "What for, e.g. the project")->type_name("TEXT");
    app.add_option("--event", manual.event, "Which event of the agent led to this")
        ->type_name("NAME");
    addJSON(app, manual.json);
    addDaemonOptions(app);
  }

  void addOptions(CLI::App& app, OnCommand& on) {
    addOptions(app, static_cast<ManualCommand&>(on));
  }

  // In one of three ways.
  static void addLength(CLI::App& app, ManualCommand& manual) {
    const auto requireFirst = [&manual] {
      if (manual.minutes || manual.until) {
        throw CLI::ValidationError("DURATION, --minutes N and --until HH:MM do not go together");
      }
    };
    const auto setMinutes = [&manual, requireFirst](std::int64_t (*read)(const std::string&)) {
      return [&manual, requireFirst, read](const std::string& text) {
        requireFirst();
        manual.minutes = read(text);
      };
    };
    app.add_option_function<std::string>("duration", setMinutes(lengthOfTime),
                                         "For how long: 30, 30m, 1h or 1h30m")
        ->type_name("DURATION");
    app.add_option_function<std::string>("--minutes", setMinutes(computedMinutes),
                                         "The same, as scripts say it")
        ->type_name("N");
    app.add_option_function<std::string>(
           "--until",
           [&manual, requireFirst](const std::string& text) {
             requireFirst();
             manual.until = clockTime(text);
           },
           "Until the clock shows that time the next time")
        ->type_name("HH:MM");
    app.footer(
        "Of a time that the clock shows twice, as it is put back, --until means the first that "
        "lies ahead; of one that it skips, as it is put forward, the moment of that.");
  }

  void addOptions(CLI::App& app, HistoryCommand& history) {
    app.add_option_function<std::string>(
           "--since",
           [&history](const std::string& text) { history.minutes = historyMinutes(text); },
           "How far back: 30, 30m, 1h or 1h30m, up to 168h (default: 12h)")
        ->type_name("DURATION");
    addJSON(app, history.json);
    addDaemonOptions(app);
  }

  void addOptions(CLI::App& app, PauseCommand& pause) {
    app.add_option_function<std::string>(
           "duration", [&pause](const std::string& text) { pause.minutes = pauseMinutes(text); },
           "For how long: 30, 30m, 1h or 1h30m, up to 24h (default: 1h)")
        ->type_name("DURATION");
    addDaemonOptions(app);
    app.footer("Only your own hooks are kept from asking; you can still ask by hand.");
  }

  static void addOptions(CLI::App& /*app*/, ResumeCommand& /*resume*/) {}

  void addOptions(CLI::App& app, ReconcileCommand& reconcile) {
    app.add_flag("--simulate", reconcile.simulate,
                 "Only show what a pass would do, on your own state");
    addJSON(app, reconcile.json);
    addDaemonOptions(app);
  }

  void addOptions(CLI::App& app, DoctorCommand& doctor) {
    app.add_flag("--verbose", doctor.verbose,
                 "Add what else helps to find a reason, e.g. who else holds up sleep");
    app.footer(
        "The exit status is 1 when the verdict begins with \"Warning:\" or a finding below it with "
        "\"Problem:\", else 0.");
    addJSON(app, doctor.json);
    addDaemonOptions(app);
  }

  void addOptions(CLI::App& app, DiagnosticsCommand& diagnostics) {
    addJSON(app, diagnostics.json);
  }

  void addOptions(CLI::App& app, AgentsCommand& agents) { addJSON(app, agents.json); }

  void addOptions(CLI::App& app, HooksInstallCommand& install) {
    addHooksChoice(app, install.hooks);
    addJSON(app, install.json);
  }

  void addOptions(CLI::App& app, HooksUninstallCommand& uninstall) {
    addHooksChoice(app, uninstall.hooks);
    addJSON(app, uninstall.json);
  }

  void addOptions(CLI::App& app, HooksInspectCommand& inspect) {
    addHooksChoice(app, inspect.hooks);
    addJSON(app, inspect.json);
  }

  void addHooksChoice(CLI::App& app, HooksChoice& hooks) {
    CLI::Option* target = app.add_option_function<std::vector<std::string>>(
        "target",
        [&hooks](const std::vector<std::string>& texts) {
          std::transform(texts.begin(), texts.end(), std::back_inserter(hooks.targets), hookTarget);
        },
        "Which agents; all of them when none is named");
    offerTexts<AgentHookTarget>(*target, [](AgentHookTarget each) { return displayName(each); });
    target->type_name(target->get_type_name() + " ...");
    CLI::Option* home =
        app.add_option("--home", hooks.home,
                       "The home folder that the agents' configuration lies in (default: HOME)");
    home->type_name("DIR");
    tree_.offers[home].kind = ValueOffer::Kind::folders;
    CLI::Option* nodoctl =
        app.add_option("--nodoctl", hooks.nodoctl,
                       "The nodoctl that the hooks are to run (default: this one, where it was "
                       "found)");
    nodoctl->type_name("PATH");
    tree_.offers[nodoctl].kind = ValueOffer::Kind::files;
  }

  void addOptions(CLI::App& app, WatchCommand& watch) {
    addSeconds(
        app, "--interval", watch.interval,
        "After how many seconds to ask again where the daemon tells of no changes (default: 5)")
        ->type_name("S");
    addJSON(app, watch.json)->description("Print JSON, one document a line");
    addDaemonOptions(app);
  }

  void addOptions(CLI::App& app, RunCommand& run) {
    addMinutes(app, run.minutes, "How many minutes ahead the timer is kept (default: 20)");
    app.add_flag("--keep", run.keep, "Leave the timer as it is in the end");
    app.add_option_function<std::string>(
           "--pid", [&run](const std::string& text) { run.pid = processID(text); },
           "Wait for a process that runs already, instead of running a command")
        ->type_name("PID");
    addDaemonOptions(app);
    CLI::Option* command = app.add_option("command", run.words, "What to run, and what to give it");
    command->type_name("-- COMMAND [ARG ...]");
    tree_.offers[command].kind = ValueOffer::Kind::commandLine;
    app.footer(
        "The command's standard streams, signals and exit status are its own. Afterwards the timer "
        "is again what it was before, unless somebody else has asked meanwhile.\n"
        "If nodoctl is killed (kill -9), the command is killed with it, but no process given by "
        "--pid, and the timer runs on to its end.");
  }

  static void requireSense(const ManualCommand& manual) {
    if (!manual.minutes && !manual.until) {
      throw CLI::RequiredError("DURATION, --minutes N or --until HH:MM");
    }
  }

  static void requireSense(const RunCommand& run) {
    if (run.words.empty() && !run.pid) {
      throw CLI::RequiredError("A COMMAND to run or --pid PID");
    }
    if (!run.words.empty() && run.pid) {
      throw CLI::ValidationError("a COMMAND and --pid PID do not go together");
    }
  }

  // Of a command of which each line that can be parsed makes sense.
  template <class Command>
  static void requireSense(const Command& /*command*/) {}

  void addOptions(CLI::App& app, CompletionCommand& completion) {
    CLI::Option* shell = app.add_option_function<std::string>(
        "shell", [&completion](const std::string& text) { completion.shell = shellNamed(text); },
        "Which shell the script is for");
    shell->required();
    offerTexts<Shell>(*shell, [](Shell) { return std::string_view(); });
  }

  // The texts of an enumeration are what the argument can be, and what the help calls it.
  template <class Enum>
  void offerTexts(CLI::Option& argument, std::string_view (*description)(Enum)) {
    std::string typeName;
    for (const Enum each : allCases<Enum>()) {
      tree_.offers[&argument].words.emplace_back(rawValue(each), description(each));
      typeName += (typeName.empty() ? "" : "|") + std::string(rawValue(each));
    }
    argument.type_name(typeName);
  }

  Invocation& invocation_;
  const std::vector<std::string>* words_;
  // What is given in front of a command and behind it. The options hold on to it.
  std::shared_ptr<DaemonOptions> daemon_ = std::make_shared<DaemonOptions>();
  CommandTree tree_{.app = std::make_shared<CLI::App>(
                        "Keeps this computer awake while coding agents work, and explains what it "
                        "does.",
                        "nodoctl"),
                    .offers = {}};
};

}  // namespace

CommandTree makeCommandTree(Invocation& invocation, const std::vector<std::string>* words) {
  return TreeBuilder(invocation, words).build();
}

}  // namespace nodo::nodoctl
