#include <NODOCore/base/FileAttributes.h>
#include <NODOCore/base/FileDescriptor.h>

#include <cerrno>

#include <copyfile.h>
#include <fcntl.h>

namespace nodo {

int copyFileAttributes(const std::filesystem::path& from, int to) {
  const FileDescriptor file(::open(from.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
  if (!file) {
    return errno == EACCES ? 0 : -1;  // what this process may not read it cannot keep
  }
  if (::fcopyfile(file.get(), to, nullptr, COPYFILE_ACL) != 0 && errno != ENOTSUP) {
    return -1;
  }
  ::fcopyfile(file.get(), to, nullptr, COPYFILE_XATTR);  // as far as it goes
  return 0;
}

}  // namespace nodo
