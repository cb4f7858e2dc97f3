#include <NODOCore/base/Text.h>
#include <NODOCore/sensing/AgentDetector.h>
#include <NODOCore/sensing/ProcessListing.h>

#include <string>

#include <fuzz/Fuzzing.h>

namespace nodo::fuzzing {
namespace {

void checkRow(const RunningProcess& row) {
  require(!row.executable.empty() && !row.command.empty(), "no text of a row is empty");
  require(!contains(row.executable, " "), "an executable holds no blank");
  require(row.ppid.has_value(), "a row has a parent");

  // A mark that belongs to what follows it would swallow the blank behind it.
  if (characterCount(row.executable + " ") == characterCount(row.executable)) {
    return;
  }
  const std::string line = std::to_string(row.pid) + " " + std::to_string(*row.ppid) + " " +
                           row.executable + " " + row.command;
  require(PSProcessListing::parse(line) == std::vector{row}, "a row written out reads back equal");
}

void checkKind(const AgentDetector& detector, const RunningProcess& row) {
  RunningProcess lower = row;
  lower.executable = lowercased(row.executable);
  lower.command = lowercased(row.command);
  const auto kind = detector.classify(lower);
  // A shell's option is "-c" in the command as it stands: " -C " is none, lower-cased it is.
  const bool mayChange = contains(lower.command, " -c ") || hasSuffix(lower.command, " -c");
  require(detector.classify(row) == kind || (mayChange && !kind),
          "capitals do not change the kind");

  lower.executable = "/usr/bin/nodoctl";
  require(!detector.classify(lower), "nodo's own tool is no agent");
  lower.executable = "bash";
  lower.command = "bash -c " + lower.command;
  require(!detector.classify(lower), "a shell with a one-line command is no agent");
  lower.executable = "/opt/claude/";
  require(detector.classify(lower) == AgentKind::claudeCode, "an agent is known by its name");
}

void checkDetection(const AgentDetector& detector, const std::vector<RunningProcess>& rows) {
  auto agents = detector.detect(rows);
  auto agent = agents.begin();
  for (const RunningProcess& row : rows) {
    const auto kind = detector.classify(row);
    if (!kind) {
      continue;
    }
    const AgentProcess expected{.pid = row.pid,
                                .ppid = row.ppid,
                                .executable = row.executable,
                                .command = row.command,
                                .kind = *kind};
    require(agent != agents.end() && *agent == expected, "agents are found in the table's order");
    ++agent;
  }
  require(agent == agents.end(), "nothing but the classified rows is found");
}

}  // namespace
}  // namespace nodo::fuzzing

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const auto rows = nodo::PSProcessListing::parse(nodo::fuzzing::textOf(data, size));
  const nodo::AgentDetector detector;
  for (const nodo::RunningProcess& row : rows) {
    nodo::fuzzing::checkRow(row);
    nodo::fuzzing::checkKind(detector, row);
  }
  nodo::fuzzing::checkDetection(detector, rows);
  return 0;
}
