#include <NODOCore/base/JSONCoding.h>
#include <NODOCore/helper/NODOHelperXPCProtocol.h>

#include <utility>

namespace nodo {

const std::vector<std::string_view>& NODOServiceConstants::trustedXPCClientBundleIdentifiers() {
  static const std::vector<std::string_view> identifiers{appBundleIdentifier, ctlBundleIdentifier};
  return identifiers;
}

NODOHelperCommandResponse NODOHelperCommandResponse::success(StatusReport status) {
  return {.status = std::move(status)};
}

NODOHelperCommandResponse NODOHelperCommandResponse::success(DaemonRunReport run) {
  return {.run = std::move(run)};
}

NODOHelperCommandResponse NODOHelperCommandResponse::failure(const std::exception& error) {
  return {.error = error.what()};
}

NODO_JSON_RECORD(NODOHelperCommandResponse, fields, response) {
  fields.optional("status", response.status);
  fields.optional("run", response.run);
  fields.optional("error", response.error);
}

}  // namespace nodo
