#include <NODOCore/base/Files.h>
#include <NODOCore/base/System.h>
#include <NODOCore/base/Text.h>
#include <programs/nodoctl/terminal/Terminal.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <string>
#include <utility>

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

namespace nodo::nodoctl {
namespace {

class PosixTerminal : public Terminal {
 public:
  explicit PosixTerminal(int descriptor) : descriptor_(descriptor) {}

  bool isTerminal() const override { return ::isatty(descriptor_) == 1; }

  TerminalSize size() const override {
    winsize told{};
    TerminalSize size;
    if (::ioctl(descriptor_, TIOCGWINSZ, &told) == 0 && told.ws_col > 0 && told.ws_row > 0) {
      size = {.columns = told.ws_col, .rows = told.ws_row};
    }
    return size;
  }

  void write(std::string_view text) override {
    while (!text.empty()) {
      const auto written = ::write(descriptor_, text.data(), text.size());
      if (written >= 0) {
        text.remove_prefix(static_cast<std::size_t>(written));
      } else if (errno != EINTR) {
        throwErrno("Unable to write to", "the terminal");
      }
    }
  }

  // To switch it off from the background stops this process until it comes to the front, as is
  // usual for programs that take the whole terminal. To switch it on must not: the process may be
  // ending.
  void setEcho(bool on) override {
    termios settings{};
    if ((on && ::tcgetpgrp(descriptor_) != ::getpgrp()) ||
        ::tcgetattr(descriptor_, &settings) != 0) {
      return;
    }
    const auto echo = static_cast<tcflag_t>(ECHO | ICANON);
    settings.c_lflag = on ? settings.c_lflag | echo : settings.c_lflag & ~echo;
    ::tcsetattr(descriptor_, TCSANOW, &settings);
  }

  // In the background, keys are for others: to read them would stop this process.
  pollfd events() const override {
    const bool hasKeys = isTerminal() && ::tcgetpgrp(descriptor_) == ::getpgrp();
    return {.fd = descriptor_, .events = static_cast<short>(hasKeys ? POLLIN : 0), .revents = 0};
  }

  std::string typed() override {
    std::array<char, 64> keys{};
    const ssize_t count = ::read(descriptor_, keys.data(), keys.size());
    return {keys.data(), static_cast<std::size_t>(std::max<ssize_t>(count, 0))};
  }

 private:
  int descriptor_;
};

// Of the variables that name the locale the first that is not empty counts.
bool isUTF8Locale(const Environment& environment) {
  for (const char* name : {"LC_ALL", "LC_CTYPE", "LANG"}) {
    if (const auto value = nonEmptyValue(environment, name)) {
      const std::string locale = lowercased(*value);
      return locale.find("utf-8") != std::string::npos || locale.find("utf8") != std::string::npos;
    }
  }
  return false;
}

}  // namespace

std::shared_ptr<Terminal> terminalAt(int descriptor) {
  return std::make_shared<PosixTerminal>(descriptor);
}

bool canRedraw(const Environment& environment, bool isTerminal) {
  const auto kind = nonEmptyValue(environment, "TERM");
  return isTerminal && kind && *kind != "dumb";
}

TextStyle textStyle(const Environment& environment, bool isTerminal) {
  return {.colour = canRedraw(environment, isTerminal) && !nonEmptyValue(environment, "NO_COLOR"),
          .utf8 = isUTF8Locale(environment)};
}

namespace {

// What the handler writes into the pipe; small enough for a write to be whole.
struct Record {
  int number;
  pid_t sender;
  bool isForForeground;
};

std::atomic<int> pipeEnd{-1};
std::atomic<int> terminalEnd{-1};
static_assert(std::atomic<int>::is_always_lock_free, "a signal handler reads it");

// Whether the controlling terminal, if there is one, can have sent `number` to this process's
// group: for a key or a change of its size to the foreground, and at its end, when it tells no
// more.
bool isForForeground(int number) {
  switch (number) {
    case SIGINT:
    case SIGQUIT:
    case SIGTSTP:
    case SIGWINCH:
      return ::tcgetpgrp(terminalEnd) == ::getpgrp();
    case SIGHUP:
      return terminalEnd >= 0;
    default:
      return false;
  }
}

// A full pipe loses a signal: thousands of others wait in it then.
void record(int number, siginfo_t* info, void* /*context*/) {
  const int before = errno;
  const Record caught{
      .number = number, .sender = info->si_pid, .isForForeground = isForForeground(number)};
  [[maybe_unused]] const auto written = ::write(pipeEnd, &caught, sizeof caught);
  errno = before;
}

class PipedSignals : public SignalQueue {
 public:
  explicit PipedSignals(const std::vector<int>& signals) {
    for (const FileDescriptor* end : {&pipe_.readEnd, &pipe_.writeEnd}) {
      ::fcntl(end->get(), F_SETFL, O_NONBLOCK);
    }
    pipeEnd = pipe_.writeEnd.get();
    terminalEnd = terminal_.get();
    for (const int signal : signals) {
      install(signal);
    }
  }

