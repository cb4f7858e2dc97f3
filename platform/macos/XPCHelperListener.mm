#include <NODOCore/helper/NODOXPCClientAuthentication.h>
#include <platform/macos/XPCHelperListener.h>

#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include <Block.h>
#import <Foundation/Foundation.h>
#import <dispatch/dispatch.h>
#include <mach/message.h>
#include <objc/runtime.h>
#import <platform/macos/FoundationText.h>
#import <platform/macos/NODOHelperXPCProtocol.h>

namespace nodo {
namespace {

using Authentication = NODOXPCClientAuthentication;
using ReplyBlock = void (^)(NSString*);

/// What the exported object keeps of the service, which ends before connections do. For the main
/// thread only.
struct ServiceAccess {
  NODOHelperXPCProtocol* service = nullptr;
};

/// Serves a request on the main queue and sends its reply by `block`, which is the system's own and
/// may be called on any thread. Letting go of it unused tells the client that there is no reply.
void serve(const std::shared_ptr<ServiceAccess>& access, HelperRequest request, ReplyBlock block) {
  const std::shared_ptr<void> kept((void*)Block_copy(block),
                                   [](void* copy) { Block_release(copy); });
  const HelperReply reply = [kept](const std::optional<std::string>& text) {
    @autoreleasepool {
      NSString* sent = systemText(text);
      ((ReplyBlock)kept.get())(sent != nil ? sent : @"");
    }
  };
  // A copy, as a block that names a reference keeps the reference and not what it refers to.
  const std::shared_ptr<ServiceAccess> copy = access;
  dispatch_async(dispatch_get_main_queue(), ^{
    @autoreleasepool {
      if (copy->service != nullptr) {
        copy->service->perform(request, reply);
      }
    }
  });
}

// By name: the compiler knows no method of that selector, so it could get its result type wrong.
SEL auditTokenSelector() {
  static const SEL selector = NSSelectorFromString(@"auditToken");
  return selector;
}

/// The process at the other end of an XPC connection. For use while the connection lives.
class XPCConnectionPeer : public XPCPeer {
 public:
  explicit XPCConnectionPeer(NSXPCConnection* connection) : connection_(connection) {}

  /// By the connection's own method for it, which the system has but does not declare: that it may
  /// be missing in some version is why it is looked for.
  std::optional<AuditToken> auditToken() const override;

 private:
  NSXPCConnection* connection_;
};

std::optional<AuditToken> XPCConnectionPeer::auditToken() const {
  using Getter = audit_token_t (*)(id, SEL);

  const SEL selector = auditTokenSelector();
  if (![connection_ respondsToSelector:selector]) {
    return std::nullopt;
  }
  const Method method = class_getInstanceMethod([connection_ class], selector);
  if (method == nullptr) {
    return std::nullopt;
  }
  const auto get = reinterpret_cast<Getter>(method_getImplementation(method));
  const audit_token_t token = get(connection_, selector);
  AuditToken bytes;
  static_assert(sizeof bytes == sizeof token);
  std::memcpy(bytes.data(), &token, sizeof token);
  return bytes;
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
  nodo::serve(*access_, nodo::StatusRequest{}, reply);
}

- (void)enableManualWithMinutes:(int64_t)minutes withReply:(void (^)(NSString*))reply {
  nodo::serve(*access_, nodo::EnableManualRequest{minutes}, reply);
}

- (void)enableManualV2WithMinutes:(int64_t)minutes
                       extendOnly:(BOOL)extendOnly
                    requesterName:(NSString*)requesterName
                 requesterContext:(NSString*)requesterContext
                   requesterEvent:(NSString*)requesterEvent
                        withReply:(void (^)(NSString*))reply {
  nodo::serve(
      *access_,
      nodo::EnableManualV2Request{minutes, extendOnly != NO, nodo::textFrom(requesterName),
                                  nodo::textFrom(requesterContext), nodo::textFrom(requesterEvent)},
      reply);
}

- (void)stopWithReply:(void (^)(NSString*))reply {
  nodo::serve(*access_, nodo::StopRequest{}, reply);
}

- (void)reconcileWithReply:(void (^)(NSString*))reply {
  nodo::serve(*access_, nodo::ReconcileRequest{}, reply);
}

- (void)repairWithReply:(void (^)(NSString*))reply {
  nodo::serve(*access_, nodo::RepairRequest{}, reply);
}

@end

/// Judges new connections, on threads of the system's.
@interface NODOHelperListenerDelegate : NSObject <NSXPCListenerDelegate> {
 @public
  std::shared_ptr<const nodo::CodeSigning>* codeSigning_;
  NODOHelperExportedObject* exportedObject_;
  nodo::XPCRejectionLog* rejections_;
}
@end

@implementation NODOHelperListenerDelegate

- (void)dealloc {
  delete codeSigning_;
  delete rejections_;
  [exportedObject_ release];
  [super dealloc];
}

- (BOOL)listener:(NSXPCListener*)listener
    shouldAcceptNewConnection:(NSXPCConnection*)newConnection {
  const auto result =
      nodo::Authentication::validate(nodo::XPCConnectionPeer(newConnection), **codeSigning_);
  if (!result.isAccepted()) {
    rejections_->add(result, nodo::XPCRejectionLog::Clock::now());
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
    delegate->rejections_ = new XPCRejectionLog(log);
    objects_->delegate = delegate;
    objects_->listener =
        [[NSXPCListener alloc] initWithMachServiceName:systemText(machServiceName)];
    [objects_->listener setDelegate:delegate];
    // The system's own check of every message, beside ours of the connection: it needs no method
    // that the system does not declare.
    [objects_->listener
        setConnectionCodeSigningRequirement:systemText(Authentication::codeSigningRequirement())];
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
