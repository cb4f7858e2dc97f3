#include <platform/linux/helper/BusChangeNews.h>
#include <platform/linux/helper/BusRequest.h>

#include <chrono>
#include <cstdint>
#include <utility>

namespace nodo {
namespace {

constexpr char action[] = "listen to the daemon nodod";

std::string ownerRule(const std::string& serviceName) {
  return "type='signal',sender='org.freedesktop.DBus',path='/org/freedesktop/DBus',"
         "interface='org.freedesktop.DBus',member='NameOwnerChanged',arg0='" +
         serviceName + "'";
}

}  // namespace

BusChangeNews::BusChangeNews(ClientBus bus, const std::string& serviceName,
                             BusClock::time_point deadline)
    : bus_(std::move(bus.connection)) {
  const std::chrono::microseconds limit = timeUntil(deadline);
  checkSystemd(
      sd_bus_set_method_call_timeout(bus_.get(), static_cast<std::uint64_t>(limit.count())),
      action);
  checkSystemd(sd_bus_match_signal(bus_.get(), into(changed_), serviceName.c_str(),
                                   objectPath(serviceName).c_str(), helperInterface, changedSignal,
                                   onNews, this),
               action);
  checkSystemd(sd_bus_add_match(bus_.get(), into(ownerChanged_), ownerRule(serviceName).c_str(),
                                onNews, this),
               action);
}

int BusChangeNews::descriptor() const {
  return sd_bus_get_fd(bus_.get());
}

bool BusChangeNews::take() {
  for (int result = 1; result > 0;) {
    result = sd_bus_process(bus_.get(), nullptr);
    checkSystemd(result, action);
  }
  return std::exchange(hasNews_, false);
}

int BusChangeNews::onNews(sd_bus_message* /*message*/, void* self, sd_bus_error* /*error*/) {
  static_cast<BusChangeNews*>(self)->hasNews_ = true;
  return 0;
}

}  // namespace nodo
