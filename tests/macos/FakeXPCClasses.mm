// The classes of the XPC system, as far as the adapters use them.

#include <platform/macos/FoundationText.h>

#include <algorithm>
#include <map>
#include <memory>
#include <mutex>
#include <string>

#import <Foundation/Foundation.h>
#import <Foundation/NSDebug.h>
#import <tests/macos/FakeXPCObjects.h>

#include <mach/message.h>

using nodo::test::FakeXPC;
using nodo::test::kept;
using nodo::test::keptObject;
using nodo::test::nameOf;
using nodo::test::post;
using nodo::test::xpc;

namespace {

std::string textOf(NSString* text) { return nodo::textFrom(text).value_or("?"); }

std::mutex listenersMutex;
std::map<std::string, FakeListenerState*> listeners;

}  // namespace

int FakeXPC::liveInstances(const char* className) {
  // It counts from the first time that it is asked.
  GSDebugAllocationActive(YES);
  return GSDebugAllocationCount(NSClassFromString([NSString stringWithUTF8String:className]));
}

struct FakeListenerState {
  std::string name;
  FakeXPCListener* listener = nil;
  id<NSXPCListenerDelegate> delegate = nil;  // not retained, as on macOS
};

@implementation NSXPCInterface

+ (NSXPCInterface*)interfaceWithProtocol:(Protocol*)protocol {
  NSXPCInterface* made = [[[self alloc] init] autorelease];
  made->protocol_ = protocol;
  xpc().made("interface");
  return made;
}

- (Protocol*)protocol {
  return protocol_;
}

- (void)dealloc {
  xpc().gone("interface");
  [super dealloc];
}

@end
@implementation NSXPCConnection

- (instancetype)init {
  self = [super init];
  state_ = new FakeConnectionState();
  xpc().made("connection");
  return self;
}

- (instancetype)initWithMachServiceName:(NSString*)name options:(NSXPCConnectionOptions)options {
  self = [self init];
  state_->name = textOf(name);
  xpc().note("connect " + state_->name + " with options " + std::to_string(options));
  return self;
}

- (void)dealloc {
  delete state_;
  xpc().gone("connection");
  [super dealloc];
}

- (void)setRemoteObjectInterface:(NSXPCInterface*)interface {
  state_->note("remote interface " + nameOf([interface protocol]));
  state_->interface = keptObject(interface);
}

- (void)setExportedInterface:(NSXPCInterface*)interface {
  state_->note("exported interface " + nameOf([interface protocol]));
  state_->interface = keptObject(interface);
}

- (void)setExportedObject:(id)object {
  state_->note("exported object");
  state_->exported = keptObject(object);
}

- (void)setInvalidationHandler:(void (^)(void))handler {
  state_->note("invalidation handler");
  const std::lock_guard guard(state_->mutex);
  state_->invalidated = kept(handler);
}

- (void)setInterruptionHandler:(void (^)(void))handler {
  state_->note("interruption handler");
  const std::lock_guard guard(state_->mutex);
  state_->interrupted = kept(handler);
}

- (void)resume {
  state_->note("resume");
  state_->isResumed = true;
}

- (void)invalidate {
  state_->note("invalidate");
  post([connection = keptObject(self)] {
    ((NSXPCConnection*)connection.get())->state_->invalidate();
  });
}

- (id)remoteObjectProxyWithErrorHandler:(void (^)(NSError* error))handler {
  state_->note("proxy");
  if (!xpc().proxyConforms) {
    return [[[NSObject alloc] init] autorelease];
  }
  return [[[FakeXPCProxy alloc] initWithConnection:self errorHandler:handler] autorelease];
}

@end

/// The listener's end of a connection, which has a method that the system does not declare.
@interface FakeXPCConnectionWithToken : NSXPCConnection
@end

@implementation FakeXPCConnectionWithToken

- (audit_token_t)auditToken {
  audit_token_t token;
  std::copy(xpc().auditToken->begin(), xpc().auditToken->end(), token.val);
  return token;
}

@end
NSXPCConnection* nodo::test::acceptedEnd(const std::string& name) {
  FakeListenerState* found = nullptr;
  {
    const std::lock_guard guard(listenersMutex);
    found = listeners.contains(name) ? listeners[name] : nullptr;
  }
  if (found == nullptr) {
    return nil;
  }
  Class ofListener =
      xpc().auditToken ? [FakeXPCConnectionWithToken class] : [NSXPCConnection class];
  NSXPCConnection* end = [[[ofListener alloc] init] autorelease];
  end->state_->isOfListener = true;
  const BOOL accepted = [found->delegate listener:found->listener shouldAcceptNewConnection:end];
  if (accepted) {
    xpc().noteListener("accepted");
  }
  return accepted && end->state_->isResumed ? end : nil;
}

@implementation NSXPCListener

- (instancetype)initWithMachServiceName:(NSString*)name {
  self = [super init];
  state_ = new FakeListenerState{textOf(name), self, nil};
  xpc().made("listener");
  return self;
}

- (void)setDelegate:(id<NSXPCListenerDelegate>)delegate {
  state_->delegate = delegate;
}

- (void)setConnectionCodeSigningRequirement:(NSString*)requirement {
  xpc().requirement = textOf(requirement);
}

- (void)resume {
  const std::lock_guard guard(listenersMutex);
  listeners[state_->name] = state_;
}

- (void)invalidate {
  const std::lock_guard guard(listenersMutex);
  listeners.erase(state_->name);
}

- (void)dealloc {
  [self invalidate];
  delete state_;
  xpc().gone("listener");
  [super dealloc];
}

@end
