#pragma once

#import <CoreFoundation/CoreFoundation.h>

typedef void (*IOPowerSourceCallbackType)(void* context);

extern "C" CFRunLoopSourceRef IOPSCreateLimitedPowerNotification(IOPowerSourceCallbackType callback,
                                                                 void* context);
