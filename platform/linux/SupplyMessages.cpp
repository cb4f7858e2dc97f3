#include <platform/linux/SupplyMessages.h>

#include <string_view>
#include <utility>

namespace nodo {
namespace {

constexpr char action[] = "listen to udev";

}  // namespace

SupplyMessages::SupplyMessages(EventLoop& loop, Listener listener)
    : loop_(loop), listener_(std::move(listener)) {
  sd_device_monitor* made = nullptr;
  checkSystemd(sd_device_monitor_new(&made), action);
  monitor_.reset(made);
  for (const char* subsystem : {"power_supply", "input"}) {
    checkSystemd(sd_device_monitor_filter_add_match_subsystem_devtype(made, subsystem, nullptr),
                 action);
  }
  checkSystemd(sd_device_monitor_attach_event(made, loop_.get()), action);
  checkSystemd(sd_device_monitor_start(made, onDevice, this), action);
}

int SupplyMessages::onDevice(sd_device_monitor* /*monitor*/, sd_device* device, void* messages) {
  auto& self = *static_cast<SupplyMessages*>(messages);
  self.loop_.protect([&self, device] { self.hear(device); });
  return 0;
}

void SupplyMessages::hear(sd_device* device) {
  const char* subsystem = nullptr;
  if (sd_device_get_subsystem(device, &subsystem) < 0) {
    return;  // already gone
  }
  if (std::string_view(subsystem) == "power_supply") {
    listener_.supplyChanged();
    return;
  }
  sd_device_action_t what = SD_DEVICE_REMOVE;
  if (sd_device_get_action(device, &what) >= 0 && what == SD_DEVICE_ADD) {
    listener_.inputAdded(device);
  }
}

}  // namespace nodo
