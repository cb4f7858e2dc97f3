#pragma once

#include <platform/linux/BusConnection.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace nodo {

/// Who has a unique name on the bus, by the bus's word.
struct BusPeer {
  bool isThere = true;                ///< false: it has left
  std::optional<std::uint32_t> user;  ///< absent when it has left or the bus does not tell
};

/// Asks a bus who its peers are, and remembers it: a unique name is given out once.
///
/// Each question has a connection of its own. While the library waits for an answer it keeps in
/// memory whatever else comes on that connection, and on the one for requests anybody may send as
/// much as they like. Blocks for two seconds at most. Not thread-safe.
class CallerDirectory {
 public:
  /// The latest of them are remembered, as many as a bus usually lets one user connect: whoever
  /// floods it on all of these is asked about only once for each.
  static constexpr std::size_t mostRemembered = 256;

  explicit CallerDirectory(std::string busAddress);

  /// One that is remembered may have left since.
  BusPeer find(const std::string& name);

  /// Whether it is there now; true as well when the bus does not tell.
  bool isThere(const std::string& name) const;

 private:
  struct Known {
    std::string name;
    std::uint32_t user;
  };

  void remember(const std::string& name, std::uint32_t user);
  BusPeer ask(const std::string& name) const;

  std::string busAddress_;
  std::vector<Known> known_;  // a ring once it is full
  std::size_t oldest_ = 0;
};

}  // namespace nodo
