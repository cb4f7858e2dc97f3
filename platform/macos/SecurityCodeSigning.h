#pragma once

#include <NODOCore/helper/NODOXPCClientAuthentication.h>

#include <cstdint>
#include <string>

namespace nodo {

/// The code-signing services of the Security framework.
class SecurityCodeSigning : public CodeSigning {
 public:
  CodeSigningResult<GuestCode> guest(const AuditToken& token) const override;
  CodeSigningResult<GuestCode> self() const override;
  CodeSigningResult<CodeRequirement> requirement(const std::string& text) const override;
  std::int32_t checkValidity(const GuestCode& code,
                             const CodeRequirement& requirement) const override;
};

}  // namespace nodo
