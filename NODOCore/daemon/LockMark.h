#pragma once

#include <NODOCore/base/Files.h>

#include <filesystem>

namespace nodo {

/// A file by which a later process knows that the machine's sleep lock is nodo's, for locks that
/// outlive the process that switched them on.
///
/// It lies outside of the state's folder, since people remove that, and is there before the lock is
/// on. A process that lives keeps its mark locked, so that only one whose writer is dead counts as
/// left behind. Not thread-safe.
class LockMark {
 public:
  /// Takes over the mark at `path` if one was left behind there.
  explicit LockMark(std::filesystem::path path);

  /// Whether this process has the mark.
  bool isSet() const { return static_cast<bool>(file_); }

  /// Sets it, on the disk when this returns. Throws std::system_error, also when a process that
  /// lives has it (EWOULDBLOCK).
  void set();

  /// Removes it. Throws std::system_error; it counts as set then.
  void remove();

 private:
  std::filesystem::path path_;
  FileDescriptor file_;
};

}  // namespace nodo
