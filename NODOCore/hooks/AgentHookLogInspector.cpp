#include <NODOCore/base/Files.h>
#include <NODOCore/base/JSONCoding.h>
#include <NODOCore/base/LocalTime.h>
#include <NODOCore/base/Text.h>
#include <NODOCore/hooks/AgentHookLogInspector.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <exception>
#include <filesystem>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace nodo {

NODO_JSON_RECORD(AgentHookFallbackStatus, fields, status) {
  fields.required("isActive", status.isActive);
  fields.required("logPath", status.logPath);
  fields.optional("lastStartedAt", status.lastStartedAt);
  fields.required("fallbackSeconds", status.fallbackSeconds);
}

std::optional<std::int64_t> HookFallbackRecoveryPolicy::remainingMinutes(
    const AgentHookFallbackStatus& status, Date now) {
  if (!status.isActive || !status.lastStartedAt) {
    return std::nullopt;
  }
  const Date end = *status.lastStartedAt + Seconds(static_cast<double>(status.fallbackSeconds));
  if (end <= now) {
    return std::nullopt;
  }
  return wholeSeconds(Seconds(std::ceil((end - now).count() / 60)));
}

namespace {

namespace fs = std::filesystem;
using Inspector = AgentHookLogInspector;
using Lines = std::vector<std::string_view>;

// The number behind "seconds="; the usual one where there is none, or none that can be counted.
std::int64_t secondsOf(std::string_view line) {
  constexpr std::string_view key = "seconds=";
  for (auto at = line.find(key); at != std::string_view::npos; at = line.find(key, at + 1)) {
    const std::string_view value = line.substr(at + key.size());
    if (hasPrefix(line.substr(at), key) && hasSuffix(line.substr(0, at + key.size()), key)) {
      const auto end = std::min(value.find_first_not_of("0123456789"), value.size());
      return integerFromText<std::int64_t>(value.substr(0, end))
          .value_or(Inspector::defaultFallbackSeconds);
    }
  }
  return Inspector::defaultFallbackSeconds;
}

// Of each kind of line the last one with a readable time counts.
AgentHookFallbackStatus statusOf(const Lines& lines, std::string logPath, Date now) {
  AgentHookFallbackStatus status{.logPath = std::move(logPath)};
  std::optional<Date> succeededAt;
  std::optional<Date> resolvedAt;
  for (auto line = lines.rbegin(); line != lines.rend(); ++line) {
    const bool starts = !status.lastStartedAt && contains(*line, Inspector::fallbackStartedMarker);
    const bool succeeds = !succeededAt && contains(*line, Inspector::activeMarker);
    const bool resolves = !resolvedAt && contains(*line, Inspector::fallbackResolvedMarker);
    if (!starts && !succeeds && !resolves) {
      continue;
    }
    const auto stamp = dateFromLocalTime(firstCharacters(*line, localTimeLength));
    if (starts && stamp) {
      status.lastStartedAt = stamp;
      status.fallbackSeconds = secondsOf(*line);
    }
    succeededAt = succeeds ? stamp : succeededAt;
    resolvedAt = resolves ? stamp : resolvedAt;
  }
  // An absent instant compares less than any.
  const bool isResolved = std::max(succeededAt, resolvedAt) >= status.lastStartedAt;
  status.isActive =
      status.lastStartedAt && !isResolved &&
      now < *status.lastStartedAt + Seconds(static_cast<double>(status.fallbackSeconds));
  return status;
}

// Others may put a log, or a link to some file, where this user's log is looked for.
bool isOurs(const struct stat& status) {
  return status.st_uid == ::geteuid() || status.st_uid == 0;
}

// What is at `path`, reached over no link that somebody else planted. Without O_NONBLOCK a named
// pipe would be waited for until somebody opens its other end.
FileDescriptor openLog(const std::string& path, int flags) {
  flags |= O_CLOEXEC | O_NONBLOCK | O_NOCTTY;
  FileDescriptor log(::open(path.c_str(), flags | O_NOFOLLOW));

  struct stat link {};

  if (!log && errno == ELOOP && ::lstat(path.c_str(), &link) == 0 && isOurs(link)) {
    log = FileDescriptor(::open(path.c_str(), flags));
  }
  return log;
}

// Nothing for what is no regular file of this user's or root's, or no file at all.
std::optional<std::uint64_t> sizeOf(const FileDescriptor& file) {
  struct stat status {};

  if (!file || ::fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode) || !isOurs(status)) {
    return std::nullopt;
  }
  return static_cast<std::uint64_t>(status.st_size);
}

