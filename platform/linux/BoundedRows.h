#pragma once

#include <NODOCore/sensing/ProcessListing.h>

#include <cstddef>
#include <vector>

namespace nodo {

/// Gathers the rows of a process table, whose texts are together never larger than a bound: anybody
/// may start thousands of processes with arguments of any size, and what is gathered is sent on.
///
/// Beyond the bound the longest texts of all rows are cut first, so that a flood leaves ordinary
/// rows whole. A cut text is valid UTF-8 if it was before.
class BoundedRows {
 public:
  /// As JSON a byte becomes up to six ("\u0001"), hence half of the 24 MiB that an answer of the
  /// daemon may have. The other half is for what a row takes beside its texts: some 100 bytes, and
  /// a person can start some 100,000 processes. Usual tables have less than 0.2 MiB.
  static constexpr std::size_t mostBytes = std::size_t{2} * 1024 * 1024;

  /// Of one text. Agents are known by what stands at the beginning of a command: the paths of a
  /// runtime and of its program, neither longer than Linux's PATH_MAX of 4 KiB, and a few options.
  static constexpr std::size_t mostBytesOfAText = std::size_t{16} * 1024;

  void add(RunningProcess row);

  /// The rows in the order of their pids. To be called once, at the end.
  std::vector<RunningProcess> takeSorted();

 private:
  void cut(RunningProcess& row) const;
  void cutLongest();

  std::vector<RunningProcess> rows_;
  std::size_t bytes_ = 0;
  std::size_t longest_ = mostBytesOfAText;
};

}  // namespace nodo
