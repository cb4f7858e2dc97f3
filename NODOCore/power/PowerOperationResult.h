#pragma once

#include <NODOCore/base/TextEnum.h>

#include <array>
#include <cstdint>
#include <optional>
#include <string>

namespace nodo {

class JSONReader;
class JSONValue;

/// What a power operation does.
enum class PowerOperationAction { disableSleep, enableSleep, sleepNow };

template <>
struct EnumTexts<PowerOperationAction> {
  static constexpr std::array cases{EnumText{PowerOperationAction::disableSleep, "disable_sleep"},
                                    EnumText{PowerOperationAction::enableSleep, "enable_sleep"},
                                    EnumText{PowerOperationAction::sleepNow, "sleep_now"}};
};

/// The action that switching the sleep lock to `disabled` is.
PowerOperationAction powerOperationAction(bool disabled);

/// What one power operation did, as recorded and reported.
struct PowerOperationResult {
  PowerOperationAction action = PowerOperationAction::enableSleep;
  bool requestedSleepDisabled = false;         ///< false for `sleepNow`
  bool dryRun = false;                         ///< nothing was executed
  std::optional<std::string> executedCommand;  ///< the command line; in a dry run, what it would be
  std::optional<std::int32_t> exitCode;        ///< absent when nothing ran
  std::string standardOutput;                  ///< JSON key "stdout"
  std::string standardError;                   ///< JSON key "stderr"

  PowerOperationResult() = default;

  /// Without `action` it follows from `requestedSleepDisabled`.
  PowerOperationResult(bool requestedSleepDisabled, bool dryRun,
                       std::optional<std::string> executedCommand,
                       std::optional<std::int32_t> exitCode, std::string standardOutput,
                       std::string standardError,
                       std::optional<PowerOperationAction> action = std::nullopt);

  /// Whether the operation was really carried out and succeeded: no dry run, exit code 0.
  bool succeeded() const;

  bool operator==(const PowerOperationResult&) const = default;
};

JSONValue encode(const PowerOperationResult& result);

/// Lenient with records from before there was an action: it follows from "requestedSleepDisabled",
/// and outputs that are missing are empty.
void decode(const JSONReader& from, PowerOperationResult& result);

}  // namespace nodo
