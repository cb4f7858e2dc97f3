#include <NODOCore/base/Errors.h>
#include <NODOCore/base/Text.h>
#include <NODOCore/power/ChildProcess.h>
#include <NODOCore/sensing/ProcessListing.h>

#include <optional>
#include <string>
#include <system_error>
#include <utility>

#include <fmt/format.h>
#include <fmt/ranges.h>

namespace nodo {

namespace {

std::optional<RunningProcess> parseRow(std::string_view row) {
  const auto pid = takeField(row);
  const auto ppid = takeField(row);
  const auto executable = takeField(row);
  if (!executable) {
    return std::nullopt;
  }
  const auto pidNumber = integerFromText<std::int32_t>(*pid);
  const auto ppidNumber = integerFromText<std::int32_t>(*ppid);
  if (!pidNumber || !ppidNumber) {
    return std::nullopt;
  }
  return RunningProcess{.pid = *pidNumber,
                        .ppid = ppidNumber,
                        .executable = std::string(*executable),
                        .command = std::string(row.empty() ? *executable : row)};
}

// "1-02:03:04", "183:04.25" and all between.
std::optional<Seconds> parseTime(std::string_view text) {
  double whole = 0;
  double part = 0;
  double digit = 1;  // what one counts, behind a point
  for (const char character : text) {
    if (character >= '0' && character <= '9') {
      part = digit == 1 ? part * 10 + (character - '0') : part + digit * (character - '0');
      digit = digit == 1 ? 1 : digit / 10;
    } else if (character == '-' || character == ':') {
      whole = (whole + part) * (character == '-' ? 24 : 60);
      part = 0;
    } else if (character == '.' && digit == 1) {
      digit = 0.1;
    } else {
      return std::nullopt;
    }
  }
  return Seconds(whole + part);
}

}  // namespace

std::vector<RunningProcess> PSProcessListing::parse(std::string_view output) {
  std::vector<RunningProcess> processes;
  for (const std::string_view row : splitAtLineFeeds(output)) {
    if (auto process = parseRow(row)) {
      processes.push_back(std::move(*process));
    }
  }
  return processes;
}

std::vector<RunningProcess> PSProcessListing::listProcesses() const {
  const EndedProcess ps = runToEnd("/bin/ps", {"-axo", "pid=,ppid=,comm=,command="}, limit);
  if (ps.exitCode != 0) {
    throw NODOError::processListingFailed(isValidUTF8(ps.standardError) ? ps.standardError
                                                                        : "ps failed");
  }
  return parse(isValidUTF8(ps.standardOutput) ? ps.standardOutput : "");
}

std::map<std::int32_t, Seconds> PSProcessListing::processorTimes(
    const std::vector<std::int32_t>& pids) const {
  if (pids.empty()) {
    return {};
  }
  try {
    // It fails for a process that is gone, and tells of the others.
    const EndedProcess ps =
        runToEnd("/bin/ps",
                 {"-S", "-o", "pid=,time=", "-p", fmt::format("{}", fmt::join(pids, ","))}, limit);
    return parseTimes(ps.standardOutput);
  } catch (const std::system_error&) {
    return {};
  }
}

std::map<std::int32_t, Seconds> PSProcessListing::parseTimes(std::string_view output) {
  std::map<std::int32_t, Seconds> times;
  for (std::string_view row : splitAtLineFeeds(output)) {
    const auto pid = integerFromText<std::int32_t>(takeField(row).value_or(""));
    const auto text = takeField(row);
    const auto time = text ? parseTime(*text) : std::nullopt;
    if (pid && time) {
      times[*pid] = *time;
    }
  }
  return times;
}

}  // namespace nodo
