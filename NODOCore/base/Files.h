#pragma once

#include <chrono>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

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

/// Opens the file at `path` for reading and writing, with `flags` beside (O_CREAT makes it, for its
/// owner alone), and locks it (flock(2)) until the last copy of the descriptor is closed. Neither a
/// symbolic link in its place is followed nor a pipe waited for. None, with errno set, when that
/// fails: EWOULDBLOCK when for all of `patience` somebody else has had it locked.
FileDescriptor openLocked(const std::filesystem::path& path, int flags,
                          std::chrono::milliseconds patience = {});

/// Reads `descriptor` to its end, in blocking reads that an interrupting signal does not disturb.
/// `name` is for the error's text. Throws std::system_error.
std::string readToEnd(const FileDescriptor& descriptor, const std::string& name);

/// Throws the std::system_error of the current errno: `action` and `name` become its text.
[[noreturn]] void throwErrno(const std::string& action, const std::string& name);

/// The content of the file at `path`, or nothing when there is no file of that name.
///
/// Throws std::system_error, with the path in its text, when it cannot be read, is no regular file
/// or is larger than 64 MiB (no file that nodo reads whole comes near that).
std::optional<std::string> readFile(const std::filesystem::path& path);

/// Replaces the file at `path`, or makes it, so that a reader sees the old content or the new one
/// whole, also after a crash or a power cut: a temporary file in the same folder is written, synced
/// to disk, renamed over the old one, and the folder synced.
///
/// An existing file's mode and access-control list are kept, its owner and group when this process
/// is root, and its extended attributes, those aside that the system keeps to itself; a new one
/// gets the process's default mode. Where root may not give files away (a daemon without
/// capabilities) the owner and the group change, and the rights of groups and others are narrowed
/// so that nobody else gains any. A symbolic link at `path` is itself replaced: privileged programs
/// must not be led elsewhere by a planted link.
///
/// Throws std::system_error, with the path in its text. The old file is then as it was, or, where
/// only the folder cannot be synced, the new content in place, which the text says. No temporary
/// file is left; one that a killed process left is removed by the next call for the same path. The
/// limit of a file's size is such an error (EFBIG) in a process that survives SIGXFSZ. Two
/// processes may race: one of the two contents wins, whole.
///
/// With `mode` the file has exactly that mode from the instant it is there.
void replaceFile(const std::filesystem::path& path, std::string_view content,
                 std::optional<std::filesystem::perms> mode = std::nullopt);

/// Makes the names in `folder` survive a power cut. Throws std::system_error, with the path in its
/// text.
void syncFolder(const std::filesystem::path& folder);

/// Makes the folder at `path`, with those above it, unless it is there. Throws std::system_error,
/// with the path in its text.
void makeFolder(const std::filesystem::path& path);

/// A file's content; nothing stands for no file.
using FileContent = std::optional<std::string>;

/// Brings the file at `path`, which belongs to somebody else, from the content that it has to the
/// one that `edit` makes of it, and returns whether that changed anything.
///
/// Replaces as replaceFile does, but fails where root may not keep the owner, and follows symbolic
/// links: they stay, and the file to which the last one leads is replaced, or made. When `edit`
/// answers with nothing, what stands at `path` itself is removed. A file that somebody else changes
/// meanwhile is read, and `edit` asked, again; after ten times it fails with EAGAIN. What remains
/// is the instant between a last look at the file and its exchange.
///
/// Throws what replaceFile does, and what `edit` throws, with the same effect.
bool updateFileThroughLinks(const std::filesystem::path& path,
                            const std::function<FileContent(const FileContent&)>& edit);

}  // namespace nodo
