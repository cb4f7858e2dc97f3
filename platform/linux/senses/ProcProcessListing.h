#pragma once

#include <NODOCore/base/Date.h>
#include <NODOCore/sensing/ProcessListing.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace nodo {

/// What a listing needs of a process's "stat" in /proc.
struct ProcStat {
  std::string name;  ///< as the kernel keeps it, in valid UTF-8
  std::int32_t ppid = 0;
  bool isKernelThread = false;
  std::optional<std::int64_t> startedAtTick;  ///< of the clock since the machine's start
  std::int64_t processorTicks = 0;            ///< used, by its ended children, too
};

/// Reads a "stat", or nothing when it is none. Pure, as are the next two.
std::optional<ProcStat> parseProcStat(std::string_view text);

/// How long the process has run when the machine has been running for `running`. Nothing for a
/// process that is gone or another user's.
std::optional<Seconds> ageOfOwnProcess(std::int32_t pid, Seconds running,
                                       const std::filesystem::path& procFolder = "/proc");

/// A process's "cmdline" in /proc: its first word, and all of it joined with blanks. Both are valid
/// UTF-8, and both are empty for a process without one.
struct ProcCommandLine {
  std::string executable;
  std::string command;
};

ProcCommandLine parseProcCommandLine(std::string_view text);

/// The longest beginning of `text` that has at most `size` bytes and does not end within a code
/// point.
std::string_view firstBytes(std::string_view text, std::size_t size);

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

/// Reads the process table from /proc: several times cheaper than running `ps`.
///
/// `executable` is the first word of the command line (what the process was started as, or what it
/// calls itself), else the kernel's name for it; not the file it runs from, which agents name as
/// they like. `command` is the command line joined with blanks, else the executable. Invalid UTF-8
/// becomes U+FFFD. Long texts are cut to their beginnings, see BoundedRows. Kernel threads, which
/// run no program, are left out. Rows are ordered by pid. Stateless but for its folder.
class ProcProcessListing : public ProcessListing {
 public:
  explicit ProcProcessListing(std::filesystem::path procFolder = "/proc");

  /// A process that ends while it is read is left out. Throws NODOError::processListingFailed when
  /// the folder itself cannot be read.
  std::vector<RunningProcess> listProcesses() const override;

  std::map<std::int32_t, Seconds> processorTimes(
      const std::vector<std::int32_t>& pids) const override;

 private:
  std::filesystem::path procFolder_;
};

}  // namespace nodo
