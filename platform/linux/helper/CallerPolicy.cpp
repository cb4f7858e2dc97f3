#include <platform/linux/helper/CallerPolicy.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <utility>

#include <fmt/format.h>

namespace nodo {
namespace {

constexpr std::uint32_t root = 0;

constexpr BusObject polkit{.service = "org.freedesktop.PolicyKit1",
                           .path = "/org/freedesktop/PolicyKit1/Authority",
                           .interface = "org.freedesktop.PolicyKit1.Authority"};

CallerVerdict refuse(std::string reason) {
  return {.kind = CallerVerdict::Kind::refuse, .reason = std::move(reason)};
}

std::string textOf(std::optional<std::uint32_t> user) {
  return user ? std::to_string(*user) : "unknown";
}

}  // namespace

CallerVerdict CallerPolicy::judge(const HelperRequest& request,
                                  std::optional<std::uint32_t> caller) const {
  if (isLook(request) || caller == root || (isOwnUsersBus && caller && *caller == ownUser)) {
    return {.kind = CallerVerdict::Kind::serve, .reason = ""};
  }
  if (!caller) {
    return refuse("the bus does not tell whose request this is");
  }
  if (!hasAuthority) {
    return refuse("on this bus only its own user and root may do this");
  }
  return {.kind = CallerVerdict::Kind::askAuthority, .reason = ""};
}

CallerVerdict CallerPolicy::judge(const AuthorityAnswer& answer) {
  if (answer.failure) {
    return refuse(fmt::format("polkit cannot be asked: {}; without it only root may do this",
                              *answer.failure));
  }
  if (answer.isAuthorized) {
    return {.kind = CallerVerdict::Kind::serve, .reason = ""};
  }
  if (answer.needsAuthentication) {
    // The action's own default for those who came from elsewhere; the daemon has nobody asked.
    return refuse(
        "only somebody logged in at this computer, or a member of the group nodo, may do this; "
        "see man nodod");
  }
  return refuse(
      fmt::format("polkit does not allow {}: a rule of the administrator's forbids it", action));
}

std::optional<std::string> RefusalLog::add(const std::string& caller,
                                           std::optional<std::uint32_t> user,
                                           const std::string& reason) {
  const auto known = counts_.find({user, reason});
  if (known != counts_.end()) {
    ++known->second;
    return std::nullopt;
  }
  if (counts_.size() >= mostKinds) {
    ++others_;
    return std::nullopt;
  }
  counts_.emplace(Kind(user, reason), 0);
  return fmt::format("rejected D-Bus caller {} (uid {}): {}", caller, textOf(user), reason);
}

std::vector<std::string> RefusalLog::takeCounts() {
  std::vector<std::string> lines;
  for (auto& [kind, count] : counts_) {
    if (count > 0) {
      lines.push_back(fmt::format("rejected {} more over D-Bus (uid {}): {}", count,
                                  textOf(kind.first), kind.second));
    }
  }
  if (const std::uint64_t others = std::exchange(others_, 0); others > 0) {
    lines.push_back(fmt::format("rejected {} more of others over D-Bus", others));
  }
  std::erase_if(counts_, [](const auto& each) { return each.second == 0; });
  for (auto& [kind, count] : counts_) {
    count = 0;
  }
  return lines;
}

SystemdHandle<sd_bus_slot> askPolkit(sd_bus* bus, const std::string& caller,
                                     sd_bus_message_handler_t answered, void* userData) {
  // A client that asks by default gives up after one second.
  constexpr std::chrono::microseconds timeLimit(std::chrono::seconds(2));
  constexpr std::uint32_t noInteraction = 0;
  constexpr char asking[] = "ask polkit";
  const BusMessage call = newCall(bus, polkit, "CheckAuthorization", asking);
  checkSystemd(
      sd_bus_message_append(call.get(), "(sa{sv})sa{ss}us", "system-bus-name", 1, "name", "s",
                            caller.c_str(), CallerPolicy::action, 0, noInteraction, ""),
      asking);
  SystemdHandle<sd_bus_slot> question;
  checkSystemd(sd_bus_call_async(bus, into(question), call.get(), answered, userData,
                                 static_cast<std::uint64_t>(timeLimit.count())),
               asking);
  return question;
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

CallerDirectory::CallerDirectory(std::string bus) : bus_(std::move(bus)) {
  known_.reserve(mostRemembered);
}

BusPeer CallerDirectory::find(const std::string& name) {
  const auto known = std::find_if(known_.begin(), known_.end(),
                                  [&name](const Known& each) { return each.name == name; });
  const bool isCertain = known != known_.end() && (known->peer.user || !known->peer.isThere);
  if (isCertain || (known != known_.end() && BusClock::now() < known->askedAt + doubt)) {
    return known->peer;
  }
  Known& place = known != known_.end() ? *known : makeRoom();
  place = {.name = name, .peer = ask(name), .askedAt = BusClock::now()};
  return place.peer;
}

CallerDirectory::Known& CallerDirectory::makeRoom() {
  if (known_.size() < mostRemembered) {
    return known_.emplace_back();
  }
  return known_[std::exchange(oldest_, (oldest_ + 1) % mostRemembered)];
}

bool CallerDirectory::isThere(const std::string& name) const {
  return ask(name).isThere;
}

BusPeer CallerDirectory::ask(const std::string& name) const {
  try {
    const BusConnection bus(bus_, twoSecondsTogether);
    try {
      return {.isThere = true, .user = userOf(bus, name)};
    } catch (const BusError&) {
      return {.isThere = hasOwner(bus, name), .user = std::nullopt};
    }
  } catch (const BusError&) {
    return {.isThere = true, .user = std::nullopt};  // nobody who could tell
  }
}

}  // namespace nodo
