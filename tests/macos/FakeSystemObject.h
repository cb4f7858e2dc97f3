#pragma once

#import <Foundation/Foundation.h>

#include <cstdint>

namespace nodo::test {

/// A wrong use of the system is a fault that no test may overlook: it stops the process.
[[noreturn]] void misused(const char* what);

}  // namespace nodo::test

/// An object of the system that counts as open on the FakeMac until it is deallocated.
@interface FakeSystemObject : NSObject {
 @public
  uint32_t handle_;
  void (*callback_)(void*);
  void* context_;
}

/// Not autoreleased: the caller owns it.
+ (FakeSystemObject*)named:(const char*)name;

@end
