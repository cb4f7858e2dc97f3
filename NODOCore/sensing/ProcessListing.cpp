#include <NODOCore/base/Errors.h>
#include <NODOCore/base/Text.h>
#include <NODOCore/power/ChildProcess.h>
#include <NODOCore/sensing/ProcessListing.h>

#include <optional>
#include <string>
#include <utility>

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

}  // namespace nodo
