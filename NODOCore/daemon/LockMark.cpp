#include <NODOCore/base/System.h>
#include <NODOCore/daemon/LockMark.h>

#include <cerrno>
#include <string_view>
#include <utility>

#include <fcntl.h>
#include <unistd.h>

namespace nodo {
namespace {

constexpr std::string_view text =
    "nodo has switched this machine's sleep lock on, or has yet to put it to sleep.\n"
    "Its daemon undoes that when it starts, or: nodoctl repair\n";

}  // namespace

LockMark::LockMark(std::filesystem::path path)
    : path_(std::move(path)), file_(openLocked(path_, 0)) {}

void LockMark::set() {
  if (file_) {
    return;
  }
  FileDescriptor file = openLocked(path_, O_CREAT);
  if (!file) {
    throwErrno("Unable to mark the sleep lock as nodo's in", path_.string());
  }
  const bool isWritten =
      ::pwrite(file.get(), text.data(), text.size(), 0) == static_cast<ssize_t>(text.size()) &&
      syncToDisk(file.get()) == 0;
  if (!isWritten) {
    const int failure = errno;
    ::unlink(path_.c_str());
    errno = failure;
    throwErrno("Unable to write", path_.string());
  }
  syncFolder(path_.parent_path());
  file_ = std::move(file);
}

void LockMark::remove() {
  if (!file_) {
    return;
  }
  if (::unlink(path_.c_str()) != 0 && errno != ENOENT) {
    throwErrno("Unable to remove", path_.string());
  }
  file_.reset();
  syncFolder(path_.parent_path());
}

}  // namespace nodo
