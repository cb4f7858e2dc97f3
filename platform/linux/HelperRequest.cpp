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

namespace nodo {
namespace {

constexpr char action[] = "read the arguments";
// The system's dbus-daemon takes messages of 32 MiB (its max_message_size) and disconnects whoever
// sends a larger one; the daemon would end, and its lock with it. This leaves room for every answer
// that the bounds of the process table allow.
constexpr std::size_t mostAnswerBytes = 24 * std::size_t{1024} * 1024;

// The caller's own texts about who asks.
struct RequesterTexts {
  std::optional<std::string> name;
  std::optional<std::string> context;
  std::optional<std::string> event;

  std::optional<std::string>* find(std::string_view key) {
    return key == "name" ? &name : key == "context" ? &context : key == "event" ? &event : nullptr;
  }
};

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

RequesterTexts readRequester(sd_bus_message* message) {
  RequesterTexts texts;
  checkSystemd(sd_bus_message_enter_container(message, 'a', "{sv}"), action);
  for (;;) {
    const int entered = sd_bus_message_enter_container(message, 'e', "sv");
    checkSystemd(entered, action);
    if (entered == 0) {
      break;
    }
    const char* key = nullptr;
    checkSystemd(sd_bus_message_read(message, "s", &key), action);
    if (std::optional<std::string>* const text = texts.find(key)) {
      *text = readText(message, key);
    } else {
      checkSystemd(sd_bus_message_skip(message, "v"), action);
    }
    checkSystemd(sd_bus_message_exit_container(message), action);
  }
  checkSystemd(sd_bus_message_exit_container(message), action);
  return texts;
}

}  // namespace

HelperRequest::HelperRequest(sd_bus_message* call)
    : call_(sd_bus_message_ref(call), SystemdUnref()) {}

RequestKind HelperRequest::kind() const {
  return std::string_view(sd_bus_message_get_member(call_.get())) == helper_bus::status
             ? RequestKind::look
             : RequestKind::change;
}

bool HelperRequest::wantsAnswer() const {
  return sd_bus_message_get_expect_reply(call_.get()) > 0;
}

std::string HelperRequest::caller() const {
  const char* sender = sd_bus_message_get_sender(call_.get());
  return sender == nullptr ? "" : sender;
}

void HelperRequest::serve(NODOHelperXPCProtocol& service) const {
  const std::string_view member = sd_bus_message_get_member(call_.get());
  const HelperReply reply = [request = *this](const std::optional<std::string>& text) {
    request.answer(text);
  };
  try {
    if (member == helper_bus::enableManual) {
      serveEnableManual(service, reply);
    } else if (member == helper_bus::enableManualV2) {
      serveEnableManualV2(service, reply);
    } else if (member == helper_bus::stop) {
      service.stop(reply);
    } else if (member == helper_bus::reconcile) {
      service.reconcile(reply);
    } else if (member == helper_bus::repair) {
      service.repair(reply);
    }
  } catch (const WrongArguments& error) {
    refuse(SD_BUS_ERROR_INVALID_ARGS, error.what());
  }
}

void HelperRequest::serveEnableManual(NODOHelperXPCProtocol& service,
                                      const HelperReply& reply) const {
  std::int64_t minutes = 0;
  checkSystemd(sd_bus_message_read(call_.get(), "x", &minutes), action);
  service.enableManual(minutes, reply);
}

void HelperRequest::serveEnableManualV2(NODOHelperXPCProtocol& service,
                                        const HelperReply& reply) const {
  std::int64_t minutes = 0;
  int extendOnly = 0;
  checkSystemd(sd_bus_message_read(call_.get(), "xb", &minutes, &extendOnly), action);
  RequesterTexts requester = readRequester(call_.get());
  service.enableManualV2(minutes, extendOnly != 0, std::move(requester.name),
                         std::move(requester.context), std::move(requester.event), reply);
}

void HelperRequest::refuse(const char* name, const std::string& reason) const {
  const std::string text = withoutNoncharacters(repairedUTF8(
      reason.size() <= mostAnswerBytes ? reason : "the reason is too long for the bus"));
  // Fails when the connection is gone, and the caller's answer with it.
  sd_bus_reply_method_errorf(call_.get(), name, "%s", text.c_str());
}

void HelperRequest::answer(const std::optional<std::string>& text) const {
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
  const int sent = sd_bus_reply_method_return(call_.get(), "s", sendable.c_str());
  if (sent == -EINVAL) {
    refuse(SD_BUS_ERROR_FAILED, "the answer cannot be sent as text");
  }
}

}  // namespace nodo
