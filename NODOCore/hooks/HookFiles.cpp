#include <NODOCore/base/Files.h>
#include <NODOCore/hooks/HookFiles.h>

#include <cerrno>
#include <system_error>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace nodo {

namespace {

namespace fs = std::filesystem;

fs::file_status known(const fs::path& path, fs::file_status found, const std::error_code& failure) {
  if (found.type() == fs::file_type::none) {
    throw std::system_error(failure, "Unable to look at " + path.string());
  }
  return found;
}

bool isBelow(const fs::path& path, const fs::path& top) {
  const fs::path relative = path.lexically_relative(top);
  return !relative.empty() && relative != "." && *relative.begin() != "..";
}

}  // namespace

fs::file_status statusOf(const fs::path& path) {
  std::error_code failure;
  const fs::file_status found = fs::status(path, failure);
  return known(path, found, failure);
}

fs::file_status linkStatusOf(const fs::path& path) {
  std::error_code failure;
  const fs::file_status found = fs::symlink_status(path, failure);
  return known(path, found, failure);
}

void makeFolderOfOwner(const fs::path& path) {
  makeFolder(fs::absolute(path), giveToOwnerOfFolder);
}

void giveToOwnerOfFolder(const fs::path& path) {
  if (::geteuid() != 0) {
    return;
  }
  const auto fail = [&] {
    const std::error_code failure(errno, std::generic_category());
    std::error_code ignored;
    fs::remove(path, ignored);
    throw std::system_error(failure,
                            "Unable to give " + path.string() +
                                " to the owner of its folder (so it was removed again; try again)");
  };
  const FileDescriptor folder(
      ::open(path.parent_path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!folder) {
    fail();
  }
  const FileDescriptor made(::openat(folder.get(), path.filename().c_str(),
                                     O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));

  struct stat around {};

  struct stat own {};

  if (!made || ::fstat(folder.get(), &around) != 0 || ::fstat(made.get(), &own) != 0) {
    fail();
  }
  // What somebody else has put there meanwhile, a hard link too, is nothing to give away.
  const bool isOurs = own.st_uid == 0 && (S_ISDIR(own.st_mode) || own.st_nlink == 1);
  if (isOurs && (around.st_uid != own.st_uid || around.st_gid != own.st_gid) &&
      ::fchown(made.get(), around.st_uid, around.st_gid) != 0) {
    fail();
  }
}

void giveTargetToOwnerOfFolder(const fs::path& path) {
  if (::geteuid() != 0) {
    return;
  }
  std::error_code failure;
  const fs::path target = fs::canonical(path, failure);
  if (!failure) {
    giveToOwnerOfFolder(target);
  } else if (failure != std::errc::no_such_file_or_directory) {
    throw std::system_error(
        failure, "Unable to look at " + path.string() + " (its new content is in place)");
  }
}

void removeEmptyFolders(fs::path path, const fs::path& top) {
  while (isBelow(path, top) && ::rmdir(path.c_str()) == 0) {
    path = path.parent_path();
  }
}

}  // namespace nodo
