#include <NODOCore/base/JSONCoding.h>
#include <NODOCore/helper/NODOHelperXPCProtocol.h>

#include <utility>

namespace nodo {

const std::vector<std::string_view>& NODOServiceConstants::trustedXPCClientBundleIdentifiers() {
  static const std::vector<std::string_view> identifiers{appBundleIdentifier, ctlBundleIdentifier};
  return identifiers;
}

bool isLook(const HelperRequest& request) {
  return std::holds_alternative<StatusRequest>(request);
}

std::string logName(const HelperRequest& request) {
  struct Name {
    std::string operator()(const StatusRequest&) const { return "status"; }

    std::string operator()(const EnableManualRequest&) const { return "manual"; }

    std::string operator()(const EnableManualV2Request& asked) const {
      // In the form in which the state records it.
      return asked.requesterName
                 ? "manual of " + ActivationRequester(*asked.requesterName, {}, {}, {}).name
                 : "manual";
    }

    std::string operator()(const StopRequest&) const { return "stop"; }

    std::string operator()(const ReconcileRequest&) const { return "reconcile"; }

    std::string operator()(const RepairRequest&) const { return "repair"; }
  };

  return std::visit(Name(), request);
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
