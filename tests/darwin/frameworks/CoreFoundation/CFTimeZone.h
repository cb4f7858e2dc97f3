#pragma once

// What Abseil uses of the system's time zones; it is linked and never called.

#include <CoreFoundation/CoreFoundation.h>

typedef long CFIndex;
typedef unsigned char Boolean;
typedef unsigned int CFStringEncoding;
typedef const struct FakeCFTimeZone* CFTimeZoneRef;

enum : CFStringEncoding { kCFStringEncodingUTF8 = 0x08000100 };

extern "C" {
CFTimeZoneRef CFTimeZoneCopyDefault();
CFStringRef CFTimeZoneGetName(CFTimeZoneRef zone);
CFIndex CFStringGetLength(CFStringRef text);
CFIndex CFStringGetMaximumSizeForEncoding(CFIndex length, CFStringEncoding encoding);
Boolean CFStringGetCString(CFStringRef text, char* buffer, CFIndex size, CFStringEncoding encoding);
}
