#include <NODOCore/helper/NODOHelperXPCProtocol.h>
#include <platform/linux/DaemonLog.h>
#include <platform/linux/HelperBusNames.h>
#include <platform/linux/HelperListener.h>
#include <platform/linux/MessageSize.h>
#include <platform/linux/PolkitQuestion.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <utility>

#include <unistd.h>

namespace nodo {
namespace {

// A bus that this process's own user runs: whoever that user is there, it is the same person.
bool isOwnUsersBus(sd_bus* bus) {
  sd_bus_creds* made = nullptr;
  const int result = sd_bus_get_owner_creds(bus, SD_BUS_CREDS_EUID, &made);
  const SystemdHandle<sd_bus_creds> credentials(made);
  uid_t owner = 0;
  return result >= 0 && sd_bus_creds_get_euid(made, &owner) >= 0 && owner == ::geteuid();
}

std::string refusalText(const std::string& reason) {
  return "nodod refuses this: " + reason;
}

}  // namespace

HelperListener::HelperListener(EventLoop& loop, const DaemonBus& bus,
                               NODOHelperXPCProtocol& service)
    : loop_(loop),
      bus_(bus.connection.get()),
      service_(service),
      policy_(policyOf(bus)),
      callers_(bus.address) {
  const std::string path =
      helper_bus::objectPath(std::string(NODOServiceConstants::helperMachServiceName));
  sd_bus_slot* object = nullptr;
  checkSystemd(
      sd_bus_add_object_vtable(bus_, &object, path.c_str(), helper_bus::interface, methods(), this),
      "offer the requests on " + bus.name);
  object_.reset(object);
  takeName(bus.name);
}

CallerPolicy HelperListener::policyOf(const DaemonBus& bus) const {
  return {.ownUser = ::geteuid(),
          .isOwnUsersBus = isOwnUsersBus(bus_),
          // On a session bus the name would be that of any program of its user's.
          .hasAuthority = bus.kind != DaemonBus::Kind::session};
}

void HelperListener::takeName(const std::string& busName) {
  const std::string name(NODOServiceConstants::helperMachServiceName);
  const int result = sd_bus_request_name(bus_, name.c_str(), 0);
  if (result == -EEXIST || result == -EALREADY) {
    throw std::runtime_error(name + " is taken on " + busName + ": another nodod runs there");
  }
  if (result == -EACCES || result == -EPERM) {
    throw std::runtime_error(busName + " does not let this user offer " + name);
  }
  checkSystemd(result, "take the name " + name + " on " + busName);
}

const sd_bus_vtable* HelperListener::methods() {
  // "Unprivileged" leaves it to the policy here who may call, instead of to the library, which
  // would look into /proc.
  static const sd_bus_vtable table[] = {
      SD_BUS_VTABLE_START(SD_BUS_VTABLE_UNPRIVILEGED),
      SD_BUS_METHOD_WITH_NAMES(helper_bus::status, "", "", "s", SD_BUS_PARAM(reply), onCall,
                               SD_BUS_VTABLE_UNPRIVILEGED),
      SD_BUS_METHOD_WITH_NAMES(helper_bus::enableManual, "x", SD_BUS_PARAM(minutes), "s",
                               SD_BUS_PARAM(reply), onCall, SD_BUS_VTABLE_UNPRIVILEGED),
      SD_BUS_METHOD_WITH_NAMES(helper_bus::enableManualV2, "xba{sv}",
                               SD_BUS_PARAM(minutes) SD_BUS_PARAM(extendOnly)
                                   SD_BUS_PARAM(requester),
                               "s", SD_BUS_PARAM(reply), onCall, SD_BUS_VTABLE_UNPRIVILEGED),
      SD_BUS_METHOD_WITH_NAMES(helper_bus::stop, "", "", "s", SD_BUS_PARAM(reply), onCall,
                               SD_BUS_VTABLE_UNPRIVILEGED),
      SD_BUS_METHOD_WITH_NAMES(helper_bus::reconcile, "", "", "s", SD_BUS_PARAM(reply), onCall,
                               SD_BUS_VTABLE_UNPRIVILEGED),
      SD_BUS_METHOD_WITH_NAMES(helper_bus::repair, "", "", "s", SD_BUS_PARAM(reply), onCall,
                               SD_BUS_VTABLE_UNPRIVILEGED),
      SD_BUS_VTABLE_END};
  return table;
}

int HelperListener::onCall(sd_bus_message* call, void* listener, sd_bus_error* /*error*/) {
  auto& self = *static_cast<HelperListener*>(listener);
  self.loop_.protect([&self, call] { self.receive(BusCall(call)); });
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
      refuse(request, sender.user, SD_BUS_ERROR_ACCESS_DENIED, verdict.reason);
      break;
  }
}

