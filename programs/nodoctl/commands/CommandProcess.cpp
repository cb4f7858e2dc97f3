#include <NODOCore/base/Files.h>
#include <NODOCore/base/System.h>
#include <programs/nodoctl/Tool.h>
#include <programs/nodoctl/commands/CommandProcess.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <filesystem>

#include <sys/wait.h>
#include <unistd.h>

namespace nodo::nodoctl {
namespace {

namespace fs = std::filesystem;

// No signal may find the child with this process's handlers.
class AllSignalsBlocked {
 public:
  AllSignalsBlocked() {
    sigset_t all;
    sigfillset(&all);
    ::sigprocmask(SIG_SETMASK, &all, &before_);
  }

  AllSignalsBlocked(const AllSignalsBlocked&) = delete;
  AllSignalsBlocked& operator=(const AllSignalsBlocked&) = delete;

  ~AllSignalsBlocked() { ::sigprocmask(SIG_SETMASK, &before_, nullptr); }

  const sigset_t& before() const { return before_; }

 private:
  sigset_t before_{};
};

// What is caught here is to have its default effect there; what is ignored stays so.
void resetCaughtSignals() noexcept {
  for (int signal = 1; signal < NSIG; ++signal) {
    struct sigaction action {};

    if (::sigaction(signal, nullptr, &action) == 0 &&
        ((action.sa_flags & SA_SIGINFO) != 0 ||
         (action.sa_handler != SIG_IGN && action.sa_handler != SIG_DFL))) {
      ::signal(signal, SIG_DFL);
    }
  }
}

[[noreturn]] void becomeCommand(const std::vector<char*>& arguments, const sigset_t& mask,
                                const EndWithParent& endWithParent, int reportTo) noexcept {
  endWithParent.inChild();
  resetCaughtSignals();
  ::sigprocmask(SIG_SETMASK, &mask, nullptr);
  ::execvp(arguments.front(), arguments.data());
  const int error = errno;
  [[maybe_unused]] const auto written = ::write(reportTo, &error, sizeof error);
  ::_exit(commandNotFound);
}

int statusOfError(int error) {
  return error == ENOENT || error == ENOTDIR ? commandNotFound : commandNotRunnable;
}

std::string errorText(const std::string& command, int error) {
  const bool isSearched = command.find('/') == std::string::npos;
  return isSearched && error == ENOENT ? "it is in no folder of PATH" : std::strerror(error);
}

}  // namespace

CommandError::CommandError(const std::string& command, int error)
    : std::runtime_error("cannot run \"" + command + "\": " + errorText(command, error)),
      exitStatus_(statusOfError(error)) {}

void checkCommand(const std::string& command, const std::string& searchPath) {
  bool isThere = false;
  for (const fs::path& place : placesOfProgram(command, searchPath)) {
    if (isProgram(place)) {
      return;
    }
    std::error_code ignored;
    isThere = isThere || fs::exists(place, ignored);
  }
  throw CommandError(command, isThere ? EACCES : ENOENT);
}

CommandProcess::CommandProcess(const std::vector<std::string>& words) {
  std::vector<char*> arguments;
  arguments.reserve(words.size() + 1);
  for (const std::string& word : words) {
    arguments.push_back(const_cast<char*>(word.c_str()));
  }
  arguments.push_back(nullptr);
  Pipe pipe = makePrivatePipe();
  {
    const AllSignalsBlocked blocked;
    pid_ = ::fork();
    if (pid_ == 0) {
      becomeCommand(arguments, blocked.before(), endWithParent_, pipe.writeEnd.get());
    }
  }
  if (pid_ < 0) {
    throwErrno("Unable to start", words.front());
  }
  pipe.writeEnd.reset();
  // Its end, without anything in it, means that the child has become the command.
  const std::string report = readToEnd(pipe.readEnd, "the report of the new process");
  if (!report.empty()) {
    int error = 0;
    std::memcpy(&error, report.data(), std::min(report.size(), sizeof error));
    ::waitpid(pid_, nullptr, 0);
    throw CommandError(words.front(), error);
  }
  try {
    endWithParent_.inParent(pid_);
  } catch (...) {
    kill();
    throw;
  }
}

CommandProcess::~CommandProcess() {
  if (!ended_) {
    kill();
  }
}

void CommandProcess::kill() const {
  ::kill(pid_, SIGKILL);
  ::waitpid(pid_, nullptr, 0);
}

void CommandProcess::send(int signal) const {
  if (!ended_) {
    ::kill(pid_, signal);
  }
}

bool CommandProcess::hasEnded() {
  int status = 0;
  if (!ended_ && ::waitpid(pid_, &status, WNOHANG) == pid_) {
    ended_ = true;
    exitStatus_ = WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
  }
  return ended_;
}

}  // namespace nodo::nodoctl
