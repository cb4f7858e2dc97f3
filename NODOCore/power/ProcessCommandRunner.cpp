#include <NODOCore/base/System.h>
#include <NODOCore/base/Text.h>
#include <NODOCore/power/ChildProcess.h>
#include <NODOCore/power/CommandRunning.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cmath>
#include <csignal>
#include <system_error>
#include <thread>
#include <utility>

#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;  // NOLINT(readability-redundant-declaration): POSIX has no header for it

namespace nodo {

namespace {

class FileActions {
 public:
  FileActions() { ::posix_spawn_file_actions_init(&actions_); }

  FileActions(const FileActions&) = delete;
  FileActions& operator=(const FileActions&) = delete;

  ~FileActions() { ::posix_spawn_file_actions_destroy(&actions_); }

  posix_spawn_file_actions_t& get() { return actions_; }

 private:
  posix_spawn_file_actions_t actions_{};
};

enum class ProcessGroup { inherited, own };

class Attributes {
 public:
  explicit Attributes(ProcessGroup group) {
    ::posix_spawnattr_init(&attributes_);
    // A daemon blocks signals to take them in its event loop, and some parents ignore SIGPIPE; a
    // tool that inherited either could not be stopped.
    sigset_t none;
    sigemptyset(&none);
    ::posix_spawnattr_setsigmask(&attributes_, &none);
    sigset_t defaults;
    sigemptyset(&defaults);
    sigaddset(&defaults, SIGPIPE);
    ::posix_spawnattr_setsigdefault(&attributes_, &defaults);
    int flags = POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | spawnIsolationFlags();
    if (group == ProcessGroup::own) {
      ::posix_spawnattr_setpgroup(&attributes_, 0);
      flags |= POSIX_SPAWN_SETPGROUP;
    }
    ::posix_spawnattr_setflags(&attributes_, static_cast<short>(flags));
  }

  Attributes(const Attributes&) = delete;
  Attributes& operator=(const Attributes&) = delete;

  ~Attributes() { ::posix_spawnattr_destroy(&attributes_); }

  const posix_spawnattr_t& get() const { return attributes_; }

 private:
  posix_spawnattr_t attributes_{};
};

// How long a child may take to vanish once it is killed. One in the hands of a driver that hangs
// does not, and nobody may wait for that.
constexpr Seconds killingTime{1};
// A child closes its streams when it ends; its status is there a moment later.
constexpr Seconds pauseBetweenLooks{0.001};

/// A started child process with its standard output and standard error at the other end of a pipe
/// each. However this ends, the child is waited for; where it has a limit, it is killed first.
class ChildProcess {
 public:
  ChildProcess(const std::string& executable, const std::vector<std::string>& arguments,
               std::optional<Seconds> limit);

  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  ~ChildProcess();

  /// Once.
  EndedProcess end();

 private:
  void read(EndedProcess& into);
  std::int32_t wait();
  std::optional<std::int32_t> look(int options);
  int millisecondsLeft() const;

