#include <platform/macos/XPCHelperConnection.h>

#include <exception>
#include <memory>
#include <string>
#include <utility>
#include <variant>

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

/// Sends a request as the message that it is on the wire. What a message is given is copied by the
/// system before it returns, blocks included.
struct Message {
  Proxy proxy;
  ReplyBlock reply;

  void operator()(const StatusRequest&) const { [proxy statusWithReply:reply]; }

  void operator()(const EnableManualRequest& request) const {
    [proxy enableManualWithMinutes:request.minutes withReply:reply];
  }

  void operator()(const EnableManualV2Request& request) const {
    [proxy enableManualV2WithMinutes:request.minutes
                          extendOnly:request.extendOnly ? YES : NO
                       requesterName:systemText(request.requesterName)
                    requesterContext:systemText(request.requesterContext)
                      requesterEvent:systemText(request.requesterEvent)
                           withReply:reply];
  }

  void operator()(const StopRequest&) const { [proxy stopWithReply:reply]; }

  void operator()(const ReconcileRequest&) const { [proxy reconcileWithReply:reply]; }

  void operator()(const RepairRequest&) const { [proxy repairWithReply:reply]; }
};

class ProxyRequests : public NODOHelperXPCProtocol {
 public:
  explicit ProxyRequests(id proxy) : proxy_([proxy retain]) {}

  ProxyRequests(const ProxyRequests&) = delete;
  ProxyRequests& operator=(const ProxyRequests&) = delete;

  ~ProxyRequests() override { [proxy_ release]; }

  void perform(HelperRequest request, HelperReply reply) override {
    @autoreleasepool {
      const auto shared = std::make_shared<const HelperReply>(std::move(reply));
      const ReplyBlock block = ^(NSString* text) {
        (*shared)(textFrom(text));
      };
      std::visit(Message{proxy_, block}, request);
    }
  }

 private:
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
