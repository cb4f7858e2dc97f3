#include <platform/linux/BusError.h>
#include <platform/linux/Logind.h>
#include <platform/linux/LogindNames.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include <fcntl.h>

namespace nodo {
namespace {

std::string text(const char* value) {
  return value == nullptr ? "" : value;
}

}  // namespace

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

const BusConnection& Logind::connection() {
  if (!connection_) {
    connection_ = BusConnection::openSystem(connectLimit_, callLimit_);
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

FileDescriptor Logind::inhibit(const std::string& what, const std::string& who,
                               const std::string& why, const std::string& mode) {
  // Another's descriptors cannot get in the way on a connection that nobody knows yet.
  const BusConnection ownConnection =
      BusConnection::openSystem(connectLimit_, callLimit_, BusDescriptors::taken);
  const BusMessage call =
      ownConnection.newCall(logind::service, logind::path, logind::managerInterface, "Inhibit");
  checkSystemd(sd_bus_message_append(call.get(), "ssss", what.c_str(), who.c_str(), why.c_str(),
                                     mode.c_str()),
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
  const BusMessage call =
      connection().newCall(logind::service, logind::path, logind::managerInterface, "Suspend");
  const int interactive = 0;
  checkSystemd(sd_bus_message_append(call.get(), "b", interactive), "ask logind to suspend");
  send(call);
}

BusMessage Logind::askProperty(const std::string& name) {
  const BusMessage call =
      connection().newCall(logind::service, logind::path, "org.freedesktop.DBus.Properties", "Get");
  checkSystemd(sd_bus_message_append(call.get(), "ss", logind::managerInterface, name.c_str()),
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
  return text(what);
}

std::vector<Inhibitor> Logind::inhibitors() {
  const BusMessage reply = send(connection().newCall(logind::service, logind::path,
                                                     logind::managerInterface, "ListInhibitors"));
  const std::string action = "read logind's inhibitors";
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
    inhibitors.push_back({.what = text(what),
                          .who = text(who),
                          .why = text(why),
                          .mode = text(mode),
                          .uid = uid,
                          .pid = pid});
  }
}

}  // namespace nodo
