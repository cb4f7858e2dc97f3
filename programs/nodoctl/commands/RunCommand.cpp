#include <NODOCore/base/Errors.h>
#include <NODOCore/base/JSONCoding.h>
#include <programs/nodoctl/StateAccess.h>
#include <programs/nodoctl/commands/CommandProcess.h>
#include <programs/nodoctl/commands/Commands.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <exception>
#include <filesystem>
#include <map>
#include <stdexcept>
#include <utility>

#include <poll.h>
#include <unistd.h>

namespace nodo::nodoctl {
namespace {

// Who asked for what until when. As text, since a state that was just saved has fractions of
// seconds, and the same one as it is read has none.
std::string requestsIn(const NODOState& state) {
  NODOState requests;
  requests.manualUntil = state.manualUntil;
  requests.lastRequester = state.lastRequester;
  requests.triggerHistory = state.triggerHistory;
  return encodeJSON(requests, JSONLayout::compact);
}

// Keeps the timer ahead of the present while a command runs, and gives back in the end what that
// took.
//
// The timer is extended when half of the time is used up, and where the daemon could not serve,
// soon again, as it may come back. What goes wrong is said once.
class Lease {
 public:
  // In the name of `requester`.
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

  // Sets the timer back to what it was without this, unless somebody else has asked since the last
  // extension. Two requests are needed for that, and who asks between them is not seen.
  void giveBack() {
    if (command_.keep) {
      return;
    }
    try {
      StateAccess state(command_.daemon, context_, [this](const std::string& reason) {
        if (taken_.count(DoctorStatusSource::helper) > 0) {
          context_.console().complain("the daemon cannot be asked (" + reason +
                                      "), so its timer may run on; 'nodoctl stop' ends it "
                                      "once the daemon answers again");
        }
      });
      const SourcedStatus present = state.status();
      const auto taken = taken_.find(present.source);
      if (taken != taken_.end() && requestsIn(present.report.state) == taken->second.left) {
        restore(state, taken->second.before, present.report.state);
      }
    } catch (const std::exception& error) {
      context_.console().complain(
          std::string("the timer cannot be set back to what it was, so it may run on: ") +
          error.what());
    }
  }

  // Until it is time; at most a minute, as the civil clock may jump, e.g. over a sleep.
  Seconds timeToWait() const { return std::clamp(next_ - context_.now(), Seconds(0), longestWait); }

 private:
  // What was taken of one state.
  struct Taken {
    NODOState before;  // as it was without this
    std::string left;  // the requests after the last extension
  };

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
    const SourcedStatus before = state.status();
    const SourcedStatus extended =
        state.manual({.minutes = command_.minutes,
                      .extendOnly = true,
                      .requester = ActivationRequester(requester_, std::nullopt, "run", now)});
    if (extended.source == DoctorStatusSource::helper) {
      next_ = now + half;
    }
    if (extended.source == before.source) {
      note(before, extended);
    }
  }

  // What somebody else has asked for meanwhile is theirs, and stays in the end as what was there at
  // first.
  void note(const SourcedStatus& before, const SourcedStatus& extended) {
    Taken& taken = taken_[before.source];
    if (requestsIn(before.report.state) != taken.left) {
      taken.before = before.report.state;
    }
    taken.left = requestsIn(extended.report.state);
  }

  // The timer is set in whole minutes: it ends no earlier than before and no later than now.
  void restore(StateAccess& state, const NODOState& before, const NODOState& present) const {
    const Date now = context_.now();
    if (before.manualUntil == present.manualUntil) {
      return;
    }
    if (!before.manualUntil || *before.manualUntil <= now) {
      state.stop();
      return;
    }
    const auto left = std::chrono::ceil<std::chrono::minutes>(*before.manualUntil - now);
    if (now + left < *present.manualUntil) {
      state.manual({.minutes = left.count(), .requester = before.lastRequester});
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
  std::map<DoctorStatusSource, Taken> taken_;
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

int runCommand(const std::vector<std::string>& words, SignalQueue& signals, Lease& lease) {
  CommandProcess process(words);
  while (!process.hasEnded()) {
    if (const auto signal = signals.next(lease.timeToWait())) {
      passOn(*signal, process);
    }
    lease.keep();
  }
  return process.exitStatus();
}

int keepAwakeDuring(const RunCommand& run, const ToolContext& context) {
  const std::string& name = run.words.front();
  checkCommand(name, searchPath(context.environment));
  Lease lease(run, std::filesystem::path(name).filename().string(), context);
  lease.begin();
  const auto signals = context.catchSignals(
      {SIGCHLD, SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGTSTP, SIGWINCH, SIGUSR1, SIGUSR2});
  try {
    const int status = runCommand(run.words, *signals, lease);
    lease.giveBack();
    return status;
  } catch (...) {
    lease.giveBack();
    throw;
  }
}

FileDescriptor endOf(pid_t pid) {
  if (pid == ::getpid()) {
    throw std::runtime_error("process " + std::to_string(pid) +
                             " is this nodoctl itself, which would wait for its own end");
  }
  FileDescriptor end = openEndOfProcess(pid);
  if (!end && errno == ESRCH) {
    throw std::runtime_error("there is no process " + std::to_string(pid));
  }
  if (!end) {
    throwErrno("Unable to wait for", "process " + std::to_string(pid));
  }
  return end;
}

// Keeps awake while the process runs. A signal ends the waiting, and then this process.
void keepAwakeUntilEnd(const RunCommand& run, const ToolContext& context) {
  const FileDescriptor end = endOf(*run.pid);
  std::optional<CaughtSignal> signal;
  {
    const auto signals = context.catchSignals({SIGINT, SIGTERM, SIGHUP, SIGQUIT});
    Lease lease(run, "process " + std::to_string(*run.pid), context);
    lease.begin();
    std::array ended{pollfd{.fd = end.get(), .events = POLLIN, .revents = 0}};
    while (!signal && ended.front().revents == 0) {
      signal = signals->next(lease.timeToWait(), ended);
      lease.keep();
    }
    lease.giveBack();
  }
  if (signal) {
    raiseWithDefaultAction(signal->number);
  }
}

}  // namespace

Answer perform(const RunCommand& command, const ToolContext& context) {
  if (command.pid) {
    keepAwakeUntilEnd(command, context);
    return {};
  }
  try {
    return {.exitStatus = keepAwakeDuring(command, context)};
  } catch (const CommandError& error) {
    return {.hints = {error.what()}, .exitStatus = error.exitStatus()};
  }
}

}  // namespace nodo::nodoctl
