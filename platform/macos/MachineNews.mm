#include <platform/macos/MachineNews.h>
#include <platform/macos/ProcessInfo.h>

#include <array>
#include <cstdio>
#include <utility>

#import <CoreFoundation/CoreFoundation.h>
#import <Foundation/Foundation.h>
#import <IOKit/IOKitLib.h>
#import <IOKit/IOMessage.h>
#import <IOKit/ps/IOPowerSources.h>
#import <IOKit/pwr_mgt/IOPM.h>
#import <IOKit/pwr_mgt/IOPMLib.h>
#import <Network/Network.h>
#import <dispatch/dispatch.h>

namespace nodo {
namespace {

using Changed = std::function<void(News news)>;

void reportMissing(const char* what) {
  std::fprintf(stderr, "nodod: no news of %s: the system does not offer them\n", what);
}

}  // namespace

class MachineNews::Power {
 public:
  explicit Power(const Changed& changed) : changed_(changed) {
    // At a change of the source only: the general one comes at each percent, and while the lock is
    // held the charge is looked at every minute anyway.
    source_ = IOPSCreateLimitedPowerNotification(
        [](void* self) { static_cast<Power*>(self)->changed_(News::powerSupply); }, this);
    if (source_ == nullptr) {
      reportMissing("the power supply");
      return;
    }
    CFRunLoopAddSource(CFRunLoopGetMain(), source_, kCFRunLoopDefaultMode);
  }

  Power(const Power&) = delete;
  Power& operator=(const Power&) = delete;

  ~Power() {
    if (source_ != nullptr) {
      CFRunLoopRemoveSource(CFRunLoopGetMain(), source_, kCFRunLoopDefaultMode);
      CFRelease(source_);
    }
  }

 private:
  const Changed& changed_;
  CFRunLoopSourceRef source_ = nullptr;
};

// Heat and low power mode, told of as news of the power: whatever they are, the whole machine is
// looked at.
class MachineNews::Strain {
 public:
  explicit Strain(const Changed& changed) : told_(std::make_shared<const Changed*>(&changed)) {
    readMachineStrain();  // the system tells of its heat only whoever has asked for it before
    observers_ = {observe(NSProcessInfoThermalStateDidChangeNotification),
                  observe(NSProcessInfoPowerStateDidChangeNotification)};
  }

  Strain(const Strain&) = delete;
  Strain& operator=(const Strain&) = delete;

  ~Strain() {
    for (id observer : observers_) {
      [[NSNotificationCenter defaultCenter] removeObserver:observer];
      [observer release];
    }
  }

 private:
  // They come on a thread of the system's, and may reach the main one when nobody listens any more.
  id observe(NSString* name) {
    const std::weak_ptr<const Changed*> told = told_;
    @autoreleasepool {
      return [[[NSNotificationCenter defaultCenter]
          addObserverForName:name
                      object:nil
                       queue:nil
                  usingBlock:^(NSNotification*) {
                    dispatch_async(dispatch_get_main_queue(), ^{
                      if (const auto listener = told.lock()) {
                        (**listener)(News::powerSupply);
                      }
                    });
                  }] retain];
    }
  }

  std::shared_ptr<const Changed*> told_;
  std::array<id, 2> observers_;
};

class MachineNews::Lid {
 public:
  explicit Lid(const Changed& changed) : changed_(changed) {
    port_ = IONotificationPortCreate(MACH_PORT_NULL);
    service_ = IOServiceGetMatchingService(MACH_PORT_NULL, IOServiceMatching("IOPMrootDomain"));
    if (port_ == nullptr || service_ == IO_OBJECT_NULL ||
        IOServiceAddInterestNotification(port_, service_, kIOGeneralInterest, &Lid::received, this,
                                         &notification_) != KERN_SUCCESS) {
      reportMissing("the lid");
      return;
    }
    IONotificationPortSetDispatchQueue(port_, dispatch_get_main_queue());
  }

  Lid(const Lid&) = delete;
  Lid& operator=(const Lid&) = delete;

  ~Lid() {
    if (notification_ != IO_OBJECT_NULL) {
      IOObjectRelease(notification_);
    }
    if (service_ != IO_OBJECT_NULL) {
      IOObjectRelease(service_);
    }
    if (port_ != nullptr) {
      IONotificationPortDestroy(port_);
    }
  }

 private:
  static void received(void* self, io_service_t, natural_t messageType, void*) {
    if (messageType == kIOPMMessageClamshellStateChange) {
      static_cast<Lid*>(self)->changed_(News::lid);
    }
  }

  const Changed& changed_;
  IONotificationPortRef port_ = nullptr;
  io_service_t service_ = IO_OBJECT_NULL;
  io_object_t notification_ = IO_OBJECT_NULL;
};

class MachineNews::Sleep {
 public:
  explicit Sleep(const Changed& changed) : changed_(changed) {
    root_ = IORegisterForSystemPower(this, &port_, &Sleep::received, &notifier_);
    if (root_ == IO_OBJECT_NULL) {
      reportMissing("sleep and wake");
      return;
    }
    IONotificationPortSetDispatchQueue(port_, dispatch_get_main_queue());
  }

  Sleep(const Sleep&) = delete;
  Sleep& operator=(const Sleep&) = delete;

  ~Sleep() {
    if (root_ != IO_OBJECT_NULL) {
      IODeregisterForSystemPower(&notifier_);
      IOServiceClose(root_);
      IONotificationPortDestroy(port_);
    }
  }

 private:
  static void received(void* self, io_service_t, natural_t messageType, void* argument) {
    const auto& sleep = *static_cast<Sleep*>(self);
    switch (messageType) {
      case kIOMessageCanSystemSleep:
      case kIOMessageSystemWillSleep:
        // Without an answer the system waits half a minute for it.
        IOAllowPowerChange(sleep.root_, reinterpret_cast<intptr_t>(argument));
        break;
      case kIOMessageSystemHasPoweredOn:
        sleep.changed_(News::resume);
        break;
      default:
        break;
    }
  }

  const Changed& changed_;
  IONotificationPortRef port_ = nullptr;
  io_object_t notifier_ = IO_OBJECT_NULL;
  io_connect_t root_ = IO_OBJECT_NULL;
};

class MachineNews::Route {
 public:
  explicit Route(const Changed& changed) {
    monitor_ = nw_path_monitor_create();
    if (monitor_ == nil) {
      reportMissing("the network");
      return;
    }
    const Changed* told = &changed;
    nw_path_monitor_set_queue(monitor_, dispatch_get_main_queue());
    nw_path_monitor_set_update_handler(monitor_, ^(nw_path_t) {
      (*told)(News::route);
    });
    nw_path_monitor_start(monitor_);
  }

  Route(const Route&) = delete;
  Route& operator=(const Route&) = delete;

  ~Route() {
    if (monitor_ != nil) {
      nw_path_monitor_cancel(monitor_);
      [monitor_ release];
    }
  }

 private:
  nw_path_monitor_t monitor_ = nil;
};

MachineNews::MachineNews(std::function<void(News news)> changed)
    : changed_(std::move(changed)),
      power_(std::make_unique<Power>(changed_)),
      strain_(std::make_unique<Strain>(changed_)),
      lid_(std::make_unique<Lid>(changed_)),
      sleep_(std::make_unique<Sleep>(changed_)),
      route_(std::make_unique<Route>(changed_)) {}

MachineNews::~MachineNews() = default;

}  // namespace nodo
