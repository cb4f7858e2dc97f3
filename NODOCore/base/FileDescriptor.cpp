#include <NODOCore/base/FileDescriptor.h>

#include <array>
#include <cerrno>
#include <system_error>
#include <utility>

#include <unistd.h>

namespace nodo {

FileDescriptor& FileDescriptor::operator=(FileDescriptor&& other) noexcept {
  if (this != &other) {
    reset();
    descriptor_ = other.release();
  }
  return *this;
}

int FileDescriptor::release() {
  return std::exchange(descriptor_, -1);
}

void FileDescriptor::reset() {
  if (descriptor_ >= 0) {
    // Not repeated on EINTR: the descriptor's state is unspecified then, and on Linux it is closed.
    ::close(release());
  }
}

std::string readToEnd(const FileDescriptor& descriptor, const std::string& name) {
  std::string content;
  std::array<char, 16384> buffer{};
  for (;;) {
    const ssize_t count = ::read(descriptor.get(), buffer.data(), buffer.size());
    if (count > 0) {
      content.append(buffer.data(), static_cast<std::size_t>(count));
    } else if (count == 0) {
      return content;
    } else if (errno != EINTR) {
      throwErrno("Unable to read", name);
    }
  }
}

void throwErrno(const std::string& action, const std::string& name) {
  throw std::system_error(errno, std::generic_category(), action + " " + name);
}

}  // namespace nodo
