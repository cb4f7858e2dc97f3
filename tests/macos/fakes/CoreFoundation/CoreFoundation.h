#pragma once

// Objects are Objective-C objects, as on macOS. Defined in FakeFrameworks.mm.

typedef const void* CFTypeRef;
typedef const struct FakeCFString* CFStringRef;
typedef const struct FakeCFDictionary* CFDictionaryRef;
typedef struct FakeCFDictionary* CFMutableDictionaryRef;
typedef struct FakeCFError* CFErrorRef;
typedef struct FakeCFRunLoop* CFRunLoopRef;
typedef struct FakeCFRunLoopSource* CFRunLoopSourceRef;
typedef CFStringRef CFRunLoopMode;

extern "C" {
extern const CFRunLoopMode kCFRunLoopDefaultMode;

void CFRelease(CFTypeRef object);
CFRunLoopRef CFRunLoopGetMain();
void CFRunLoopRun();
void CFRunLoopStop(CFRunLoopRef loop);
void CFRunLoopAddSource(CFRunLoopRef loop, CFRunLoopSourceRef source, CFRunLoopMode mode);
void CFRunLoopRemoveSource(CFRunLoopRef loop, CFRunLoopSourceRef source, CFRunLoopMode mode);
}
