#include <platform/linux/DaemonLog.h>
#include <platform/linux/LidSwitches.h>

#include <algorithm>
#include <array>
#include <cerrno>
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

constexpr char action[] = "list the input devices";

// Keeps the kernel from waking us up for what the device has besides a lid. One that does not know
// how (before Linux 4.4) costs wake-ups, no more.
void muteAllButTheLid(int descriptor) {
  const std::uint32_t types = (1U << EV_SYN) | (1U << EV_SW);
  const std::uint32_t switches = 1U << SW_LID;
  const auto address = [](const std::uint32_t& bits) {
    return static_cast<std::uint64_t>(reinterpret_cast<std::uintptr_t>(&bits));
  };
  const input_mask typeMask{
      .type = EV_SYN, .codes_size = sizeof types, .codes_ptr = address(types)};
  const input_mask switchMask{
      .type = EV_SW, .codes_size = sizeof switches, .codes_ptr = address(switches)};
  ::ioctl(descriptor, EVIOCSMASK, &typeMask);
  ::ioctl(descriptor, EVIOCSMASK, &switchMask);
}

}  // namespace

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
  sd_device_enumerator* made = nullptr;
  checkSystemd(sd_device_enumerator_new(&made), action);
  const SystemdHandle<sd_device_enumerator> devices(made);
  // Whether udev has seen the device matters only to those who want its name.
  checkSystemd(sd_device_enumerator_allow_uninitialized(made), action);
  checkSystemd(sd_device_enumerator_add_match_subsystem(made, "input", 1), action);
  for (sd_device* device = sd_device_enumerator_get_device_first(made); device != nullptr;
       device = sd_device_enumerator_get_device_next(made)) {
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
    logLine("nodod: no news of the lid: cannot open " + path + ": " + std::strerror(errno));
    return;
  }
  muteAllButTheLid(opened.get());
  // The same path again is another device: the one before it is gone.
  switches_.remove_if([&path](const Switch& old) { return old.path == path; });
  Switch& added = switches_.emplace_back(
      Switch{.owner = *this, .descriptor = std::move(opened), .source = nullptr, .path = path});
  sd_event_source* source = nullptr;
  checkSystemd(
      sd_event_add_io(loop_.get(), &source, added.descriptor.get(), EPOLLIN, onReadable, &added),
      "listen to the lid");
  added.source.reset(source);
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
