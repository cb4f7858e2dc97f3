#include <platform/linux/DefaultRoute.h>
#include <testing/TemporaryFolder.h>

#include <string>

#include <gtest/gtest.h>

namespace nodo {
namespace {

const std::string header4 =
    "Iface\tDestination\tGateway \tFlags\tRefCnt\tUse\tMetric\tMask\t\tMTU\tWindow\tIRTT  \n";

std::string row4(const std::string& interface, const std::string& destination,
                 const std::string& flags, const std::string& mask) {
  return interface + "\t" + destination + "\t0100000A\t" + flags + "\t0\t0\t100\t" + mask +
         "\t0\t0\t0  \n";
}

std::string row6(const std::string& destination, const std::string& length,
                 const std::string& flags, const std::string& interface) {
  return destination + " " + length + " 00000000000000000000000000000000 00 " +
         "fe800000000000000000000000000001 00000400 00000001 00000000 " + flags + " " + interface +
         "\n";
}

const std::string zero6(32, '0');

TEST(DefaultRouteTest, ADefaultRouteOverIPv4IsSeen) {
  EXPECT_TRUE(hasDefaultRouteIPv4(header4 + row4("eth0", "0000000A", "0001", "00FFFFFF") +
                                  row4("eth0", "00000000", "0003", "00000000")));
}

TEST(DefaultRouteTest, ATunnelsRouteWithoutGatewayIsSeen) {
  EXPECT_TRUE(hasDefaultRouteIPv4(header4 + row4("tun0", "00000000", "0001", "00000000")));
}

TEST(DefaultRouteTest, OtherRoutesOverIPv4AreNone) {
  for (const std::string& table :
       {std::string(), header4, header4 + row4("eth0", "0000000A", "0001", "00FFFFFF"),
        header4 + row4("eth0", "00000000", "0003", "00000080"),  // half of the addresses
        header4 + row4("eth0", "00000000", "0002", "00000000"),  // not up
        header4 + row4("*", "00000000", "0201", "00000000"),     // rejects
        header4 + row4("lo", "00000000", "0003", "00000000"),    // leads nowhere
        header4 + row4("eth0", "00000000", "zzzz", "00000000"),  // not understood
        std::string("eth0 00000000\n"), std::string("\0\xff\n", 3)}) {
    EXPECT_FALSE(hasDefaultRouteIPv4(table)) << table;
  }
}

TEST(DefaultRouteTest, ADefaultRouteOverIPv6IsSeen) {
  EXPECT_TRUE(
      hasDefaultRouteIPv6(row6("fe800000000000000000000000000000", "40", "00000001", "eth0") +
                          row6(zero6, "00", "00000003", "eth0")));
}

TEST(DefaultRouteTest, OtherRoutesOverIPv6AreNone) {
  for (const std::string& table :
       {std::string(), row6("fe800000000000000000000000000000", "40", "00000001", "eth0"),
        row6(zero6, "00", "00200200", "lo"),  // what the kernel lists when there is none
        row6(zero6, "00", "00000203", "eth0"), row6(zero6, "01", "00000003", "eth0"),
        row6(zero6, "00", "00000002", "eth0"), std::string("00 00\n")}) {
    EXPECT_FALSE(hasDefaultRouteIPv6(table)) << table;
  }
}

// As Linux 6.18 lists them after "ip route add TYPE default" and "ip -6 route add TYPE default" for
// the types blackhole, unreachable, prohibit and throw.
TEST(DefaultRouteTest, ARouteThatDiscardsWhatItMatchesIsNone) {
  for (const std::string row : {"*\t00000000\t00000000\t0001\t0\t0\t0\t00000000\t0\t0\t0  \n",
                                "*\t00000000\t00000000\t0201\t0\t0\t5\t00000000\t0\t0\t0  \n"}) {
    EXPECT_FALSE(hasDefaultRouteIPv4(header4 + row)) << row;
    EXPECT_TRUE(hasDefaultRouteIPv4(header4 + row + row4("eth0", "00000000", "0003", "00000000")));
  }
  const std::string row =
      zero6 + " 00 " + zero6 + " 00 " + zero6 + " 00000400 00000001 00000000 00200200       lo\n";
  EXPECT_FALSE(hasDefaultRouteIPv6(row));
  EXPECT_TRUE(hasDefaultRouteIPv6(row + row6(zero6, "00", "00000003", "eth0")));
}

TEST(DefaultRouteTest, EitherProtocolSuffices) {
  const test::TemporaryFolder net;
  net.write("route", header4);
  EXPECT_EQ(readDefaultRoute(net.path()), false);
  net.write("ipv6_route", row6(zero6, "00", "00000003", "wlan0"));
  EXPECT_EQ(readDefaultRoute(net.path()), true);
  net.write("ipv6_route", "");
  EXPECT_EQ(readDefaultRoute(net.path()), false);
  net.write("route", header4 + row4("eth0", "00000000", "0003", "00000000"));
  EXPECT_EQ(readDefaultRoute(net.path()), true);
}

TEST(DefaultRouteTest, WithoutEitherTableNothingIsKnown) {
  const test::TemporaryFolder net;
  EXPECT_EQ(readDefaultRoute(net.path()), std::nullopt);
}

}  // namespace
}  // namespace nodo
