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
#include <unordered_set>
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
      const std::size_t room = buffer_.size() - size;
      const ssize_t count = ::read(file.get(), buffer_.data() + size, room);
      if (count < 0 && errno != EINTR) {
        return std::nullopt;  // ESRCH: the process ended meanwhile
      }
      size += count > 0 ? static_cast<std::size_t>(count) : 0;
      // These files are never short of what they could give, so that a look for the end, which
      // would be one more call for each file, is saved.
      if (count >= 0 && static_cast<std::size_t>(count) < room) {
        return std::string_view(buffer_).substr(0, size);
      }
    }
  }

 private:
  int folder_;
  std::string path_;
  std::string buffer_ = std::string(4096, '\0');
};

struct Stat {
  std::string name;
  std::int32_t ppid = 0;
  bool isKernelThread = false;
};

// "PID (NAME) STATE PPID PGRP SESSION TTY TPGID FLAGS ...", proc(5): the name may itself hold
// parentheses, so the last one ends it.
std::optional<Stat> parseStat(std::string_view text) {
  constexpr std::int64_t kernelThreadFlag = 0x00200000;  // PF_KTHREAD
  const auto nameBegin = text.find('(');
  const auto nameEnd = text.rfind(')');
  if (nameBegin == std::string_view::npos || nameEnd == std::string_view::npos ||
      nameEnd < nameBegin) {
    return std::nullopt;
  }
  std::string_view rest = text.substr(nameEnd + 1);
  takeField(rest);
  const auto parent = takeField(rest);
  const auto ppid = parent ? integerFromText<std::int32_t>(*parent) : std::nullopt;
  if (!ppid) {
    return std::nullopt;
  }
  for (int skipped = 0; skipped < 4; ++skipped) {
    takeField(rest);
  }
  const auto flags = integerFromText<std::int64_t>(takeField(rest).value_or(""));
  return Stat{.name = std::string(text.substr(nameBegin + 1, nameEnd - nameBegin - 1)),
              .ppid = *ppid,
              .isKernelThread = (flags.value_or(0) & kernelThreadFlag) != 0};
}

std::string repaired(std::string_view text) {
  return isValidUTF8(text) ? std::string(text) : repairedUTF8(text);
}

std::string_view withoutTrailing(std::string_view text, char character) {
  const auto last = text.find_last_not_of(character);
  return text.substr(0, last == std::string_view::npos ? 0 : last + 1);
}

// Fills in the executable and the command; false when the process is gone.
bool readCommandLine(ProcFiles& files, std::string_view pid, RunningProcess& process) {
  const auto arguments = files.read(pid, "cmdline");
  if (!arguments) {
    return false;
  }
  // Each argument ends with a NUL; a process that renamed itself leaves a run of them.
  std::string command(withoutTrailing(*arguments, '\0'));
  process.executable = repaired(std::string_view(command).substr(0, command.find('\0')));
  std::replace(command.begin(), command.end(), '\0', ' ');
  process.command = repaired(command);
  return true;
}

std::optional<RunningProcess> readProcess(ProcFiles& files, std::string_view pid) {
  RunningProcess process;
  process.pid = integerFromText<std::int32_t>(pid).value_or(0);
  const auto text = files.read(pid, "stat");
  const auto stat = text ? parseStat(*text) : std::nullopt;
  if (!stat) {
    return std::nullopt;
  }
  process.ppid = stat->ppid;
  if (stat->isKernelThread || !readCommandLine(files, pid, process)) {
    return std::nullopt;
  }
  if (process.executable.empty()) {  // one that has ended but is still listed
    process.executable = repaired(stat->name);
  }
  if (process.command.empty()) {
    process.command = process.executable;
  }
  return process;
}

using Names = std::unordered_set<std::string>;

// The kernel threads as far as the kernel tells them in one go: there may be hundreds, and looking
// at each takes most of the time of a listing.
Names knownKernelThreads(ProcFiles& files) {
  constexpr char parent[] = "2";  // unless this is a namespace where the number is a program's
  Names threads;
  const auto text = files.read(parent, "stat");
  const auto stat = text ? parseStat(*text) : std::nullopt;
  if (!stat || !stat->isKernelThread) {
    return threads;
  }
  if (const auto children = files.read(parent, "task/2/children")) {
    for (const std::string_view pid : splitFields(trimmed(*children))) {
      threads.emplace(pid);
    }
  }
  return threads;
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
  const Names kernelThreads = knownKernelThreads(files);
  std::vector<RunningProcess> processes;
  while (const dirent* entry = ::readdir(folder.get())) {
    const std::string name(entry->d_name);
    if (!isNumber(name) || kernelThreads.contains(name)) {
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
