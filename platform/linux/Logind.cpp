#include <platform/linux/BusError.h>
#include <platform/linux/Logind.h>
#include <platform/linux/SdBusLibrary.h>

#include <utility>

namespace nodo {
namespace {

constexpr char service[] = "org.freedesktop.login1";
constexpr char path[] = "/org/freedesktop/login1";
constexpr char managerInterface[] = "org.freedesktop.login1.Manager";

std::string text(const char* value) {
  return value == nullptr ? "" : value;
}

}  // namespace

const BusConnection& Logind::connection() {
  if (!connection_) {
    connection_ = BusConnection::openSystem(timeLimit_);
  }
  return *connection_;
}

BusMessage Logind::send(const BusMessage& call) {
  try {
    return connection().send(call);
  } catch (const BusError&) {
    connection_.reset();  // the bus may have been restarted: connect anew next time
    throw;
  }
}

BusMessage Logind::askProperty(const std::string& name) {
  const BusMessage call =
      connection().newCall(service, path, "org.freedesktop.DBus.Properties", "Get");
  checkBus(SdBusLibrary::shared().messageAppend(call.get(), "ss", managerInterface, name.c_str()),
           "ask logind for " + name);
  return send(call);
}

bool Logind::isLidClosed() {
  const BusMessage reply = askProperty("LidClosed");
  int closed = 0;
  checkBus(SdBusLibrary::shared().messageRead(reply.get(), "v", "b", &closed),
           "read logind's LidClosed");
  return closed != 0;
}

std::string Logind::blockInhibited() {
  const BusMessage reply = askProperty("BlockInhibited");
  const char* what = nullptr;
  checkBus(SdBusLibrary::shared().messageRead(reply.get(), "v", "s", &what),
           "read logind's BlockInhibited");
  return text(what);
}

std::vector<Inhibitor> Logind::inhibitors() {
  const SdBusLibrary& library = SdBusLibrary::shared();
  const BusMessage reply =
      send(connection().newCall(service, path, managerInterface, "ListInhibitors"));
  const std::string action = "read logind's inhibitors";
  checkBus(library.messageEnterContainer(reply.get(), 'a', "(ssssuu)"), action);
  std::vector<Inhibitor> inhibitors;
  for (;;) {
    const char* what = nullptr;
    const char* who = nullptr;
    const char* why = nullptr;
    const char* mode = nullptr;
    std::uint32_t uid = 0;
    std::uint32_t pid = 0;
    const int more =
        library.messageRead(reply.get(), "(ssssuu)", &what, &who, &why, &mode, &uid, &pid);
    checkBus(more, action);
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
