#include <platform/linux/bus/MessageContents.h>
#include <platform/linux/helper/HelperListener.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <ctime>
#include <stdexcept>
#include <utility>

#include <unistd.h>

namespace nodo {
namespace {

DaemonBus open(const std::string& name) {
  // No request needs a descriptor, and whoever may send a message could use up all that this
  // process may have, and with them the lock.
  DaemonBus bus{
      .connection = openBus(name, BusDescriptors::refused, BusClock::now() + startPatience),
      .name = name};
  // Of what is asked of the bus itself; a question to polkit has a limit of its own.
  constexpr std::chrono::microseconds callLimit = startPatience;
  checkSystemd(sd_bus_set_method_call_timeout(bus.connection.get(),
                                              static_cast<std::uint64_t>(callLimit.count())),
               "connect to " + describedBus(name));
  return bus;
}

// How often it is told how many were refused.
constexpr std::chrono::minutes countInterval(1);

// A bus that this process's own user runs: whoever that user is there, it is the same person.
bool isOwnUsersBus(sd_bus* bus) {
  SystemdHandle<sd_bus_creds> credentials;
  const int result = sd_bus_get_owner_creds(bus, SD_BUS_CREDS_EUID, into(credentials));
  uid_t owner = 0;
  return result >= 0 && sd_bus_creds_get_euid(credentials.get(), &owner) >= 0 &&
         owner == ::geteuid();
}

}  // namespace

DaemonBus openDaemonBus(const std::optional<std::string>& choice) {
  DaemonBus bus;
  connectToChosenBus(choice, [&bus](const std::string& chosen) { bus = open(chosen); });
  return bus;
}

HelperListener::HelperListener(EventLoop& loop, const DaemonBus& bus,
                               NODOHelperXPCProtocol& service)
    : loop_(loop),
      bus_(bus.connection.get()),
      service_(service),
      policy_{.ownUser = ::geteuid(),
              .isOwnUsersBus = isOwnUsersBus(bus_),
              // On a session bus the name would be that of any program of its user's.
              .hasAuthority = bus.name != sessionBus},
      callers_(bus.name),
      countsDue_(loop, CLOCK_MONOTONIC, std::chrono::seconds(5), [this] { logCounts(); }) {
  const std::string path = objectPath(std::string(NODOServiceConstants::helperMachServiceName));
  checkSystemd(
      sd_bus_add_object_vtable(bus_, into(object_), path.c_str(), helperInterface, methods(), this),
      "offer the requests on " + describedBus(bus.name));
  takeName(describedBus(bus.name));
}

void HelperListener::takeName(const std::string& bus) {
  const std::string name(NODOServiceConstants::helperMachServiceName);
  const int result = sd_bus_request_name(bus_, name.c_str(), 0);
  if (result == -EEXIST || result == -EALREADY) {
    throw std::runtime_error(name + " is taken on " + bus + ": another nodod runs there");
  }
  if (result == -EACCES || result == -EPERM) {
    throw std::runtime_error(bus + " does not let this user offer " + name +
                             "; run nodod as root, or for this user alone with --bus session");
  }
  checkSystemd(result, "take the name " + name + " on " + bus);
}

const sd_bus_vtable* HelperListener::methods() {
  // "Unprivileged" leaves it to the policy here who may call, instead of to the library, which
  // would look into /proc.
  static const sd_bus_vtable table[] = {
      SD_BUS_VTABLE_START(SD_BUS_VTABLE_UNPRIVILEGED),
      SD_BUS_METHOD_WITH_NAMES(MethodOf()(StatusRequest()), "", "", "s", SD_BUS_PARAM(reply),
                               onCall<StatusRequest>, SD_BUS_VTABLE_UNPRIVILEGED),
      SD_BUS_METHOD_WITH_NAMES(MethodOf()(EnableManualRequest()), "x", SD_BUS_PARAM(minutes), "s",
                               SD_BUS_PARAM(reply), onCall<EnableManualRequest>,
                               SD_BUS_VTABLE_UNPRIVILEGED),
      SD_BUS_METHOD_WITH_NAMES(
          MethodOf()(EnableManualV2Request()), "xba{sv}",
          SD_BUS_PARAM(minutes) SD_BUS_PARAM(extendOnly) SD_BUS_PARAM(requester), "s",
          SD_BUS_PARAM(reply), onCall<EnableManualV2Request>, SD_BUS_VTABLE_UNPRIVILEGED),
      SD_BUS_METHOD_WITH_NAMES(MethodOf()(StopRequest()), "", "", "s", SD_BUS_PARAM(reply),
                               onCall<StopRequest>, SD_BUS_VTABLE_UNPRIVILEGED),
      SD_BUS_METHOD_WITH_NAMES(MethodOf()(ReconcileRequest()), "", "", "s", SD_BUS_PARAM(reply),
                               onCall<ReconcileRequest>, SD_BUS_VTABLE_UNPRIVILEGED),
      SD_BUS_METHOD_WITH_NAMES(MethodOf()(RepairRequest()), "", "", "s", SD_BUS_PARAM(reply),
                               onCall<RepairRequest>, SD_BUS_VTABLE_UNPRIVILEGED),
      SD_BUS_METHOD_WITH_NAMES(permissionMethod, "", "", "bs",
                               SD_BUS_PARAM(isGranted) SD_BUS_PARAM(refusal), onPermission,
                               SD_BUS_VTABLE_UNPRIVILEGED),
      SD_BUS_METHOD_WITH_NAMES(settingsMethod, "", "", "s", SD_BUS_PARAM(settings), onSettings,
                               SD_BUS_VTABLE_UNPRIVILEGED),
      SD_BUS_SIGNAL(changedSignal, "", 0),
      SD_BUS_VTABLE_END};
  return table;
}

template <class Request>
int HelperListener::onCall(sd_bus_message* call, void* listener, sd_bus_error* /*error*/) {
  auto& self = *static_cast<HelperListener*>(listener);
  self.loop_.protect([&self, call] { self.receive(BusCall(call, Request{})); });
  return 1;
}

void HelperListener::announceChange() {
  const std::string path = objectPath(std::string(NODOServiceConstants::helperMachServiceName));
  // Fails when the bus is gone, which ends the daemon by itself.
  sd_bus_emit_signal(bus_, path.c_str(), helperInterface, changedSignal, nullptr);
}

int HelperListener::onPermission(sd_bus_message* call, void* listener, sd_bus_error* /*error*/) {
  auto& self = *static_cast<HelperListener*>(listener);
  self.loop_.protect([&self, call] {
    const BusCall question = BusCall::asking(call);
    if (question.wantsAnswer()) {
      self.receive(question);
    }
  });
  return 1;
}

int HelperListener::onSettings(sd_bus_message* call, void* listener, sd_bus_error* /*error*/) {
  auto& self = *static_cast<HelperListener*>(listener);
  self.loop_.protect([&self, call] {
    const BusCall question(call, StatusRequest{});
    if (question.wantsAnswer()) {
      question.tellSettings(self.service_.settings());
    }
  });
  return 1;
}

void HelperListener::receive(const BusCall& request) {
  // Who calls takes a question to the bus, which is not put when it makes no difference.
  if (policy_.judge(request.kind(), std::nullopt).kind == CallerVerdict::Kind::serve) {
    // Anybody may look, and who wants no answer costs none.
    if (request.wantsAnswer()) {
      serve(request);
    }
    return;
  }
  const BusPeer sender = callers_.find(request.caller());
  if (!sender.isThere) {
    return;  // no one to answer, and what it wanted is for those who stay
  }
  const CallerVerdict verdict = policy_.judge(request.kind(), sender.user);
  switch (verdict.kind) {
    case CallerVerdict::Kind::serve:
      serve(request);
      break;
    case CallerVerdict::Kind::askAuthority:
      askAuthority(request, sender.user.value());
      break;
    case CallerVerdict::Kind::refuse:
      deny(request, sender.user, verdict.reason);
      break;
  }
}

void HelperListener::askAuthority(const BusCall& request, std::uint32_t user) {
  try {
    if (const std::optional<std::string> reason = reasonNotToWait(request, user)) {
      refuse(request, user, SD_BUS_ERROR_LIMITS_EXCEEDED, *reason);
      return;
    }
  } catch (const BusError& unreadable) {
    refuse(request, user, SD_BUS_ERROR_INVALID_ARGS, unreadable.what());
    return;
  }
  Waiting& waiting = waiting_.emplace_back(
      Waiting{.listener = *this, .request = request, .user = user, .question = nullptr});
  try {
    waiting.question = askPolkit(bus_, request.caller(), onAuthority, &waiting);
  } catch (const BusError& error) {
    waiting_.pop_back();
    deny(request, user, CallerPolicy::judge(AuthorityAnswer{.failure = error.what()}).reason);
  }
}

std::optional<std::string> HelperListener::reasonNotToWait(const BusCall& request,
                                                           std::uint32_t user) const {
  if (waiting_.size() >= mostWaiting) {
    return "too many requests wait for polkit; try again";
  }
  const auto ofThisUser =
      std::count_if(waiting_.begin(), waiting_.end(),
                    [user](const Waiting& waiting) { return waiting.user == user; });
  if (static_cast<std::size_t>(ofThisUser) >= mostWaitingOfOneUser) {
    return "too many requests of this user wait for polkit; try again";
  }
  if (isLargerThan(request.message(), mostWaitingBytes)) {
    return "its arguments take more than " + std::to_string(mostWaitingBytes) + " bytes";
  }
  return std::nullopt;
}

int HelperListener::onAuthority(sd_bus_message* reply, void* waiting, sd_bus_error* /*error*/) {
  auto& asked = *static_cast<Waiting*>(waiting);
  HelperListener& self = asked.listener;
  self.loop_.protect([&self, &asked, reply] { self.receiveAuthority(asked, reply); });
  return 1;
}

void HelperListener::receiveAuthority(const Waiting& asked, sd_bus_message* reply) {
  const BusCall request = asked.request;
  const std::uint32_t user = asked.user;
  waiting_.remove_if([&asked](const Waiting& each) { return &each == &asked; });
  const CallerVerdict verdict = CallerPolicy::judge(readPolkitAnswer(reply));
  if (verdict.kind != CallerVerdict::Kind::serve) {
    deny(request, user, verdict.reason);
  } else if (callers_.isThere(request.caller())) {
    serve(request);
  }
}

void HelperListener::serve(const BusCall& request) {
  if (request.onlyAsks()) {
    request.tellPermission(std::nullopt);
    return;
  }
  try {
    request.serve(service_);
  } catch (const std::exception& error) {
    loop_.log(std::string("request failed: ") + error.what());
    request.refuse(SD_BUS_ERROR_FAILED, error.what());
  }
}

void HelperListener::deny(const BusCall& request, std::optional<std::uint32_t> user,
                          const std::string& reason) {
  if (request.onlyAsks()) {
    request.tellPermission(reason);  // nothing was refused that the log should tell of
  } else {
    refuse(request, user, SD_BUS_ERROR_ACCESS_DENIED, reason);
  }
}

void HelperListener::refuse(const BusCall& request, std::optional<std::uint32_t> user,
                            const char* error, const std::string& reason) {
  if (refusals_.isEmpty()) {
    countsDue_.set(countInterval);
  }
  if (const std::optional<std::string> line = refusals_.add(request.caller(), user, reason)) {
    loop_.log(*line);
  }
  if (request.wantsAnswer()) {
    request.refuse(error, "nodod refuses this: " + reason);
  }
}

void HelperListener::logCounts() {
  for (const std::string& line : refusals_.takeCounts()) {
    loop_.log(line);
  }
  if (!refusals_.isEmpty()) {
    countsDue_.set(countInterval);
  }
}

}  // namespace nodo
