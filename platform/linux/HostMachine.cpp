#include <NODOCore/base/System.h>
#include <platform/HostMachine.h>
#include <platform/linux/bus/BusConnection.h>
#include <platform/linux/logind/Logind.h>
#include <platform/linux/senses/LinuxSystemSnapshotProvider.h>
#include <platform/linux/senses/ProcProcessListing.h>

#include <unistd.h>

namespace nodo {
namespace {

// logind as the senses ask it, one after another.
class LogindSense {
 public:
  explicit LogindSense(std::chrono::milliseconds patience)
      : logind_({.connecting = patience, .call = patience}) {}

  // What `question` gives of it. Throws BusError.
  template <class Question>
  auto ask(const Question& question) {
    if (BusClock::now() < silentUntil_) {
      throw BusTimeout("it did not answer a moment ago");
    }
    try {
      return question(logind_);
    } catch (const BusTimeout&) {
      silentUntil_ = BusClock::now() + std::chrono::seconds(1);
      throw;
    }
  }

 private:
  Logind logind_;
  BusClock::time_point silentUntil_;
};

std::optional<bool> readLid(LogindSense& logind) {
  try {
    return logind.ask([](Logind& asked) { return asked.isLidClosed(); });
  } catch (const BusError&) {
    return std::nullopt;  // no logind, so nobody who could tell
  }
}

SleepDiagnosticsReading readDiagnostics(LogindSense& logind, Date now) {
  try {
    const auto inhibitors = logind.ask([](Logind& asked) { return asked.inhibitors(); });
    const std::string blocked = logind.ask([](Logind& asked) { return asked.blockInhibited(); });
    const std::uint32_t ownUser = ::geteuid();
    return {.report = logindDiagnostics(inhibitors, blocked, ownUser, now),
            .lockHolder = sleepLockHolder(inhibitors, ownUser),
            .hint = std::nullopt};
  } catch (const BusError& error) {
    SleepDiagnosticsReading reading;
    reading.report.generatedAt = now;
    reading.hint = std::string("systemd-logind cannot be asked (") + error.what() +
                   "), so nothing is known about what blocks sleep";
    return reading;
  }
}

}  // namespace

HostMachine hostMachine(std::chrono::milliseconds patience) {
  const auto logind = std::make_shared<LogindSense>(patience);
  return {.processListing = std::make_shared<ProcProcessListing>(),
          .snapshotProvider =
              std::make_shared<LinuxSystemSnapshotProvider>([logind] { return readLid(*logind); }),
          .sleepDiagnostics = [logind](Date now) { return readDiagnostics(*logind, now); },
          .ageOfOwnProcess = [](std::int32_t pid) { return ageOfOwnProcess(pid, runningTime()); }};
}

}  // namespace nodo
