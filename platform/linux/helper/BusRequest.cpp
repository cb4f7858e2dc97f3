#include <NODOCore/base/JSONCoding.h>
#include <NODOCore/base/Text.h>
#include <platform/linux/bus/MessageContents.h>
#include <platform/linux/helper/BusRequest.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string_view>
#include <type_traits>
#include <utility>
#include <variant>

namespace nodo {
namespace {

// The system's dbus-daemon takes messages of 32 MiB (its max_message_size) and disconnects whoever
// sends a larger one; the daemon would end, and its lock with it. This leaves room for every answer
// that the bounds of the process table allow.
constexpr std::size_t mostAnswerBytes = 24 * std::size_t{1024} * 1024;
// Anybody may look as often as they like. The answers are kept in memory until the bus takes them,
// and those about many processes are large.
constexpr std::uint64_t mostUnsentBytes = 64 * std::uint64_t{1024} * 1024;

struct RequesterText {
  std::string_view key;
  std::optional<std::string> EnableManualV2Request::*text;
};

constexpr std::array requesterTexts{
    RequesterText{"name", &EnableManualV2Request::requesterName},
    RequesterText{"context", &EnableManualV2Request::requesterContext},
    RequesterText{"event", &EnableManualV2Request::requesterEvent}};

// ---- as clients send them

struct WriteArguments {
  sd_bus_message* call;

  template <class Request>
  void operator()(const Request&) const {
    static_assert(std::is_empty_v<Request>, "its arguments have to be written");
  }

  void operator()(const EnableManualRequest& request) const {
    checkSystemd(sd_bus_message_append(call, "x", request.minutes), "send the minutes");
  }

  void operator()(const EnableManualV2Request& request) const {
    constexpr char action[] = "send who asks";
    checkSystemd(sd_bus_message_append(call, "xb", request.minutes, request.extendOnly ? 1 : 0),
                 action);
    checkSystemd(sd_bus_message_open_container(call, 'a', "{sv}"), action);
    for (const auto& [key, text] : requesterTexts) {
      if (request.*text) {
        const std::string sendable = withoutNoncharacters(*(request.*text));
        checkSystemd(sd_bus_message_append(call, "{sv}", key.data(), "s", sendable.c_str()),
                     action);
      }
    }
    checkSystemd(sd_bus_message_close_container(call), action);
  }
};

// ---- as the daemon reads them

constexpr char reading[] = "read the arguments";

class WrongArguments : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

std::string readText(sd_bus_message* call, const std::string& key) {
  const char* contents = nullptr;
  checkSystemd(sd_bus_message_peek_type(call, nullptr, &contents), reading);
  if (std::string_view(contents) != "s") {
    throw WrongArguments("the requester's \"" + key + "\" is no text");
  }
  const char* text = nullptr;
  checkSystemd(sd_bus_message_read(call, "v", "s", &text), reading);
  return text;
}

void readRequester(sd_bus_message* call, EnableManualV2Request& request) {
  checkSystemd(sd_bus_message_enter_container(call, 'a', "{sv}"), reading);
  for (;;) {
    const int entered = sd_bus_message_enter_container(call, 'e', "sv");
    checkSystemd(entered, reading);
    if (entered == 0) {
      break;
    }
    const char* key = nullptr;
    checkSystemd(sd_bus_message_read(call, "s", &key), reading);
    const auto known = std::find_if(requesterTexts.begin(), requesterTexts.end(),
                                    [key](const RequesterText& each) { return each.key == key; });
    if (known != requesterTexts.end()) {
      request.*known->text = readText(call, key);
    } else {
      checkSystemd(sd_bus_message_skip(call, "v"), reading);
    }
    checkSystemd(sd_bus_message_exit_container(call), reading);
  }
  checkSystemd(sd_bus_message_exit_container(call), reading);
}

struct ReadArguments {
  sd_bus_message* call;

  template <class Request>
  void operator()(Request&) const {
    static_assert(std::is_empty_v<Request>, "its arguments have to be read");
  }

