#include <platform/linux/news/LidSwitches.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <map>
#include <string>

#include <gtest/gtest.h>

#include <linux/input.h>

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

// Takes masks as evdev does, see bits_from_user in the kernel's drivers/input/evdev.c.
class FakeInputDevice {
 public:
  int setMask(const input_mask& mask) {
    if (mask.codes_size % sizeof(long) != 0) {
      return EINVAL;
    }
    std::uint64_t bits = 0;
    const void* codes = nullptr;
    std::memcpy(&codes, &mask.codes_ptr, sizeof codes);
    std::memcpy(&bits, codes, std::min<std::size_t>(mask.codes_size, sizeof bits));
    masks_[mask.type] = bits;
    return 0;
  }

  // The mask of EV_SYN is that of the types; events of that type itself are never held back.
  bool lets(std::uint32_t type, std::uint32_t code) const {
    return type == EV_SYN || (isSet(EV_SYN, type) && isSet(type, code));
  }

 private:
  bool isSet(std::uint32_t type, std::uint32_t code) const {
    const auto mask = masks_.find(type);
    return mask == masks_.end() || (mask->second >> code & 1U) != 0;
  }

  std::map<std::uint32_t, std::uint64_t> masks_;
};

TEST(LidSwitchesTest, ADeviceWithMoreThanALidTellsOfTheLidOnly) {
  FakeInputDevice device;
  EXPECT_EQ(muteAllButTheLid([&](const input_mask& mask) { return device.setMask(mask); }), 0);
  EXPECT_TRUE(device.lets(EV_SW, SW_LID));
  EXPECT_TRUE(device.lets(EV_SYN, SYN_DROPPED));
  EXPECT_FALSE(device.lets(EV_SW, SW_TABLET_MODE));
  EXPECT_FALSE(device.lets(EV_KEY, KEY_A));
  EXPECT_FALSE(device.lets(EV_ABS, ABS_X));
}

TEST(LidSwitchesTest, TheFirstFailureToMuteIsTold) {
  EXPECT_EQ(muteAllButTheLid([](const input_mask&) { return ENODEV; }), ENODEV);
  EXPECT_EQ(muteAllButTheLid([](const input_mask& mask) { return mask.type == EV_SW ? EIO : 0; }),
            EIO);
}

}  // namespace
}  // namespace nodo
