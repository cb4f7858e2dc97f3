#include <platform/linux/logind/Logind.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <string_view>
#include <utility>

#include <fmt/format.h>

#include <fcntl.h>

namespace nodo {

const BusConnection& Logind::connection() {
  if (!connection_) {
    connection_.emplace(systemBus, limits_);
  }
  return *connection_;
}

BusMessage Logind::send(const BusMessage& call) {
  try {
    return connection().send(call);
  } catch (const BusRefusal&) {
    throw;
  } catch (const BusError&) {
    connection_.reset();  // the bus may have been restarted: connect anew next time
    throw;
  }
}

FileDescriptor Logind::inhibit(const Inhibitor& wanted) {
  // Another's descriptors cannot get in the way on a connection that nobody knows yet.
  const BusConnection ownConnection(systemBus, limits_, BusDescriptors::taken);
  const BusMessage call = ownConnection.newCall(logindManager, "Inhibit");
  checkSystemd(sd_bus_message_append(call.get(), "ssss", wanted.what.c_str(), wanted.who.c_str(),
                                     wanted.why.c_str(), wanted.mode.c_str()),
               "ask logind for an inhibitor");
  const BusMessage reply = ownConnection.send(call);
  int lent = -1;
  checkSystemd(sd_bus_message_read(reply.get(), "h", &lent), "read logind's inhibitor");
  // The message closes its own.
  FileDescriptor kept(::fcntl(lent, F_DUPFD_CLOEXEC, 3));
  if (!kept) {
    throw BusError(std::string("cannot keep logind's inhibitor: ") + std::strerror(errno));
  }
  return kept;
}

void Logind::suspend() {
  const BusMessage call = connection().newCall(logindManager, "Suspend");
  const int interactive = 0;
  checkSystemd(sd_bus_message_append(call.get(), "b", interactive), "ask logind to suspend");
  send(call);
}

void Logind::lockSessions() {
  send(connection().newCall(logindManager, "LockSessions"));
}

BusMessage Logind::askProperty(const std::string& name) {
  const BusMessage call = connection().newCall(logindProperties, "Get");
  checkSystemd(sd_bus_message_append(call.get(), "ss", logindManager.interface, name.c_str()),
               "ask logind for " + name);
  return send(call);
}

bool Logind::isLidClosed() {
  const BusMessage reply = askProperty("LidClosed");
  int closed = 0;
  checkSystemd(sd_bus_message_read(reply.get(), "v", "b", &closed), "read logind's LidClosed");
  return closed != 0;
}

std::string Logind::blockInhibited() {
  const BusMessage reply = askProperty("BlockInhibited");
  const char* what = nullptr;
  checkSystemd(sd_bus_message_read(reply.get(), "v", "s", &what), "read logind's BlockInhibited");
  return what;
}

bool Logind::blocksHoldForTheirUser() {
  try {
    askProperty("BlockWeakInhibited");
    return true;
  } catch (const BusRefusal&) {
    return false;  // it has no such property
  }
}

std::vector<Inhibitor> Logind::inhibitors() {
  constexpr char action[] = "read logind's inhibitors";
  const BusMessage reply = send(connection().newCall(logindManager, "ListInhibitors"));
  checkSystemd(sd_bus_message_enter_container(reply.get(), 'a', "(ssssuu)"), action);
  std::vector<Inhibitor> inhibitors;
  for (;;) {
    const char* what = nullptr;
    const char* who = nullptr;
    const char* why = nullptr;
    const char* mode = nullptr;
    std::uint32_t uid = 0;
    std::uint32_t pid = 0;
    const int more =
        sd_bus_message_read(reply.get(), "(ssssuu)", &what, &who, &why, &mode, &uid, &pid);
    checkSystemd(more, action);
    if (more == 0) {
      return inhibitors;
    }
    inhibitors.push_back(
        {.what = what, .who = who, .why = why, .mode = mode, .uid = uid, .pid = pid});
  }
}

bool holdsUp(std::string_view what, std::string_view kind) {
  while (!what.empty()) {
    const auto colon = what.find(':');
    if (what.substr(0, colon) == kind) {
      return true;
    }
    what.remove_prefix(colon == std::string_view::npos ? what.size() : colon + 1);
  }
  return false;
}

Inhibitor sleepLockInhibitor(const LockTerms& terms) {
  return {.what = terms.keepsDisplayOn ? "sleep:idle:handle-lid-switch" : "sleep:handle-lid-switch",
          .who = "nodo",
          .why = terms.why,
          .mode = "block"};
}

bool looksLikeSleepLock(const Inhibitor& inhibitor) {
  const Inhibitor lock = sleepLockInhibitor({});
  return inhibitor.who == lock.who && inhibitor.mode == lock.mode &&
         holdsUp(inhibitor.what, "sleep") && holdsUp(inhibitor.what, "handle-lid-switch");
}

std::optional<std::int64_t> sleepLockHolder(const std::vector<Inhibitor>& inhibitors,
                                            std::uint32_t ownUser) {
  constexpr std::uint32_t root = 0;
  const auto lock =
      std::find_if(inhibitors.begin(), inhibitors.end(), [ownUser](const Inhibitor& inhibitor) {
        return (inhibitor.uid == root || inhibitor.uid == ownUser) && looksLikeSleepLock(inhibitor);
      });
  return lock != inhibitors.end() ? std::optional<std::int64_t>(lock->pid) : std::nullopt;
}

namespace {

// The kinds of inhibition that logind knows.
constexpr std::array<std::string_view, 8> kinds{"sleep",
                                                "idle",
                                                "shutdown",
                                                "handle-lid-switch",
                                                "handle-power-key",
                                                "handle-suspend-key",
                                                "handle-hibernate-key",
                                                "handle-reboot-key"};

SleepBlocker blockerFrom(const Inhibitor& inhibitor) {
  const bool blocksSleep = inhibitor.mode == "block" &&
                           (holdsUp(inhibitor.what, "sleep") || holdsUp(inhibitor.what, "idle"));
  return {
      .pid = inhibitor.pid,
      .processName = inhibitor.who,
      .duration = "",
      .assertionType = inhibitor.what,
      .assertionName = inhibitor.why,
      .scope = blocksSleep ? SleepBlockerScope::systemSleep : SleepBlockerScope::other,
      .rawLine = fmt::format("pid {}({}): uid {} {} {} named: \"{}\"", inhibitor.pid, inhibitor.who,
                             inhibitor.uid, inhibitor.mode, inhibitor.what, inhibitor.why)};
}

}  // namespace

SleepDiagnosticsReport logindDiagnostics(const std::vector<Inhibitor>& inhibitors,
                                         const std::string& blockInhibited, std::uint32_t ownUser,
                                         Date generatedAt) {
  SleepDiagnosticsReport report;
  report.generatedAt = generatedAt;
  report.sleepDisabled = sleepLockHolder(inhibitors, ownUser).has_value();
  for (const std::string_view kind : kinds) {
    report.assertionStatuses.emplace(kind, holdsUp(blockInhibited, kind));
  }
  for (const Inhibitor& inhibitor : inhibitors) {
    report.blockers.push_back(blockerFrom(inhibitor));
  }
  return report;
}

}  // namespace nodo
