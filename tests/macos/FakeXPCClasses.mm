// The classes of the XPC system, as far as the adapters use them.

#include <tests/macos/FakeXPC.h>

#include <map>
#include <memory>
#include <mutex>
#include <string>

#import <Foundation/Foundation.h>
#import <Foundation/NSDebug.h>
#import <platform/macos/FoundationText.h>
#import <platform/macos/NODOHelperXPCProtocol.h>

#include <mach/message.h>

using nodo::testing::FakeXPC;
using ReplyBlock = void (^)(NSString*);
using ErrorBlock = void (^)(NSError*);
using Block = void (^)(void);

namespace {

FakeXPC& xpc() { return FakeXPC::instance(); }

void post(std::function<void()> work) {
  xpc().post([work = std::move(work)] {
    @autoreleasepool {
      work();
    }
  });
}

template <class Any>
std::shared_ptr<void> kept(Any block) {
  return {(void*)_Block_copy((const void*)block), [](void* copy) {
            if (copy != nullptr) {
              _Block_release(copy);
            }
          }};
}

std::shared_ptr<void> keptObject(id object) {
  return {(void*)[object retain], [](void* held) { [(id)held release]; }};
}

std::string textOf(NSString* text) { return nodo::textFrom(text).value_or("?"); }

NSError* xpcError(int code, NSString* description) {
  return [NSError errorWithDomain:NSCocoaErrorDomain
                             code:code
                         userInfo:[NSDictionary dictionaryWithObject:description
                                                              forKey:NSLocalizedDescriptionKey]];
}

/// A protocol's name where the runtime does not know it, because no class of that object file
/// adopts it.
std::string nameOf(Protocol* protocol) {
  struct Layout {
    Class isa;
    const char* name;
  };

  return reinterpret_cast<const Layout*>(protocol)->name;
}

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

struct FakeConnectionState {
  std::string name;
  bool isOfListener = false;
  std::mutex mutex;
  bool isResumed = false;
  bool isInvalid = false;
  std::shared_ptr<void> invalidated;
  std::shared_ptr<void> interrupted;
  std::shared_ptr<void> interface;
  std::shared_ptr<void> exported;
  std::shared_ptr<void> other;  // the listener's end

  void run(std::shared_ptr<void> FakeConnectionState::*handler) {
    std::shared_ptr<void> block;
    {
      const std::lock_guard guard(mutex);
      block = this->*handler;
    }
    if (block) {
      ((Block)block.get())();
    }
  }

  void invalidate() {
    {
      const std::lock_guard guard(mutex);
      if (isInvalid) {
        return;
      }
      isInvalid = true;
    }
    run(&FakeConnectionState::invalidated);
    const std::lock_guard guard(mutex);
    // The system lets go of handlers and objects once a connection cannot be used any more.
    invalidated = interrupted = exported = other = nullptr;
  }

  void note(const std::string& step) const {
    if (isOfListener) {
      xpc().noteListener(step);
    } else {
      xpc().note(step);
    }
  }
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

@interface FakeXPCProxy : NSObject <NODOHelperXPCProtocol> {
  NSXPCConnection* connection_;
  std::shared_ptr<void>* failed_;
}

- (instancetype)initWithConnection:(NSXPCConnection*)connection
                      errorHandler:(void (^)(NSError*))handler;

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

namespace {

/// One message and its reply. Without a reply the sender is told when nobody can reply any more.
struct Message {
  std::shared_ptr<void> connection;
  std::shared_ptr<void> reply;
  std::shared_ptr<void> failed;
  bool isAnswered = false;

  ~Message() {
    if (!isAnswered) {
      fail(4101, @"the reply block was released");
    }
  }

  FakeConnectionState& state() const { return *((NSXPCConnection*)connection.get())->state_; }

  void answer(NSString* text) {
    isAnswered = true;
    post([reply = reply, text = keptObject(text)] {
      ((ReplyBlock)reply.get())((NSString*)text.get());
    });
  }

