#pragma once

#include <NODOCore/base/Files.h>

#include <filesystem>
#include <string>
#include <vector>

#include <sys/types.h>

namespace nodo::bench {

/// Starts `program` with `arguments` (the first one is what it calls itself) and, where given, its
/// standard input and output. Nothing else is inherited but the environment. Throws
/// std::system_error.
pid_t spawn(const std::string& program, const std::vector<std::string>& arguments,
            const FileDescriptor& standardInput, const FileDescriptor& standardOutput);

/// Processes that do nothing but stand in the process table, with the command lines of ordinary
/// ones.
///
/// They wait for the end of their input, which is a pipe from here: so they end with this object
/// and, should this process die, with it.
class IdleProcesses {
 public:
  IdleProcesses(const std::filesystem::path& folder, std::size_t count);
  IdleProcesses(const IdleProcesses&) = delete;
  IdleProcesses& operator=(const IdleProcesses&) = delete;
  ~IdleProcesses();

 private:
  FileDescriptor lifeline_;
  std::vector<pid_t> children_;
};

}  // namespace nodo::bench
