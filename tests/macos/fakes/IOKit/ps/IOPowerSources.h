#pragma once

#import <CoreFoundation/CoreFoundation.h>

typedef void (*IOPowerSourceCallbackType)(void* context);

extern "C" CFRunLoopSourceRef IOPSNotificationCreateRunLoopSource(
    IOPowerSourceCallbackType callback, void* context);
