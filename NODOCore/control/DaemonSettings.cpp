#include <NODOCore/base/Errors.h>
#include <NODOCore/base/Files.h>
#include <NODOCore/base/JSONCoding.h>
#include <NODOCore/base/Text.h>
#include <NODOCore/control/DaemonSettings.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <exception>
#include <optional>

#include <fmt/format.h>
#include <toml++/toml.h>

namespace nodo {
namespace {

using Place = Setting::Place;

// Some thirty years in seconds: more is a slip, and leaves the range in which instants are exact.
constexpr std::int64_t longest = 1'000'000'000;

constexpr std::array table{
    Setting{"minimum-battery", "PERCENT", "On battery, never keep awake at or below this charge",
            [](DaemonSettings& of) -> Place { return &of.policy.minimumBatteryPercent; }, 0, 100},
    Setting{"max-minutes", "N", "The longest timer that one request may set, in minutes",
            [](DaemonSettings& of) -> Place { return &of.policy.maxManualDurationMinutes; }, 1,
            longest},
    Setting{"no-route-grace", "S",
            "How long the network may be missing before sleep is allowed again, in seconds",
            [](DaemonSettings& of) -> Place { return &of.policy.noRouteGraceSeconds; }, 0, longest},
    Setting{"lid-open-grace", "S",
            "For how long reports mention a lid that was just opened (changes nothing else), in "
            "seconds",
            [](DaemonSettings& of) -> Place { return &of.policy.lidOpenGraceSeconds; }, 0, longest},
    Setting{"release-grace", "S", "How long after a timer's end the lock is released, in seconds",
            [](DaemonSettings& of) -> Place { return &of.releaseGrace; }, 0, longest},
    Setting{"thermal-pressure", "true|false", "Allow sleep when the computer is too hot",
            [](DaemonSettings& of) -> Place { return &of.policy.stopAtThermalPressure; }, 0, 0},
    Setting{"low-power-mode", "true|false",
            "Allow sleep on battery while the system's low power mode is on",
            [](DaemonSettings& of) -> Place { return &of.policy.stopInLowPowerMode; }, 0, 0},
    Setting{"lock-on-lid-close", "true|false",
            "Lock the screens when the lid is closed while the computer is kept awake",
            [](DaemonSettings& of) -> Place { return &of.lockOnLidClose; }, 0, 0},
    Setting{"keep-display-on", "true|false", "Keep the display on as well",
            [](DaemonSettings& of) -> Place { return &of.keepDisplayOn; }, 0, 0},
    Setting{"long-tools", "true|false",
            "Keep awake beyond the timer's end while an agent's tool still works",
            [](DaemonSettings& of) -> Place { return &of.longTools; }, 0, 0},
};

std::optional<SettingValue> valueOf(const toml::node& node) {
  if (const auto* yes = node.as_boolean()) {
    return yes->get();
  }
  if (const auto* whole = node.as_integer()) {
    return whole->get();
  }
  if (const auto* number = node.as_floating_point()) {
    return number->get();
  }
  return std::nullopt;
}

}  // namespace

bool Setting::isSwitch() const {
  DaemonSettings any;
  return std::holds_alternative<bool*>(place(any));
}

std::string Setting::expected() const {
  DaemonSettings any;
  const Place where = place(any);
  if (std::holds_alternative<bool*>(where)) {
    return "true or false";
  }
  return fmt::format(
      "{} from {} to {}",
      std::holds_alternative<Seconds*>(where) ? "a number of seconds" : "a whole number", least,
      most);
}

bool Setting::set(DaemonSettings& settings, const SettingValue& value) const {
  const Place where = place(settings);
  if (bool* const* const yes = std::get_if<bool*>(&where)) {
    const bool* const given = std::get_if<bool>(&value);
    **yes = given != nullptr ? *given : **yes;
    return given != nullptr;
  }
  const auto* const whole = std::get_if<std::int64_t>(&value);
  if (std::int64_t* const* const number = std::get_if<std::int64_t*>(&where)) {
    const bool fits = whole != nullptr && *whole >= least && *whole <= most;
    **number = fits ? *whole : **number;
    return fits;
  }
  const auto* const fraction = std::get_if<double>(&value);
  if (whole == nullptr && fraction == nullptr) {
    return false;
  }
  const double seconds = whole != nullptr ? static_cast<double>(*whole) : *fraction;
  // Not a number compares as neither.
  const bool fits = seconds >= static_cast<double>(least) && seconds <= static_cast<double>(most);
  if (fits) {
    *std::get<Seconds*>(where) = Seconds(seconds);
  }
  return fits;
}

std::string Setting::line(const DaemonSettings& settings) const {
  DaemonSettings copy = settings;
  const std::string value = std::visit(
      [](const auto* where) -> std::string {
        if constexpr (std::is_same_v<decltype(where), const Seconds*>) {
          return fmt::format("{}", where->count());
        } else {
          return fmt::format("{}", *where);
        }
      },
      place(copy));
  return std::string(name) + " = " + value;
}

std::span<const Setting> allSettings() {
  return table;
}

std::vector<std::string> applySettings(std::string_view toml, DaemonSettings& into) {
  std::vector<std::string> problems;
  const toml::parse_result parsed = toml::parse(toml);
  if (!parsed) {
    const toml::parse_error& error = parsed.error();
    return {fmt::format("line {}: {}; nothing in this file is heeded", error.source().begin.line,
                        escapedForDisplay(error.description()))};
  }
  for (const auto& [key, node] : parsed.table()) {
    const std::string_view name = key.str();
    const auto setting = std::find_if(table.begin(), table.end(),
                                      [name](const Setting& each) { return each.name == name; });
    const auto line = key.source().begin.line;
    if (setting == table.end()) {
      problems.push_back(
          fmt::format("line {}: there is no setting \"{}\"", line, escapedForDisplay(name)));
      continue;
    }
    const auto value = valueOf(node);
    if (!value || !setting->set(into, *value)) {
      problems.push_back(fmt::format("line {}: {} must be {}", line, name, setting->expected()));
    }
  }
  return problems;
}

EffectiveSettings readSettings(const std::filesystem::path& path, bool mustExist) {
  EffectiveSettings effective{.settings = {}, .file = path.string()};
  try {
    if (const auto text = readFile(path)) {
      for (const std::string& problem : applySettings(*text, effective.settings)) {
        effective.problems.push_back(effective.file + ", " + problem);
      }
    } else if (mustExist) {
      effective.problems = {effective.file + ": there is no such file"};
    }
  } catch (const std::exception& error) {
    effective.problems = {error.what()};
  }
  return effective;
}

SettingsReport::SettingsReport(const EffectiveSettings& effective)
    : policy(effective.settings.policy), file(effective.file), problems(effective.problems) {
  for (const Setting& setting : table) {
    lines.push_back(setting.line(effective.settings));
  }
}

NODO_JSON_RECORD(SettingsReport, fields, report) {
  fields.required("policy", report.policy);
  fields.defaulted("settings", report.lines);
  fields.defaulted("file", report.file);
  fields.defaulted("problems", report.problems);
}

}  // namespace nodo
