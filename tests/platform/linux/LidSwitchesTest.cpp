#include <platform/linux/LidSwitches.h>

#include <string>

#include <gtest/gtest.h>

namespace nodo {
namespace {

TEST(LidSwitchesTest, TheLowestBitIsTheLid) {
  for (const std::string capabilities : {"1", "1\n", "21", "3", "b", "F", "8000 1", "0 21\n"}) {
    EXPECT_TRUE(hasLidSwitch(capabilities)) << capabilities;
  }
}

TEST(LidSwitchesTest, OtherSwitchesAreNone) {
  for (const std::string capabilities : {"", "\n", "0", "2", "20", "e", "1 0", "1 2\n", "x"}) {
    EXPECT_FALSE(hasLidSwitch(capabilities)) << capabilities;
  }
}

}  // namespace
}  // namespace nodo
