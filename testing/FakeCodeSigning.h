#pragma once

#include <NODOCore/helper/NODOXPCClientAuthentication.h>

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>

namespace nodo::test {

/// A caller that gives the token it is told to give.
class FakePeer : public XPCPeer {
 public:
  std::optional<AuditToken> token;

  explicit FakePeer(std::optional<AuditToken> token = std::nullopt) : token(token) {}

  std::optional<AuditToken> auditToken() const override { return token; }
};

/// Code-signing services that know which process is signed how, with a knob for each call that can
/// fail, and a count of the objects that were not released. Not thread-safe.
class FakeCodeSigning : public CodeSigning {
 public:
  /// How a call answers: its status, and whether it gives an object.
  struct Behaviour {
    std::int32_t status = 0;
    bool givesObject = true;
  };

  /// The statuses of the validity check by the caller's token; a token that is not here belongs to
  /// no process.
  std::map<AuditToken, std::int32_t> validity;
  AuditToken ownToken{};  ///< of the process that asks
  Behaviour guestBehaviour;
  Behaviour requirementBehaviour;

  CodeSigningResult<GuestCode> guest(const AuditToken& token) const override;

  CodeSigningResult<GuestCode> self() const override { return guest(ownToken); }

  CodeSigningResult<CodeRequirement> requirement(const std::string& text) const override;
  std::int32_t checkValidity(const GuestCode& code,
                             const CodeRequirement& requirement) const override;

  int objectsMade() const { return made_; }

  /// Objects that were made and not yet released.
  int objectsAlive() const { return *alive_; }

  /// The text of the requirement that was checked last.
  const std::string& checkedRequirement() const { return checkedRequirement_; }

 private:
  template <class Object, class Value>
  CodeSigningResult<Object> answer(const Behaviour& behaviour, const Value& value) const;

  mutable int made_ = 0;
  std::shared_ptr<int> alive_ = std::make_shared<int>(0);
  mutable std::string checkedRequirement_;
};

}  // namespace nodo::test
