#pragma once

#include <NODOCore/base/Files.h>
#include <platform/linux/news/EventLoop.h>

#include <cstdint>
#include <functional>
#include <list>
#include <string>
#include <string_view>

struct input_mask;  // of <linux/input.h>

namespace nodo {

/// Whether the "capabilities/sw" of an input device in sysfs, words of hexadecimal digits, the
/// last one lowest, contain the lid's switch. Pure.
bool hasLidSwitch(std::string_view capabilities);

/// Keeps an input device from waking us up for what it has besides a lid. `setMask` is EVIOCSMASK
/// on it, and answers with 0 or an errno; the first one that is not 0 is returned.
int muteAllButTheLid(const std::function<int(const input_mask&)>& setMask);

/// Listens to the machine's lid switches. Exists because logind, which knows the lid, announces no
/// change of it.
class LidSwitches {
 public:
  /// `moved`: called in the loop when a lid was opened or closed. A machine without a lid has none.
  /// Throws BusError when the input devices cannot be listed.
  LidSwitches(EventLoop& loop, std::function<void()> moved);

  LidSwitches(const LidSwitches&) = delete;
  LidSwitches& operator=(const LidSwitches&) = delete;
  ~LidSwitches() = default;

  /// Listens to `device`, too, if it is a lid's switch.
  void consider(sd_device* device);

 private:
  struct Switch {
    LidSwitches& owner;
    FileDescriptor descriptor;
    SystemdHandle<sd_event_source> source;
    std::string path;
  };

  static int onReadable(sd_event_source* source, int descriptor, std::uint32_t events,
                        void* lidSwitch);
  void listen(const std::string& path);
  void readAll(const Switch& lidSwitch);

  EventLoop& loop_;
  std::function<void()> moved_;
  std::list<Switch> switches_;
};

}  // namespace nodo
