#include <testing/FakeCodeSigning.h>

#include <utility>

namespace nodo::test {
namespace {

constexpr std::int32_t noSuchProcess = 100003;  // ESRCH, as the services wrap errno

/// An object of the services that holds what it was made from.
template <class Object, class Value>
class Counted : public Object {
 public:
  Value value;

  Counted(Value value, std::shared_ptr<int> alive)
      : value(std::move(value)), alive_(std::move(alive)) {
    ++*alive_;
  }

  Counted(const Counted&) = delete;
  Counted& operator=(const Counted&) = delete;

  ~Counted() override { --*alive_; }

 private:
  std::shared_ptr<int> alive_;
};

}  // namespace

template <class Object, class Value>
CodeSigningResult<Object> FakeCodeSigning::answer(const Behaviour& behaviour,
                                                  const Value& value) const {
  CodeSigningResult<Object> result{.status = behaviour.status, .object = nullptr};
  if (behaviour.givesObject) {
    result.object = std::make_unique<Counted<Object, Value>>(value, alive_);
    ++made_;
  }
  return result;
}

CodeSigningResult<GuestCode> FakeCodeSigning::guest(const AuditToken& token) const {
  if (!validity.contains(token)) {
    return {.status = noSuchProcess, .object = nullptr};
  }
  return answer<GuestCode>(guestBehaviour, token);
}

CodeSigningResult<CodeRequirement> FakeCodeSigning::requirement(const std::string& text) const {
  return answer<CodeRequirement>(requirementBehaviour, text);
}

std::int32_t FakeCodeSigning::checkValidity(const GuestCode& code,
                                            const CodeRequirement& requirement) const {
  checkedRequirement_ =
      dynamic_cast<const Counted<CodeRequirement, std::string>&>(requirement).value;
  return validity.at(dynamic_cast<const Counted<GuestCode, AuditToken>&>(code).value);
}

}  // namespace nodo::test
