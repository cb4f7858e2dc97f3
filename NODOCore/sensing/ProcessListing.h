#pragma once

#include <NODOCore/base/Date.h>

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace nodo {

/// One row of the process table.
struct RunningProcess {
  std::int32_t pid = 0;
  std::optional<std::int32_t> ppid;
  std::string executable;  ///< as the table prints it: usually the path that was started
  std::string command;     ///< the full command line; equal to `executable` where there is none

  bool operator==(const RunningProcess&) const = default;
};

/// Supplies the process table.
///
/// Exists so that agents can be found in a fixed list. Implementations may be used from several
/// threads at once; a call blocks until the table is read.
class ProcessListing {
 public:
  virtual ~ProcessListing() = default;

  /// All processes, in the table's order. Throws NODOError::processListingFailed, or
  /// std::system_error when a tool cannot be started.
  virtual std::vector<RunningProcess> listProcesses() const = 0;

  /// How long each of these processes has used the processor so far, together with those of its
  /// children that have ended; without those that are gone or of which nothing is known. Does not
  /// throw.
  virtual std::map<std::int32_t, Seconds> processorTimes(
      const std::vector<std::int32_t>& /*pids*/) const {
    return {};
  }
};

/// A fixed process table, for tests and previews.
class StaticProcessListing : public ProcessListing {
 public:
  std::vector<RunningProcess> processes;

  explicit StaticProcessListing(std::vector<RunningProcess> processes)
      : processes(std::move(processes)) {}

  std::vector<RunningProcess> listProcesses() const override { return processes; }
};

/// Reads the process table with `/bin/ps -axo pid=,ppid=,comm=,command=`.
class PSProcessListing : public ProcessListing {
 public:
  std::optional<Seconds> limit;  ///< as ProcessCommandRunner's

  explicit PSProcessListing(std::optional<Seconds> limit = std::nullopt) : limit(limit) {}

  std::vector<RunningProcess> listProcesses() const override;

  /// The rows in what `ps` printed. Columns are separated by blanks (only blanks), the fourth runs
  /// to the end of its line; a row without three columns or with an identifier that is no 32-bit
  /// decimal integer is left out. A path with blanks in the third column spills over into the
  /// fourth.
  static std::vector<RunningProcess> parse(std::string_view output);

  /// By `ps -S -o pid=,time=`. Nothing is known where that fails.
  std::map<std::int32_t, Seconds> processorTimes(
      const std::vector<std::int32_t>& pids) const override;

  /// What that printed: "41 1-02:03:04" or "41 183:04.25". Rows that make no sense are left out.
  static std::map<std::int32_t, Seconds> parseTimes(std::string_view output);
};

}  // namespace nodo
