#pragma once

#include <NODOCore/base/Files.h>
#include <platform/linux/news/EventLoop.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>

namespace nodo {

/// Whether one of the kernel's rtnetlink messages in `datagram` can mean that a default route came
/// or went: a default route itself, a link or an address, as both take their routes along without
/// a message of the routes' own. What is not understood is no such message. Pure.
bool canChangeDefaultRoute(std::span<const std::byte> datagram);

/// Listens to the kernel's rtnetlink messages about routes, links and addresses.
class RouteMessages {
 public:
  /// `suspected`: called in the loop when the default route may have changed. Throws
  /// BusError when the kernel offers no such messages.
  RouteMessages(EventLoop& loop, std::function<void()> suspected);

  RouteMessages(const RouteMessages&) = delete;
  RouteMessages& operator=(const RouteMessages&) = delete;
  ~RouteMessages() = default;

 private:
  static int onReadable(sd_event_source* source, int descriptor, std::uint32_t events,
                        void* messages);
  void readAll();

  EventLoop& loop_;
  std::function<void()> suspected_;
  FileDescriptor socket_;
  SystemdHandle<sd_event_source> source_;
};

/// Listens to udev's messages about power supplies, and about input devices that come.
class SupplyMessages {
 public:
  struct Listener {
    std::function<void()> supplyChanged;
    std::function<void(sd_device* device)> inputAdded;
  };

  /// Calls `listener` in the loop. Throws BusError when there are no such messages.
  SupplyMessages(EventLoop& loop, Listener listener);

  SupplyMessages(const SupplyMessages&) = delete;
  SupplyMessages& operator=(const SupplyMessages&) = delete;
  ~SupplyMessages() = default;

 private:
  static int onDevice(sd_device_monitor* monitor, sd_device* device, void* messages);
  void receive(sd_device* device);

  EventLoop& loop_;
  Listener listener_;
  SystemdHandle<sd_device_monitor> monitor_;
};

}  // namespace nodo
