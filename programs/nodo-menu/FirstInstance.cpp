#include <NODOCore/base/Errors.h>
#include <programs/nodo-menu/FirstInstance.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <stdexcept>
#include <string>
#include <thread>

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace nodo::menu {
namespace {

constexpr std::chrono::seconds patience(2);

// Throws where the path is longer than the system's addresses.
sockaddr_un addressOf(const std::filesystem::path& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.native().size() >= sizeof address.sun_path) {
    throw std::runtime_error("the path of a socket cannot be as long as " + path.string());
  }
  std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
  return address;
}

const sockaddr* generic(const sockaddr_un& address) {
  return reinterpret_cast<const sockaddr*>(&address);  // as the system's functions want it
}

FileDescriptor makeSocket() {
  FileDescriptor made(::socket(AF_UNIX, SOCK_STREAM, 0));
  if (!made || ::fcntl(made.get(), F_SETFD, FD_CLOEXEC) != 0 ||
      ::fcntl(made.get(), F_SETFL, O_NONBLOCK) != 0) {
    throwErrno("Unable to make", "a socket");
  }
  return made;
}

}  // namespace

FirstInstance::FirstInstance(const std::filesystem::path& folder)
    : lockPath_(folder / "nodo-menu.lock"), socketPath_(folder / "nodo-menu.socket") {}

bool FirstInstance::claim() {
  const sockaddr_un address = addressOf(socketPath_);
  const auto end = std::chrono::steady_clock::now() + patience;
  for (;;) {
    lock_ = openLocked(lockPath_, O_CREAT);
    if (lock_) {
      break;
    }
    if (errno != EWOULDBLOCK) {
      throwErrno("Unable to lock", lockPath_.string());
    }
    if (tellsFirst()) {
      return false;
    }
    // It has just begun, or is just ending.
    if (std::chrono::steady_clock::now() > end) {
      throwErrno("Unable to reach the nodo-menu that runs, at", socketPath_.string());
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  ::unlink(socketPath_.c_str());  // of one that was killed
  listener_ = makeSocket();
  if (::bind(listener_.get(), generic(address), sizeof address) != 0 ||
      ::listen(listener_.get(), SOMAXCONN) != 0) {
    throwErrno("Unable to listen at", socketPath_.string());
  }
  return true;
}

bool FirstInstance::tellsFirst() const {
  const sockaddr_un address = addressOf(socketPath_);
  const FileDescriptor socket = makeSocket();
  return ::connect(socket.get(), generic(address), sizeof address) == 0;
}

void FirstInstance::takeOthers() const {
  while (FileDescriptor(::accept(listener_.get(), nullptr, nullptr))) {
  }
}

}  // namespace nodo::menu
