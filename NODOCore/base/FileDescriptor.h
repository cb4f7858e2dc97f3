#pragma once

#include <string>

namespace nodo {

/// Owns an open file descriptor and closes it. Move-only; -1 stands for none.
class FileDescriptor {
 public:
  FileDescriptor() = default;

  explicit FileDescriptor(int descriptor) : descriptor_(descriptor) {}

  FileDescriptor(FileDescriptor&& other) noexcept : descriptor_(other.release()) {}

  FileDescriptor& operator=(FileDescriptor&& other) noexcept;
  FileDescriptor(const FileDescriptor&) = delete;
  FileDescriptor& operator=(const FileDescriptor&) = delete;

  ~FileDescriptor() { reset(); }

  int get() const { return descriptor_; }

  explicit operator bool() const { return descriptor_ >= 0; }

  /// Gives the descriptor away, unclosed.
  int release();

  /// Closes it now.
  void reset();

 private:
  int descriptor_ = -1;
};

/// Reads `descriptor` to its end, in blocking reads that an interrupting signal does not disturb.
/// `name` is for the error's text. Throws std::system_error.
std::string readToEnd(const FileDescriptor& descriptor, const std::string& name);

/// Throws the std::system_error of the current errno: `action` and `name` become its text.
[[noreturn]] void throwErrno(const std::string& action, const std::string& name);

}  // namespace nodo
