#include <NODOCore/base/Errors.h>
#include <programs/nodoctl/StateAccess.h>
#include <programs/nodoctl/commands/CommandProcess.h>
#include <programs/nodoctl/commands/Commands.h>

#include <algorithm>
#include <csignal>
#include <exception>
#include <filesystem>
#include <utility>

namespace nodo::nodoctl {
namespace {

// Keeps the timer ahead of the present while a command runs.
//
// The timer is extended when half of the time is used up, and where the daemon could not serve,
// soon again, as it may come back. What goes wrong is said once.
class Lease {
 public:
  // For the command called `requester`.
  Lease(const RunCommand& command, std::string requester, const ToolContext& context)
      : command_(command),
        requester_(std::move(requester)),
        context_(context),
        next_(context.now()) {}

  // Extends the timer for the first time. Throws RefusedValue when the minutes are not allowed.
  void begin() {
    try {
      extend();
    } catch (const RefusedValue&) {
      throw;
    } catch (const std::exception& error) {
      warnOnce(warnedOfFailure_, failureText(error));
    }
  }

  // Extends the timer when it is time to.
  void keep() {
    if (context_.now() < next_) {
      return;
    }
    try {
      extend();
    } catch (const std::exception& error) {
      warnOnce(warnedOfFailure_, failureText(error));
    }
  }

  // Until it is time; at most a minute, as the civil clock may jump, e.g. over a sleep.
  Seconds timeToWait() const { return std::clamp(next_ - context_.now(), Seconds(0), longestWait); }

 private:
  static constexpr Seconds longestWait{60};

  static std::string failureText(const std::exception& error) {
    return std::string(
               "the timer cannot be extended, so the computer may sleep while the command "
               "runs: ") +
           error.what();
  }

  void extend() {
    const Date now = context_.now();
    const Seconds half(static_cast<double>(command_.minutes) * 60 / 2);
    next_ = now + std::min(half, longestWait);
    StateAccess state(command_.daemon, context_, [this](const std::string& reason) {
      warnOnce(warnedOfDaemon_, localStateNotice(reason));
    });
    const SourcedStatus extended =
        state.manual({.minutes = command_.minutes,
                      .extendOnly = true,
                      .requester = ActivationRequester(requester_, std::nullopt, "run", now)});
    if (extended.source == DoctorStatusSource::helper) {
      next_ = now + half;
    }
  }

  void warnOnce(bool& warned, const std::string& message) {
    if (!std::exchange(warned, true)) {
      context_.console().complain(message);
    }
  }

  const RunCommand& command_;
  std::string requester_;
  const ToolContext& context_;
  Date next_;
  bool warnedOfDaemon_ = false;
  bool warnedOfFailure_ = false;
};

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
  raiseWithDefaultAction(SIGTSTP);
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

int keepAwakeDuring(const RunCommand& run, const ToolContext& context) {
  const std::string& name = run.words.front();
  checkCommand(name, searchPath(context.environment));
  Lease lease(run, std::filesystem::path(name).filename().string(), context);
  lease.begin();
  const auto signals = context.catchSignals(
      {SIGCHLD, SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGTSTP, SIGWINCH, SIGUSR1, SIGUSR2});
  CommandProcess process(run.words);
  while (!process.hasEnded()) {
    if (const auto signal = signals->next(lease.timeToWait())) {
      passOn(*signal, process);
    }
    lease.keep();
  }
  return process.exitStatus();
}

}  // namespace

Answer perform(const RunCommand& command, const ToolContext& context) {
  try {
    return {.exitStatus = keepAwakeDuring(command, context)};
  } catch (const CommandError& error) {
    return {.hints = {error.what()}, .exitStatus = error.exitStatus()};
  }
}

}  // namespace nodo::nodoctl
