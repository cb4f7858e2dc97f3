#pragma once

#include <NODOCore/base/Date.h>
#include <NODOCore/control/PowerDecision.h>

#include <cstdint>
#include <filesystem>
#include <span>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace nodo {

/// The limits that the programs keep to unless told otherwise: a fifth of the battery as a reserve,
/// half a day at most for one request (an agent left alone overnight), a minute to sit down again
/// after opening the lid, five minutes for a network to come back. Heat ends it, while low power
/// mode is a person's wish to save and no danger.
inline constexpr SafetyPolicy defaultPolicy{.minimumBatteryPercent = 20,
                                            .maxManualDurationMinutes = 720,
                                            .lidOpenGraceSeconds = 60,
                                            .noRouteGraceSeconds = 300,
                                            .stopAtThermalPressure = true,
                                            .stopInLowPowerMode = false};

/// What an administrator decides of the daemon, and what holds where nobody did.
struct DaemonSettings {
  SafetyPolicy policy = defaultPolicy;
  Seconds releaseGrace{1};  ///< how long after the end of a timer the release is due
  /// Whether the sessions are locked when the lid is closed under a held lock.
  bool lockOnLidClose = true;
  /// Whether the lock keeps the display on, too.
  bool keepDisplayOn = false;
  /// Whether an agent's tool that works beyond the timer's end extends it.
  bool longTools = true;

  bool operator==(const DaemonSettings&) const = default;
};

/// What a setting is set to: yes or no, a whole number, or seconds with a fraction.
using SettingValue = std::variant<bool, std::int64_t, double>;

/// One thing that there is to set.
struct Setting {
  using Place = std::variant<bool*, std::int64_t*, Seconds*>;

  std::string_view name;  ///< in the settings file, and as an option behind "--"
  std::string_view unit;  ///< of a number, as help names it: "PERCENT"
  std::string_view description;
  Place (*place)(DaemonSettings& settings);
  std::int64_t least;  ///< of a number
  std::int64_t most;

  bool isSwitch() const;

  /// What it takes, e.g. "a whole number from 0 to 100".
  std::string expected() const;

  /// Whether it takes `value`, which is then set in `settings`.
  bool set(DaemonSettings& settings, const SettingValue& value) const;

  /// As a line of the settings file says it: "minimum-battery = 20".
  std::string line(const DaemonSettings& settings) const;
};

/// All of them, in the order in which people read them.
std::span<const Setting> allSettings();

/// Sets in `settings` what `toml` says, the text of a settings file. Returns what it could not
/// heed, each with its line ("line 3: there is no setting \"x\""): a name that nobody knows, or a
/// value that the setting does not take, changes nothing and spoils nothing else; a text that is no
/// TOML says nothing at all. Pure.
std::vector<std::string> applySettings(std::string_view toml, DaemonSettings& settings);

/// The settings that a daemon goes by, and where they are from.
struct EffectiveSettings {
  DaemonSettings settings;
  std::string file = {};                   ///< that was read, or would be if it were there
  std::vector<std::string> problems = {};  ///< what in it could not be heeded, with its name

  bool operator==(const EffectiveSettings&) const = default;
};

/// What the file at `path` makes of the defaults. One that is not there is no problem, unless it
/// `mustExist`; one that cannot be read is. Never throws for what a file holds.
EffectiveSettings readSettings(const std::filesystem::path& path, bool mustExist);

/// Such settings as everybody may know them.
struct SettingsReport {
  SafetyPolicy policy;
  std::vector<std::string> lines = {};  ///< one for each setting, as in the settings file
  std::string file = {};
  std::vector<std::string> problems = {};

  SettingsReport() = default;
  explicit SettingsReport(const EffectiveSettings& effective);

  bool operator==(const SettingsReport&) const = default;
};

void encode(JSONWriter& to, const SettingsReport& report);
void decode(const JSONReader& from, SettingsReport& report);

}  // namespace nodo
