#include <NODOCore/base/Errors.h>
#include <NODOCore/base/Files.h>
#include <NODOCore/base/Text.h>
#include <platform/linux/senses/ProcProcessListing.h>

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
#include <sys/stat.h>
#include <unistd.h>

namespace nodo {
namespace {

// Nearly all texts are valid, and telling that is much quicker than copying each code point.
std::string repaired(std::string_view text) {
  return isValidUTF8(text) ? std::string(text) : repairedUTF8(text);
}

std::string_view withoutTrailing(std::string_view text, char character) {
  const auto last = text.find_last_not_of(character);
  return text.substr(0, last == std::string_view::npos ? 0 : last + 1);
}

bool continuesCodePoint(char byte) {
  return (static_cast<unsigned char>(byte) & 0xC0U) == 0x80U;
}

std::size_t bytesOf(const RunningProcess& row) {
  return row.executable.size() + row.command.size();
}

// Reads /proc's small files into one buffer that is kept from process to process.
class ProcFiles {
 public:
  explicit ProcFiles(int folder) : folder_(folder) {}

  // The first `most` bytes of `pid`/`name`, valid until the next call; nothing when the process is
  // gone.
  std::optional<std::string_view> read(std::string_view pid, const char* name,
                                       std::size_t most = std::string_view::npos) {
    path_.assign(pid).append("/").append(name);
    const FileDescriptor file(::openat(folder_, path_.c_str(), O_RDONLY | O_CLOEXEC));
    if (!file) {
      return std::nullopt;
    }
    std::size_t size = 0;
    while (size < most) {
      if (size == buffer_.size()) {
        buffer_.resize(buffer_.size() * 2);
      }
      const std::size_t room = std::min(buffer_.size(), most) - size;
      const ssize_t count = ::read(file.get(), buffer_.data() + size, room);
      if (count < 0 && errno != EINTR) {
        return std::nullopt;  // ESRCH: the process ended meanwhile
      }
      size += count > 0 ? static_cast<std::size_t>(count) : 0;
      // These files are never short of what they could give, so that a look for the end, which
      // would be one more call for each file, is saved.
      if (count >= 0 && static_cast<std::size_t>(count) < room) {
        break;
      }
    }
    return std::string_view(buffer_).substr(0, size);
  }

