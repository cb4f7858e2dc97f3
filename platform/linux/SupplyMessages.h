#pragma once

#include <platform/linux/EventLoop.h>

#include <functional>

namespace nodo {

/// Listens to udev's messages about power supplies, and about input devices that come.
class SupplyMessages {
 public:
  struct Listener {
    std::function<void()> supplyChanged;
    std::function<void(sd_device* device)> inputAdded;
  };

  /// Calls `listener` in the loop. Throws std::runtime_error when there are no such messages.
  SupplyMessages(EventLoop& loop, Listener listener);

  SupplyMessages(const SupplyMessages&) = delete;
  SupplyMessages& operator=(const SupplyMessages&) = delete;
  ~SupplyMessages() = default;

 private:
  static int onDevice(sd_device_monitor* monitor, sd_device* device, void* messages);
  void hear(sd_device* device);

  EventLoop& loop_;
  Listener listener_;
  SystemdHandle<sd_device_monitor> monitor_;
};

}  // namespace nodo
