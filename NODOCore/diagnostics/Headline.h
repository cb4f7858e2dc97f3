#pragma once

#include <NODOCore/base/TextEnum.h>
#include <NODOCore/control/PowerDecision.h>
#include <NODOCore/control/Reports.h>

#include <array>
#include <optional>
#include <string>
#include <vector>

namespace nodo {

class JSONReader;
class JSONWriter;

/// Whether this computer is kept awake, as far as can be told. The texts are stable: programs know
/// a headline by them.
enum class HeadlineKind {
  keptAwake,        ///< the daemon holds the lock, and the machine agrees
  unconfirmed,      ///< the daemon holds the lock, and the machine does not tell
  sleepAllowed,     ///< a timer runs, but a safety rule allows sleep
  lockMissing,      ///< sleep is to be prevented, and is not
  off,              ///< nothing asks for it, and the lock is off
  lockLeft,         ///< nothing asks for it, and the lock is on
  daemonMissing,    ///< the daemon cannot be asked, and its lock is off or unknown
  lockWithoutWord,  ///< the daemon cannot be asked, and its lock is on
};

template <>
struct EnumTexts<HeadlineKind> {
  static constexpr std::array cases{EnumText{HeadlineKind::keptAwake, "keptAwake"},
                                    EnumText{HeadlineKind::unconfirmed, "unconfirmed"},
                                    EnumText{HeadlineKind::sleepAllowed, "sleepAllowed"},
                                    EnumText{HeadlineKind::lockMissing, "lockMissing"},
                                    EnumText{HeadlineKind::off, "off"},
                                    EnumText{HeadlineKind::lockLeft, "lockLeft"},
                                    EnumText{HeadlineKind::daemonMissing, "daemonMissing"},
                                    EnumText{HeadlineKind::lockWithoutWord, "lockWithoutWord"}};
};

/// What a person is told first.
struct Headline {
  HeadlineKind kind = HeadlineKind::off;
  std::string text;  ///< one line without control characters

  bool operator==(const Headline&) const = default;
};

void encode(JSONWriter& to, const Headline& headline);
void decode(const JSONReader& from, Headline& headline);

/// What the headline follows from.
struct KeepAwakeFacts {
  StatusReport report;                       ///< the daemon's, or the user's own
  std::optional<std::string> daemonFailure;  ///< why the daemon could not be asked
  std::optional<bool> lockIsOn;              ///< as the machine says; absent: it does not tell
  std::optional<SafetyPolicy> limits;        ///< that the report was decided by; absent: unknown
  bool isNoAgentSetUp = false;               ///< no agent has hooks of nodo, as far as is known
};

/// The safety rules that allow sleep, each with its figures, in the order of the report: "battery
/// at 15 % (limit 20 %)".
std::vector<std::string> safetyTexts(const KeepAwakeFacts& facts);

/// One of them, by its word.
std::string safetyText(const std::string& block, const KeepAwakeFacts& facts);

/// How hot the machine is, with the figures that there are: "acpitz at 97 °C, limit 95 °C" or
/// "thermal state critical".
std::string heatText(const SystemSnapshot& machine);

/// What the facts come to. "Kept awake" is said only where the lock is owned and the machine
/// agrees. Pure, but for the time zone that times are told in.
Headline headline(const KeepAwakeFacts& facts);

/// What a timer has left, for people: whole minutes, rounded up, so that one of 20 minutes has 20
/// left when it has just been set: "20 min", "1 h 5 min", "2 h".
std::string timeLeftText(Seconds left);

}  // namespace nodo
