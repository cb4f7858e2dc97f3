// What stands behind the C functions of CoreFoundation, Dispatch, IOKit, Network and notify(3).

#include <tests/macos/FakeMac.h>

#include <stdexcept>
#include <string>
#include <thread>

#import <CoreFoundation/CoreFoundation.h>
#import <Foundation/Foundation.h>
#import <IOKit/IOKitLib.h>
#import <IOKit/ps/IOPowerSources.h>
#import <IOKit/pwr_mgt/IOPMLib.h>
#import <Network/Network.h>
#import <dispatch/dispatch.h>
#import <notify.h>
#import <tests/macos/FakeSystemObject.h>

using nodo::test::FakeMac;
using nodo::test::misused;

namespace {

FakeMac& mac() { return FakeMac::instance(); }

FakeMac::Work workOf(dispatch_block_t block) {
  const std::shared_ptr<void> kept((void*)_Block_copy((const void*)block),
                                   [](void* copy) { _Block_release(copy); });
  return [kept] { ((dispatch_block_t)kept.get())(); };
}

}  // namespace

void nodo::test::misused(const char* what) {
  std::fprintf(stderr, "misuse of the system: %s\n", what);
  std::abort();
}

@implementation FakeSystemObject

+ (FakeSystemObject*)named:(const char*)name {
  FakeSystemObject* object = [[FakeSystemObject alloc] init];
  object->handle_ = mac().open(name);
  return object;
}

- (void)dealloc {
  if (!mac().close(handle_)) {
    misused("an object was released once too often");
  }
  [super dealloc];
}

@end

// ---- CoreFoundation

const CFRunLoopMode kCFRunLoopDefaultMode = (CFRunLoopMode) @"kCFRunLoopDefaultMode";

void CFRelease(CFTypeRef object) {
  if (object == nullptr) {
    misused("CFRelease of nothing");
  }
  [(id)object release];
}

CFRunLoopRef CFRunLoopGetMain() { return (CFRunLoopRef)&mac(); }

void CFRunLoopRun() { mac().run(); }

void CFRunLoopStop(CFRunLoopRef) { mac().stop(); }

void CFRunLoopAddSource(CFRunLoopRef, CFRunLoopSourceRef source, CFRunLoopMode mode) {
  if (mode != kCFRunLoopDefaultMode) {
    misused("the run loop does not run in this mode");
  }
  FakeSystemObject* object = [(FakeSystemObject*)source retain];
  mac().powerSource = [object] { object->callback_(object->context_); };
}

void CFRunLoopRemoveSource(CFRunLoopRef, CFRunLoopSourceRef source, CFRunLoopMode) {
  mac().powerSource = nullptr;
  [(FakeSystemObject*)source release];
}

// ---- the process's own information

NSString* const NSProcessInfoThermalStateDidChangeNotification = @"thermal state";
NSString* const NSProcessInfoPowerStateDidChangeNotification = @"power state";

@implementation NSProcessInfo (Strain)

- (NSProcessInfoThermalState)thermalState {
  mac().wasThermalStateRead = true;
  return mac().thermalState;
}

- (BOOL)isLowPowerModeEnabled {
  return mac().isInLowPowerMode ? YES : NO;
}

@end

static void postOnAnotherThread(NSString* name) {
  std::thread([name] {
    GSRegisterCurrentThread();
    @autoreleasepool {
      [[NSNotificationCenter defaultCenter] postNotificationName:name object:nil];
    }
    GSUnregisterCurrentThread();
  }).join();
}

void FakeMac::tellThermalState() {
  if (wasThermalStateRead) {
    postOnAnotherThread(NSProcessInfoThermalStateDidChangeNotification);
  }
}

void FakeMac::tellPowerState() {
  postOnAnotherThread(NSProcessInfoPowerStateDidChangeNotification);
}

// ---- Dispatch

struct FakeDispatchSourceType {
  bool isTimer;
};

