#include <NODOCore/base/Files.h>

#include <array>
#include <csignal>
#include <filesystem>
#include <stdexcept>

#include <fcntl.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <tests/platform/linux/bus/PrivateBus.h>
#include <unistd.h>

namespace nodo {
namespace {

constexpr char program[] = "/usr/bin/dbus-daemon";

}  // namespace

bool PrivateBus::isInstalled() {
  return std::filesystem::exists(program);
}

PrivateBus::PrivateBus() : address_("unix:path=" + (folder_ / "bus").string()) {
  std::array<int, 2> ends{};
  if (::pipe2(ends.data(), O_CLOEXEC) != 0) {
    throwErrno("Unable to make", "a pipe");
  }
  const FileDescriptor ours(ends[0]);
  FileDescriptor theirs(ends[1]);
  constexpr int inChild = 3;
  posix_spawn_file_actions_t actions;
  ::posix_spawn_file_actions_init(&actions);
  ::posix_spawn_file_actions_adddup2(&actions, theirs.get(), inChild);
  const std::string log = (folder_ / "log").string();
  ::posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, log.c_str(), O_WRONLY | O_CREAT,
                                     S_IRUSR | S_IWUSR);
  std::string address = "--address=" + address_;
  std::string print = "--print-address=" + std::to_string(inChild);
  std::array<char*, 7> arguments{const_cast<char*>("dbus-daemon"),
                                 const_cast<char*>("--session"),
                                 const_cast<char*>("--nofork"),
                                 const_cast<char*>("--nopidfile"),
                                 address.data(),
                                 print.data(),
                                 nullptr};
  const int failed = ::posix_spawn(&pid_, program, &actions, nullptr, arguments.data(), environ);
  ::posix_spawn_file_actions_destroy(&actions);
  theirs.reset();
  char first = 0;
  if (failed != 0 || ::read(ours.get(), &first, 1) != 1) {
    throw std::runtime_error("dbus-daemon does not start: " + folder_.read("log"));
  }
}

PrivateBus::~PrivateBus() {
  kill();
}

void PrivateBus::kill() {
  if (pid_ > 0) {
    ::kill(pid_, SIGKILL);
    ::waitpid(pid_, nullptr, 0);
    pid_ = -1;
  }
}

void PrivateBus::hang() {
  ::kill(pid_, SIGSTOP);
  ::waitpid(pid_, nullptr, WUNTRACED);
}

void PrivateBus::goOn() {
  ::kill(pid_, SIGCONT);
}

}  // namespace nodo
