#pragma once

#include <NODOCore/base/Date.h>
#include <NODOCore/control/DaemonSettings.h>
#include <NODOCore/helper/HelperConnection.h>

#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace nodo {

/// This system's way to the daemon. `bus` says where it is looked for: "system", "session", a bus
/// address, or nothing for the system bus when it can be reached, unless the daemon is on the
/// session bus alone, and else the session bus; of no meaning on macOS. Makes nothing but an
/// object: what cannot be reached shows itself when a request is made.
std::shared_ptr<const HelperConnecting> helperConnecting(const std::optional<std::string>& bus);

/// The same, for who only looks, again and again: on Linux a question starts no daemon that
/// somebody has stopped. On macOS launchd does, unless the daemon was taken out of it.
std::shared_ptr<const HelperConnecting> helperWatching(const std::optional<std::string>& bus);

/// Why a daemon that is installed here refuses this very program, where a refusal does not tell: on
/// macOS it just ends the connection. For people; nothing when there is no such reason.
std::optional<std::string> refusalOfThisProgram();

/// What a daemon that answers is to the user of this program, as far as it is known.
struct DaemonStanding {
  /// Why it refuses this user's requests that change something.
  std::optional<std::string> refusal;
  /// It is not root's, and this system heeds no lock of the very user who asks for sleep.
  bool letsItsUserSleep = false;
  std::optional<SettingsReport> settings;  ///< as `daemonSettings`
};

/// Asks for it, for as long as `limit`; `bus` as above. Starts no daemon and changes nothing.
/// Nothing is known, and so nothing amiss, where there is no answer, and on macOS: a daemon that
/// answers there is root's and serves this user.
DaemonStanding daemonStanding(const std::optional<std::string>& bus, Seconds limit);

/// The settings that the daemon serves requests by, asked for as above; nothing where there is no
/// answer. On macOS, whose wire does not carry them, those of the system's settings file, as far as
/// this user may read it.
std::optional<SettingsReport> daemonSettings(const std::optional<std::string>& bus, Seconds limit);

/// Hears that the daemon's status has changed, so that nobody has to ask again and again. Not
/// thread-safe.
class ChangeNews {
 public:
  virtual ~ChangeNews() = default;

  /// Can be read once something may have come.
  virtual int descriptor() const = 0;

  /// Takes in what came. True when the status has changed, the daemon came or it went. Throws
  /// std::runtime_error when nothing can come any more.
  virtual bool take() = 0;
};

/// Listens from now on; `bus` and `limit` as above. Null where changes are not to be heard of.
std::unique_ptr<ChangeNews> listenForChanges(const std::optional<std::string>& bus, Seconds limit);

/// The command line, for people, that starts the installed daemon anew, or at all.
std::string_view restartCommand();

}  // namespace nodo
