#include <programs/nodoctl/commands/RunCommand.h>
#include <programs/nodoctl/run/CommandProcess.h>
#include <programs/nodoctl/run/Lease.h>
#include <programs/nodoctl/terminal/SignalQueue.h>

#include <csignal>
#include <filesystem>
#include <string>

#include <unistd.h>

namespace nodo::nodoctl {
namespace {

// Whether the command has had the signal already. A key on the terminal and the terminal itself
// signal to the whole process group, and so does a command that stops its own group: passing that
// on would count twice, which many a command takes for "at once, without tidying up".
bool reachedCommand(const CaughtSignal& signal, const CommandProcess& command) {
  return !signal.sender || *signal.sender == command.pid();
}

// Both stop, and whoever started this process sees that. What stopped the group is continued as a
// group; to pass that on as well would wake the command if it had been stopped again meanwhile.
void stopWith(const CaughtSignal& signal, const CommandProcess& command) {
  const bool isForBoth = reachedCommand(signal, command);
  if (!isForBoth) {
    command.send(SIGTSTP);
  }
  sufferSignal(SIGTSTP);
  if (!isForBoth) {
    command.send(SIGCONT);
  }
}

void passOn(const CaughtSignal& signal, const CommandProcess& command) {
  if (signal.number == SIGTSTP) {
    stopWith(signal, command);
  } else if (signal.number != SIGCHLD && !reachedCommand(signal, command)) {
    command.send(signal.number);
  }
}

std::string searchPath(const Environment& environment) {
  const auto path = environment.find("PATH");
  return path == environment.end() ? "/usr/bin:/bin" : path->second;
}

int keepAwakeDuring(const Invocation& invocation, const ToolContext& context) {
  const std::string& name = invocation.words.front();
  checkCommand(name, searchPath(context.environment));
  Lease lease({.bus = invocation.bus, .timeout = invocation.helperTimeout}, invocation.minutes,
              std::filesystem::path(name).filename().string(), context);
  lease.begin();
  const auto signals = context.catchSignals(
      {SIGCHLD, SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGTSTP, SIGWINCH, SIGUSR1, SIGUSR2});
  CommandProcess command(invocation.words);
  while (!command.hasEnded()) {
    if (const auto signal = signals->next(lease.timeToWait())) {
      passOn(*signal, command);
    }
    lease.keep();
  }
  return command.exitStatus();
}

}  // namespace

Answer performRun(const Invocation& invocation, const ToolContext& context) {
  try {
    return {.exitStatus = keepAwakeDuring(invocation, context)};
  } catch (const CommandError& error) {
    return {.hints = {error.what()}, .exitStatus = error.exitStatus()};
  }
}

}  // namespace nodo::nodoctl
