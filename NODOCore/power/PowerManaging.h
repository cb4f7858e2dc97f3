#pragma once

#include <NODOCore/base/TextEnum.h>
#include <NODOCore/power/CommandRunning.h>

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace nodo {

class JSONReader;
class JSONWriter;

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

void encode(JSONWriter& to, const PowerOperationResult& result);

/// Lenient with records from before there was an action: it follows from "requestedSleepDisabled",
/// and outputs that are missing are empty.
void decode(const JSONReader& from, PowerOperationResult& result);

/// Changes the machine's sleep behaviour: the one place where that happens.
///
/// Exists so that the controller can be tested without touching a machine: production drives the
/// system's tool or service, tests a fake with failure knobs. Not thread-safe; serialising calls is
/// the caller's concern. Every call blocks until the tool or service has answered.
class PowerManaging {
 public:
  virtual ~PowerManaging() = default;

  /// Tells why the operation that follows is made, in the words of the state's audit. For managers
  /// that keep a log; the others do nothing with it.
  virtual void announce([[maybe_unused]] const std::string& reason) {}

  /// Switches the machine-wide sleep lock on or off. A refusal by the system is a result with a
  /// non-zero exit code. Throws when nothing could be tried (tool or service absent). Repeating a
  /// call is harmless.
  virtual PowerOperationResult setSleepDisabled(bool disabled) = 0;

  /// Asks the machine to sleep at once; same failures. The default does nothing and says so: a dry
  /// run without a command.
  virtual PowerOperationResult requestSleepNow();
};

/// Does nothing and reports dry runs without a command: for simulations and previews.
class NoopPowerManager : public PowerManaging {
 public:
  PowerOperationResult setSleepDisabled(bool disabled) override;
};

/// Drives `/usr/bin/pmset`, which needs root to change anything (it exits non-zero otherwise).
class PMSetPowerManager : public PowerManaging {
 public:
  std::shared_ptr<const CommandRunning> runner;
  bool dryRun;  ///< report the command lines without running them

  PMSetPowerManager(std::shared_ptr<const CommandRunning> runner, bool dryRun);

  /// Throws std::system_error when pmset cannot be started; so does `requestSleepNow`.
  PowerOperationResult setSleepDisabled(bool disabled) override;
  PowerOperationResult requestSleepNow() override;

 private:
  PowerOperationResult runPMSet(const std::vector<std::string>& arguments, bool disabled,
                                PowerOperationAction action) const;
};

}  // namespace nodo
