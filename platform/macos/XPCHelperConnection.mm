#include <platform/macos/XPCError.h>
#include <platform/macos/XPCHelperConnection.h>

#include <cstdint>
#include <exception>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#import <Foundation/Foundation.h>
#import <platform/macos/FoundationText.h>
#import <platform/macos/NODOHelperXPCProtocol.h>

namespace nodo {
namespace {

using Proxy = id<NODOHelperXPCProtocol>;
using ReplyBlock = void (^)(NSString*);

static_assert(NSXPCConnectionPrivileged == 4096, "the option that names the system's own domain");

std::exception_ptr exceptionFrom(NSError* error) {
  XPCError made(textFrom([error domain]).value_or(""), [error code],
                textFrom([error localizedDescription]).value_or("unknown XPC error"));
  return std::make_exception_ptr(std::move(made));
}

/// The requests as messages to `proxy`. What they are given is copied by the system before a
/// message returns, blocks included.
class ProxyRequests : public NODOHelperXPCProtocol {
 public:
  explicit ProxyRequests(id proxy) : proxy_([proxy retain]) {}

  ProxyRequests(const ProxyRequests&) = delete;
  ProxyRequests& operator=(const ProxyRequests&) = delete;

  ~ProxyRequests() override { [proxy_ release]; }

  void status(HelperReply reply) override {
    send(std::move(reply), [](Proxy proxy, ReplyBlock block) { [proxy statusWithReply:block]; });
  }

  void enableManual(std::int64_t minutes, HelperReply reply) override {
    send(std::move(reply), [&](Proxy proxy, ReplyBlock block) {
      [proxy enableManualWithMinutes:minutes withReply:block];
    });
  }

  void enableManualV2(std::int64_t minutes, bool extendOnly,
                      std::optional<std::string> requesterName,
                      std::optional<std::string> requesterContext,
                      std::optional<std::string> requesterEvent, HelperReply reply) override {
    send(std::move(reply), [&](Proxy proxy, ReplyBlock block) {
      [proxy enableManualV2WithMinutes:minutes
                            extendOnly:extendOnly ? YES : NO
                         requesterName:systemText(requesterName)
                      requesterContext:systemText(requesterContext)
                        requesterEvent:systemText(requesterEvent)
                             withReply:block];
    });
  }

  void stop(HelperReply reply) override {
    send(std::move(reply), [](Proxy proxy, ReplyBlock block) { [proxy stopWithReply:block]; });
  }

  void reconcile(HelperReply reply) override {
    send(std::move(reply), [](Proxy proxy, ReplyBlock block) { [proxy reconcileWithReply:block]; });
  }

  void repair(HelperReply reply) override {
    send(std::move(reply), [](Proxy proxy, ReplyBlock block) { [proxy repairWithReply:block]; });
  }

 private:
  template <class Message>
  void send(HelperReply reply, const Message& message) {
    @autoreleasepool {
      const auto shared = std::make_shared<const HelperReply>(std::move(reply));
      message(proxy_, ^(NSString* text) {
        (*shared)(textFrom(text));
      });
    }
  }

  id proxy_;
};

class XPCHelperConnection : public HelperConnection {
 public:
  explicit XPCHelperConnection(const std::string& machServiceName) {
    @autoreleasepool {
      connection_ = [[NSXPCConnection alloc] initWithMachServiceName:systemText(machServiceName)
                                                             options:NSXPCConnectionPrivileged];
      [connection_
          setRemoteObjectInterface:[NSXPCInterface
                                       interfaceWithProtocol:@protocol(NODOHelperXPCProtocol)]];
    }
  }

  XPCHelperConnection(const XPCHelperConnection&) = delete;
  XPCHelperConnection& operator=(const XPCHelperConnection&) = delete;

  ~XPCHelperConnection() override { [connection_ release]; }

  void setInvalidationHandler(Handler handler) override {
    [connection_ setInvalidationHandler:^{
      handler();
    }];
  }

  void setInterruptionHandler(Handler handler) override {
    [connection_ setInterruptionHandler:^{
      handler();
    }];
  }

  void resume() override { [connection_ resume]; }

  std::shared_ptr<NODOHelperXPCProtocol> remoteProxy(ErrorHandler errorHandler) override {
    @autoreleasepool {
      id proxy = [connection_ remoteObjectProxyWithErrorHandler:^(NSError* error) {
        errorHandler(exceptionFrom(error));
      }];
      if (![proxy conformsToProtocol:@protocol(NODOHelperXPCProtocol)]) {
        return nullptr;
      }
      return std::make_shared<ProxyRequests>(proxy);
    }
  }

  void invalidate() override { [connection_ invalidate]; }

 private:
  NSXPCConnection* connection_ = nil;
};

}  // namespace

std::unique_ptr<HelperConnection> XPCHelperConnecting::privilegedConnection(
    const std::string& machServiceName) const {
  return std::make_unique<XPCHelperConnection>(machServiceName);
}

}  // namespace nodo
