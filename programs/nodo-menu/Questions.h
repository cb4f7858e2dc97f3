#pragma once

#include <NODOCore/base/LocalTime.h>
#include <NODOCore/hooks/AgentHookSetupPresentation.h>
#include <platform/HelperMachine.h>
#include <programs/nodoctl/Tool.h>
#include <programs/nodoctl/commands/Health.h>

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <variant>
#include <vector>

/// What nodo-menu asks of the daemon and of this machine, and how that never holds up the menu.
namespace nodo::menu {

/// Nothing but to see how things stand.
struct Look {
  bool listens = false;       ///< and to hear of changes from then on
  bool findsReasons = false;  ///< and to find out all that the window "Why?" tells

  bool operator==(const Look&) const = default;
};

/// For so many minutes, or until the clock comes to a time.
struct KeepAwake {
  std::variant<std::int64_t, ClockTime> until;

  bool operator==(const KeepAwake&) const = default;
};

struct Stop {
  bool operator==(const Stop&) const = default;
};

/// Stops, and keeps the agents' hooks quiet for an hour.
struct Pause {
  bool operator==(const Pause&) const = default;
};

struct Resume {
  bool operator==(const Resume&) const = default;
};

struct SetUpHooks {
  AgentHookSetupAction action = AgentHookSetupAction::install;

  bool operator==(const SetUpHooks&) const = default;
};

using Wish = std::variant<Look, KeepAwake, Stop, Pause, Resume, SetUpHooks>;

/// What became of a wish, and how things stand after it.
struct Reply {
  std::uint64_t number = 0;  ///< of the question; a later one has a greater number
  Wish wish;
  std::optional<nodoctl::HealthFacts> facts;    ///< absent when nothing could be found out
  std::optional<std::string> failure;           ///< of the wish, or why there are no facts
  std::vector<AgentHookInstallReport> reports;  ///< of SetUpHooks
  std::shared_ptr<ChangeNews> news;             ///< of a Look that listens, where that can be
};

/// Does what is wished, by nodoctl's own commands, and looks how things stand then. Blocks for as
/// long as daemon and machine take; throws nothing. `context` is used by one thread at a time.
Reply serve(const Wish& wish, const nodoctl::DaemonOptions& daemon,
            const nodoctl::ToolContext& context);

/// Serves wishes on a thread of its own, one after another in the order in which they were made. A
/// look that waits is taken for a later one as well. Ending it waits for the wish that is being
/// served; those that wait are dropped.
///
/// All members are called from one thread.
class Questions {
 public:
  using Serve = std::function<Reply(const Wish&)>;
  using Wake = std::function<void()>;

  /// `serve` runs on the worker's thread, and so does `wake`, which says that a reply is there.
  Questions(Serve serve, Wake wake);
  Questions(const Questions&) = delete;
  Questions& operator=(const Questions&) = delete;
  ~Questions();

  /// Returns the question's number, 1 for the first.
  std::uint64_t ask(const Wish& wish);

  /// The replies that have come since the last call, in the order of their questions.
  std::vector<Reply> take();

  /// From now on nothing is begun. Waits for nothing.
  void end();

 private:
  using Question = std::pair<std::uint64_t, Wish>;

  void work();

  Serve serve_;
  Wake wake_;
  std::mutex lock_;
  std::condition_variable changed_;
  std::deque<Question> waiting_;
  std::vector<Reply> replies_;
  std::uint64_t lastNumber_ = 0;
  bool isOver_ = false;
  std::thread thread_;
};

}  // namespace nodo::menu
