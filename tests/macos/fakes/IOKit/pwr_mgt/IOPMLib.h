#pragma once

#import <IOKit/IOKitLib.h>

extern "C" {
io_connect_t IORegisterForSystemPower(void* refcon, IONotificationPortRef* port,
                                      IOServiceInterestCallback callback, io_object_t* notifier);
kern_return_t IODeregisterForSystemPower(io_object_t* notifier);
kern_return_t IOAllowPowerChange(io_connect_t rootPort, long notificationID);
}
