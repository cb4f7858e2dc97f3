// Messages and their replies, as the XPC system carries them.

#include <functional>
#include <memory>
#include <string>
#include <utility>

#import <Foundation/Foundation.h>
#import <platform/macos/NODOHelperXPCProtocol.h>
#import <tests/macos/FakeXPCObjects.h>

using namespace nodo::test;

namespace {

NSError* xpcError(int code, NSString* description) {
  return [NSError errorWithDomain:NSCocoaErrorDomain
                             code:code
                         userInfo:[NSDictionary dictionaryWithObject:description
                                                              forKey:NSLocalizedDescriptionKey]];
}

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