static const FakeDispatchSourceType timerType{true};
static const FakeDispatchSourceType signalType{false};
const dispatch_source_type_t DISPATCH_SOURCE_TYPE_TIMER = &timerType;
const dispatch_source_type_t DISPATCH_SOURCE_TYPE_SIGNAL = &signalType;

dispatch_queue_t dispatch_get_main_queue() {
  static NSObject* queue = [[NSObject alloc] init];
  return queue;
}

static void requireMainQueue(dispatch_queue_t queue) {
  if (queue != dispatch_get_main_queue()) {
    misused("not the main queue");
  }
}

void dispatch_async(dispatch_queue_t queue, dispatch_block_t block) {
  requireMainQueue(queue);
  mac().post(workOf(block));
}

dispatch_time_t dispatch_time(dispatch_time_t when, int64_t delta) {
  if (when != DISPATCH_TIME_NOW) {
    misused("a time that does not count from now");
  }
  return static_cast<dispatch_time_t>(mac().nanosecondsNow() + delta);
}

dispatch_source_t dispatch_source_create(dispatch_source_type_t type, uintptr_t handle,
                                         unsigned long, dispatch_queue_t queue) {
  requireMainQueue(queue);
  if (!mac().offersSources) {
    return nil;
  }
  FakeSystemObject* source = [FakeSystemObject named:"dispatch source"];
  mac().addSource(source, {.isTimer = type->isTimer,
                           .signal = type->isTimer ? 0 : static_cast<int>(handle),
                           .isResumed = false,
                           .isRegistered = false,
                           .due = FakeMac::never,
                           .handler = nullptr,
                           .registered = nullptr});
  return source;
}

void dispatch_source_set_event_handler(dispatch_source_t source, dispatch_block_t handler) {
  mac().source(source).handler = workOf(handler);
}

void dispatch_source_set_registration_handler(dispatch_source_t source, dispatch_block_t handler) {
  mac().source(source).registered = workOf(handler);
}

void dispatch_source_set_timer(dispatch_source_t source, dispatch_time_t start, uint64_t interval,
                               uint64_t) {
  if (interval != DISPATCH_TIME_FOREVER) {
    misused("the timer repeats");
  }
  mac().source(source).due =
      start == DISPATCH_TIME_FOREVER ? FakeMac::never : static_cast<int64_t>(start);
}

void dispatch_resume(dispatch_source_t source) {
  if (mac().source(source).isResumed) {
    misused("a source was resumed twice");
  }
  mac().resume(source);
}

void dispatch_source_cancel(dispatch_source_t source) {
  if (!mac().source(source).isResumed) {
    misused("a source that was never resumed cannot be released");
  }
  mac().removeSource(source);
}

void dispatch_release(dispatch_source_t source) { [source release]; }

// ---- IOKit

struct FakeNotificationPort {
  uint32_t handle;
  bool hasQueue;
};

static void closeHandle(uint32_t handle) {
  if (!mac().close(handle)) {
    misused("a handle was closed once too often");
  }
}

IONotificationPortRef IONotificationPortCreate(mach_port_t) {
  return new FakeNotificationPort{mac().open("notification port"), false};
}

void IONotificationPortDestroy(IONotificationPortRef port) {
  closeHandle(port->handle);
  delete port;
}

void IONotificationPortSetDispatchQueue(IONotificationPortRef port, dispatch_queue_t queue) {
  requireMainQueue(queue);
  port->hasQueue = true;
}

/// A callback that is only called where the port delivers.
static FakeMac::Callback delivered(IONotificationPortRef port, IOServiceInterestCallback callback,
                                   void* refcon) {
  return [=](uint32_t message, void* argument) {
    if (port->hasQueue) {
      callback(refcon, 0, message, argument);
    }
  };
}

CFMutableDictionaryRef IOServiceMatching(const char* name) {
  @autoreleasepool {
    NSString* key = [NSString stringWithUTF8String:name];
    return (CFMutableDictionaryRef)[[NSDictionary alloc] initWithObjectsAndKeys:key, @"class", nil];
  }
}

