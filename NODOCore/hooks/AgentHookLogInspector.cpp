#include <NODOCore/base/Files.h>
#include <NODOCore/base/JSONCoding.h>
#include <NODOCore/base/LocalTime.h>
#include <NODOCore/base/Text.h>
#include <NODOCore/hooks/AgentHookLogInspector.h>
#include <NODOCore/hooks/HookFallbackSearch.h>

#include <cerrno>
#include <cmath>
#include <exception>
#include <filesystem>

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

std::string resolutionLine(std::string_view reason, Date now) {
  std::string line = localTimeText(now) + " " +
                     std::string(AgentHookLogInspector::fallbackResolvedMarker) + " reason=";
  for (const char character : reason) {
    const bool breaks = character == '\n' || character == '\r' || character == '\t';
    line += breaks ? ' ' : character;
  }
  return line + "\n";
}

// The log, open for appending; made where it is missing. The two steps are apart because some
// systems refuse O_CREAT for a file of another user in a folder such as /tmp. O_NONBLOCK is for a
// named pipe, which would wait for a reader.
FileDescriptor openForAppending(const std::string& path) {
  constexpr int flags = O_WRONLY | O_APPEND | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK | O_NOCTTY;
  FileDescriptor file(::open(path.c_str(), flags));
  if (!file && errno == ENOENT) {
    file = FileDescriptor(::open(path.c_str(), flags | O_CREAT | O_EXCL, 0666));
    if (!file && errno == EEXIST) {  // the hook script made it in between
      file = FileDescriptor(::open(path.c_str(), flags));
    }
  }
  return file;
}

bool isRegular(const FileDescriptor& file) {
  struct stat status {};

  return ::fstat(file.get(), &status) == 0 && S_ISREG(status.st_mode);
}

// In one call, so that lines of other processes do not come in between.
void append(const std::string& path, const std::string& line) {
  std::error_code ignored;
  fs::create_directories(fs::path(path).parent_path(), ignored);
  const FileDescriptor log = openForAppending(path);
  if (!log || !isRegular(log)) {
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
  try {
    LogFileText log(path);
    return fallbackStatus(log, path, now);
  } catch (const std::system_error&) {
    return recentFallbackStatus("", path, now);
  }
}

AgentHookFallbackStatus AgentHookLogInspector::recentFallbackStatus(std::string_view logContents,
                                                                    const std::string& logPath,
                                                                    Date now) {
  WholeLogText log(logContents);
  return fallbackStatus(log, logPath, now);
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