  void fail(int code, NSString* description) {
    isAnswered = true;
    post([failed = failed, code, description = keptObject(description)] {
      ((ErrorBlock)failed.get())(xpcError(code, (NSString*)description.get()));
    });
  }
};

/// Shows a new connection to the listener of its name. Nothing when there is none or it refuses.
NSXPCConnection* acceptedEnd(const std::string& name) {
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
  return accepted && end->state_->isResumed ? end : nil;
}

using Send = std::function<void(id<NODOHelperXPCProtocol> target, ReplyBlock reply)>;

// By value, as a block that names a reference keeps the reference and not what it refers to.
void deliver(std::shared_ptr<Message> message, const Send& send) {
  FakeConnectionState& state = message->state();
  if (state.isInvalid) {
    message->fail(4099, @"the connection is invalid");
    return;
  }
  if (!state.other) {
    state.other = keptObject(acceptedEnd(state.name));
  }
  if (!state.other) {
    state.invalidate();
    message->fail(4099, @"the connection was invalidated");
    return;
  }
  send((id<NODOHelperXPCProtocol>)((NSXPCConnection*)state.other.get())->state_->exported.get(),
       ^(NSString* text) {
         message->answer(text);
       });
}

void send(NSXPCConnection* connection, std::shared_ptr<void> failed, const std::string& selector,
          ReplyBlock reply, Send send) {
  const auto message = std::make_shared<Message>();
  message->connection = keptObject(connection);
  message->reply = kept(reply);
  message->failed = std::move(failed);
  connection->state_->note("send " + selector);
  post([message, send = std::move(send)] {
    if (const auto& text = xpc().replyInstead) {
      message->answer([NSString stringWithCharacters:(const unichar*)text->data()
                                              length:text->size()]);
      return;
    }
    switch (xpc().delivery) {
      case FakeXPC::Delivery::works:
        deliver(message, send);
        break;
      case FakeXPC::Delivery::interrupted:
        message->state().run(&FakeConnectionState::interrupted);
        message->fail(4097, @"the connection was interrupted");
        break;
      case FakeXPC::Delivery::failed:
        message->fail(4864, @"the message could not be delivered");
        break;
      case FakeXPC::Delivery::never:
        message->isAnswered = true;
        break;
    }
  });
}

}  // namespace

@implementation FakeXPCProxy

- (instancetype)initWithConnection:(NSXPCConnection*)connection
                      errorHandler:(void (^)(NSError*))handler {
  self = [super init];
  connection_ = [connection retain];
  failed_ = new std::shared_ptr<void>(kept(handler));
  xpc().made("proxy");
  return self;
}

- (void)dealloc {
  [connection_ release];
  delete failed_;
  xpc().gone("proxy");
  [super dealloc];
}

- (BOOL)conformsToProtocol:(Protocol*)protocol {
  return nameOf(protocol) == "NODOHelperXPCProtocol";
}

- (void)statusWithReply:(void (^)(NSString*))reply {
  send(connection_, *failed_, "statusWithReply:", reply,
       [](auto target, ReplyBlock block) { [target statusWithReply:block]; });
}

- (void)enableManualWithMinutes:(int64_t)minutes withReply:(void (^)(NSString*))reply {
  send(connection_, *failed_, "enableManualWithMinutes:withReply:", reply,
       [=](auto target, ReplyBlock block) {
         [target enableManualWithMinutes:minutes withReply:block];
       });
}

- (void)enableManualV2WithMinutes:(int64_t)minutes
                       extendOnly:(BOOL)extendOnly
                    requesterName:(NSString*)requesterName
                 requesterContext:(NSString*)requesterContext
                   requesterEvent:(NSString*)requesterEvent
                        withReply:(void (^)(NSString*))reply {
  const auto name = keptObject(requesterName);
  const auto context = keptObject(requesterContext);
  const auto event = keptObject(requesterEvent);
  send(connection_, *failed_,
       "enableManualV2WithMinutes:extendOnly:requesterName:requesterContext:requesterEvent:"
       "withReply:",
       reply, [=](auto target, ReplyBlock block) {
         [target enableManualV2WithMinutes:minutes
                                extendOnly:extendOnly
                             requesterName:(NSString*)name.get()
                          requesterContext:(NSString*)context.get()
                            requesterEvent:(NSString*)event.get()
                                 withReply:block];
       });
}

- (void)stopWithReply:(void (^)(NSString*))reply {
  send(connection_, *failed_, "stopWithReply:", reply,
       [](auto target, ReplyBlock block) { [target stopWithReply:block]; });
}

- (void)reconcileWithReply:(void (^)(NSString*))reply {
  send(connection_, *failed_, "reconcileWithReply:", reply,
       [](auto target, ReplyBlock block) { [target reconcileWithReply:block]; });
}

- (void)repairWithReply:(void (^)(NSString*))reply {
  send(connection_, *failed_, "repairWithReply:", reply,
       [](auto target, ReplyBlock block) { [target repairWithReply:block]; });
}

@end

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
