#include <NODOCore/helper/NODOHelperXPCProtocol.h>
#include <NODOCore/helper/NODOXPCClientAuthentication.h>

#include <string_view>

namespace nodo {
namespace {

using Authentication = NODOXPCClientAuthentication;
using Result = Authentication::ValidationResult;

constexpr std::int32_t codeIsUnsigned = -67062;  // errSecCSUnsigned

/// The line of each verdict.
struct LogMessage {
  using Text = std::optional<std::string>;

  Text operator()(const Result::RejectedRequirement& rejected) const {
    return "nodod: rejected XPC client (code signing status " + std::to_string(rejected.status) +
           "); requirement: " + Authentication::codeSigningRequirement();
  }

  Text operator()(const Result::RejectedAPIFailure& rejected) const {
    return "nodod: rejected XPC client (SecCode API status " + std::to_string(rejected.status) +
           ")";
  }

  Text operator()(const Result::Accepted&) const { return std::nullopt; }

  Text operator()(const Result::RejectedUnsigned&) const {
    return "nodod: rejected unsigned XPC client";
  }

  Text operator()(const Result::RejectedUnsupportedClient&) const {
    return "nodod: rejected XPC client (audit token unavailable)";
  }
};

Result judge(const CodeSigningResult<GuestCode>& guest, const CodeSigning& services) {
  if (guest.status == codeIsUnsigned) {
    return {Result::RejectedUnsigned{}};
  }
  if (guest.status != 0 || !guest.object) {
    return {Result::RejectedAPIFailure{guest.status}};
  }
  const auto requirement = services.requirement(Authentication::codeSigningRequirement());
  if (requirement.status != 0 || !requirement.object) {
    return {Result::RejectedAPIFailure{requirement.status}};
  }
  switch (const std::int32_t status = services.checkValidity(*guest.object, *requirement.object)) {
    case 0:
      return {Result::Accepted{}};
    case codeIsUnsigned:
      return {Result::RejectedUnsigned{}};
    default:
      return {Result::RejectedRequirement{status}};
  }
}

}  // namespace

Result Authentication::validate(const XPCPeer& peer, const CodeSigning& services) noexcept {
  const std::optional<AuditToken> token = peer.auditToken();
  return token ? judge(services.guest(*token), services)
               : Result{Result::RejectedUnsupportedClient{}};
}

Result Authentication::validateSelf(const CodeSigning& services) noexcept {
  return judge(services.self(), services);
}

std::string Authentication::codeSigningRequirement() {
  std::string text = "(anchor apple generic and certificate leaf[subject.OU] = \"";
  text += NODOServiceConstants::developmentTeamID;
  text += "\") and (";
  std::string_view separator;
  for (const std::string_view identifier :
       NODOServiceConstants::trustedXPCClientBundleIdentifiers()) {
    text += separator;
    text += "identifier \"";
    text += identifier;
    text += '"';
    separator = " or ";
  }
  text += ')';
  return text;
}

std::optional<std::string> Authentication::rejectionLogMessage(const Result& result) {
  return std::visit(LogMessage{}, result.value);
}

void Authentication::logRejection(const Result& result, std::FILE* stream) {
  const std::optional<std::string> message = rejectionLogMessage(result);
  if (message && stream != nullptr) {
    std::fputs((*message + '\n').c_str(), stream);
  }
}

void XPCRejectionLog::add(const Result& result, Clock::time_point now) {
  if (result.isAccepted() || stream_ == nullptr) {
    return;
  }
  const std::lock_guard guard(mutex_);
  Kind& kind = kinds_.at(result.value.index());
  if (kind.told && now - *kind.told < silence) {
    ++kind.untold;
    return;
  }
  if (kind.untold > 0) {
    std::fprintf(stream_, "nodod: rejected %ju more XPC clients for this reason:\n",
                 static_cast<std::uintmax_t>(kind.untold));
  }
  kind = {.told = now, .untold = 0};
  Authentication::logRejection(result, stream_);
}

}  // namespace nodo
