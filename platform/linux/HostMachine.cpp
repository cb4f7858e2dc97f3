#include <NODOCore/base/System.h>
#include <platform/HostMachine.h>
#include <platform/linux/bus/BusConnection.h>
#include <platform/linux/logind/Logind.h>
#include <platform/linux/senses/LinuxSystemSnapshotProvider.h>
#include <platform/linux/senses/ProcProcessListing.h>

#include <unistd.h>

namespace nodo {
namespace {

// A person and an agent's hook both wait for the answer.
constexpr BusLimits logindLimits{.connecting = std::chrono::milliseconds(500),
                                 .call = std::chrono::milliseconds(500)};

std::optional<bool> readLid(Logind& logind) {
  try {
    return logind.isLidClosed();
  } catch (const BusError&) {
    return std::nullopt;  // no logind, so nobody who could tell
  }
}

SleepDiagnosticsReading readDiagnostics(Logind& logind, Date now) {
  try {
    const auto inhibitors = logind.inhibitors();
    const std::uint32_t ownUser = ::geteuid();
    return {.report = logindDiagnostics(inhibitors, logind.blockInhibited(), ownUser, now),
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

HostMachine hostMachine() {
  const auto logind = std::make_shared<Logind>(logindLimits);
  return {.processListing = std::make_shared<ProcProcessListing>(),
          .snapshotProvider =
              std::make_shared<LinuxSystemSnapshotProvider>([logind] { return readLid(*logind); }),
          .sleepDiagnostics = [logind](Date now) { return readDiagnostics(*logind, now); },
          .ageOfOwnProcess = [](std::int32_t pid) { return ageOfOwnProcess(pid, runningTime()); }};
}

}  // namespace nodo
