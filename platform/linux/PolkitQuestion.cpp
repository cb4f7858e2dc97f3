#include <platform/linux/PolkitQuestion.h>

#include <chrono>
#include <cstdint>
#include <cstring>

namespace nodo {
namespace {

// A client that asks by default gives up after one second.
constexpr std::chrono::microseconds timeLimit(std::chrono::seconds(2));
constexpr char action[] = "ask polkit";

}  // namespace

SystemdHandle<sd_bus_slot> askPolkit(sd_bus* bus, const std::string& caller,
                                     sd_bus_message_handler_t answered, void* userData) {
  sd_bus_message* made = nullptr;
  checkSystemd(
      sd_bus_message_new_method_call(bus, &made, "org.freedesktop.PolicyKit1",
                                     "/org/freedesktop/PolicyKit1/Authority",
                                     "org.freedesktop.PolicyKit1.Authority", "CheckAuthorization"),
      action);
  const BusMessage call(made);
  const std::uint32_t noInteraction = 0;
  checkSystemd(sd_bus_message_append(made, "(sa{sv})sa{ss}us", "system-bus-name", 1, "name", "s",
                                     caller.c_str(), CallerPolicy::action, 0, noInteraction, ""),
               action);
  sd_bus_slot* slot = nullptr;
  checkSystemd(sd_bus_call_async(bus, &slot, made, answered, userData,
                                 static_cast<std::uint64_t>(timeLimit.count())),
               action);
  return SystemdHandle<sd_bus_slot>(slot);
}

AuthorityAnswer readPolkitAnswer(sd_bus_message* reply) {
  AuthorityAnswer answer;
  if (sd_bus_message_is_method_error(reply, nullptr) > 0) {
    const sd_bus_error* error = sd_bus_message_get_error(reply);
    answer.failure = error->message != nullptr ? error->message : error->name;
    return answer;
  }
  int isAuthorized = 0;
  int isChallenge = 0;
  const int read = sd_bus_message_enter_container(reply, 'r', "bba{ss}");
  const int result =
      read < 0 ? read : sd_bus_message_read(reply, "bb", &isAuthorized, &isChallenge);
  if (result < 0) {
    answer.failure = std::string("its answer makes no sense: ") + std::strerror(-result);
    return answer;
  }
  answer.isAuthorized = isAuthorized != 0;
  answer.needsAuthentication = isChallenge != 0;
  return answer;
}

}  // namespace nodo
