#pragma once

#import <CoreFoundation/CoreFoundation.h>
#import <dispatch/dispatch.h>
#include <mach/message.h>

// Defined in FakeFrameworks.mm.

typedef int kern_return_t;
typedef unsigned int mach_port_t;
typedef unsigned int natural_t;
typedef unsigned int io_object_t;
typedef io_object_t io_connect_t;
typedef io_object_t io_service_t;
typedef struct FakeNotificationPort* IONotificationPortRef;
typedef void (*IOServiceInterestCallback)(void* refcon, io_service_t service, natural_t messageType,
                                          void* messageArgument);

#define IO_OBJECT_NULL 0
#define KERN_SUCCESS 0
#define kIOGeneralInterest "IOGeneralInterest"

extern "C" {
IONotificationPortRef IONotificationPortCreate(mach_port_t mainPort);
void IONotificationPortDestroy(IONotificationPortRef port);
void IONotificationPortSetDispatchQueue(IONotificationPortRef port, dispatch_queue_t queue);
CFMutableDictionaryRef IOServiceMatching(const char* name);
io_service_t IOServiceGetMatchingService(mach_port_t mainPort, CFDictionaryRef matching);
kern_return_t IOServiceAddInterestNotification(IONotificationPortRef port, io_service_t service,
                                               const char* interestType,
                                               IOServiceInterestCallback callback, void* refCon,
                                               io_object_t* notification);
kern_return_t IOServiceClose(io_connect_t connect);
kern_return_t IOObjectRelease(io_object_t object);
}