  PipedSignals(const PipedSignals&) = delete;
  PipedSignals& operator=(const PipedSignals&) = delete;

  ~PipedSignals() override {
    for (const auto& [signal, action] : before_) {
      ::sigaction(signal, &action, nullptr);
    }
    pipeEnd = -1;
    terminalEnd = -1;
  }

  std::optional<CaughtSignal> next(Seconds limit, std::span<pollfd> others) override {
    const auto deadline = std::chrono::steady_clock::now() +
                          std::chrono::duration_cast<std::chrono::steady_clock::duration>(limit);
    std::vector<pollfd> sources(others.begin(), others.end());
    sources.push_back({.fd = pipe_.readEnd.get(), .events = POLLIN, .revents = 0});
    for (bool hasCome = false;;) {
      if (const auto caught = read()) {
        return caught;
      }
      const auto left =
          std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
      if (left.count() <= 0 || hasCome) {
        return std::nullopt;
      }
      constexpr std::chrono::milliseconds::rep longest = 3'600'000;
      ::poll(sources.data(), static_cast<nfds_t>(sources.size()),
             static_cast<int>(std::min(left.count(), longest)));
      for (std::size_t i = 0; i < others.size(); ++i) {
        others[i].revents = sources[i].revents;
        hasCome = hasCome || sources[i].revents != 0;
      }
    }
  }

 private:
  void install(int signal) {
    struct sigaction before {};

    ::sigaction(signal, nullptr, &before);
    // Whoever started this process under "nohup", say, wants the signal ignored.
    if ((before.sa_flags & SA_SIGINFO) == 0 && before.sa_handler == SIG_IGN) {
      return;
    }

    struct sigaction action {};

    action.sa_sigaction = record;
    action.sa_flags = SA_SIGINFO | SA_RESTART;
    sigfillset(&action.sa_mask);
    ::sigaction(signal, &action, nullptr);
    before_.emplace_back(signal, before);
  }

  std::optional<CaughtSignal> read() const {
    Record caught{};
    if (::read(pipe_.readEnd.get(), &caught, sizeof caught) !=
        static_cast<ssize_t>(sizeof caught)) {
      return std::nullopt;
    }
    // Not by si_code, which on Darwin says nothing of the sender.
    const bool byTerminal = caught.sender == 0 && caught.isForForeground;
    return CaughtSignal{.number = caught.number,
                        .sender = byTerminal ? std::nullopt : std::optional(caught.sender)};
  }

  Pipe pipe_ = makePrivatePipe();
  FileDescriptor terminal_{::open("/dev/tty", O_RDONLY | O_NOCTTY | O_CLOEXEC)};
  std::vector<std::pair<int, struct sigaction>> before_;
};

}  // namespace

std::unique_ptr<SignalQueue> catchSignals(const std::vector<int>& signals) {
  return std::make_unique<PipedSignals>(signals);
}

void raiseWithDefaultAction(int signal) {
  struct sigaction plain {};

  struct sigaction before {};

  plain.sa_handler = SIG_DFL;
  sigemptyset(&plain.sa_mask);
  ::sigaction(signal, &plain, &before);
  ::raise(signal);
  ::sigaction(signal, &before, nullptr);
}

}  // namespace nodo::nodoctl
