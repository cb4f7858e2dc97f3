#include <NODOCore/helper/NODOXPCClientAuthentication.h>
#include <platform/macos/XPCHelperListener.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include <Block.h>
#import <Foundation/Foundation.h>
#import <dispatch/dispatch.h>
#import <platform/macos/FoundationText.h>
#import <platform/macos/NODOHelperXPCProtocol.h>
#import <platform/macos/XPCConnectionPeer.h>

namespace nodo {
namespace {

using Authentication = NODOXPCClientAuthentication;
using Request = std::function<void(NODOHelperXPCProtocol& service)>;
using ReplyBlock = void (^)(NSString*);

/// What the exported object keeps of the service, which ends before connections do. For the main
/// thread only.
struct ServiceAccess {
  NODOHelperXPCProtocol* service = nullptr;
};

// By value, as a block that names a reference keeps the reference and not what it refers to.
void serveOnMainQueue(std::shared_ptr<ServiceAccess> access, Request request) {
  dispatch_async(dispatch_get_main_queue(), ^{
    @autoreleasepool {
      if (access->service != nullptr) {
        request(*access->service);
      }
    }
  });
}

/// Sends the reply by `block`, which is the system's own and may be called on any thread. Letting
/// go of it unused tells the client that there is no reply.
HelperReply replyBy(ReplyBlock block) {
  const std::shared_ptr<void> kept((void*)Block_copy(block),
                                   [](void* copy) { Block_release(copy); });
  return [kept](const std::optional<std::string>& text) {
    @autoreleasepool {
      NSString* sent = systemText(text);
      ((ReplyBlock)kept.get())(sent != nil ? sent : @"");
    }
  };
}

}  // namespace
}  // namespace nodo

/// What clients send their messages to, on threads of the system's.
@interface NODOHelperExportedObject : NSObject <NODOHelperXPCProtocol> {
  std::shared_ptr<nodo::ServiceAccess>* access_;
}

- (instancetype)initWithAccess:(const std::shared_ptr<nodo::ServiceAccess>&)access;

@end

@implementation NODOHelperExportedObject

- (instancetype)initWithAccess:(const std::shared_ptr<nodo::ServiceAccess>&)access {
  self = [super init];
  if (self != nil) {
    access_ = new std::shared_ptr<nodo::ServiceAccess>(access);
  }
  return self;
}

- (void)dealloc {
  delete access_;
  [super dealloc];
}

- (void)statusWithReply:(void (^)(NSString*))reply {
  const nodo::HelperReply answer = nodo::replyBy(reply);
  nodo::serveOnMainQueue(*access_, [=](auto& service) { service.status(answer); });
}

- (void)enableManualWithMinutes:(int64_t)minutes withReply:(void (^)(NSString*))reply {
  const nodo::HelperReply answer = nodo::replyBy(reply);
  nodo::serveOnMainQueue(*access_, [=](auto& service) { service.enableManual(minutes, answer); });
}

- (void)enableManualV2WithMinutes:(int64_t)minutes
                       extendOnly:(BOOL)extendOnly
                    requesterName:(NSString*)requesterName
                 requesterContext:(NSString*)requesterContext
                   requesterEvent:(NSString*)requesterEvent
                        withReply:(void (^)(NSString*))reply {
  const nodo::HelperReply answer = nodo::replyBy(reply);
  const bool extends = extendOnly;
  const auto name = nodo::textFrom(requesterName);
  const auto context = nodo::textFrom(requesterContext);
  const auto event = nodo::textFrom(requesterEvent);
  nodo::serveOnMainQueue(*access_, [=](auto& service) {
    service.enableManualV2(minutes, extends, name, context, event, answer);
  });
}

- (void)stopWithReply:(void (^)(NSString*))reply {
  const nodo::HelperReply answer = nodo::replyBy(reply);
  nodo::serveOnMainQueue(*access_, [=](auto& service) { service.stop(answer); });
}

- (void)reconcileWithReply:(void (^)(NSString*))reply {
  const nodo::HelperReply answer = nodo::replyBy(reply);
  nodo::serveOnMainQueue(*access_, [=](auto& service) { service.reconcile(answer); });
}

- (void)repairWithReply:(void (^)(NSString*))reply {
  const nodo::HelperReply answer = nodo::replyBy(reply);
  nodo::serveOnMainQueue(*access_, [=](auto& service) { service.repair(answer); });
}

@end

/// Judges new connections, on threads of the system's.
@interface NODOHelperListenerDelegate : NSObject <NSXPCListenerDelegate> {
 @public
  std::shared_ptr<const nodo::CodeSigning>* codeSigning_;
  NODOHelperExportedObject* exportedObject_;
  std::FILE* log_;
}
@end

@implementation NODOHelperListenerDelegate

- (void)dealloc {
  delete codeSigning_;
  [exportedObject_ release];
  [super dealloc];
}

- (BOOL)listener:(NSXPCListener*)listener
    shouldAcceptNewConnection:(NSXPCConnection*)newConnection {
  const auto result =
      nodo::Authentication::validate(nodo::XPCConnectionPeer(newConnection), **codeSigning_);
  if (!result.isAccepted()) {
    nodo::Authentication::logRejection(result, log_);
    return NO;
  }
  [newConnection
      setExportedInterface:[NSXPCInterface interfaceWithProtocol:@protocol(NODOHelperXPCProtocol)]];
  [newConnection setExportedObject:exportedObject_];
  [newConnection resume];
  return YES;
}

@end

namespace nodo {

struct XPCHelperListener::Objects {
  std::shared_ptr<ServiceAccess> access = std::make_shared<ServiceAccess>();
  NODOHelperListenerDelegate* delegate = nil;
  NSXPCListener* listener = nil;
};

XPCHelperListener::XPCHelperListener(const std::string& machServiceName,
                                     NODOHelperXPCProtocol& service,
                                     std::shared_ptr<const CodeSigning> codeSigning, std::FILE* log)
    : objects_(std::make_unique<Objects>()) {
  @autoreleasepool {
    objects_->access->service = &service;
    NODOHelperListenerDelegate* delegate = [[NODOHelperListenerDelegate alloc] init];
    delegate->codeSigning_ = new std::shared_ptr<const CodeSigning>(std::move(codeSigning));
    delegate->exportedObject_ = [[NODOHelperExportedObject alloc] initWithAccess:objects_->access];
    delegate->log_ = log;
    objects_->delegate = delegate;
    objects_->listener =
        [[NSXPCListener alloc] initWithMachServiceName:systemText(machServiceName)];
    [objects_->listener setDelegate:delegate];
    [objects_->listener resume];
  }
}

XPCHelperListener::~XPCHelperListener() {
  @autoreleasepool {
    objects_->access->service = nullptr;
    [objects_->listener invalidate];
    [objects_->listener setDelegate:nil];
    [objects_->listener release];
    [objects_->delegate release];
  }
}

}  // namespace nodo