void HelperListener::askAuthority(const BusCall& request, std::uint32_t user) {
  try {
    if (const std::optional<std::string> reason = reasonNotToWait(request, user)) {
      refuse(request, user, SD_BUS_ERROR_LIMITS_EXCEEDED, *reason);
      return;
    }
  } catch (const std::runtime_error& unreadable) {
    refuse(request, user, SD_BUS_ERROR_INVALID_ARGS, unreadable.what());
    return;
  }
  Waiting& waiting = waiting_.emplace_back(
      Waiting{.listener = *this, .request = request, .user = user, .question = nullptr});
  try {
    waiting.question = askPolkit(bus_, request.caller(), onAuthority, &waiting);
  } catch (const std::runtime_error& error) {
    waiting_.pop_back();
    refuse(request, user, SD_BUS_ERROR_ACCESS_DENIED,
           CallerPolicy::judge(AuthorityAnswer{.failure = error.what()}).reason);
  }
}

std::optional<std::string> HelperListener::reasonNotToWait(const BusCall& request,
                                                           std::uint32_t user) const {
  if (waiting_.size() >= mostWaiting) {
    return "too many requests wait for polkit";
  }
  const auto ofThisUser =
      std::count_if(waiting_.begin(), waiting_.end(),
                    [user](const Waiting& waiting) { return waiting.user == user; });
  if (static_cast<std::size_t>(ofThisUser) >= mostWaitingOfOneUser) {
    return "too many requests of this user wait for polkit";
  }
  if (isLargerThan(request.message(), mostWaitingBytes)) {
    return "its arguments take more than " + std::to_string(mostWaitingBytes) + " bytes";
  }
  return std::nullopt;
}

int HelperListener::onAuthority(sd_bus_message* reply, void* waiting, sd_bus_error* /*error*/) {
  auto& asked = *static_cast<Waiting*>(waiting);
  HelperListener& self = asked.listener;
  self.loop_.protect([&self, &asked, reply] { self.hearAuthority(asked, reply); });
  return 1;
}

void HelperListener::hearAuthority(const Waiting& asked, sd_bus_message* reply) {
  const BusCall request = asked.request;
  const std::uint32_t user = asked.user;
  waiting_.remove_if([&asked](const Waiting& each) { return &each == &asked; });
  if (!callers_.isThere(request.caller())) {
    return;
  }
  const CallerVerdict verdict = CallerPolicy::judge(readPolkitAnswer(reply));
  if (verdict.kind == CallerVerdict::Kind::serve) {
    serve(request);
  } else {
    refuse(request, user, SD_BUS_ERROR_ACCESS_DENIED, verdict.reason);
  }
}

void HelperListener::serve(const BusCall& request) {
  try {
    request.serve(service_);
  } catch (const std::exception& error) {
    logLine(std::string("nodod: request failed: ") + error.what());
    request.refuse(SD_BUS_ERROR_FAILED, error.what());
  }
}

void HelperListener::refuse(const BusCall& request, std::optional<std::uint32_t> user,
                            const char* error, const std::string& reason) {
  logLine(rejectionLogMessage(request.caller(), user, reason));
  request.refuse(error, refusalText(reason));
}

}  // namespace nodo
