#include <NODOCore/base/FileDescriptor.h>
#include <NODOCore/base/Text.h>
#include <NODOCore/state/NODOError.h>
#include <platform/linux/ProcProcessListing.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

namespace nodo {
namespace {

// Reads /proc's small files into one buffer that is kept from process to process.
class ProcFiles {
 public:
  explicit ProcFiles(int folder) : folder_(folder) {}

  // The content of `pid`/`name`, valid until the next call; nothing when the process is gone.
  std::optional<std::string_view> read(std::string_view pid, const char* name) {
    path_.assign(pid).append("/").append(name);
    const FileDescriptor file(::openat(folder_, path_.c_str(), O_RDONLY | O_CLOEXEC));
    if (!file) {
      return std::nullopt;
    }
    std::size_t size = 0;
    for (;;) {
      if (size == buffer_.size()) {
        buffer_.resize(buffer_.size() * 2);
      }
      const ssize_t count = ::read(file.get(), buffer_.data() + size, buffer_.size() - size);
      if (count == 0) {
        return std::string_view(buffer_).substr(0, size);
      }
      if (count > 0) {
        size += static_cast<std::size_t>(count);
      } else if (errno != EINTR) {
        return std::nullopt;  // ESRCH: the process ended meanwhile
      }
    }
  }

 private:
  int folder_;
  std::string path_;
  std::string buffer_ = std::string(4096, '\0');
};

// "PID (NAME) STATE PPID ...": the name may itself hold parentheses, so the last one ends it.
std::optional<std::int32_t> parentFromStat(std::string_view stat) {
  const auto nameEnd = stat.rfind(')');
  if (nameEnd == std::string_view::npos) {
    return std::nullopt;
  }
  std::string_view rest = stat.substr(nameEnd + 1);
  takeField(rest);
  const auto parent = takeField(rest);
  return parent ? integerFromText<std::int32_t>(*parent) : std::nullopt;
}

std::string repaired(std::string_view text) {
  return isValidUTF8(text) ? std::string(text) : repairedUTF8(text);
}

std::string_view withoutTrailing(std::string_view text, char character) {
  const auto last = text.find_last_not_of(character);
  return text.substr(0, last == std::string_view::npos ? 0 : last + 1);
}

std::optional<RunningProcess> readProcess(ProcFiles& files, std::string_view pid) {
  RunningProcess process;
  process.pid = integerFromText<std::int32_t>(pid).value_or(0);
  const auto stat = files.read(pid, "stat");
  process.ppid = stat ? parentFromStat(*stat) : std::nullopt;
  if (!process.ppid) {
    return std::nullopt;
  }
  const auto arguments = files.read(pid, "cmdline");
  if (!arguments) {
    return std::nullopt;
  }
  // Each argument ends with a NUL; a process that renamed itself leaves a run of them.
  std::string command(withoutTrailing(*arguments, '\0'));
  process.executable = repaired(std::string_view(command).substr(0, command.find('\0')));
  std::replace(command.begin(), command.end(), '\0', ' ');
  process.command = repaired(command);
  if (process.executable.empty()) {  // a kernel thread, or one that has ended but is still listed
    const auto name = files.read(pid, "comm");
    if (!name) {
      return std::nullopt;
    }
    process.executable = repaired(withoutTrailing(*name, '\n'));
  }
  if (process.command.empty()) {
    process.command = process.executable;
  }
  return process;
}

bool isNumber(std::string_view name) {
  return name.find_first_not_of("0123456789") == std::string_view::npos;
}

}  // namespace

ProcProcessListing::ProcProcessListing(std::filesystem::path procFolder)
    : procFolder_(std::move(procFolder)) {}

std::vector<RunningProcess> ProcProcessListing::listProcesses() const {
  const std::unique_ptr<DIR, int (*)(DIR*)> folder(::opendir(procFolder_.c_str()), ::closedir);
  if (folder == nullptr) {
    throw NODOError::processListingFailed(procFolder_.string() + ": " + std::strerror(errno));
  }
  ProcFiles files(::dirfd(folder.get()));
  std::vector<RunningProcess> processes;
  while (const dirent* entry = ::readdir(folder.get())) {
    const std::string_view name(entry->d_name);
    if (!isNumber(name)) {
      continue;
    }
    if (auto process = readProcess(files, name)) {
      processes.push_back(std::move(*process));
    }
  }
  std::sort(processes.begin(), processes.end(),
            [](const auto& left, const auto& right) { return left.pid < right.pid; });
  return processes;
}

}  // namespace nodo
