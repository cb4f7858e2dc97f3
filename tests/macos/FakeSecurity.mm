// What stands behind the functions of the Security framework.

#include <tests/macos/FakeSecurity.h>

#include <algorithm>

#import <Foundation/Foundation.h>
#import <Security/Security.h>
#import <platform/macos/FoundationText.h>
#import <tests/macos/FakeSystemObject.h>

using nodo::test::FakeSecurity;
using nodo::test::misused;

namespace nodo::test {

FakeSecurity& FakeSecurity::instance() {
  static FakeSecurity security;
  return security;
}

}  // namespace nodo::test

namespace {

FakeSecurity& security() { return FakeSecurity::instance(); }

SecCodeRef lastCode;
SecRequirementRef lastRequirement;

void requireDefaults(SecCSFlags flags) {
  if (flags != kSecCSDefaultFlags) {
    misused("not the default flags");
  }
}

}  // namespace

const CFStringRef kSecGuestAttributeAudit = (CFStringRef) @"audit";

OSStatus SecCodeCopyGuestWithAttributes(SecCodeRef host, CFDictionaryRef attributes,
                                        SecCSFlags flags, SecCodeRef* guest) {
  requireDefaults(flags);
  NSDictionary* asked = (NSDictionary*)attributes;
  NSData* token = [asked objectForKey:@"audit"];
  if (host != nullptr || [asked count] != 1 || [token length] != sizeof(nodo::AuditToken)) {
    misused("not a question for one process by its audit token");
  }
  const auto* bytes = static_cast<const std::byte*>([token bytes]);
  std::copy(bytes, bytes + [token length], security().askedToken.emplace().begin());
  lastCode = security().givesGuest ? (SecCodeRef)[FakeSystemObject named:"code"] : nullptr;
  *guest = lastCode;
  return security().guestStatus;
}

OSStatus SecCodeCopySelf(SecCSFlags flags, SecCodeRef* self) {
  requireDefaults(flags);
  lastCode = security().givesGuest ? (SecCodeRef)[FakeSystemObject named:"code"] : nullptr;
  *self = lastCode;
  return security().guestStatus;
}

OSStatus SecRequirementCreateWithString(CFStringRef text, SecCSFlags flags,
                                        SecRequirementRef* requirement) {
  requireDefaults(flags);
  security().askedRequirement = nodo::textFrom((NSString*)text);
  lastRequirement = security().givesRequirement
                        ? (SecRequirementRef)[FakeSystemObject named:"requirement"]
                        : nullptr;
  *requirement = lastRequirement;
  return security().requirementStatus;
}

OSStatus SecCodeCheckValidityWithErrors(SecCodeRef code, SecCSFlags flags,
                                        SecRequirementRef requirement, CFErrorRef* errors) {
  requireDefaults(flags);
  security().checkedBoth = code == lastCode && requirement == lastRequirement;
  if (security().givesError) {
    *errors = (CFErrorRef)[FakeSystemObject named:"error"];
  }
  return security().validityStatus;
}
