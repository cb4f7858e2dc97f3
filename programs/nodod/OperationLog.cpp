#include <NODOCore/base/Text.h>
#include <programs/nodod/OperationLog.h>

#include <algorithm>
#include <string_view>
#include <utility>

#include <fmt/format.h>

namespace nodo::nodod {
namespace {

std::string_view done(PowerOperationAction action) {
  switch (action) {
    case PowerOperationAction::disableSleep:
      return "sleep lock switched on";
    case PowerOperationAction::enableSleep:
      return "sleep lock switched off";
    case PowerOperationAction::sleepNow:
      break;
  }
  return "asked for sleep";
}

std::string_view attempted(PowerOperationAction action) {
  switch (action) {
    case PowerOperationAction::disableSleep:
      return "switching the sleep lock on";
    case PowerOperationAction::enableSleep:
      return "switching the sleep lock off";
    case PowerOperationAction::sleepNow:
      break;
  }
  return "asking for sleep";
}

std::string trouble(const PowerOperationResult& operation) {
  if (operation.dryRun) {
    return fmt::format("{} is only simulated", attempted(operation.action));
  }
  const std::string exit =
      operation.exitCode ? fmt::format("exit {}", *operation.exitCode) : "no exit status";
  const std::string_view said = trimmed(operation.standardError);
  return fmt::format("{} failed ({}){}{}", attempted(operation.action), exit,
                     said.empty() ? "" : ": ", said);
}

std::string requesterOf(const NODOState& state) {
  return state.lastRequester ? ", " + state.lastRequester->displayText() : "";
}

}  // namespace

OperationLog::OperationLog(Log log) : log_(std::move(log)) {}

void OperationLog::add(const std::vector<PowerOperationResult>& operations, Date at,
                       const NODOState& state, const std::string& otherwise) {
  // The newest audits are of these operations, in order, but a repair's first release has none.
  // Their times may have been cut to whole seconds.
  const auto& audits = state.powerOperationHistory;
  std::vector<std::string> reasons(operations.size(), otherwise);
  auto audit = audits.rbegin();
  for (std::size_t index = operations.size(); index-- > 0 && audit != audits.rend();) {
    if (audit->action != operations[index].action || audit->occurredAt + Seconds(1) <= at) {
      break;
    }
    reasons[index] = audit->reason.value_or("");
    ++audit;
  }
  for (std::size_t index = 0; index < operations.size(); ++index) {
    const bool isTaken = operations[index].action == PowerOperationAction::disableSleep;
    add(operations[index], reasons[index] + (isTaken ? requesterOf(state) : ""));
  }
}

void OperationLog::add(const PowerOperationResult& operation, const std::string& why) {
  if (operation.succeeded()) {
    lastTrouble_.clear();
    log_(fmt::format("{}{}{}{}", done(operation.action), why.empty() ? "" : " (", why,
                     why.empty() ? "" : ")"));
    return;
  }
  addTrouble(trouble(operation));
}

void OperationLog::addTrouble(const std::string& line) {
  if (line != lastTrouble_) {
    log_(line);
    lastTrouble_ = line;
  }
}

}  // namespace nodo::nodod
