#include <platform/macos/SecurityCodeSigning.h>

#include <memory>

#import <Foundation/Foundation.h>
#import <Security/Security.h>
#import <platform/macos/FoundationText.h>

namespace nodo {
namespace {

/// An object of the framework in the shape of one of ours.
template <class Base, class Reference>
class Owned : public Base {
 public:
  explicit Owned(Reference reference) : reference_(reference) {}

  Owned(const Owned&) = delete;
  Owned& operator=(const Owned&) = delete;

  ~Owned() override { CFRelease(reference_); }

  Reference reference() const { return reference_; }

 private:
  Reference reference_;
};

using OwnedCode = Owned<GuestCode, SecCodeRef>;
using OwnedRequirement = Owned<CodeRequirement, SecRequirementRef>;

}  // namespace

CodeSigningResult<GuestCode> SecurityCodeSigning::guest(const AuditToken& token) const {
  @autoreleasepool {
    NSData* data = [NSData dataWithBytes:token.data() length:token.size()];
    NSDictionary* attributes =
        [NSDictionary dictionaryWithObject:data forKey:(NSString*)kSecGuestAttributeAudit];
    SecCodeRef code = nullptr;
    const OSStatus status = SecCodeCopyGuestWithAttributes(nullptr, (CFDictionaryRef)attributes,
                                                           kSecCSDefaultFlags, &code);
    return {.status = status, .object = code ? std::make_unique<OwnedCode>(code) : nullptr};
  }
}

CodeSigningResult<GuestCode> SecurityCodeSigning::self() const {
  SecCodeRef code = nullptr;
  const OSStatus status = SecCodeCopySelf(kSecCSDefaultFlags, &code);
  return {.status = status, .object = code ? std::make_unique<OwnedCode>(code) : nullptr};
}

CodeSigningResult<CodeRequirement> SecurityCodeSigning::requirement(const std::string& text) const {
  @autoreleasepool {
    SecRequirementRef requirement = nullptr;
    const OSStatus status = SecRequirementCreateWithString((CFStringRef)systemText(text),
                                                           kSecCSDefaultFlags, &requirement);
    return {.status = status,
            .object = requirement ? std::make_unique<OwnedRequirement>(requirement) : nullptr};
  }
}

std::int32_t SecurityCodeSigning::checkValidity(const GuestCode& code,
                                                const CodeRequirement& requirement) const {
  CFErrorRef error = nullptr;
  const OSStatus status = SecCodeCheckValidityWithErrors(
      static_cast<const OwnedCode&>(code).reference(), kSecCSDefaultFlags,
      static_cast<const OwnedRequirement&>(requirement).reference(), &error);
  if (error != nullptr) {
    CFRelease(error);
  }
  return status;
}

}  // namespace nodo
