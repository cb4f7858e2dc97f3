#pragma once

#import <CoreFoundation/CoreFoundation.h>
#include <stdint.h>

typedef int32_t OSStatus;
typedef uint32_t SecCSFlags;
typedef struct FakeSecCode* SecCodeRef;
typedef struct FakeSecRequirement* SecRequirementRef;

enum : SecCSFlags { kSecCSDefaultFlags = 0 };

extern "C" {
extern const CFStringRef kSecGuestAttributeAudit;

OSStatus SecCodeCopyGuestWithAttributes(SecCodeRef host, CFDictionaryRef attributes,
                                        SecCSFlags flags, SecCodeRef* guest);
OSStatus SecCodeCopySelf(SecCSFlags flags, SecCodeRef* self);
OSStatus SecRequirementCreateWithString(CFStringRef text, SecCSFlags flags,
                                        SecRequirementRef* requirement);
OSStatus SecCodeCheckValidityWithErrors(SecCodeRef code, SecCSFlags flags,
                                        SecRequirementRef requirement, CFErrorRef* errors);
}
