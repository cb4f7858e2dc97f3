#pragma once

#include <NODOCore/base/Date.h>

#include <cstddef>
#include <optional>
#include <string>

namespace nodo {

class JSONReader;
class JSONValue;

/// Who asked to keep the machine awake, and when.
///
/// The texts come from outside (an agent's hook, a command line), so they are normalised: line
/// feeds, carriage returns and tabs become blanks, white space around is trimmed, invalid UTF-8
/// becomes U+FFFD, and what is longer than 120 characters is cut to 117 and "...".
struct ActivationRequester {
  std::string name = "Unknown";  ///< never empty
  std::optional<std::string>
      context;  ///< usually the project's folder and a short session identifier
  std::optional<std::string> event;  ///< the agent's name for the hook event
  Date requestedAt;

  ActivationRequester() = default;

  /// Normalises the texts: an empty name becomes "Unknown", an empty context or event absent.
  ActivationRequester(const std::string& name, const std::optional<std::string>& context,
                      const std::optional<std::string>& event, Date requestedAt);

  /// A normalised copy for another time.
  ActivationRequester requested(Date at) const;

  /// "name" or "name - context".
  std::string displayText() const;

  /// `displayText` in at most `maxLength` characters, with "..." at its end where it was cut (below
  /// four characters there is no room for that).
  std::string shortDisplayText(std::size_t maxLength) const;

  bool operator==(const ActivationRequester&) const = default;
};

JSONValue encode(const ActivationRequester& requester);
void decode(const JSONReader& from, ActivationRequester& requester);

}  // namespace nodo
