#include <programs/nodod/StateFolderLock.h>

#include <cerrno>
#include <stdexcept>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

namespace nodo::nodod {
namespace {

void makePrivateFolder(const std::filesystem::path& folder) {
  std::error_code failure;
  std::filesystem::create_directories(folder.parent_path(), failure);
  if (::mkdir(folder.c_str(), 0700) != 0 && errno != EEXIST) {
    throwErrno("Unable to make the folder", folder.string());
  }
}

}  // namespace

StateFolderLock::StateFolderLock(const std::filesystem::path& folder) {
  makePrivateFolder(folder);
  const std::filesystem::path name = folder / "nodod.lock";
  file_ = FileDescriptor(::open(name.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600));
  if (!file_) {
    throwErrno("Unable to open", name.string());
  }
  if (::flock(file_.get(), LOCK_EX | LOCK_NB) == 0) {
    return;
  }
  if (errno == EWOULDBLOCK) {
    throw std::runtime_error("another nodod works on the state in " + folder.string());
  }
  throwErrno("Unable to lock", name.string());
}

}  // namespace nodo::nodod
