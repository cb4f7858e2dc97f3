#include <array>
#include <cstdint>
#include <utility>

#include <poll.h>
#include <sys/eventfd.h>
#include <tests/platform/linux/helper/ScriptedDaemon.h>
#include <unistd.h>

namespace nodo {
namespace {

constexpr char name[] = "com.quintavel.nodo.helper";
constexpr char path[] = "/com/quintavel/nodo/helper";
constexpr char interface[] = "com.quintavel.nodo.Helper1";

std::string requesterText(sd_bus_message* message) {
  std::string text;
  checkSystemd(sd_bus_message_enter_container(message, 'a', "{sv}"), "enter the requester");
  const char* key = nullptr;
  const char* value = nullptr;
  while (sd_bus_message_read(message, "{sv}", &key, "s", &value) > 0) {
    text += std::string(" ") + key + "=" + value;
  }
  return text;
}

std::string describe(sd_bus_message* message) {
  const std::string signature = sd_bus_message_get_signature(message, 1);
  std::string text = std::string(sd_bus_message_get_member(message)) + "(" + signature + ")";
  std::int64_t minutes = 0;
  int extendOnly = 0;
  if (signature == "x") {
    checkSystemd(sd_bus_message_read(message, "x", &minutes), "read the minutes");
    text += " " + std::to_string(minutes);
  } else if (signature == "xba{sv}") {
    checkSystemd(sd_bus_message_read(message, "xb", &minutes, &extendOnly), "read the minutes");
    text += " " + std::to_string(minutes) + (extendOnly != 0 ? " true" : " false");
    text += requesterText(message);
  }
  return text;
}

}  // namespace

ScriptedDaemon::Answer ScriptedDaemon::text(std::string text) {
  return [text = std::move(text)](ScriptedDaemon&, sd_bus_message* request) {
    sd_bus_reply_method_return(request, "s", text.c_str());
  };
}

ScriptedDaemon::Answer ScriptedDaemon::number() {
  return [](ScriptedDaemon&, sd_bus_message* request) {
    sd_bus_reply_method_return(request, "u", 7U);
  };
}

ScriptedDaemon::Answer ScriptedDaemon::error(std::string errorName, std::string message) {
  return [errorName = std::move(errorName), message = std::move(message)](ScriptedDaemon&,
                                                                          sd_bus_message* request) {
    sd_bus_reply_method_errorf(request, errorName.c_str(), "%s", message.c_str());
  };
}

ScriptedDaemon::Answer ScriptedDaemon::silence() {
  return [](ScriptedDaemon&, sd_bus_message*) {};
}

ScriptedDaemon::Answer ScriptedDaemon::death() {
  return [](ScriptedDaemon& daemon, sd_bus_message*) { sd_bus_close(daemon.bus_.get()); };
}

ScriptedDaemon::ScriptedDaemon(const std::string& address, Answer answer)
    : answer_(std::move(answer)),
      end_(::eventfd(0, EFD_CLOEXEC)),
      bus_(startBus(address, BusDescriptors::refused)) {
  checkSystemd(sd_bus_add_object(bus_.get(), nullptr, path, received, this), "offer its object");
  checkSystemd(sd_bus_request_name(bus_.get(), name, 0), "own its name");
  thread_ = std::thread([this] { serve(); });
}

ScriptedDaemon::~ScriptedDaemon() {
  const std::uint64_t one = 1;
  [[maybe_unused]] const auto written = ::write(end_.get(), &one, sizeof one);
  thread_.join();
}

std::vector<std::string> ScriptedDaemon::requests() const {
  const std::lock_guard guard(mutex_);
  return requests_;
}

int ScriptedDaemon::received(sd_bus_message* message, void* self, sd_bus_error* /*error*/) {
  auto& daemon = *static_cast<ScriptedDaemon*>(self);
  if (sd_bus_message_is_method_call(message, interface, nullptr) <= 0) {
    return 0;
  }
  const std::string text = describe(message);
  {
    const std::lock_guard guard(daemon.mutex_);
    daemon.requests_.push_back(text);
  }
  daemon.answer_(daemon, message);
  return 1;
}

void ScriptedDaemon::serve() {
  for (;;) {
    const int processed = sd_bus_process(bus_.get(), nullptr);
    if (processed > 0) {
      continue;
    }
    const bool alive = processed == 0;
    std::array<pollfd, 2> sources{
        {{.fd = end_.get(), .events = POLLIN, .revents = 0},
         {.fd = alive ? sd_bus_get_fd(bus_.get()) : -1,
          .events = static_cast<short>(alive ? sd_bus_get_events(bus_.get()) : 0),
          .revents = 0}}};
    ::poll(sources.data(), sources.size(), -1);
    if (sources[0].revents != 0) {
      return;
    }
  }
}

}  // namespace nodo
