#pragma once

#import <Foundation/Foundation.h>
#import <platform/macos/NODOHelperXPCProtocol.h>

#include <tests/macos/FakeXPC.h>

#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <utility>

// What the classes of the made-up XPC system share.
namespace nodo::test {

using ReplyBlock = void (^)(NSString*);
using ErrorBlock = void (^)(NSError*);
using Block = void (^)(void);

inline FakeXPC& xpc() { return FakeXPC::instance(); }

inline void post(std::function<void()> work) {
  xpc().post([work = std::move(work)] {
    @autoreleasepool {
      work();
    }
  });
}

/// A copy of a block, or nothing of nil.
template <class Any>
std::shared_ptr<void> kept(Any block) {
  return {(void*)_Block_copy((const void*)block), [](void* copy) {
            if (copy != nullptr) {
              _Block_release(copy);
            }
          }};
}

inline std::shared_ptr<void> keptObject(id object) {
  return {(void*)[object retain], [](void* held) { [(id)held release]; }};
}

/// A protocol's name, also where the runtime does not know it because no class of that object file
/// adopts it.
inline std::string nameOf(Protocol* protocol) {
  struct Layout {
    Class isa;
    const char* name;
  };

  return reinterpret_cast<const Layout*>(protocol)->name;
}

/// Shows a new connection to the listener of its name. Nothing when there is none or it refuses.
NSXPCConnection* acceptedEnd(const std::string& name);

}  // namespace nodo::test

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
      ((nodo::test::Block)block.get())();
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
      nodo::test::xpc().noteListener(step);
    } else {
      nodo::test::xpc().note(step);
    }
  }
};

/// What a client's connection gives: each message goes to the object that the other end exports.
@interface FakeXPCProxy : NSObject <NODOHelperXPCProtocol> {
  NSXPCConnection* connection_;
  std::shared_ptr<void>* failed_;
}

- (instancetype)initWithConnection:(NSXPCConnection*)connection
                      errorHandler:(void (^)(NSError*))handler;

@end
