#pragma once

#include <NODOCore/helper/NODOHelperXPCProtocol.h>
#include <platform/linux/bus/BusConnection.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace nodo {

/// What polkit said of a caller, or why it said nothing.
struct AuthorityAnswer {
  bool isAuthorized = false;
  bool needsAuthentication = false;  ///< it would be authorised after giving a password
  std::optional<std::string> failure;
};

/// What becomes of a request, and why when it is refused.
struct CallerVerdict {
  enum class Kind { serve, askAuthority, refuse };

  Kind kind = Kind::refuse;
  std::string reason;

  bool operator==(const CallerVerdict&) const = default;
};

/// Decides whose requests the daemon serves on a bus. Closed when in doubt. Pure.
///
/// Anyone on the bus may look. Changes are for root, on a bus of the daemon's own user for that
/// user, and for those whom polkit allows the action. The bus says which user a caller is;
/// a process id never does, as it may be another's by the time it is looked at.
struct CallerPolicy {
  static constexpr char action[] = "com.quintavel.nodo.keep-awake";

  std::uint32_t ownUser = 0;
  bool isOwnUsersBus = false;
  /// Whether polkit, on the same bus, knows this bus's callers by their names there.
  bool hasAuthority = false;

  /// `caller`: the user's id by the bus; absent when the bus does not tell.
  CallerVerdict judge(const HelperRequest& request, std::optional<std::uint32_t> caller) const;

  /// After polkit was asked.
  static CallerVerdict judge(const AuthorityAnswer& answer);
};

/// Refusals as lines of the daemon's log: the first of a user's for a reason as it comes, those
/// that follow by their number. Whoever is refused may ask as often as they like.
class RefusalLog {
 public:
  /// Of more users and reasons than these at a time only the number is told.
  static constexpr std::size_t mostKinds = 100;

  /// The line to write now; nothing for one that is only counted. `caller` is the name on the bus.
  std::optional<std::string> add(const std::string& caller, std::optional<std::uint32_t> user,
                                 const std::string& reason);

  /// The lines about what was counted since this was called last. What did not go on by then is
  /// forgotten, so that its next is a first one.
  std::vector<std::string> takeCounts();

  bool isEmpty() const { return counts_.empty(); }

 private:
  using Kind = std::pair<std::optional<std::uint32_t>, std::string>;  // the user and the reason

  std::map<Kind, std::uint64_t> counts_;
  std::uint64_t others_ = 0;
};

/// Asks polkit on `bus` whether the peer called `caller` there may do `CallerPolicy::action`,
/// without asking a person. `answered` gets the reply, or an error in its place after two
/// seconds at the latest, and `userData`; letting go of the result forgets the question. Throws
/// BusError when it cannot be sent.
SystemdHandle<sd_bus_slot> askPolkit(sd_bus* bus, const std::string& caller,
                                     sd_bus_message_handler_t answered, void* userData);

/// What `reply` says. Anything but a clear answer is a failure.
AuthorityAnswer readPolkitAnswer(sd_bus_message* reply);

/// Who has a unique name on the bus, by the bus's word.
struct BusPeer {
  bool isThere = true;                ///< false: it has left
  std::optional<std::uint32_t> user;  ///< absent when it has left or the bus does not tell
};

/// Asks a bus who its peers are, and remembers it: a unique name is given out once, so that whoever
/// has left does not come back.
///
/// Each question has a connection of its own. While the library waits for an answer it keeps in
/// memory whatever else comes on that connection, and on the one for requests anybody may send as
/// much as they like. Blocks for two seconds at most. Not thread-safe.
class CallerDirectory {
 public:
  /// The latest of them are remembered, as many as a bus usually lets one user connect: whoever
  /// floods it on all of these is asked about only once for each.
  static constexpr std::size_t mostRemembered = 256;
  /// What the bus did not tell is asked for again after that time: many messages of the same peer
  /// must not each wait for a bus that hangs.
  static constexpr std::chrono::seconds doubt{1};

  explicit CallerDirectory(std::string bus);

  /// One that is remembered as there may have left since.
  BusPeer find(const std::string& name);

  /// Whether it is there now; true as well when the bus does not tell.
  bool isThere(const std::string& name) const;

 private:
  struct Known {
    std::string name;
    BusPeer peer;
    BusClock::time_point askedAt;
  };

  Known& makeRoom();
  BusPeer ask(const std::string& name) const;

  std::string bus_;
  std::vector<Known> known_;  // a ring once it is full
  std::size_t oldest_ = 0;
};

}  // namespace nodo