  std::string executable_;
  std::optional<Seconds> deadline_;  // in awakeTime
  FileDescriptor standardOutput_;
  FileDescriptor standardError_;
  pid_t pid_ = -1;  // absent once it was waited for, as it may be another process's then
};

ChildProcess::ChildProcess(const std::string& executable, const std::vector<std::string>& arguments,
                           std::optional<Seconds> limit)
    : executable_(executable),
      deadline_(limit ? std::optional(awakeTime() + *limit) : std::nullopt) {
  Pipe output = makePrivatePipe();
  Pipe error = makePrivatePipe();

  FileActions actions;
  ::posix_spawn_file_actions_adddup2(&actions.get(), output.writeEnd.get(), STDOUT_FILENO);
  ::posix_spawn_file_actions_adddup2(&actions.get(), error.writeEnd.get(), STDERR_FILENO);
  closeOtherDescriptors(actions.get());

  // posix_spawn takes the arguments without const, though it never writes to them.
  std::vector<char*> argv{const_cast<char*>(executable.c_str())};
  for (const std::string& argument : arguments) {
    argv.push_back(const_cast<char*>(argument.c_str()));
  }
  argv.push_back(nullptr);

  const Attributes attributes(limit ? ProcessGroup::own : ProcessGroup::inherited);
  const int failure = ::posix_spawn(&pid_, executable.c_str(), &actions.get(), &attributes.get(),
                                    argv.data(), environ);
  if (failure != 0) {
    pid_ = -1;
    throw std::system_error(failure, std::generic_category(), "Unable to run " + executable);
  }
  standardOutput_ = std::move(output.readEnd);
  standardError_ = std::move(error.readEnd);
}

ChildProcess::~ChildProcess() {
  if (pid_ < 0) {
    return;
  }
  standardOutput_.reset();
  standardError_.reset();
  try {
    if (deadline_) {
      ::kill(-pid_, SIGKILL);
      deadline_ = awakeTime() + killingTime;
    }
    wait();
  } catch (const std::system_error&) {
    // There is no child left to wait for, which is all that was wanted here, or it cannot be ended.
  }
}

EndedProcess ChildProcess::end() {
  EndedProcess ended;
  read(ended);
  ended.exitCode = wait();
  return ended;
}

void ChildProcess::read(EndedProcess& into) {
  std::array<pollfd, 2> streams{pollfd{standardOutput_.get(), POLLIN, 0},
                                pollfd{standardError_.get(), POLLIN, 0}};
  const std::array<std::string*, 2> texts{&into.standardOutput, &into.standardError};
  std::array<char, 16384> buffer{};
  while (streams[0].fd >= 0 || streams[1].fd >= 0) {
    const int ready = ::poll(streams.data(), streams.size(), millisecondsLeft());
    if (ready < 0 && errno != EINTR) {
      throwErrno("Unable to wait for", executable_);
    }
    for (std::size_t index = 0; ready > 0 && index < streams.size(); ++index) {
      if (streams[index].revents == 0) {
        continue;
      }
      const ssize_t count = ::read(streams[index].fd, buffer.data(), buffer.size());
      if (count > 0) {
        texts[index]->append(buffer.data(), static_cast<std::size_t>(count));
      } else if (count == 0) {
        streams[index].fd = -1;  // which poll passes over
      } else if (errno != EINTR) {
        throwErrno("Unable to read", executable_);
      }
    }
  }
}

std::int32_t ChildProcess::wait() {
  for (;;) {
    if (const auto exitCode = look(deadline_ ? WNOHANG : 0)) {
      return *exitCode;
    }
    millisecondsLeft();  // or its error
    std::this_thread::sleep_for(pauseBetweenLooks);
  }
}

// Absent while the child runs.
std::optional<std::int32_t> ChildProcess::look(int options) {
  int status = 0;
  pid_t found = -1;
  do {
    found = ::waitpid(pid_, &status, options);
  } while (found < 0 && errno == EINTR);
  if (found == 0) {
    return std::nullopt;
  }
  pid_ = -1;
  if (found < 0) {
    throwErrno("Unable to wait for", executable_);
  }
  return WIFSIGNALED(status) ? WTERMSIG(status) : WEXITSTATUS(status);
}

// As poll wants it. Throws once there is no time left.
int ChildProcess::millisecondsLeft() const {
  if (!deadline_) {
    return -1;  // for ever
  }
  const Seconds left = *deadline_ - awakeTime();
  if (left <= Seconds(0)) {
    throw std::system_error(ETIMEDOUT, std::generic_category(), executable_ + " has no end");
  }
  return static_cast<int>(std::ceil(std::min(left, Seconds(60)).count() * 1000));
}

}  // namespace

EndedProcess runToEnd(const std::string& executable, const std::vector<std::string>& arguments,
                      std::optional<Seconds> limit) {
  return ChildProcess(executable, arguments, limit).end();
}

CommandOutput ProcessCommandRunner::run(const std::string& executable,
                                        const std::vector<std::string>& arguments) const {
  EndedProcess ended = runToEnd(executable, arguments, limit);
  CommandOutput output{
      .executable = executable, .arguments = arguments, .exitCode = ended.exitCode};
  if (isValidUTF8(ended.standardOutput)) {
    output.standardOutput = std::move(ended.standardOutput);
  }
  if (isValidUTF8(ended.standardError)) {
    output.standardError = std::move(ended.standardError);
  }
  return output;
}

}  // namespace nodo
