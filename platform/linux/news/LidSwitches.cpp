#include <platform/linux/news/EventLoop.h>
#include <platform/linux/news/LidSwitches.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstring>
#include <span>
#include <utility>

#include <fcntl.h>
#include <linux/input.h>
#include <sys/epoll.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace nodo {
namespace {

// As many bits as the kernel has for one type of events. In words, as it refuses (EINVAL) a size
// that is no multiple of theirs.
template <std::size_t bits>
using Bits = std::array<unsigned long, (bits + CHAR_BIT * sizeof(unsigned long) - 1) /
                                           (CHAR_BIT * sizeof(unsigned long))>;

template <class Words>
int setBits(const std::function<int(const input_mask&)>& setMask, std::uint32_t type,
            const Words& words) {
  return setMask({.type = type,
                  .codes_size = sizeof words,
                  .codes_ptr = reinterpret_cast<std::uintptr_t>(words.data())});
}

// A failure costs wake-ups, no more.
void muteDevice(const EventLoop& loop, int descriptor, const std::string& path) {
  const int failure = muteAllButTheLid([descriptor](const input_mask& mask) {
    return ::ioctl(descriptor, EVIOCSMASK, &mask) == 0 ? 0 : errno;
  });
  // Linux before 4.4 answers with the first, a program that plays the device with one of the
  // others.
  if (failure != 0 && failure != EINVAL && failure != ENOTTY && failure != ENOENT) {
    loop.log("cannot mute the other events of " + path + ": " + std::strerror(failure));
  }
}

}  // namespace

int muteAllButTheLid(const std::function<int(const input_mask&)>& setMask) {
  constexpr Bits<EV_CNT> types{(1UL << EV_SYN) | (1UL << EV_SW)};
  constexpr Bits<SW_CNT> switches{1UL << SW_LID};
  const int failure = setBits(setMask, EV_SYN, types);  // EV_SYN stands for the types
  return failure != 0 ? failure : setBits(setMask, EV_SW, switches);
}

bool hasLidSwitch(std::string_view capabilities) {
  while (!capabilities.empty() && (capabilities.back() == '\n' || capabilities.back() == ' ')) {
    capabilities.remove_suffix(1);
  }
  if (capabilities.empty()) {
    return false;
  }
  static_assert(SW_LID == 0, "the lowest bit of the last word is the lid's");
  constexpr std::string_view odd = "13579bdfBDF";
  return odd.find(capabilities.back()) != std::string_view::npos;
}

LidSwitches::LidSwitches(EventLoop& loop, std::function<void()> moved)
    : loop_(loop), moved_(std::move(moved)) {
  constexpr char action[] = "list the input devices";
  SystemdHandle<sd_device_enumerator> devices;
  checkSystemd(sd_device_enumerator_new(into(devices)), action);
  // Whether udev has seen the device matters only to those who want its name.
  checkSystemd(sd_device_enumerator_allow_uninitialized(devices.get()), action);
  checkSystemd(sd_device_enumerator_add_match_subsystem(devices.get(), "input", 1), action);
  for (sd_device* device = sd_device_enumerator_get_device_first(devices.get()); device != nullptr;
       device = sd_device_enumerator_get_device_next(devices.get())) {
    consider(device);
  }
}

void LidSwitches::consider(sd_device* device) {
  const char* path = nullptr;
  sd_device* parent = nullptr;
  const char* capabilities = nullptr;
  const bool isReadable =
      sd_device_get_devname(device, &path) >= 0 &&
      sd_device_get_parent_with_subsystem_devtype(device, "input", nullptr, &parent) >= 0 &&
      sd_device_get_sysattr_value(parent, "capabilities/sw", &capabilities) >= 0;
  if (isReadable && std::string_view(path).find("/event") != std::string_view::npos &&
      hasLidSwitch(capabilities)) {
    listen(path);
  }
}

void LidSwitches::listen(const std::string& path) {
  FileDescriptor opened(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY));
  if (!opened) {
    loop_.log("no news of the lid: cannot open " + path + ": " + std::strerror(errno));
    return;
  }
  muteDevice(loop_, opened.get(), path);
  // The same path again is another device, and the one before it is gone; or it came while the
  // devices were listed, and is the same.
  switches_.remove_if([&path](const Switch& old) { return old.path == path; });
  Switch& added = switches_.emplace_back(
      Switch{.owner = *this, .descriptor = std::move(opened), .source = nullptr, .path = path});
  checkSystemd(sd_event_add_io(loop_.get(), into(added.source), added.descriptor.get(), EPOLLIN,
                               onReadable, &added),
               "listen to the lid");
}

int LidSwitches::onReadable(sd_event_source* /*source*/, int /*descriptor*/,
                            std::uint32_t /*events*/, void* lidSwitch) {
  auto& self = *static_cast<Switch*>(lidSwitch);
  EventLoop& loop = self.owner.loop_;
  loop.protect([&self] { self.owner.readAll(self); });
  return 0;
}

void LidSwitches::readAll(const Switch& lidSwitch) {
  std::array<input_event, 16> events{};
  for (;;) {
    const ssize_t count = ::read(lidSwitch.descriptor.get(), events.data(), sizeof events);
    if (count < 0 && errno == EINTR) {
      continue;
    }
    if (count < 0 && errno == EAGAIN) {
      return;
    }
    if (count <= 0) {
      switches_.remove_if([&lidSwitch](const Switch& each) { return &each == &lidSwitch; });
      return;  // unplugged; udev tells when it comes again
    }
    const auto heard =
        std::span(events).first(static_cast<std::size_t>(count) / sizeof(input_event));
    // Events that were dropped may have been the lid's.
    const bool isAboutTheLid =
        std::any_of(heard.begin(), heard.end(), [](const input_event& event) {
          return (event.type == EV_SW && event.code == SW_LID) ||
                 (event.type == EV_SYN && event.code == SYN_DROPPED);
        });
    if (isAboutTheLid) {
      moved_();
    }
  }
}

}  // namespace nodo