  void operator()(EnableManualRequest& request) const {
    checkSystemd(sd_bus_message_read(call, "x", &request.minutes), reading);
  }

  void operator()(EnableManualV2Request& request) const {
    int extendOnly = 0;
    checkSystemd(sd_bus_message_read(call, "xb", &request.minutes, &extendOnly), reading);
    request.extendOnly = extendOnly != 0;
    readRequester(call, request);
  }
};

std::string sendableReason(const std::string& reason) {
  return withoutNoncharacters(repairedUTF8(
      reason.size() <= mostAnswerBytes ? reason : "the reason is too long for the bus"));
}

// Whether so many answers of this size wait for the bus that none should be added.
bool isBehind(sd_bus* bus, std::size_t answerBytes) {
  std::uint64_t unsent = 0;
  return sd_bus_get_n_queued_write(bus, &unsent) >= 0 && unsent * answerBytes > mostUnsentBytes;
}

}  // namespace

std::string objectPath(const std::string& serviceName) {
  std::string path = "/" + serviceName;
  std::replace(path.begin(), path.end(), '.', '/');
  return path;
}

BusMessage newRequest(sd_bus* bus, const std::string& serviceName, const HelperRequest& request) {
  const std::string path = objectPath(serviceName);
  const BusObject daemon{
      .service = serviceName.c_str(), .path = path.c_str(), .interface = helperInterface};
  BusMessage call = newCall(bus, daemon, std::visit(MethodOf(), request), "ask the daemon nodod");
  std::visit(WriteArguments{call.get()}, request);
  return call;
}

BusCall::BusCall(sd_bus_message* call, HelperRequest kind)
    : call_(sd_bus_message_ref(call), SystemdUnref()), kind_(std::move(kind)) {}

BusCall BusCall::asking(sd_bus_message* call) {
  BusCall question(call, StopRequest{});  // as good as any that changes something
  question.onlyAsks_ = true;
  return question;
}

std::string BusCall::caller() const {
  const char* sender = sd_bus_message_get_sender(call_.get());
  return sender == nullptr ? "" : sender;
}

bool BusCall::wantsAnswer() const {
  return sd_bus_message_get_expect_reply(call_.get()) > 0;
}

void BusCall::serve(NODOHelperXPCProtocol& service) const {
  HelperRequest request = kind_;
  try {
    std::visit(ReadArguments{call_.get()}, request);
  } catch (const WrongArguments& error) {
    refuse(SD_BUS_ERROR_INVALID_ARGS, error.what());
    return;
  }
  service.perform(std::move(request),
                  [call = *this](const std::optional<std::string>& text) { call.answer(text); });
}

void BusCall::tellPermission(const std::optional<std::string>& refusal) const {
  // Fails when the connection is gone, and the caller's answer with it.
  sd_bus_reply_method_return(call_.get(), "bs", refusal ? 0 : 1,
                             sendableReason(refusal.value_or("")).c_str());
}

void BusCall::tellSettings(const std::optional<SettingsReport>& settings) const {
  if (!settings) {
    refuse(SD_BUS_ERROR_FAILED, "there are no settings");
    return;
  }
  answer(encodeJSON(*settings, JSONLayout::compact));
}

void BusCall::refuse(const char* name, const std::string& reason) const {
  // Fails as above.
  sd_bus_reply_method_errorf(call_.get(), name, "%s", sendableReason(reason).c_str());
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
  if (isLook(kind_) && isBehind(sd_bus_message_get_bus(call_.get()), sendable.size())) {
    refuse(SD_BUS_ERROR_LIMITS_EXCEEDED, "too many answers wait for the bus to take them");
    return;
  }
  const int sent = sd_bus_reply_method_return(call_.get(), "s", sendable.c_str());
  if (sent == -EINVAL) {
    refuse(SD_BUS_ERROR_FAILED, "the answer cannot be sent as text");
  }
}

}  // namespace nodo
