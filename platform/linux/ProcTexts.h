#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace nodo {

/// What a listing needs of a process's "stat" in /proc.
struct ProcStat {
  std::string name;  ///< as the kernel keeps it, in valid UTF-8
  std::int32_t ppid = 0;
  bool isKernelThread = false;
};

/// Reads a "stat", or nothing when it is none. Pure, as everything here.
std::optional<ProcStat> parseProcStat(std::string_view text);

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

}  // namespace nodo
