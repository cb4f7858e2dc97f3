#include <platform/linux/news/KernelMessages.h>

#include <cstring>
#include <vector>

#include <gtest/gtest.h>

#include <linux/netlink.h>
#include <linux/rtnetlink.h>

namespace nodo {
namespace {

using Bytes = std::vector<std::byte>;

Bytes operator+(Bytes first, const Bytes& second) {
  first.insert(first.end(), second.begin(), second.end());
  return first;
}

Bytes message(std::uint16_t type, std::size_t payloadSize, std::uint8_t routeLength = 0) {
  nlmsghdr header{};
  header.nlmsg_len = static_cast<std::uint32_t>(NLMSG_HDRLEN + payloadSize);
  header.nlmsg_type = type;
  rtmsg route{};
  route.rtm_dst_len = routeLength;
  Bytes bytes(NLMSG_ALIGN(header.nlmsg_len));
  std::memcpy(bytes.data(), &header, sizeof header);
  std::memcpy(bytes.data() + NLMSG_HDRLEN, &route, std::min(payloadSize, sizeof route));
  return bytes;
}

Bytes route(std::uint16_t type, std::uint8_t length) {
  return message(type, sizeof(rtmsg), length);
}

TEST(RouteMessagesTest, DefaultRoutesMatter) {
  EXPECT_TRUE(canChangeDefaultRoute(route(RTM_NEWROUTE, 0)));
  EXPECT_TRUE(canChangeDefaultRoute(route(RTM_DELROUTE, 0)));
}

TEST(RouteMessagesTest, OtherRoutesDoNot) {
  EXPECT_FALSE(canChangeDefaultRoute(route(RTM_NEWROUTE, 24)));
  EXPECT_FALSE(canChangeDefaultRoute(route(RTM_DELROUTE, 128)));
}

TEST(RouteMessagesTest, LinksAndAddressesTakeTheirRoutesAlong) {
  for (const int type : {RTM_NEWLINK, RTM_DELLINK, RTM_NEWADDR, RTM_DELADDR}) {
    EXPECT_TRUE(canChangeDefaultRoute(message(static_cast<std::uint16_t>(type), 16))) << type;
  }
}

TEST(RouteMessagesTest, OtherMessagesDoNotMatter) {
  for (const int type : {NLMSG_NOOP, NLMSG_ERROR, NLMSG_DONE, int{RTM_NEWNEIGH}}) {
    EXPECT_FALSE(canChangeDefaultRoute(message(static_cast<std::uint16_t>(type), 16))) << type;
  }
}

TEST(RouteMessagesTest, EveryMessageOfADatagramIsLookedAt) {
  EXPECT_TRUE(canChangeDefaultRoute(route(RTM_NEWROUTE, 24) + message(RTM_NEWNEIGH, 7) +
                                    route(RTM_DELROUTE, 0)));
  EXPECT_FALSE(canChangeDefaultRoute(route(RTM_NEWROUTE, 24) + message(RTM_NEWNEIGH, 7)));
}

TEST(RouteMessagesTest, WhatIsCutOffIsNoMessage) {
  EXPECT_FALSE(canChangeDefaultRoute(Bytes()));
  const Bytes whole = route(RTM_NEWROUTE, 0);
  for (std::size_t size = 0; size < whole.size(); ++size) {
    EXPECT_FALSE(canChangeDefaultRoute(std::span(whole).first(size))) << size;
  }
  EXPECT_FALSE(canChangeDefaultRoute(message(RTM_NEWROUTE, 3)));
}

TEST(RouteMessagesTest, AnImpossibleLengthEndsTheDatagram) {
  for (const std::uint32_t length : {0U, 1U, 15U, 1000U, UINT32_MAX}) {
    Bytes odd = message(RTM_NEWNEIGH, 16);
    std::memcpy(odd.data(), &length, sizeof length);
    EXPECT_FALSE(canChangeDefaultRoute(odd + route(RTM_NEWROUTE, 0))) << length;
  }
}

}  // namespace
}  // namespace nodo
