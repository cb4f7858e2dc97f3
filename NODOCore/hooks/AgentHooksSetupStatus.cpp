#include <NODOCore/hooks/AgentHooksSetupStatus.h>

namespace nodo {
namespace {

using Status = AgentHooksSetupStatus;

struct DisplayName {
  std::string operator()(const Status::Installing& status) const {
    return std::string(busyStatusTitle(status.action));
  }

  std::string operator()(const Status::Ready& status) const { return status.message; }

  std::string operator()(const Status::Outdated& status) const { return status.message; }

  std::string operator()(const Status::Partial& status) const {
    return std::to_string(status.installed) + "/" + std::to_string(status.total) +
           " hook targets installed";
  }

  std::string operator()(const Status::Failed& status) const { return status.message; }

  std::string operator()(const Status::Checking&) const { return "Checking hooks"; }
};

}  // namespace

std::string AgentHooksSetupStatus::displayName() const {
  return std::visit(DisplayName(), value);
}

}  // namespace nodo
