#pragma once

#include <NODOCore/base/Date.h>
#include <NODOCore/power/PowerOperationResult.h>

#include <cstdint>
#include <optional>
#include <string>

namespace nodo {

class JSONReader;
class JSONValue;

/// One power operation as it is kept in the state: when and why, without the tool's output.
struct PowerOperationAudit {
  PowerOperationAction action = PowerOperationAction::enableSleep;
  Date occurredAt;
  std::optional<std::string> reason;     ///< e.g. "enable:manual_timer"
  bool dryRun = false;                   ///< the operation was only simulated
  std::optional<std::int32_t> exitCode;  ///< absent when no command ran
  std::optional<std::string> command;    ///< the command line

  PowerOperationAudit() = default;
  PowerOperationAudit(const PowerOperationResult& operation, Date occurredAt,
                      std::optional<std::string> reason);
  PowerOperationAudit(PowerOperationAction action, Date occurredAt,
                      std::optional<std::string> reason, bool dryRun,
                      std::optional<std::int32_t> exitCode, std::optional<std::string> command);

  bool operator==(const PowerOperationAudit&) const = default;
};

JSONValue encode(const PowerOperationAudit& audit);
void decode(const JSONReader& from, PowerOperationAudit& audit);

}  // namespace nodo
