#include <NODOCore/base/JSONCoding.h>
#include <programs/nodod/CommandLine.h>
#include <programs/nodod/Daemon.h>
#include <programs/nodod/LockKeeper.h>
#include <programs/nodod/Program.h>
#include <programs/nodod/StateFolderLock.h>

#include <exception>
#include <utility>

namespace nodo::nodod {
namespace {

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
    context.console().print(encodeJSON(run, JSONLayout::pretty) + "\n");
  } catch (const std::exception&) {
    keeper.shutDown(context.now());
    throw;
  }
  if (keeper.lockDiesWithProcess()) {
    keeper.shutDown(context.now());
  }
}

void run(const Options& options, const DaemonContext& context) {
  const Log log = [console = context.console()](const std::string& line) {
    console.complain(line);
  };
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
  return runProgram<Options>(context.console(), arguments, parseCommandLine,
                             [&context](const Options& options) {
                               run(options, context);
                               return exitSuccess;
                             });
}

}  // namespace nodo::nodod
