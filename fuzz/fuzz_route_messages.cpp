#include <platform/linux/news/KernelMessages.h>

#include <array>
#include <cstddef>
#include <cstring>
#include <span>
#include <vector>

#include <fuzz/Fuzzing.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>

namespace nodo::fuzzing {
namespace {

using Bytes = std::vector<std::byte>;

Bytes message(std::uint16_t type, std::span<const std::byte> payload) {
  nlmsghdr header{};
  header.nlmsg_len = static_cast<std::uint32_t>(NLMSG_HDRLEN + payload.size());
  header.nlmsg_type = type;
  Bytes bytes(NLMSG_HDRLEN);
  std::memcpy(bytes.data(), &header, sizeof header);
  bytes.insert(bytes.end(), payload.begin(), payload.end());
  bytes.resize(NLMSG_ALIGN(bytes.size()));
  return bytes;
}

void append(Bytes& bytes, std::span<const std::byte> more) {
  bytes.insert(bytes.end(), more.begin(), more.end());
}

void checkDatagram(std::span<const std::byte> datagram) {
  const bool matters = canChangeDefaultRoute(datagram);
  for (std::size_t size = 0; size < datagram.size(); ++size) {
    require(matters || !canChangeDefaultRoute(datagram.first(size)),
            "what is cut off shows no more than the whole");
  }

  const std::array<std::byte, sizeof(rtmsg)> defaultRoute{};
  Bytes after = message(RTM_NEWROUTE, defaultRoute);
  append(after, datagram);
  require(canChangeDefaultRoute(after), "a default route matters whatever comes after it");
  Bytes between = message(NLMSG_NOOP, {});
  append(between, datagram);
  require(canChangeDefaultRoute(between) == matters, "a message without news changes nothing");
}

void checkPayload(std::span<const std::byte> payload) {
  for (const std::uint16_t type : {RTM_NEWLINK, RTM_DELLINK, RTM_NEWADDR, RTM_DELADDR}) {
    require(canChangeDefaultRoute(message(type, payload)), "every link and every address matters");
  }
  const bool isDefault =
      payload.size() >= sizeof(rtmsg) && payload[offsetof(rtmsg, rtm_dst_len)] == std::byte{0};
  for (const std::uint16_t type : {RTM_NEWROUTE, RTM_DELROUTE}) {
    require(canChangeDefaultRoute(message(type, payload)) == isDefault,
            "of the routes the default ones matter");
  }
  require(!canChangeDefaultRoute(message(RTM_NEWNEIGH, payload)), "neighbours do not matter");
}

}  // namespace
}  // namespace nodo::fuzzing

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const auto bytes = std::as_bytes(std::span(data, size));
  nodo::fuzzing::checkDatagram(bytes);
  nodo::fuzzing::checkPayload(bytes);
  return 0;
}
