#pragma once

#include <NODOCore/base/Date.h>
#include <NODOCore/base/TextEnum.h>
#include <NODOCore/helper/NODOHelperXPCProtocol.h>
#include <NODOCore/sensing/SystemSnapshot.h>

#include <array>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace nodo {

/// Takes one line of the daemon's log, without the program's name and the line's end. Foreign texts
/// in it are as they came: the sink makes them fit for a terminal.
using DaemonLog = std::function<void(const std::string& line)>;

/// What the machine tells by itself.
enum class News { powerSupply, route, lid, resume };

template <>
struct EnumTexts<News> {
  static constexpr std::array cases{EnumText{News::powerSupply, "power supply"},
                                    EnumText{News::route, "route"}, EnumText{News::lid, "lid"},
                                    EnumText{News::resume, "resume"}};
};

/// News as a line of the log names them: "lid, power supply".
std::string listed(const std::vector<News>& news);

/// News that come in a burst, gathered until it has settled: the last message of a burst may be the
/// one that matters, and each look at the machine costs something. Not thread-safe.
class NewsBurst {
 public:
  /// How long after a burst's first message it is taken.
  static constexpr Seconds settleTime{0.1};

  /// Whether this begins a burst, which is then to be taken after `settleTime`.
  bool add(News news);

  /// What came, each once, in the order in which it came first; nothing is left.
  std::vector<News> take();

 private:
  std::vector<News> news_;
};

/// Paces what everybody is told, so that a flood of changes does not become a flood of questions:
/// what comes sooner after the last announcement than `interval` waits for its end. Not
/// thread-safe.
class AnnouncementPace {
 public:
  static constexpr Seconds interval{0.1};

  /// How long after `now`, by a clock that nobody sets, the next announcement is to be made;
  /// nothing when it is under way already.
  std::optional<Seconds> delay(Seconds now);

  /// Says that it is made.
  void made(Seconds now);

 private:
  Seconds earliest_{0};
  bool isDue_ = false;
};

/// What the daemon's loop calls, all of it on the loop's own thread and one after another.
struct DaemonHandlers {
  std::function<void(const std::vector<News>& news)> machineChanged;
  std::function<void()> timerFired;
  /// SIGHUP, by which an administrator has the daemon look again.
  std::function<void()> hungUp;
  /// SIGTERM or SIGINT; the loop ends when the handler returns, and serves no request any more.
  std::function<void()> terminate;
};

/// The daemon's one thread: its timer, its signals, the machine's news and its clients' requests.
///
/// Sleeps in the kernel without a single wake-up unless something of that happens. Not thread-safe.
class DaemonLoop {
 public:
  virtual ~DaemonLoop() = default;

  /// Offers `service` under the daemon's name. From then on requests of callers that may make them
  /// reach it inside `run`, one after another; refusals are logged here. Throws std::runtime_error
  /// when the name is taken or cannot be had.
  virtual void serve(NODOHelperXPCProtocol& service) = 0;

  /// Sets the one timer to fire that long from now; absent for never. Where the system's timers
  /// stand still while it sleeps, time asleep does not count: News::resume comes then, and sets it
  /// anew.
  virtual void setTimer(std::optional<Seconds> fromNow) = 0;

  /// To be called after every pass. Tells the service manager, where there is one, whether the lock
  /// is held: while it is this proves that the daemon lives, which else is restarted. `seen` is the
  /// machine as that pass found it, absent when it failed: news are what differs from that.
  virtual void afterPass(bool lockHeld, const std::optional<SystemSnapshot>& seen) = 0;

  /// Tells all who listen that what a status would say is another than before, so that nobody has
  /// to ask again and again. Soon, and at the pace above.
  virtual void announceChange() = 0;

  /// Serves until `terminate` was handled. Throws std::runtime_error when it cannot go on, e.g.
  /// because the bus is gone.
  virtual void run(const DaemonHandlers& handlers) = 0;
};

}  // namespace nodo
