#pragma once

#include <NODOCore/base/LocalTime.h>
#include <NODOCore/base/TextEnum.h>
#include <NODOCore/hooks/Agents.h>
#include <programs/shared/Help.h>
#include <programs/shared/ProgramFrame.h>

#include <array>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

namespace CLI {
class App;
class Option;
}  // namespace CLI

namespace nodo::nodoctl {

/// How the daemon is asked.
struct DaemonOptions {
  std::optional<std::string> bus;  ///< as in `helperConnecting`
  double timeout = 1;              ///< seconds for all requests together
};

struct StatusCommand {
  DaemonOptions daemon;
  bool json = false;
};

struct HistoryCommand {
  DaemonOptions daemon;
  bool json = false;
  std::int64_t minutes = 720;  ///< how far back
};

struct ManualCommand {
  DaemonOptions daemon;
  bool json = false;
  std::optional<std::int64_t> minutes;  ///< an hour where neither this nor `until` is given
  std::optional<ClockTime> until;
  bool extendOnly = false;
  std::optional<std::string> requester;
  std::optional<std::string> context;
  std::optional<std::string> event;
};

/// The same in fewer words: it needs no length.
struct OnCommand : ManualCommand {};

struct StopCommand {
  DaemonOptions daemon;
  bool json = false;
};

struct PauseCommand {
  DaemonOptions daemon;
  std::int64_t minutes = 60;
};

struct ResumeCommand {};

struct RepairCommand {
  DaemonOptions daemon;
  bool json = false;
};

struct ReconcileCommand {
  DaemonOptions daemon;
  bool json = false;
  bool simulate = false;
};

struct DoctorCommand {
  DaemonOptions daemon;
  bool json = false;
  bool verbose = false;
};

struct DiagnosticsCommand {
  bool json = false;
};

struct AgentsCommand {
  bool json = false;
};

/// Which hooks a command is about.
struct HooksChoice {
  std::vector<AgentHookTarget> targets;  ///< as they were given; none for all
  std::optional<std::string> home;
  std::optional<std::string> nodoctl;
};

struct HooksInstallCommand {
  HooksChoice hooks;
  bool json = false;
};

struct HooksUninstallCommand {
  HooksChoice hooks;
  bool json = false;
};

struct HooksInspectCommand {
  HooksChoice hooks;
  bool json = false;
};

struct MenuCommand {
  DaemonOptions daemon;
  bool json = false;
};

struct WatchCommand {
  DaemonOptions daemon;
  bool json = false;
  double interval = 5;  ///< seconds after which the daemon is asked where it tells of no changes
};

struct RunCommand {
  DaemonOptions daemon;
  std::int64_t minutes = 20;
  bool keep = false;                ///< the timer stays as it is in the end
  std::vector<std::string> words;   ///< of the command that is run; none when there is a `pid`
  std::optional<std::int32_t> pid;  ///< of the process that is waited for instead
};

enum class Shell { bash, zsh, fish };

struct CompletionCommand {
  Shell shell = Shell::bash;
};

/// How the line can go on that somebody types: "nodoctl complete WORD ...". The shells' completion
/// scripts ask this, and no help names it. Whatever the words, it succeeds and complains of
/// nothing.
///
/// The answer has a line for each candidate: the whole word, a tab, its description. Or one of
///   :files, :folders   the names of files or folders fit, behind "--option=" where that is typed
///   :command N         the word at N, counted from 0, begins another program's command line
struct CompleteCommand {
  std::vector<std::string> words;  ///< behind "nodoctl"; the last one is being typed
};

/// What one command line asks for.
using Invocation =
    std::variant<StatusCommand, HistoryCommand, ManualCommand, OnCommand, StopCommand, PauseCommand,
                 ResumeCommand, RepairCommand, ReconcileCommand, DoctorCommand, DiagnosticsCommand,
                 AgentsCommand, HooksInstallCommand, HooksUninstallCommand, HooksInspectCommand,
                 MenuCommand, WatchCommand, RunCommand, CompletionCommand, CompleteCommand>;

using ParsedCommandLine = std::variant<Invocation, HelpText, UsageError>;

/// What `arguments` (without the program's name) ask for; help in lines of `columns` characters at
/// most. Pure.
ParsedCommandLine parseCommandLine(const std::vector<std::string>& arguments,
                                   int columns = usualColumns);

/// Which of `words` was probably meant by `word`; empty when none is close to it. Pure.
std::string closestWord(const std::string& word, const std::vector<std::string>& words);

/// The question that ends a complaint, whether `closest` was meant; empty when that is empty.
std::string suggestion(const std::string& closest);

/// What can be offered to whoever types a value.
struct ValueOffer {
  enum class Kind { words, files, folders, commandLine };

  Kind kind = Kind::words;
  std::vector<std::pair<std::string, std::string>> words = {};  ///< each with its description
};

/// nodoctl's commands and options: the one description that parsing, help and shell completion are
/// made from.
struct CommandTree {
  std::shared_ptr<CLI::App> app;
  std::map<const CLI::Option*, ValueOffer> offers;
};

/// The command that is no request but shows the help of the command that its words name.
inline constexpr char helpCommand[] = "help";
inline constexpr char helpWords[] = "command";

/// The whole tree, or without the commands on top whose names are not among `words`: agents wait
/// for each start, of which the whole tree takes a good part. Parsing a line fills in `invocation`,
/// which must outlive the tree.
CommandTree makeCommandTree(Invocation& invocation,
                            const std::vector<std::string>* words = nullptr);

}  // namespace nodo::nodoctl

namespace nodo {

template <>
struct EnumTexts<nodoctl::Shell> {
  static constexpr std::array cases{EnumText{nodoctl::Shell::bash, "bash"},
                                    EnumText{nodoctl::Shell::zsh, "zsh"},
                                    EnumText{nodoctl::Shell::fish, "fish"}};
};

}  // namespace nodo
