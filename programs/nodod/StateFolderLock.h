#pragma once

#include <NODOCore/base/Files.h>

#include <filesystem>

namespace nodo::nodod {

/// Keeps a second daemon away from the same state while it lives: the state has one writer. The
/// system frees it when the process ends, however it does.
class StateFolderLock {
 public:
  /// Makes the folder, readable for its owner only (the state names people's projects), unless it
  /// is there. Throws std::runtime_error when another process has it, std::system_error when there
  /// can be none.
  explicit StateFolderLock(const std::filesystem::path& folder);

 private:
  FileDescriptor file_;
};

}  // namespace nodo::nodod