// The end of a log: so much of it as is read.
struct LogEnd {
  std::string text;
  bool isAll = true;

  Lines lines() const {
    Lines lines = splitLines(text);
    const bool beginsWithALine = !lines.empty() && lines.front().data() == text.data();
    if (!isAll && beginsWithALine) {
      lines.erase(lines.begin());  // what stands before it may belong to it
    }
    return lines;
  }
};

// Empty for what cannot be read or is no log of ours, and for a log that becomes shorter meanwhile.
LogEnd readEndOf(const std::string& path) {
  const FileDescriptor log = openLog(path, O_RDONLY);
  const std::uint64_t size = sizeOf(log).value_or(0);
  const auto count = std::min<std::uint64_t>(size, Inspector::mostBytesRead);
  LogEnd end{.text = std::string(static_cast<std::size_t>(count), '\0'), .isAll = count == size};
  std::size_t done = 0;
  while (done < end.text.size()) {
    const ssize_t got = ::pread(log.get(), end.text.data() + done, end.text.size() - done,
                                static_cast<off_t>(size - count + done));
    if (got > 0) {
      done += static_cast<std::size_t>(got);
    } else if (got == 0 || errno != EINTR) {
      return {};
    }
  }
  return end;
}

std::string resolutionLine(std::string_view reason, Date now) {
  std::string line =
      localTimeText(now) + " " + std::string(Inspector::fallbackResolvedMarker) + " reason=";
  for (const char character : reason) {
    const bool breaks = character == '\n' || character == '\r' || character == '\t';
    line += breaks ? ' ' : character;
  }
  return line + "\n";
}

// The log, open for appending; made where it is missing, for this user alone: it names projects.
// The two steps are apart because some systems refuse O_CREAT for a file of root's in a folder such
// as /tmp.
FileDescriptor openForAppending(const std::string& path) {
  constexpr int flags = O_WRONLY | O_APPEND;
  FileDescriptor file = openLog(path, flags);
  if (!file && errno == ENOENT) {
    file = FileDescriptor(
        ::open(path.c_str(), flags | O_CREAT | O_EXCL | O_CLOEXEC, S_IRUSR | S_IWUSR));
    if (!file && errno == EEXIST) {  // the hook script made it in between
      file = openLog(path, flags);
    }
  }
  return file;
}

// In one call, so that lines of other processes do not come in between.
void append(const std::string& path, const std::string& line) {
  std::error_code ignored;
  fs::create_directories(fs::path(path).parent_path(), ignored);
  const FileDescriptor log = openForAppending(path);
  if (!sizeOf(log)) {
    return;
  }
  while (::write(log.get(), line.data(), line.size()) < 0 && errno == EINTR) {
  }
}

}  // namespace

std::string AgentHookLogInspector::logPath(const Environment& environment) {
  const auto variable = environment.find("NODO_HOOK_LOG");
  const std::string_view path =
      variable == environment.end() ? std::string_view() : trimmed(variable->second);
  return std::string(path.empty() ? defaultLogPath : path);
}

AgentHookFallbackStatus AgentHookLogInspector::recentFallbackStatus(
    const std::optional<std::string>& logPath, Date now, const Environment& environment) {
  const std::string path = logPath ? *logPath : AgentHookLogInspector::logPath(environment);
  const LogEnd log = readEndOf(path);
  return statusOf(log.lines(), path, now);
}

AgentHookFallbackStatus AgentHookLogInspector::recentFallbackStatus(std::string_view logContents,
                                                                    const std::string& logPath,
                                                                    Date now) {
  return statusOf(splitLines(logContents), logPath, now);
}

void AgentHookLogInspector::markFallbackResolved(const std::optional<std::string>& logPath,
                                                 std::string_view reason, Date now,
                                                 const Environment& environment) noexcept {
  try {
    append(logPath ? *logPath : AgentHookLogInspector::logPath(environment),
           resolutionLine(reason, now));
  } catch (const std::exception&) {
    // The line only spares the person a warning: no command is worth failing for it.
  }
}

std::optional<std::string> AgentHookLogInspector::doctorWarning(
    const AgentHookFallbackStatus& status, bool ownsSleepDisable) {
  if (!status.isActive || ownsSleepDisable) {
    return std::nullopt;
  }
  return "Warning: agent hook recently started fallback caffeinate (" + status.logPath +
         "); closed-lid sleep prevention is unavailable.";
}

}  // namespace nodo
