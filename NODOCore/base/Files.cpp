#include <NODOCore/base/Files.h>
#include <NODOCore/base/System.h>

#include <array>
#include <cerrno>
#include <random>
#include <system_error>
#include <thread>
#include <utility>

#include <fmt/format.h>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
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

void throwErrno(const std::string& action, const std::string& name) {
  throw std::system_error(errno, std::generic_category(), action + " " + name);
}

namespace {

namespace fs = std::filesystem;

// What a system call that may have to wait returns, once no signal interrupts it.
template <class Call>
auto uninterrupted(const Call& call) {
  for (;;) {
    const auto result = call();
    if (result >= 0 || errno != EINTR) {
      return result;
    }
  }
}

FileDescriptor openUninterrupted(const fs::path& path, int flags, mode_t mode = 0) {
  return FileDescriptor(uninterrupted([&] { return ::open(path.c_str(), flags, mode); }));
}

// As flock, which can wait for ever or not at all.
bool lockBefore(std::chrono::steady_clock::time_point deadline, const FileDescriptor& file) {
  constexpr std::chrono::milliseconds interval(2);
  while (::flock(file.get(), LOCK_EX | LOCK_NB) != 0) {
    if (errno != EINTR && (errno != EWOULDBLOCK || std::chrono::steady_clock::now() >= deadline)) {
      return false;
    }
    std::this_thread::sleep_for(interval);
  }
  return true;
}

// Throws the error of the current errno, of an attempt that has not changed the file at `path`.
[[noreturn]] void throwUnchanged(const std::string& action, const fs::path& path) {
  throwErrno(action, path.string() + " (it is as it was; see to the cause and try again)");
}

// A temporary file is named after the file it will replace: ".state.json.nodo-tmp-" and 16 digits.
std::string temporaryPrefix(const fs::path& path) {
  return "." + path.filename().string() + ".nodo-tmp-";
}

// Removes the temporary files of processes that were killed while they wrote. A living writer holds
// a lock on its own, so neither its name nor its age has to be guessed at. Failing to tidy up is
// not the caller's failure: the next call tries again.
void removeAbandoned(const fs::path& path) {
  const std::string prefix = temporaryPrefix(path);
  std::error_code ignored;
  for (fs::directory_iterator entry(path.parent_path(), ignored), end; !ignored && entry != end;
       entry.increment(ignored)) {
    if (!entry->path().filename().string().starts_with(prefix)) {
      continue;
    }
    const FileDescriptor file =
        openUninterrupted(entry->path(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
    // Where files cannot be locked nobody knows who lives, and nothing is removed.
    if (file && ::flock(file.get(), LOCK_EX | LOCK_NB) == 0) {
      ::unlink(entry->path().c_str());
    }
  }
}

// What becomes of the owner of a file that is replaced by a root who may not give files away.
enum class Owner { mustStay, mayChange };

// The rights that a file of another owner or group gives with `mode`, for one of this process's
// own. Members of the one group may have been among the others before, and the other way round; the
// old owner is now one of them. With an access-control list the group's rights limit all its
// entries.
mode_t narrowed(mode_t mode) {
  const unsigned owner = mode >> 6U & 07U;
  const unsigned shared = mode & mode >> 3U & owner;
  return static_cast<mode_t>((owner << 6U) | (shared << 3U) | shared);
}

// The new content on its way: removes itself unless it has been renamed into place.
class TemporaryFile {
 public:
  TemporaryFile(const fs::path& target, mode_t mode) : TemporaryFile(target) {
    // Whatever is thrown from here on, the destructor removes the file. Another process that tidies
    // up may take it for an abandoned one in the instant before it is locked; then the next name is
    // tried.
    std::random_device random;
    while (made_.st_nlink == 0) {
      const auto number = (std::uint64_t{random()} << 32U) | random();
      path_ = target.parent_path() / fmt::format("{}{:016x}", temporaryPrefix(target), number);
      file_ = openUninterrupted(path_, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode);
      if (!file_) {
        if (errno == EEXIST) {
          continue;
        }
        fail("Unable to write");
      }
      // Where locks are not supported nobody tidies up either.
      uninterrupted([this] { return ::flock(file_.get(), LOCK_EX); });
      if (::fstat(file_.get(), &made_) != 0) {
        fail("Unable to write");
      }
    }
  }

  TemporaryFile(const TemporaryFile&) = delete;
  TemporaryFile& operator=(const TemporaryFile&) = delete;

  ~TemporaryFile() {
    if (file_ && !renamed_) {
      ::unlink(path_.c_str());
    }
  }

  void setMode(fs::perms mode) {
    if (::fchmod(file_.get(), static_cast<mode_t>(mode)) != 0) {
      fail("Unable to set the mode of");
    }
  }

  void keepRightsOf(const struct stat& old, Owner owner) {
    const bool hasOwner = keepsOwnerOf(old);
    if (!hasOwner && owner == Owner::mustStay) {
      fail("Unable to keep the owner of");
    }
    const mode_t mode = old.st_mode & 07777U;
    // The mode last: giving a file away, like writing to it, clears its set-id bits.
    if (copyFileAttributes(target_, file_.get()) != 0 ||
        ::fchmod(file_.get(), hasOwner ? mode : narrowed(mode)) != 0) {
      fail("Unable to keep the permissions and attributes of");
    }
  }

  void write(std::string_view content) {
    while (!content.empty()) {
      const ssize_t count =
          uninterrupted([&] { return ::write(file_.get(), content.data(), content.size()); });
      if (count < 0) {
        fail("Unable to write");
      }
      content.remove_prefix(static_cast<std::size_t>(count));
    }
  }

  void sync() {
    if (uninterrupted([this] { return syncToDisk(file_.get()); }) != 0) {
      fail("Unable to write");
    }
  }

  void renameIntoPlace() {
    if (::rename(path_.c_str(), target_.c_str()) != 0) {
      fail("Unable to replace");
    }
    renamed_ = true;
  }

 private:
  explicit TemporaryFile(const fs::path& target) : target_(target) {}

  [[noreturn]] void fail(const char* action) const { throwUnchanged(action, target_); }

  // Root gives the file to whom the old one belongs. Others cannot, and their own file it is.
  bool keepsOwnerOf(const struct stat& old) {
    if (::geteuid() != 0 || (made_.st_uid == old.st_uid && made_.st_gid == old.st_gid) ||
        ::fchown(file_.get(), old.st_uid, old.st_gid) == 0) {
      return true;
    }
    // EINVAL: a container does not have that user.
    if (errno != EPERM && errno != EINVAL) {
      fail("Unable to keep the owner of");
    }
    return false;
  }

  const fs::path& target_;
  fs::path path_;
  FileDescriptor file_;

  struct stat made_ {};  // the file when it was new

  bool renamed_ = false;
};

// The regular file at `path` that a new one has to be like; nothing where there is none.
std::optional<struct stat> regularFileAt(const fs::path& path) {
  struct stat found {};

  if (::lstat(path.c_str(), &found) == 0) {
    return S_ISREG(found.st_mode) ? std::optional(found) : std::nullopt;
  }
  if (errno == ENOENT) {
    return std::nullopt;
  }
  throwUnchanged("Unable to look at", path);
}

FileDescriptor openFolder(const fs::path& folder) {
  return openUninterrupted(folder, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
}

bool isSynced(const FileDescriptor& folder) {
  // EINVAL: a file system on which folders cannot be synced.
  return uninterrupted([&] { return syncToDisk(folder.get()); }) == 0 || errno == EINVAL;
}

// Replaces `target` and returns true, unless `isObsolete` says, at the last moment, that the new
// content has been overtaken.
bool replaceUnless(const fs::path& target, std::string_view content, std::optional<fs::perms> mode,
                   Owner owner, const std::function<bool()>& isObsolete) {
  removeAbandoned(target);
  const auto old = regularFileAt(target);
  // Opened while nothing has been changed, as that can fail.
  const FileDescriptor folder = openFolder(target.parent_path());
  if (!folder) {
    throwUnchanged("Unable to open the folder of", target);
  }
  // Until it has the old file's mode nobody else may read what could be meant for few.
  TemporaryFile temporary(target, old ? 0600 : 0666);
  temporary.write(content);
  if (old) {
    temporary.keepRightsOf(*old, owner);
  }
  if (mode) {
    temporary.setMode(*mode);
  }
  temporary.sync();
  if (isObsolete()) {
    return false;
  }
  temporary.renameIntoPlace();
  if (!isSynced(folder)) {
    throwErrno("Unable to sync the folder of",
               target.string() + " (its new content is in place, but a power cut may undo that)");
  }
  return true;
}

bool removeUnless(const fs::path& path, const std::function<bool()>& isObsolete) {
  if (isObsolete()) {
    return false;
  }
  if (::unlink(path.c_str()) != 0 && errno != ENOENT) {
    throwUnchanged("Unable to remove", path);
  }
  return true;
}

// Where the symbolic links at `path` lead in the end, which need not exist.
fs::path finalTarget(fs::path path) {
  constexpr int mostLinks = 40;  // as many as Linux follows
  for (int links = 0; links < mostLinks; ++links) {
    std::error_code failure;
    const fs::path next = fs::read_symlink(path, failure);
    if (failure == std::errc::invalid_argument ||  // no link
        failure == std::errc::no_such_file_or_directory) {
      return path;
    }
    if (failure) {
      errno = failure.value();
      throwUnchanged("Unable to follow the links at", path);
    }
    path = path.parent_path() / next;
  }
  errno = ELOOP;
  throwUnchanged("Unable to follow the links at", path);
}

constexpr int mostAttempts = 10;

}  // namespace

FileDescriptor openLocked(const fs::path& path, int flags, std::chrono::milliseconds patience) {
  constexpr mode_t ownersAlone = 0600;
  FileDescriptor file =
      openUninterrupted(path, O_RDWR | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | flags, ownersAlone);
  if (file && !lockBefore(std::chrono::steady_clock::now() + patience, file)) {
    const int failure = errno;
    file.reset();
    errno = failure;
  }
  return file;
}

std::string readToEnd(const FileDescriptor& descriptor, const std::string& name) {
  std::string content;
  std::array<char, 16384> buffer{};
  for (;;) {
    const ssize_t count =
        uninterrupted([&] { return ::read(descriptor.get(), buffer.data(), buffer.size()); });
    if (count < 0) {
      throwErrno("Unable to read", name);
    }
    if (count == 0) {
      return content;
    }
    content.append(buffer.data(), static_cast<std::size_t>(count));
  }
}

std::optional<std::string> readFile(const fs::path& path) {
  // Without O_NONBLOCK opening a named pipe would wait for a writer for ever.
  const FileDescriptor file = openUninterrupted(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (!file) {
    if (errno == ENOENT || errno == ENOTDIR) {
      return std::nullopt;
    }
    throwErrno("Unable to read", path.string());
  }

  struct stat status {};

  if (::fstat(file.get(), &status) != 0) {
    throwErrno("Unable to read", path.string());
  }
  constexpr off_t largest = off_t{64} * 1024 * 1024;
  if (!S_ISREG(status.st_mode) || status.st_size > largest) {
    errno = S_ISDIR(status.st_mode) ? EISDIR : S_ISREG(status.st_mode) ? EFBIG : EINVAL;
    throwErrno("Unable to read", path.string());
  }
  return readToEnd(file, path.string());
}

void replaceFile(const fs::path& path, std::string_view content, std::optional<fs::perms> mode) {
  replaceUnless(fs::absolute(path), content, mode, Owner::mayChange, [] { return false; });
}

void syncFolder(const fs::path& folder) {
  const FileDescriptor opened = openFolder(folder);
  if (!opened || !isSynced(opened)) {
    throwErrno("Unable to sync the folder", folder.string());
  }
}

void makeFolder(const fs::path& path) {
  // create_directories would take a folder above that cannot be looked at for a missing one.
  struct stat found {};

  if (::stat(path.c_str(), &found) == 0) {
    if (S_ISDIR(found.st_mode)) {
      return;
    }
    errno = ENOTDIR;
  } else if (errno == ENOENT) {
    if (path.has_parent_path()) {
      makeFolder(path.parent_path());
    }
    if (::mkdir(path.c_str(), 0777) == 0 ||
        (errno == EEXIST && ::stat(path.c_str(), &found) == 0)) {  // somebody else was faster
      return;
    }
  }
  throwErrno("Unable to make the folder", path.string());
}

bool updateFileThroughLinks(const fs::path& path,
                            const std::function<FileContent(const FileContent&)>& edit) {
  for (int attempt = 0; attempt < mostAttempts; ++attempt) {
    const FileContent before = readFile(path);
    const FileContent after = edit(before);
    if (after == before) {
      return false;
    }
    const auto hasChanged = [&] { return readFile(path) != before; };
    if (after ? replaceUnless(finalTarget(fs::absolute(path)), *after, std::nullopt,
                              Owner::mustStay, hasChanged)
              : removeUnless(path, hasChanged)) {
      return true;
    }
  }
  errno = EAGAIN;
  throwErrno("Unable to change, as somebody else keeps changing it,", path.string());
}

}  // namespace nodo
