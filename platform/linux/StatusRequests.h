#pragma once

#include <NODOCore/helper/NODOHelperXPCProtocol.h>
#include <platform/linux/EventLoop.h>
#include <platform/linux/HelperRequest.h>

#include <chrono>
#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace nodo {

/// Answers requests for the status, which anybody may send as often as they like.
///
/// Those that come while there is other work are answered together, with one look at the machine
/// that is later than all of them. So a flood of them costs little more than reading it. Not
/// thread-safe: all in the loop's thread.
class StatusRequests {
 public:
  /// So many, or one for so long, are not kept waiting for more.
  static constexpr std::size_t mostAtOnce = 100;
  static constexpr std::chrono::milliseconds longestWait{20};

  /// `bus`: the one on which they come. `service` gives the status.
  StatusRequests(EventLoop& loop, sd_bus* bus, NODOHelperXPCProtocol& service);

  StatusRequests(const StatusRequests&) = delete;
  StatusRequests& operator=(const StatusRequests&) = delete;
  ~StatusRequests() = default;

  /// Answers it when the loop has nothing else to do. One that wants no answer is dropped.
  void add(const HelperRequest& request);

  /// Answers all that wait: to be called before anything changes.
  void answer();

 private:
  static int onIdle(sd_event_source* source, void* requests);

  void reply(const std::vector<HelperRequest>& requests,
             const std::optional<std::string>& text) const;

  EventLoop& loop_;
  sd_bus* bus_;
  NODOHelperXPCProtocol& service_;
  std::vector<HelperRequest> waiting_;
  SystemdHandle<sd_event_source> idle_;
  LoopTimer late_;
};

}  // namespace nodo