 private:
  int folder_;
  std::string path_;
  std::string buffer_ = std::string(4096, '\0');
};

// A process may show a command line of gigabytes, prctl(PR_SET_MM_MAP). Nothing when it is gone.
std::optional<ProcCommandLine> readCommandLine(ProcFiles& files, std::string_view pid) {
  constexpr std::size_t most = BoundedRows::mostBytesOfAText;
  // One byte more tells whether the last one that counts ends within a code point.
  const auto text = files.read(pid, "cmdline", most + 1);
  return text ? std::optional(parseProcCommandLine(firstBytes(*text, most))) : std::nullopt;
}

std::optional<RunningProcess> readProcess(ProcFiles& files, std::string_view pid) {
  const auto text = files.read(pid, "stat");
  auto stat = text ? parseProcStat(*text) : std::nullopt;
  if (!stat || stat->isKernelThread) {
    return std::nullopt;
  }
  auto line = readCommandLine(files, pid);
  if (!line) {
    return std::nullopt;
  }
  RunningProcess process{.pid = integerFromText<std::int32_t>(pid).value_or(0),
                         .ppid = stat->ppid,
                         .executable = std::move(line->executable),
                         .command = std::move(line->command)};
  if (process.executable.empty()) {  // one that has ended but is still listed
    process.executable = std::move(stat->name);
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
  const auto stat = text ? parseProcStat(*text) : std::nullopt;
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

// "PID (NAME) STATE PPID PGRP SESSION TTY TPGID FLAGS ...", with four times behind the next four
// fields and the start behind four more, proc(5):
// the name may itself hold parentheses, so the last one ends it.
std::optional<ProcStat> parseProcStat(std::string_view text) {
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
  for (int skipped = 0; skipped < 4; ++skipped) {
    takeField(rest);
  }
  std::int64_t processorTicks = 0;
  for (int added = 0; added < 4; ++added) {
    processorTicks += integerFromText<std::int64_t>(takeField(rest).value_or("")).value_or(0);
  }
  for (int skipped = 0; skipped < 4; ++skipped) {
    takeField(rest);
  }
  return ProcStat{.name = repaired(text.substr(nameBegin + 1, nameEnd - nameBegin - 1)),
                  .ppid = *ppid,
                  .isKernelThread = (flags.value_or(0) & kernelThreadFlag) != 0,
                  .startedAtTick = integerFromText<std::int64_t>(takeField(rest).value_or("")),
                  .processorTicks = processorTicks};
}

std::optional<Seconds> ageOfOwnProcess(std::int32_t pid, Seconds running,
                                       const std::filesystem::path& procFolder) {
  const FileDescriptor folder(::open(procFolder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  const std::string name = std::to_string(pid);

  struct stat status {};

  // A process's folder is its user's.
  if (!folder || ::fstatat(folder.get(), name.c_str(), &status, 0) != 0 ||
      status.st_uid != ::geteuid()) {
    return std::nullopt;
  }
  ProcFiles files(folder.get());
  const auto text = files.read(name, "stat");
  const auto stat = text ? parseProcStat(*text) : std::nullopt;
  if (!stat || !stat->startedAtTick) {
    return std::nullopt;
  }
  const auto ticks = static_cast<double>(*stat->startedAtTick);
  return running - Seconds(ticks / static_cast<double>(::sysconf(_SC_CLK_TCK)));
}

// Each argument ends with a NUL; a process that renamed itself leaves a run of them.
ProcCommandLine parseProcCommandLine(std::string_view text) {
  std::string command(withoutTrailing(text, '\0'));
  std::string executable = repaired(std::string_view(command).substr(0, command.find('\0')));
  std::replace(command.begin(), command.end(), '\0', ' ');
  return {.executable = std::move(executable), .command = repaired(command)};
}

std::string_view firstBytes(std::string_view text, std::size_t size) {
  if (text.size() <= size) {
    return text;
  }
  // A code point has at most three bytes after its first; more of them are no UTF-8 anyway.
  std::size_t end = size;
  for (int steps = 0; steps < 3 && end > 0 && continuesCodePoint(text[end]); ++steps) {
    --end;
  }
  return text.substr(0, continuesCodePoint(text[end]) ? size : end);
}

void BoundedRows::add(RunningProcess row) {
  cut(row);
  bytes_ += bytesOf(row);
  rows_.push_back(std::move(row));
  while (bytes_ > mostBytes) {
    cutLongest();
  }
}

std::vector<RunningProcess> BoundedRows::takeSorted() {
  std::sort(rows_.begin(), rows_.end(),
            [](const auto& left, const auto& right) { return left.pid < right.pid; });
  return std::move(rows_);
}

void BoundedRows::cut(RunningProcess& row) const {
  for (std::string* text : {&row.executable, &row.command}) {
    if (text->size() > longest_) {
      *text = std::string(firstBytes(*text, longest_));  // anew: one made shorter keeps its memory
    }
  }
}

void BoundedRows::cutLongest() {
  longest_ /= 2;
  bytes_ = 0;
  for (RunningProcess& row : rows_) {
    cut(row);
    bytes_ += bytesOf(row);
  }
}

ProcProcessListing::ProcProcessListing(std::filesystem::path procFolder)
    : procFolder_(std::move(procFolder)) {}

std::vector<RunningProcess> ProcProcessListing::listProcesses() const {
  const std::unique_ptr<DIR, int (*)(DIR*)> folder(::opendir(procFolder_.c_str()), ::closedir);
  if (folder == nullptr) {
    throw NODOError::processListingFailed(procFolder_.string() + ": " + std::strerror(errno));
  }
  ProcFiles files(::dirfd(folder.get()));
  const Names kernelThreads = knownKernelThreads(files);
  BoundedRows processes;
  while (const dirent* entry = ::readdir(folder.get())) {
    const std::string name(entry->d_name);
    if (!isNumber(name) || kernelThreads.contains(name)) {
      continue;
    }
    if (auto process = readProcess(files, name)) {
      processes.add(std::move(*process));
    }
  }
  return processes.takeSorted();
}

std::map<std::int32_t, Seconds> ProcProcessListing::processorTimes(
    const std::vector<std::int32_t>& pids) const {
  std::map<std::int32_t, Seconds> times;
  const FileDescriptor folder(::open(procFolder_.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  ProcFiles files(folder.get());
  for (const std::int32_t pid : pids) {
    const auto text = files.read(std::to_string(pid), "stat");
    if (const auto stat = text ? parseProcStat(*text) : std::nullopt) {
      times[pid] = Seconds(static_cast<double>(stat->processorTicks) /
                           static_cast<double>(::sysconf(_SC_CLK_TCK)));
    }
  }
  return times;
}

}  // namespace nodo
