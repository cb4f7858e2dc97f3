#pragma once

#include <NODOCore/base/TextEnum.h>
#include <NODOCore/control/PowerDecision.h>
#include <NODOCore/control/Reports.h>

#include <array>
#include <optional>
#include <string>

namespace nodo {

class JSONReader;
class JSONValue;

/// Whether this computer is kept awake, as far as can be told. The texts are stable: programs know
/// a headline by them.
enum class HeadlineKind {
  keptAwake,        ///< the daemon holds the lock, and the machine agrees
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

  /// Whether all is as the person or the agents want it: kept awake, or nothing asks for it.
  bool isFine() const { return kind == HeadlineKind::keptAwake || kind == HeadlineKind::off; }

  bool operator==(const Headline&) const = default;
};

JSONValue encode(const Headline& headline);
void decode(const JSONReader& from, Headline& headline);

/// What the headline follows from.
struct HeadlineFacts {
  StatusReport report;                       ///< the daemon's, or the user's own
  std::optional<std::string> daemonFailure;  ///< why the daemon could not be asked
  std::optional<bool> lockIsOn;              ///< as the machine says; absent: it does not tell
  SafetyPolicy limits;                       ///< those that the report was decided by
};

/// What the facts come to. "Kept awake" is said only where the lock is owned and the machine does
/// not deny it. Pure, but for the time zone that times are told in.
Headline headline(const HeadlineFacts& facts);

/// What a timer has left, for people: whole minutes, rounded up, so that one of 20 minutes has 20
/// left when it has just been set: "20 min", "1 h 5 min", "2 h".
std::string timeLeftText(Seconds left);

}  // namespace nodo
