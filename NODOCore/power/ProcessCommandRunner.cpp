#include <NODOCore/base/Errors.h>
#include <NODOCore/base/System.h>
#include <NODOCore/base/Text.h>
#include <NODOCore/power/ChildProcess.h>
#include <NODOCore/power/CommandRunning.h>

#include <cerrno>
#include <csignal>
#include <system_error>
#include <utility>

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

class Attributes {
 public:
  Attributes() {
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
    ::posix_spawnattr_setflags(
        &attributes_,
        static_cast<short>(POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | spawnIsolationFlags()));
  }

  Attributes(const Attributes&) = delete;
  Attributes& operator=(const Attributes&) = delete;

  ~Attributes() { ::posix_spawnattr_destroy(&attributes_); }

  const posix_spawnattr_t& get() const { return attributes_; }

 private:
  posix_spawnattr_t attributes_{};
};

std::int32_t waitFor(pid_t pid, const std::string& executable) {
  int status = 0;
  while (::waitpid(pid, &status, 0) < 0) {
    if (errno != EINTR) {
      throwErrno("Unable to wait for", executable);
    }
  }
  return WIFSIGNALED(status) ? WTERMSIG(status) : WEXITSTATUS(status);
}

}  // namespace

ChildProcess::ChildProcess(const std::string& executable, const std::vector<std::string>& arguments)
    : executable_(executable) {
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

  const Attributes attributes;
  const int failure = ::posix_spawn(&pid_, executable.c_str(), &actions.get(), &attributes.get(),
                                    argv.data(), environ);
  if (failure != 0) {
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
    wait();
  } catch (const std::system_error&) {
    // There is no child left to wait for, which is all that was wanted here.
  }
}

std::string ChildProcess::readStandardOutput() {
  return readToEnd(standardOutput_, executable_);
}

std::string ChildProcess::readStandardError() {
  return readToEnd(standardError_, executable_);
}

std::int32_t ChildProcess::wait() {
  if (pid_ < 0) {
    programmingFault("a child process that is waited for twice");
  }
  const pid_t pid = std::exchange(pid_, -1);
  return waitFor(pid, executable_);
}

CommandOutput ProcessCommandRunner::run(const std::string& executable,
                                        const std::vector<std::string>& arguments) const {
  ChildProcess child(executable, arguments);
  CommandOutput output{.executable = executable, .arguments = arguments};
  std::string standardOutput = child.readStandardOutput();
  std::string standardError = child.readStandardError();
  output.exitCode = child.wait();
  if (isValidUTF8(standardOutput)) {
    output.standardOutput = std::move(standardOutput);
  }
  if (isValidUTF8(standardError)) {
    output.standardError = std::move(standardError);
  }
  return output;
}

}  // namespace nodo
