#pragma once

#include <NODOCore/sensing/ProcessListing.h>

#include <cstdint>
#include <random>
#include <vector>

namespace nodo::bench {

/// An endless process table as a developer's machine has it: browsers, editors, language servers,
/// databases, shells, services, some paths that are not ASCII, one agent in two hundred. A row is
/// about 150 bytes. The same seed gives the same rows.
class CommandLines {
 public:
  explicit CommandLines(std::uint32_t seed) : random_(seed) {}

  RunningProcess next();
  std::vector<RunningProcess> take(std::size_t count);

 private:
  std::size_t below(std::size_t limit) { return random_() % limit; }

  std::mt19937 random_;
  std::int32_t pid_ = 100;
};

}  // namespace nodo::bench
