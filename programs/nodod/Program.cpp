#include <NODOCore/base/JSONCoding.h>
#include <NODOCore/base/Text.h>
#include <programs/nodod/CommandLine.h>
#include <programs/nodod/Daemon.h>
#include <programs/nodod/LockKeeper.h>
#include <programs/nodod/Program.h>
#include <programs/nodod/StateFolderLock.h>

#include <exception>
#include <ostream>
#include <stdexcept>
#include <utility>
#include <variant>

namespace nodo::nodod {
namespace {

void complain(std::ostream& error, const std::string& line) {
  error << "nodod: " + escapedForDisplay(line) + "\n" << std::flush;
}

void write(std::ostream& output, const std::string& text) {
  output << text << std::flush;
  if (!output) {
    throw std::runtime_error("the output cannot be written");
  }
}

std::filesystem::path stateFolder(const Options& options, const DaemonContext& context) {
  return options.stateFolder ? std::filesystem::path(*options.stateFolder)
                             : context.stateFolder(context.environment, options.bus);
}

NODOController controllerFor(const Options& options, const std::filesystem::path& folder,
                             const HostMachine& machine) {
  return {.store = {folder},
          .detector = {},
          .processListing = machine.processListing,
          .snapshotProvider = machine.snapshotProvider,
          .decisionEngine = {options.policy}};
}

SleepLock makeSleepLock(const Options& options, const DaemonContext& context, const Log& log) {
  SleepLock lock = context.makeSleepLock(options.power);
  if (lock.isSimulated && options.power == PowerChoice::automatic) {
    log("this computer offers no way to switch a sleep lock; it is only simulated");
  }
  return lock;
}

// A lock that dies with this process is given back in the end, so that the state tells the truth.
// One that stays is what was asked for, unless the pass failed and nobody would know of it.
void passOnce(LockKeeper& keeper, const DaemonContext& context) {
  try {
    const DaemonRunReport run = keeper.pass(context.now());
    write(context.output, encodeJSON(run, JSONLayout::pretty) + "\n");
  } catch (const std::exception&) {
    keeper.shutDown(context.now());
    throw;
  }
  if (keeper.lockDiesWithProcess()) {
    keeper.shutDown(context.now());
  }
}

void run(const Options& options, const DaemonContext& context) {
  const Log log = [&context](const std::string& line) { complain(context.error, line); };
  const std::filesystem::path folder = stateFolder(options, context);
  const StateFolderLock folderLock(folder);
  LockKeeper keeper(controllerFor(options, folder, context.machine),
                    makeSleepLock(options, context, log), log, context.now());
  if (options.once) {
    passOnce(keeper, context);
    return;
  }
  const std::unique_ptr<DaemonLoop> loop = context.makeLoop(options.bus);
  Daemon(keeper, *loop, context.now, log, options.releaseGrace).run();
}

}  // namespace

int runDaemon(const std::vector<std::string>& arguments, const DaemonContext& context) {
  try {
    const ParsedCommandLine parsed = parseCommandLine(arguments);
    if (const auto* usage = std::get_if<UsageError>(&parsed)) {
      complain(context.error, usage->message);
      context.error << usage->hint << '\n';
      return exitWrongUse;
    }
    if (const auto* help = std::get_if<HelpText>(&parsed)) {
      write(context.output, help->text);
      return exitSuccess;
    }
    run(std::get<Options>(parsed), context);
    return exitSuccess;
  } catch (const std::exception& error) {
    complain(context.error, error.what());
    return exitFailure;
  }
}

}  // namespace nodo::nodod
