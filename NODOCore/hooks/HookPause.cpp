#include <NODOCore/base/Files.h>
#include <NODOCore/base/Text.h>
#include <NODOCore/hooks/HookFiles.h>
#include <NODOCore/hooks/HookPause.h>

#include <cerrno>
#include <string>
#include <system_error>

#include <unistd.h>

namespace nodo {
namespace {

// The script's own, unless its user set others for all agents (nodo-hooks(7)).
constexpr Seconds scriptInterval(120);

std::filesystem::path stampPath(const std::filesystem::path& home) {
  return home / ".nodo" / "last-extend.stamp";
}

}  // namespace

std::optional<Date> hooksPausedUntil(const std::filesystem::path& home, Date now) {
  std::optional<std::string> content;
  try {
    content = readFile(stampPath(home));
  } catch (const std::system_error&) {
    return std::nullopt;  // the script cannot read it either, and asks
  }
  const auto stamp = integerFromText<std::int64_t>(trimmed(content.value_or("")));
  if (!stamp) {
    return std::nullopt;
  }
  const Date asked = dateFromSeconds(static_cast<double>(*stamp));
  const bool isAhead = asked > now && asked <= now + std::chrono::minutes(mostPauseMinutes);
  return isAhead ? std::optional(asked + scriptInterval) : std::nullopt;
}

void pauseHooks(const std::filesystem::path& home, Date until) {
  const std::filesystem::path stamp = stampPath(home);
  makeFolderOfOwner(stamp.parent_path());
  replaceFile(stamp,
              std::to_string(wholeSeconds((until - scriptInterval).time_since_epoch())) + "\n");
  giveToOwnerOfFolder(stamp);
}

void throttleHooks(const std::filesystem::path& home, Date now) {
  if (!hooksPausedUntil(home, now)) {
    pauseHooks(home, now + scriptInterval);
  }
}

void resumeHooks(const std::filesystem::path& home) {
  const std::filesystem::path stamp = stampPath(home);
  if (::unlink(stamp.c_str()) != 0 && errno != ENOENT && errno != ENOTDIR) {
    throwErrno("Unable to remove", stamp.string());
  }
}

}  // namespace nodo
