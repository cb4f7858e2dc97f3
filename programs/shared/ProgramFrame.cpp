#include <NODOCore/base/Errors.h>
#include <NODOCore/base/Files.h>
#include <NODOCore/base/Text.h>
#include <programs/shared/ProgramFrame.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstddef>
#include <cstring>
#include <locale>
#include <ostream>
#include <sstream>
#include <stdexcept>
#include <string_view>

#include <CLI/Error.hpp>

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

namespace nodo {
namespace {

// Who may ask for the lock is this computer's matter, and the library would look up such an
// address's host for as long as that takes, whatever the time limit. It may be one of several
// addresses, which are tried in turn.
bool isInANetwork(const std::string& busAddress) {
  for (std::string_view left = busAddress;;) {
    const std::size_t end = left.find(';');
    if (left.starts_with("tcp:") || left.starts_with("nonce-tcp:")) {
      return true;
    }
    if (end == std::string_view::npos) {
      return false;
    }
    left.remove_prefix(end + 1);
  }
}

}  // namespace

void prepareProcess() {
  for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    if (::fcntl(stream, F_GETFD) < 0) {
      // It gets the lowest number that is free, which is this one.
      ::open("/dev/null", stream == STDIN_FILENO ? O_WRONLY : O_RDONLY);
    }
  }
  std::signal(SIGCHLD, SIG_DFL);
  // A handler, unlike SIG_IGN, does not outlive the start of another program.
  if (std::signal(SIGXFSZ, [](int) {}) == SIG_IGN) {
    std::signal(SIGXFSZ, SIG_IGN);
  }
}

LogStream::LogStream(int descriptor, std::string_view program)
    : std::ostream(nullptr), lines_(descriptor, program) {
  rdbuf(&lines_);
  setf(std::ios_base::unitbuf);
}

void LogStream::follow(const std::string& path) {
  lines_.follow(path);
}

void LogStream::Lines::follow(const std::string& path) {
  path_ = path;
  if (!takeFile()) {
    throwErrno("Unable to open the log", path);
  }
}

// The file of that name takes the descriptor's place, unless it has it.
bool LogStream::Lines::takeFile() {
  struct stat taken {};

  struct stat named {};

  if (::fstat(descriptor_, &taken) == 0 && ::lstat(path_.c_str(), &named) == 0 &&
      taken.st_dev == named.st_dev && taken.st_ino == named.st_ino) {
    return true;
  }
  const FileDescriptor file(
      ::open(path_.c_str(),
             O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY, 0644));
  return file && ::dup2(file.get(), descriptor_) == descriptor_;
}

int LogStream::Lines::sync() {
  std::string text = str();
  str({});
  if (!path_.empty() && !text.empty()) {
    takeFile();
  }
  if (text.size() > longestLine) {
    text = repairedUTF8(std::string_view(text).substr(0, longestLine)) + "...\n";
  }
  if (!text.empty() && !(saysWhatIsMissing() && write(text))) {
    dropped_ += std::max<std::ptrdiff_t>(1, std::count(text.begin(), text.end(), '\n'));
  }
  return 0;  // that a log cannot be written is no failure of what it tells of
}

bool LogStream::Lines::saysWhatIsMissing() {
  if (dropped_ == 0) {
    return true;
  }
  const bool isSaid =
      write((isLineCut_ ? "\n" : "") + program_ +
            ": lines of this log that could not be written: " + std::to_string(dropped_) + "\n");
  dropped_ = isSaid ? 0 : dropped_;
  return isSaid;
}

bool LogStream::Lines::write(std::string_view text) {
  while (!text.empty()) {
    pollfd room{.fd = descriptor_, .events = POLLOUT, .revents = 0};
    // A pipe that has room takes so much without waiting.
    const std::size_t size = std::min<std::size_t>(text.size(), PIPE_BUF);
    if (::poll(&room, 1, 0) <= 0 || (room.revents & POLLOUT) == 0) {
      return false;
    }
    const ssize_t written = ::write(descriptor_, text.data(), size);
    if (written <= 0) {
      return false;
    }
    text.remove_prefix(static_cast<std::size_t>(written));
    isLineCut_ = !text.empty();
  }
  return true;
}

void Console::print(const std::string& text) const {
  errno = 0;
  // A full disk shows itself only when the buffer is written out.
  output << text << std::flush;
  if (!output) {
    throw std::runtime_error(std::string("the answer cannot be written: ") +
                             (errno != 0 ? std::strerror(errno) : "the output is closed"));
  }
}

void Console::complain(std::string_view message) const {
  // A foreign text of many megabytes takes long to escape, and nobody reads it.
  const std::string shown =
      message.size() <= longestMessage
          ? escapedForDisplay(message)
          : escapedForDisplay(repairedUTF8(message.substr(0, longestMessage))) + "...";
  // In one piece, so that lines of two processes do not mix.
  error << std::string(program) + ": " + shown + "\n" << std::flush;
}

int Console::refuse(const UsageError& usage) const {
  complain(usage.message);
  if (!usage.hint.empty()) {
    error << usage.hint << '\n';
  }
  return exitWrongUse;
}

std::optional<double> decimalNumber(const std::string& text) {
  double value = 0;
  std::istringstream stream(text);
  stream.imbue(std::locale::classic());
  if (text.find_first_not_of("0123456789.") != std::string::npos || !(stream >> value) ||
      !stream.eof()) {
    return std::nullopt;
  }
  return value;
}

std::string busChoice(const std::string& text) {
  if (text != "system" && text != "session" && text.find(':') == std::string::npos) {
    throw CLI::ValidationError("--bus", "\"" + text +
                                            "\" is neither system nor session nor a bus address "
                                            "such as unix:path=/run/bus");
  }
  if (isInANetwork(text)) {
    throw CLI::ValidationError("--bus", "\"" + text +
                                            "\" is in a network; daemon and tools meet on a bus of "
                                            "this computer");
  }
  return text;
}

}  // namespace nodo
