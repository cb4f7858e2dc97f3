#include <NODOCore/hooks/HookLogText.h>

#include <algorithm>
#include <cerrno>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace nodo {

LogFileText::LogFileText(std::string path, std::size_t pieceSize)
    : path_(std::move(path)), pieceSize_(std::max(pieceSize, smallestPiece)) {
  // Without O_NONBLOCK opening a named pipe would wait for a writer for ever.
  file_ = FileDescriptor(::open(path_.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));

  struct stat status {};

  if (!file_ || ::fstat(file_.get(), &status) != 0) {
    throwErrno("Unable to read", path_);
  }
  if (!S_ISREG(status.st_mode)) {
    errno = EINVAL;
    throwErrno("Unable to read", path_);
  }
  size_ = static_cast<std::uint64_t>(status.st_size);
}

// What is loaded is taken as far as it goes: a search goes on in steps that are smaller than a
// piece.
std::string_view LogFileText::pieceFrom(std::uint64_t begin, std::uint64_t end) {
  const std::uint64_t enough = std::min<std::uint64_t>(end, begin + smallestPiece);
  if (begin < loadedFrom_ || enough > loadedTo()) {
    load(begin, std::min<std::uint64_t>(end, begin + pieceSize_));
  }
  return bytes(begin, std::min(end, loadedTo()));
}

std::string_view LogFileText::pieceBefore(std::uint64_t end) {
  const std::uint64_t enough = end - std::min<std::uint64_t>(end, smallestPiece);
  if (end > loadedTo() || enough < loadedFrom_) {
    load(end - std::min<std::uint64_t>(end, pieceSize_), end);
  }
  return bytes(loadedFrom_, end);
}

std::string_view LogFileText::bytes(std::uint64_t begin, std::uint64_t end) const {
  return std::string_view(loaded_).substr(static_cast<std::size_t>(begin - loadedFrom_),
                                          static_cast<std::size_t>(end - begin));
}

void LogFileText::load(std::uint64_t begin, std::uint64_t end) {
  const auto count = static_cast<std::size_t>(end - begin);
  loaded_.resize(count);
  loadedFrom_ = begin;
  std::size_t done = 0;
  while (done < count) {
    const ssize_t got =
        ::pread(file_.get(), loaded_.data() + done, count - done, static_cast<off_t>(begin + done));
    if (got > 0) {
      done += static_cast<std::size_t>(got);
    } else if (got == 0 || errno != EINTR) {
      errno = got == 0 ? ENODATA : errno;
      throwErrno("Unable to read", path_);
    }
  }
}

}  // namespace nodo
