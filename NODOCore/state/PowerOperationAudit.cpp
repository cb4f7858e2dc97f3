#include <NODOCore/base/JSONCoding.h>
#include <NODOCore/state/PowerOperationAudit.h>

#include <utility>

namespace nodo {
namespace {

template <class Fields, class Audit>
void describe(Fields& fields, Audit& audit) {
  fields.required("action", audit.action);
  fields.required("occurredAt", audit.occurredAt);
  fields.optional("reason", audit.reason);
  fields.required("dryRun", audit.dryRun);
  fields.optional("exitCode", audit.exitCode);
  fields.optional("command", audit.command);
}

}  // namespace

PowerOperationAudit::PowerOperationAudit(const PowerOperationResult& operation, Date occurredAt,
                                         std::optional<std::string> reason)
    : PowerOperationAudit(operation.action, occurredAt, std::move(reason), operation.dryRun,
                          operation.exitCode, operation.executedCommand) {}

PowerOperationAudit::PowerOperationAudit(PowerOperationAction action, Date occurredAt,
                                         std::optional<std::string> reason, bool dryRun,
                                         std::optional<std::int32_t> exitCode,
                                         std::optional<std::string> command)
    : action(action),
      occurredAt(occurredAt),
      reason(std::move(reason)),
      dryRun(dryRun),
      exitCode(exitCode),
      command(std::move(command)) {}

JSONValue encode(const PowerOperationAudit& audit) {
  ObjectEncoder fields;
  describe(fields, audit);
  return fields.finish();
}

void decode(const JSONReader& from, PowerOperationAudit& audit) {
  ObjectDecoder fields(from);
  describe(fields, audit);
}

}  // namespace nodo