io_service_t IOServiceGetMatchingService(mach_port_t, CFDictionaryRef matching) {
  NSDictionary* wanted = (NSDictionary*)matching;
  const bool found = [[wanted objectForKey:@"class"] isEqual:@"IOPMrootDomain"];
  [wanted release];
  return found && mac().offersLidService ? mac().open("power domain") : IO_OBJECT_NULL;
}

kern_return_t IOServiceAddInterestNotification(IONotificationPortRef port, io_service_t,
                                               const char* interestType,
                                               IOServiceInterestCallback callback, void* refCon,
                                               io_object_t* notification) {
  if (!mac().offersLidNews || std::string(interestType) != kIOGeneralInterest) {
    return 1;
  }
  mac().lid = delivered(port, callback, refCon);
  *notification = mac().open("interest");
  return KERN_SUCCESS;
}

kern_return_t IOServiceClose(io_connect_t connect) {
  closeHandle(connect);
  return KERN_SUCCESS;
}

kern_return_t IOObjectRelease(io_object_t object) {
  closeHandle(object);
  return KERN_SUCCESS;
}

io_connect_t IORegisterForSystemPower(void* refcon, IONotificationPortRef* port,
                                      IOServiceInterestCallback callback, io_object_t* notifier) {
  if (!mac().offersSleepNews) {
    return IO_OBJECT_NULL;
  }
  *port = IONotificationPortCreate(MACH_PORT_NULL);
  *notifier = mac().open("power notifier");
  mac().sleep = delivered(*port, callback, refcon);
  return mac().open("power connection");
}

kern_return_t IODeregisterForSystemPower(io_object_t* notifier) {
  closeHandle(*notifier);
  *notifier = IO_OBJECT_NULL;
  return KERN_SUCCESS;
}

kern_return_t IOAllowPowerChange(io_connect_t, long notificationID) {
  mac().allowedChanges.push_back(notificationID);
  return KERN_SUCCESS;
}

CFRunLoopSourceRef IOPSCreateLimitedPowerNotification(IOPowerSourceCallbackType callback,
                                                      void* context) {
  if (!mac().offersPowerNews) {
    return nullptr;
  }
  FakeSystemObject* source = [FakeSystemObject named:"power source"];
  source->callback_ = callback;
  source->context_ = context;
  return (CFRunLoopSourceRef)source;
}

// ---- notifications

uint32_t notify_post(const char* name) {
  mac().notify(name);
  return NOTIFY_STATUS_OK;
}

uint32_t notify_register_file_descriptor(const char* name, int* notify_fd, int, int* out_token) {
  constexpr uint32_t failed = 1000000;
  if (!mac().offersNotifications) {
    return failed;
  }
  *out_token = static_cast<int>(mac().listen(name, *notify_fd));
  return NOTIFY_STATUS_OK;
}

uint32_t notify_cancel(int token) {
  closeHandle(static_cast<std::uint32_t>(token));
  return NOTIFY_STATUS_OK;
}

// ---- Network

static nw_path_monitor_update_handler_t updateHandler;

nw_path_monitor_t nw_path_monitor_create() {
  return mac().offersPathMonitor ? [FakeSystemObject named:"path monitor"] : nil;
}

void nw_path_monitor_set_queue(nw_path_monitor_t, dispatch_queue_t queue) {
  requireMainQueue(queue);
}

void nw_path_monitor_set_update_handler(nw_path_monitor_t,
                                        nw_path_monitor_update_handler_t handler) {
  updateHandler = Block_copy(handler);
}

void nw_path_monitor_start(nw_path_monitor_t) {
  mac().path = [] { updateHandler(nil); };
}

void nw_path_monitor_cancel(nw_path_monitor_t) {
  mac().path = nullptr;
  Block_release(updateHandler);
  updateHandler = nil;
}
