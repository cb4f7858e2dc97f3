#pragma once

#include <NODOCore/base/Files.h>

#include <sys/types.h>

namespace nodo::nodoctl {

/// Sees to it that a child process ends when this one does, even when this one is killed: a command
/// that runs on would no longer keep the computer awake, and nobody would pass its exit status on.
///
/// Made before the child is forked, and kept for as long as the child runs. By the thread that
/// forks.
class EndWithParent {
 public:
  /// Throws std::system_error.
  EndWithParent();
  EndWithParent(const EndWithParent&) = delete;
  EndWithParent& operator=(const EndWithParent&) = delete;
  ~EndWithParent();

  /// In the new child, before it becomes the command. Calls nothing that is not safe there.
  void inChild() const noexcept;

  /// In this process, once there is the child.
  void inParent(pid_t child);

 private:
  pid_t parent_;
  FileDescriptor guarded_;  // where the system has no means of its own: the guard sees its end
  [[maybe_unused]] pid_t guard_ = -1;  // only where the kernel does not see to it
};

}  // namespace nodo::nodoctl
