#pragma once

#include <optional>
#include <string>
#include <vector>

namespace nodo {

class JSONReader;
class JSONValue;

/// The verdict of one instant. Its words are those of ReasonWords.h.
struct PowerDecision {
  bool shouldPreventSleep = false;
  std::vector<std::string> reasons;       ///< why sleep is prevented; empty when it is not
  std::vector<std::string> safetyBlocks;  ///< safety rules that forbid it, in the order of testing
  std::optional<std::string> stopReason;  ///< why it is not prevented; absent when it is

  bool operator==(const PowerDecision&) const = default;
};

JSONValue encode(const PowerDecision& decision);
void decode(const JSONReader& from, PowerDecision& decision);

}  // namespace nodo
