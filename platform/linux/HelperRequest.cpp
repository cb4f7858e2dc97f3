#include <NODOCore/base/Text.h>
#include <platform/linux/HelperBusNames.h>
#include <platform/linux/HelperRequest.h>
#include <platform/linux/Noncharacters.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string_view>
#include <utility>
#include <variant>

namespace nodo {
namespace {

constexpr char action[] = "read the arguments";
// The system's dbus-daemon takes messages of 32 MiB (its max_message_size) and disconnects whoever
// sends a larger one; the daemon would end, and its lock with it. This leaves room for every answer
// that the bounds of the process table allow.
constexpr std::size_t mostAnswerBytes = 24 * std::size_t{1024} * 1024;

std::optional<std::string>* findText(EnableManualV2Request& request, std::string_view key) {
  return key == "name"      ? &request.requesterName
         : key == "context" ? &request.requesterContext
         : key == "event"   ? &request.requesterEvent
                            : nullptr;
}

// Anybody may look as often as they like. The answers are kept in memory until the bus takes them,
// and those about many processes are large.
constexpr std::uint64_t mostUnsentBytes = 64 * std::uint64_t{1024} * 1024;

bool isBehind(sd_bus* bus, std::size_t answerBytes) {
  std::uint64_t unsent = 0;
  return sd_bus_get_n_queued_write(bus, &unsent) >= 0 && unsent * answerBytes > mostUnsentBytes;
}

class WrongArguments : public std::runtime_error {
 public:
  explicit WrongArguments(const std::string& message) : std::runtime_error(message) {}
};

std::string readText(sd_bus_message* message, const std::string& key) {
  const char* contents = nullptr;
  checkSystemd(sd_bus_message_peek_type(message, nullptr, &contents), action);
  if (std::string_view(contents) != "s") {
    throw WrongArguments("the requester's \"" + key + "\" is no text");
  }
  const char* text = nullptr;
  checkSystemd(sd_bus_message_read(message, "v", "s", &text), action);
  return text;
}

void readRequester(sd_bus_message* message, EnableManualV2Request& request) {
  checkSystemd(sd_bus_message_enter_container(message, 'a', "{sv}"), action);
  for (;;) {
    const int entered = sd_bus_message_enter_container(message, 'e', "sv");
    checkSystemd(entered, action);
    if (entered == 0) {
      break;
    }
    const char* key = nullptr;
    checkSystemd(sd_bus_message_read(message, "s", &key), action);
    if (std::optional<std::string>* const text = findText(request, key)) {
      *text = readText(message, key);
    } else {
      checkSystemd(sd_bus_message_skip(message, "v"), action);
    }
    checkSystemd(sd_bus_message_exit_container(message), action);
  }
  checkSystemd(sd_bus_message_exit_container(message), action);
}

// Fills in a request's arguments from the call.
struct ReadArguments {
  sd_bus_message* call;

  template <class WithoutArguments>
  void operator()(WithoutArguments& /*request*/) const {}

  void operator()(EnableManualRequest& request) const {
    checkSystemd(sd_bus_message_read(call, "x", &request.minutes), action);
  }

  void operator()(EnableManualV2Request& request) const {
    int extendOnly = 0;
    checkSystemd(sd_bus_message_read(call, "xb", &request.minutes, &extendOnly), action);
    request.extendOnly = extendOnly != 0;
    readRequester(call, request);
  }
};

// The request of that method, without its arguments. The bus has been told of no others.
HelperRequest requestOf(std::string_view method) {
  if (method == helper_bus::enableManual) {
    return EnableManualRequest{};
  }
  if (method == helper_bus::enableManualV2) {
    return EnableManualV2Request{};
  }
  if (method == helper_bus::stop) {
    return StopRequest{};
  }
  if (method == helper_bus::reconcile) {
    return ReconcileRequest{};
  }
  if (method == helper_bus::repair) {
    return RepairRequest{};
  }
  return StatusRequest{};
}

}  // namespace

BusCall::BusCall(sd_bus_message* call) : call_(sd_bus_message_ref(call), SystemdUnref()) {}

RequestKind BusCall::kind() const {
  return isLook(requestOf(sd_bus_message_get_member(call_.get()))) ? RequestKind::look
                                                                   : RequestKind::change;
}

bool BusCall::wantsAnswer() const {
  return sd_bus_message_get_expect_reply(call_.get()) > 0;
}

std::string BusCall::caller() const {
  const char* sender = sd_bus_message_get_sender(call_.get());
  return sender == nullptr ? "" : sender;
}

void BusCall::serve(NODOHelperXPCProtocol& service) const {
  HelperRequest request = requestOf(sd_bus_message_get_member(call_.get()));
  try {
    std::visit(ReadArguments{call_.get()}, request);
  } catch (const WrongArguments& error) {
    refuse(SD_BUS_ERROR_INVALID_ARGS, error.what());
    return;
  }
  service.perform(std::move(request),
                  [call = *this](const std::optional<std::string>& text) { call.answer(text); });
}

void BusCall::refuse(const char* name, const std::string& reason) const {
  const std::string text = withoutNoncharacters(repairedUTF8(
      reason.size() <= mostAnswerBytes ? reason : "the reason is too long for the bus"));
  // Fails when the connection is gone, and the caller's answer with it.
  sd_bus_reply_method_errorf(call_.get(), name, "%s", text.c_str());
}

void BusCall::answer(const std::optional<std::string>& text) const {
  if (!text) {
    refuse(SD_BUS_ERROR_FAILED, "the answer is not valid UTF-8");
    return;
  }
  // Anybody can start a process whose arguments, which a status may show, hold one.
  const std::string sendable = withEscapedNoncharacters(*text);
  if (sendable.size() > mostAnswerBytes) {
    refuse(SD_BUS_ERROR_LIMITS_EXCEEDED, "the answer is too long for the bus, it takes " +
                                             std::to_string(sendable.size()) + " bytes");
    return;
  }
  if (kind() == RequestKind::look &&
      isBehind(sd_bus_message_get_bus(call_.get()), sendable.size())) {
    refuse(SD_BUS_ERROR_LIMITS_EXCEEDED, "too many answers wait for the bus to take them");
    return;
  }
  const int sent = sd_bus_reply_method_return(call_.get(), "s", sendable.c_str());
  if (sent == -EINVAL) {
    refuse(SD_BUS_ERROR_FAILED, "the answer cannot be sent as text");
  }
}

}  // namespace nodo
