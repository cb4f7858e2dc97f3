#include <NODOCore/base/Files.h>
#include <NODOCore/hooks/HookFiles.h>

#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace nodo {

namespace {

namespace fs = std::filesystem;

// Those of the folder at `path` and the ones above it that are not there, the innermost first.
std::vector<fs::path> missingFolders(fs::path path) {
  std::vector<fs::path> missing;
  std::error_code unknown;
  while (path.has_relative_path() && !fs::exists(fs::symlink_status(path, unknown))) {
    missing.push_back(path);
    path = path.parent_path();
  }
  return missing;
}

bool isBelow(const fs::path& path, const fs::path& top) {
  const fs::path relative = path.lexically_relative(top);
  return !relative.empty() && relative != "." && *relative.begin() != "..";
}

}  // namespace

void makeFolderOfOwner(const fs::path& path) {
  const std::vector<fs::path> missing = missingFolders(fs::absolute(path));
  for (auto folder = missing.rbegin(); folder != missing.rend(); ++folder) {
    makeFolder(*folder);
    giveToOwnerOfFolder(*folder);
  }
  makeFolder(path);
}

void giveToOwnerOfFolder(const fs::path& path) {
  if (::geteuid() != 0) {
    return;
  }
  const auto fail = [&] { throwErrno("Unable to give to its folder's owner", path.string()); };
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

void removeEmptyFolders(fs::path path, const fs::path& top) {
  while (isBelow(path, top) && ::rmdir(path.c_str()) == 0) {
    path = path.parent_path();
  }
}

}  // namespace nodo
