#include <NODOCore/base/JSONCoding.h>
#include <NODOCore/daemon/Daemon.h>
#include <programs/nodod/CommandLine.h>
#include <programs/nodod/Program.h>
#include <programs/nodod/Watchdog.h>

#include <cerrno>
#include <exception>
#include <stdexcept>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace nodo::nodod {
namespace {

void makePrivateFolder(const std::filesystem::path& folder) {
  std::error_code failure;
  std::filesystem::create_directories(folder.parent_path(), failure);
  if (::mkdir(folder.c_str(), 0700) != 0 && errno != EEXIST) {
    throwErrno("Unable to make the folder", folder.string());
  }
}

std::filesystem::path stateFolder(const Options& options, const DaemonContext& context) {
  return options.stateFolder ? std::filesystem::path(*options.stateFolder)
                             : context.stateFolder(context.environment, options.bus);
}

// What holds now: the options win over the file.
EffectiveSettings effectiveSettings(const Options& options, const DaemonContext& context) {
  EffectiveSettings effective =
      readSettings(options.config ? std::filesystem::path(*options.config) : context.settingsFile,
                   options.config.has_value());
  for (const ChosenSetting& chosen : options.chosen) {
    chosen.setting->set(effective.settings, chosen.value);
  }
  return effective;
}

int showSettings(const EffectiveSettings& effective, const DaemonContext& context) {
  std::string text;
  for (const std::string& line : SettingsReport(effective).lines) {
    text += line + "\n";
  }
  context.console().print(text);
  for (const std::string& problem : effective.problems) {
    context.console().complain(problem);
  }
  return effective.problems.empty() ? exitSuccess : exitFailure;
}

NODOController controllerFor(const std::filesystem::path& folder, const HostMachine& machine) {
  return {.store = {folder},
          .detector = {},
          .processListing = machine.processListing,
          .snapshotProvider = machine.snapshotProvider,
          .decisionEngine = {}};
}

SleepLock makeSleepLock(const Options& options, const DaemonContext& context,
                        const DaemonLog& log) {
  SleepLock lock = context.makeSleepLock(options.power);
  if (lock.isSimulated && options.power == PowerChoice::automatic) {
    log("this computer offers no way to switch a sleep lock; it is only simulated");
  }
  return lock;
}

// Nobody looks after the lock afterwards, so it is given back in the end.
void passOnce(LockKeeper& keeper, const DaemonContext& context) {
  const DaemonRunReport run = keeper.pass(context.now());
  context.console().print(encodeJSON(run, JSONLayout::pretty) + "\n");
  if (!keeper.shutDown(context.now())) {
    throw std::runtime_error("the sleep lock may still be on");
  }
}

void run(const Options& options, const DaemonContext& context) {
  const DaemonLog log = [console = context.console()](const std::string& line) {
    console.complain(line);
  };
  if (options.log) {
    try {
      context.useLog(*options.log);
    } catch (const std::system_error& error) {
      log(error.what());  // to where it is: a lock matters more than its log
    }
  }
  const std::filesystem::path folder = stateFolder(options, context);
  const EffectiveSettings settings = effectiveSettings(options, context);
  const HostMachine machine = context.machine(options.power);
  LockKeeper keeper(controllerFor(folder, machine), makeSleepLock(options, context, log), log,
                    settings.settings, context.now());
  keeper.releaseLeftBehind(context.now());
  try {
    const StateFolderLock folderLock(folder);
    if (options.once) {
      passOnce(keeper, context);
      return;
    }
    std::unique_ptr<DaemonLoop> loop = context.makeLoop(options.bus, log);
    if (!keeper.lockDiesWithProcess()) {
      loop = std::make_unique<WatchedLoop>(std::move(loop));
    }
    Daemon(keeper, *loop, context.now, log, settings, [&options, &context] {
      return effectiveSettings(options, context);
    }).run();
  } catch (const std::exception&) {
    keeper.shutDown(context.now());
    throw;
  }
}

}  // namespace

StateFolderLock::StateFolderLock(const std::filesystem::path& folder) {
  makePrivateFolder(folder);
  const std::filesystem::path name = folder / "nodod.lock";
  file_ = openLocked(name, O_CREAT);
  if (!file_ && errno == EWOULDBLOCK) {
    throw std::runtime_error("another nodod works on the state in " + folder.string());
  }
  if (!file_) {
    throwErrno("Unable to lock", name.string());
  }
}

int runDaemon(const std::vector<std::string>& arguments, const DaemonContext& context) {
  const int columns = helpColumns(context.environment, columnsOfTerminal(STDOUT_FILENO));
  return runProgram<Options>(
      context.console(), arguments,
      [columns](const auto& words) { return parseCommandLine(words, columns); },
      [&context](const Options& options) {
        if (options.showSettings) {
          return showSettings(effectiveSettings(options, context), context);
        }
        run(options, context);
        return exitSuccess;
      });
}

}  // namespace nodo::nodod
