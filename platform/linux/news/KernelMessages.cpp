#include <platform/linux/news/KernelMessages.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <optional>
#include <string_view>
#include <utility>

#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <sys/epoll.h>
#include <sys/socket.h>

namespace nodo {
namespace {

constexpr char listeningToRoutes[] = "listen to the kernel's routes";

template <class Header>
std::optional<Header> headerAt(std::span<const std::byte> bytes) {
  if (bytes.size() < sizeof(Header)) {
    return std::nullopt;
  }
  Header header;
  std::memcpy(&header, bytes.data(), sizeof(Header));
  return header;
}

bool canChangeDefaultRoute(std::uint16_t type, std::span<const std::byte> payload) {
  switch (type) {
    case RTM_NEWLINK:
    case RTM_DELLINK:
    case RTM_NEWADDR:
    case RTM_DELADDR:
      return true;
    case RTM_NEWROUTE:
    case RTM_DELROUTE: {
      const auto route = headerAt<rtmsg>(payload);
      return route && route->rtm_dst_len == 0;
    }
    default:
      return false;
  }
}

}  // namespace

bool canChangeDefaultRoute(std::span<const std::byte> datagram) {
  while (const auto header = headerAt<nlmsghdr>(datagram)) {
    if (header->nlmsg_len < NLMSG_HDRLEN || header->nlmsg_len > datagram.size()) {
      return false;
    }
    const auto message = datagram.first(header->nlmsg_len);
    if (canChangeDefaultRoute(header->nlmsg_type, message.subspan(NLMSG_HDRLEN))) {
      return true;
    }
    const std::size_t aligned = NLMSG_ALIGN(std::size_t{header->nlmsg_len});
    datagram = datagram.subspan(std::min(aligned, datagram.size()));
  }
  return false;
}

RouteMessages::RouteMessages(EventLoop& loop, std::function<void()> suspected)
    : loop_(loop),
      suspected_(std::move(suspected)),
      socket_(::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, NETLINK_ROUTE)) {
  checkSystemd(socket_ ? 0 : -errno, listeningToRoutes);
  sockaddr_nl address{};
  address.nl_family = AF_NETLINK;
  address.nl_groups =
      RTMGRP_LINK | RTMGRP_IPV4_ROUTE | RTMGRP_IPV6_ROUTE | RTMGRP_IPV4_IFADDR | RTMGRP_IPV6_IFADDR;
  const int bound =
      ::bind(socket_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address);
  checkSystemd(bound == 0 ? 0 : -errno, listeningToRoutes);
  checkSystemd(
      sd_event_add_io(loop_.get(), into(source_), socket_.get(), EPOLLIN, onReadable, this),
      listeningToRoutes);
}

int RouteMessages::onReadable(sd_event_source* /*source*/, int /*descriptor*/,
                              std::uint32_t /*events*/, void* messages) {
  auto& self = *static_cast<RouteMessages*>(messages);
  self.loop_.protect([&self] { self.readAll(); });
  return 0;
}

void RouteMessages::readAll() {
  alignas(nlmsghdr) std::array<std::byte, 16384> buffer{};
  // A flood of messages must not keep everybody else waiting.
  for (int remaining = 64; remaining > 0; --remaining) {
    sockaddr_nl sender{};
    socklen_t senderSize = sizeof sender;
    const ssize_t count = ::recvfrom(socket_.get(), buffer.data(), buffer.size(), MSG_DONTWAIT,
                                     reinterpret_cast<sockaddr*>(&sender), &senderSize);
    if (count < 0) {
      if (errno == EAGAIN) {
        return;
      }
      if (errno == EINTR) {
        continue;
      }
      if (errno != ENOBUFS) {
        checkSystemd(-errno, listeningToRoutes);
      }
      suspected_();  // some got lost, and they may have been the ones
    } else if (sender.nl_pid == 0 &&
               canChangeDefaultRoute(std::span(buffer).first(static_cast<std::size_t>(count)))) {
      suspected_();
    }
  }
}

SupplyMessages::SupplyMessages(EventLoop& loop, Listener listener)
    : loop_(loop), listener_(std::move(listener)) {
  constexpr char action[] = "listen to udev";
  checkSystemd(sd_device_monitor_new(into(monitor_)), action);
  for (const char* subsystem : {"power_supply", "input"}) {
    checkSystemd(
        sd_device_monitor_filter_add_match_subsystem_devtype(monitor_.get(), subsystem, nullptr),
        action);
  }
  checkSystemd(sd_device_monitor_attach_event(monitor_.get(), loop_.get()), action);
  checkSystemd(sd_device_monitor_start(monitor_.get(), onDevice, this), action);
}

int SupplyMessages::onDevice(sd_device_monitor* /*monitor*/, sd_device* device, void* messages) {
  auto& self = *static_cast<SupplyMessages*>(messages);
  self.loop_.protect([&self, device] { self.receive(device); });
  return 0;
}

void SupplyMessages::receive(sd_device* device) {
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
