#pragma once

#include <NODOCore/helper/XPCPeer.h>

#include <cstdint>
#include <memory>
#include <string>

namespace nodo {

/// The code of a running process, as the system knows it. Released with its last owner.
class GuestCode {
 public:
  virtual ~GuestCode() = default;
};

/// What a signature may be asked to satisfy. Released with its last owner.
class CodeRequirement {
 public:
  virtual ~CodeRequirement() = default;
};

/// What a call of the code-signing services gave: 0 and an object when all went well. The system
/// does not rule out the other combinations.
template <class Object>
struct CodeSigningResult {
  std::int32_t status = 0;
  std::unique_ptr<Object> object;
};

/// The system's code-signing services, with their own status codes (0 is success).
///
/// Exists so that the decision on a caller can be tested without signed programs. Must not throw;
/// safe from several threads at once.
class CodeSigning {
 public:
  virtual ~CodeSigning() = default;

  /// The code of the process with that token.
  virtual CodeSigningResult<GuestCode> guest(const AuditToken& token) const = 0;

  /// A requirement from its text in the code-signing requirement language.
  virtual CodeSigningResult<CodeRequirement> requirement(const std::string& text) const = 0;

  /// 0 when the code's signature is valid and satisfies the requirement. Both are this service's
  /// own.
  virtual std::int32_t checkValidity(const GuestCode& code,
                                     const CodeRequirement& requirement) const = 0;
};

}  // namespace nodo
