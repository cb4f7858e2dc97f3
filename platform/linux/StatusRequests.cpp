#include <platform/linux/DaemonLog.h>
#include <platform/linux/StatusRequests.h>

#include <cstdint>
#include <ctime>
#include <exception>
#include <string>
#include <utility>

namespace nodo {
namespace {

constexpr char action[] = "wait for requests";
// Answers are kept in memory until the bus takes them, and those about many processes are large.
constexpr std::uint64_t mostUnsentBytes = 64 * std::uint64_t{1024} * 1024;

bool isBehind(sd_bus* bus, std::size_t answerBytes) {
  std::uint64_t unsent = 0;
  return sd_bus_get_n_queued_write(bus, &unsent) >= 0 && unsent * answerBytes > mostUnsentBytes;
}

}  // namespace

StatusRequests::StatusRequests(EventLoop& loop, sd_bus* bus, NODOHelperXPCProtocol& service)
    : loop_(loop),
      bus_(bus),
      service_(service),
      late_(loop, CLOCK_MONOTONIC, longestWait / 4, [this] { answer(); }) {
  sd_event_source* made = nullptr;
  checkSystemd(sd_event_add_defer(loop.get(), &made, onIdle, this), action);
  idle_.reset(made);
  checkSystemd(sd_event_source_set_priority(made, SD_EVENT_PRIORITY_IDLE), action);
  checkSystemd(sd_event_source_set_enabled(made, SD_EVENT_OFF), action);
}

void StatusRequests::add(const HelperRequest& request) {
  if (!request.wantsAnswer()) {
    return;
  }
  waiting_.push_back(request);
  if (waiting_.size() >= mostAtOnce) {
    answer();
  } else if (waiting_.size() == 1) {
    checkSystemd(sd_event_source_set_enabled(idle_.get(), SD_EVENT_ONESHOT), action);
    late_.set(longestWait);
  }
}

void StatusRequests::answer() {
  if (waiting_.empty()) {
    return;
  }
  const std::vector<HelperRequest> requests = std::exchange(waiting_, {});
  checkSystemd(sd_event_source_set_enabled(idle_.get(), SD_EVENT_OFF), action);
  late_.set(std::nullopt);
  try {
    service_.status(
        [this, requests](const std::optional<std::string>& text) { reply(requests, text); });
  } catch (const std::exception& error) {
    logLine(std::string("nodod: request failed: ") + error.what());
    for (const HelperRequest& request : requests) {
      request.refuse(SD_BUS_ERROR_FAILED, error.what());
    }
  }
}

void StatusRequests::reply(const std::vector<HelperRequest>& requests,
                           const std::optional<std::string>& text) const {
  for (const HelperRequest& request : requests) {
    if (text && isBehind(bus_, text->size())) {
      request.refuse(SD_BUS_ERROR_LIMITS_EXCEEDED,
                     "too many answers wait for the bus to take them");
    } else {
      request.answer(text);
    }
  }
}

int StatusRequests::onIdle(sd_event_source* /*source*/, void* requests) {
  auto& self = *static_cast<StatusRequests*>(requests);
  self.loop_.protect([&self] { self.answer(); });
  return 0;
}

}  // namespace nodo
