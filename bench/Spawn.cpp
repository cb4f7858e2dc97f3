#include <NODOCore/base/System.h>

#include <cerrno>
#include <fstream>
#include <system_error>
#include <utility>

#include <bench/CommandLines.h>
#include <bench/Spawn.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;  // NOLINT(readability-redundant-declaration): POSIX has no header for it

namespace nodo::bench {

pid_t spawn(const std::string& program, const std::vector<std::string>& arguments,
            const FileDescriptor& standardInput, const FileDescriptor& standardOutput) {
  std::vector<char*> argv;
  argv.reserve(arguments.size() + 1);
  for (const std::string& argument : arguments) {
    argv.push_back(const_cast<char*>(argument.c_str()));
  }
  argv.push_back(nullptr);

  posix_spawn_file_actions_t actions{};
  ::posix_spawn_file_actions_init(&actions);
  if (standardInput) {
    ::posix_spawn_file_actions_adddup2(&actions, standardInput.get(), STDIN_FILENO);
  }
  if (standardOutput) {
    ::posix_spawn_file_actions_adddup2(&actions, standardOutput.get(), STDOUT_FILENO);
  }
  pid_t child = -1;
  const int failure =
      ::posix_spawn(&child, program.c_str(), &actions, nullptr, argv.data(), environ);
  ::posix_spawn_file_actions_destroy(&actions);
  if (failure != 0) {
    throw std::system_error(failure, std::generic_category(), "Unable to run " + program);
  }
  return child;
}

IdleProcesses::IdleProcesses(const std::filesystem::path& folder, std::size_t count) {
  const std::filesystem::path script = folder / "server.js";
  std::ofstream(script) << "read line\n";

  Pipe pipe = makePrivatePipe();
  lifeline_ = std::move(pipe.writeEnd);

  CommandLines lines(1);
  children_.reserve(count);
  for (std::size_t index = 0; index < count; ++index) {
    // A shell takes any name for itself, and any arguments after its script.
    children_.push_back(spawn("/bin/sh", {"/usr/bin/node", script.string(), lines.next().command},
                              pipe.readEnd, FileDescriptor()));
  }
}

IdleProcesses::~IdleProcesses() {
  lifeline_.reset();
  for (const pid_t child : children_) {
    int status = 0;
    ::waitpid(child, &status, 0);
  }
}

}  // namespace nodo::bench
