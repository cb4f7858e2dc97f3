#include <NODOCore/base/Files.h>
#include <programs/nodoctl/terminal/SignalQueue.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <utility>

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

namespace nodo::nodoctl {
namespace {

// What the handler writes into the pipe; small enough for a write to be whole.
struct Record {
  int number;
  int code;
  pid_t sender;
};

std::atomic<int> pipeEnd{-1};
static_assert(std::atomic<int>::is_always_lock_free, "a signal handler reads it");

// A full pipe loses a signal: thousands of others wait in it then.
void record(int number, siginfo_t* info, void* /*context*/) {
  const int before = errno;
  const Record caught{.number = number, .code = info->si_code, .sender = info->si_pid};
  [[maybe_unused]] const auto written = ::write(pipeEnd, &caught, sizeof caught);
  errno = before;
}

class PipedSignals : public SignalQueue {
 public:
  explicit PipedSignals(const std::vector<int>& signals) {
    std::array<int, 2> ends{};
    if (::pipe(ends.data()) != 0) {
      throwErrno("Unable to make", "a pipe");
    }
    output_ = FileDescriptor(ends[0]);
    input_ = FileDescriptor(ends[1]);
    for (const int end : ends) {
      ::fcntl(end, F_SETFD, FD_CLOEXEC);
      ::fcntl(end, F_SETFL, O_NONBLOCK);
    }
    pipeEnd = input_.get();
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
  }

  std::optional<CaughtSignal> next(Seconds limit) override {
    const auto deadline = std::chrono::steady_clock::now() +
                          std::chrono::duration_cast<std::chrono::steady_clock::duration>(limit);
    for (;;) {
      if (const auto caught = read()) {
        return caught;
      }
      const auto left =
          std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
      if (left.count() <= 0) {
        return std::nullopt;
      }
      pollfd source{.fd = output_.get(), .events = POLLIN, .revents = 0};
      constexpr std::chrono::milliseconds::rep longest = 3'600'000;
      ::poll(&source, 1, static_cast<int>(std::min(left.count(), longest)));
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
    ::sigfillset(&action.sa_mask);
    ::sigaction(signal, &action, nullptr);
    before_.emplace_back(signal, before);
  }

  std::optional<CaughtSignal> read() const {
    Record caught{};
    if (::read(output_.get(), &caught, sizeof caught) != static_cast<ssize_t>(sizeof caught)) {
      return std::nullopt;
    }
    const bool byProcess = caught.code == SI_USER || caught.code == SI_QUEUE;
    return CaughtSignal{.number = caught.number,
                        .sender = byProcess ? std::optional(caught.sender) : std::nullopt};
  }

  FileDescriptor output_;
  FileDescriptor input_;
  std::vector<std::pair<int, struct sigaction>> before_;
};

}  // namespace

std::unique_ptr<SignalQueue> catchSignals(const std::vector<int>& signals) {
  return std::make_unique<PipedSignals>(signals);
}

void sufferSignal(int signal) {
  struct sigaction plain {};

  struct sigaction before {};

  plain.sa_handler = SIG_DFL;
  ::sigemptyset(&plain.sa_mask);
  ::sigaction(signal, &plain, &before);
  ::raise(signal);
  ::sigaction(signal, &before, nullptr);
}

}  // namespace nodo::nodoctl
